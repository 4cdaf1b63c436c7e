#include "VHLoginService.h"

#include <set>

#include "VHEmulatorIds.h"
#include "VHEmulatorRecords.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

VHJson refusal(const char* code) {
    return {{"ErrorCode", code}, {"Wipe", false}};
}

}  // namespace

void VHLoginService::registerRoutes(VHEmulatorServer& server) {
    server.route(VHHostKind::Global, "GET", "/GetUserDomain\\.aspx",
                 [this](VHEmulatorExchange& exchange) { userDomain(exchange); });
    server.route(VHHostKind::Global, "GET", "/GlobalLogin\\.aspx",
                 [this](VHEmulatorExchange& exchange) { globalLogin(exchange, false); });
    server.route(VHHostKind::Gateway, "GET", "/login2\\.aspx",
                 [this](VHEmulatorExchange& exchange) { globalLogin(exchange, true); });
    server.route(VHHostKind::Gateway, "GET", "/ClientLogin\\.aspx",
                 [this](VHEmulatorExchange& exchange) { clientLogin(exchange); });
}

void VHLoginService::userDomain(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    auto user = store_.accounts.user(exchange.query("useremail"));
    auto domain = user ? store_.accounts.domainById(user->primaryDomainId) : std::nullopt;
    if (!domain) return exchange.replyText(404, "");
    exchange.replyText(200, "OK," + domain->url);
}

void VHLoginService::globalLogin(VHEmulatorExchange& exchange, bool onGateway) {
    std::string deviceId = exchange.header("deviceid");
    auto password = VHBase64Decoded(exchange.header("password2"));
    auto guard = store_.db.lock();
    auto user = store_.accounts.user(exchange.header("useremail"));
    if (!user) return exchange.reply(200, refusal("U101"));
    bool passwordOk = password && *password == user->password;
    auto device = store_.accounts.device(user->email, deviceId);
    if (device && device->wipe) {
        // A wipe order is delivered once; the device may sign in afresh later.
        store_.accounts.setDevice(user->email, deviceId, false);
        return exchange.reply(
            200,
            {{"ErrorCode", passwordOk ? "U100" : "U101"}, {"Wipe", true}, {"DeviceId", deviceId}});
    }
    if (!passwordOk) return exchange.reply(200, refusal("U101"));
    if (onGateway) {
        auto domain = store_.accounts.domainByUrl(exchange.domainUrl);
        if (!domain || !store_.accounts.membership(user->email, domain->domainId)) {
            return exchange.reply(200, refusal("U101"));
        }
    }
    if (!device) {
        if (user->requireKnownDevices) return exchange.reply(200, refusal("U107"));
        if (deviceId.empty()) deviceId = VHNewInternalName();
        store_.accounts.setDevice(user->email, deviceId, false);
    }
    store_.accounts.recordLogin(user->email);
    exchange.reply(200, acceptedLogin(*store_.accounts.user(user->email), deviceId));
}

VHJson VHLoginService::acceptedLogin(const VHEmulatorUser& user, const std::string& deviceId) {
    VHJson answer = {{"ErrorCode", "U100"},
                     {"Wipe", false},
                     {"DeviceId", deviceId},
                     {"ConfirmKey", ""},
                     {"User", VHUserRecord(user)}};
    VHJson others = VHJson::array();
    for (const VHEmulatorMembership& member : store_.accounts.memberships(user.email)) {
        auto domain = store_.accounts.domainById(member.domainId);
        if (!domain) continue;
        if (domain->domainId != user.primaryDomainId) {
            others.push_back(VHUserDomainRecord(*domain, member));
            continue;
        }
        answer["PrimaryUserDomain"] = VHUserDomainRecord(*domain, member);
        answer["Reseller"] = VHResellerRecord(*domain);
    }
    answer["UserDomains"] = std::move(others);
    return answer;
}

void VHLoginService::clientLogin(VHEmulatorExchange& exchange) {
    std::string email = exchange.query("userEmail");
    std::string token = exchange.query("token");
    auto guard = store_.db.lock();
    auto domain = store_.accounts.domainByUrl(exchange.domainUrl);
    if (!domain) return exchange.replyText(404, "Unknown domain");
    auto member = store_.accounts.membership(email, domain->domainId);
    auto user = store_.accounts.user(email);
    if (!member || !user || token.empty() || member->token != token) {
        return exchange.replyText(401, "Invalid user or token");
    }
    VHJson shares = VHJson::array();
    std::set<std::string> companies;
    for (const auto& [share, acl] : store_.accounts.sharesOf(user->email, domain->domainId)) {
        shares.push_back(VHManagedShareRecord(share, acl, *domain));
        if (share.companyId != user->companyId) companies.insert(share.companyId);
    }
    VHJson sharing = VHJson::array();
    for (const std::string& company : companies) {
        sharing.push_back({{"CompanyId", company}, {"AssociationType", 1}});
    }
    exchange.reply(200,
                   {{"User", VHUserRecord(*user)},
                    {"ManagedShares", std::move(shares)},
                    {"LoginTokenn", VHRandomHex(16)},
                    {"Cookie", member->cookie},
                    {"FilecacheUrls", VHJson::array({std::string(kFilecachePrefix) + domain->url})},
                    {"SharingCompanies", std::move(sharing)}});
}

}  // namespace vh::emulator
