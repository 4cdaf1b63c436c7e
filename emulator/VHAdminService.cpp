#include "VHAdminService.h"

#include "VHEmulatorActions.h"
#include "VHEmulatorDates.h"
#include "VHEmulatorProvisioning.h"
#include "VHEmulatorRecords.h"

namespace vh::emulator {

namespace {

const std::string kAdmin(kAdminPrefix);

std::string text(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

int64_t number(const std::string& text, int64_t fallback) {
    try {
        return text.empty() ? fallback : std::stoll(text);
    } catch (const std::exception&) {
        return fallback;
    }
}

void replyDone(VHEmulatorExchange& exchange, bool done, const std::string& what) {
    if (done) return exchange.reply(200, {{"done", true}});
    exchange.replyFailure(VHFail(404, kCodeBadRequest, "No such " + what));
}

// The type of the domain events the emulator raises by itself.
constexpr int kShareListChanged = 1;

}  // namespace

void VHAdminService::registerRoutes(VHEmulatorServer& server) {
    auto add = [&](const char* method, const std::string& path,
                   void (VHAdminService::*handler)(VHEmulatorExchange&)) {
        server.route(VHHostKind::Any, method, kAdmin + path,
                     [this, handler](VHEmulatorExchange& exchange) { (this->*handler)(exchange); });
    };
    add("GET", "state", &VHAdminService::state);
    add("POST", "domains", &VHAdminService::addDomain);
    add("POST", "domains/([^/]+)/events", &VHAdminService::raiseDomainEvent);
    add("GET", "events", &VHAdminService::listEvents);
    add("POST", "users", &VHAdminService::addUser);
    add("GET", "users/([^/]+)", &VHAdminService::describeUser);
    add("DELETE", "users/([^/]+)", &VHAdminService::removeUser);
    add("POST", "devices", &VHAdminService::setDevice);
    add("POST", "shares", &VHAdminService::addShare);
    add("DELETE", "shares/([^/]+)", &VHAdminService::removeShare);
    add("PUT", "shares/([^/]+)", &VHAdminService::renameShare);
    add("PUT", "shares/([^/]+)/acl", &VHAdminService::setAcl);
    add("DELETE", "shares/([^/]+)/acl/([^/]+)", &VHAdminService::removeAcl);
}

VHJson VHAdminService::describeShare(const VHEmulatorShare& share) {
    auto domain = store_.accounts.domainById(share.domainId);
    VHJson rights = VHJson::array();
    for (const VHEmulatorAcl& acl : store_.accounts.acls(share.shareId)) {
        rights.push_back({{"email", acl.email}, {"aclType", acl.aclType}, {"aclToken", acl.token}});
    }
    return {{"shareId", share.shareId},
            {"name", share.name},
            {"domain", domain ? domain->url : ""},
            {"owner", share.ownerEmail},
            {"parentShareId", share.parentShareId},
            {"rootFolder", share.rootFolder},
            {"tick", share.tick},
            {"acl", std::move(rights)}};
}

bool VHAdminService::announce(const VHEmulatorShare& share, const char* what) {
    auto domain = store_.accounts.domainById(share.domainId);
    if (!domain) return false;
    VHJson event = {{"DomainEventType", kShareListChanged},
                    {"Update", ""},
                    {"Company", ""},
                    {"Delete", ""},
                    {"New", ""}};
    event[what] = share.shareId;
    return store_.events.record(domain->domainId, kMessageDomainEvent, domain->url, event);
}

void VHAdminService::state(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    VHJson domains = VHJson::array(), users = VHJson::array(), shares = VHJson::array();
    for (const auto& domain : store_.accounts.domains()) {
        domains.push_back(
            {{"domainId", domain.domainId}, {"url", domain.url}, {"name", domain.name}});
    }
    for (const auto& user : store_.accounts.users()) {
        users.push_back({{"email", user.email}, {"userId", user.userId}, {"name", user.name}});
    }
    for (const auto& share : store_.accounts.shares()) shares.push_back(describeShare(share));
    VHJson uploads = {{"inProgress", store_.uploads.count()},
                      {"reservedBytes", store_.uploads.reservedBytes()},
                      {"receiving", store_.uploads.receiving()},
                      {"waiting", store_.uploads.waiting()}};
    exchange.reply(200, {{"globalHost", store_.globalHost()},
                         {"domains", std::move(domains)},
                         {"users", std::move(users)},
                         {"shares", std::move(shares)},
                         {"uploads", std::move(uploads)}});
}

void VHAdminService::addDomain(VHEmulatorExchange& exchange) {
    auto description = exchange.jsonBody();
    if (!description) return exchange.replyFailure(VHFail(400, kCodeBadRequest, "JSON expected"));
    VHEmulatorResult<VHEmulatorDomain> domain = VHFail(500, kCodeBadRequest, "");
    {
        auto guard = store_.db.lock();
        domain = store_.atomically(
            [&] { return VHEmulatorProvisioning(store_).addDomain(*description); });
    }
    if (!domain) return exchange.replyFailure(domain.failure());
    if (!reissueCertificate_()) {
        return exchange.replyFailure(VHFail(500, kCodeBadRequest, "Cannot issue a certificate"));
    }
    exchange.reply(201, {{"domainId", domain->domainId}, {"url", domain->url}});
}

void VHAdminService::raiseDomainEvent(VHEmulatorExchange& exchange) {
    auto description = exchange.jsonBody();
    if (!description || !description->is_object()) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "JSON expected"));
    }
    auto guard = store_.db.lock();
    auto domain = store_.accounts.domainByUrl(exchange.params[0]);
    if (!domain) return replyDone(exchange, false, "domain");
    VHJson event = {{"DomainEventType", description->value("DomainEventType", 1)},
                    {"Update", text(*description, "Update")},
                    {"Company", text(*description, "Company")},
                    {"Delete", text(*description, "Delete")},
                    {"New", text(*description, "New")}};
    if (!store_.events.record(domain->domainId, kMessageDomainEvent, domain->url, event)) {
        return exchange.replyFailure(VHFail(500, kCodeBadRequest, store_.db.lastError()));
    }
    exchange.reply(201, {{"seq", *store_.db.integer("SELECT last_insert_rowid()")}});
}

void VHAdminService::listEvents(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    auto domain = store_.accounts.domainByUrl(exchange.query("domain"));
    if (!domain) return replyDone(exchange, false, "domain");
    VHJson list = VHJson::array();
    for (const VHEmulatorEvent& event :
         store_.events.after(domain->domainId, number(exchange.query("after"), 0),
                             number(exchange.query("limit"), 1000))) {
        list.push_back({{"seq", event.seq},
                        {"messageType", event.messageType},
                        {"sender", event.sender},
                        {"message", event.message},
                        {"time", VHServiceDateText(event.time)}});
    }
    exchange.reply(200, list);
}

void VHAdminService::addUser(VHEmulatorExchange& exchange) {
    auto description = exchange.jsonBody();
    if (!description) return exchange.replyFailure(VHFail(400, kCodeBadRequest, "JSON expected"));
    auto guard = store_.db.lock();
    auto user =
        store_.atomically([&] { return VHEmulatorProvisioning(store_).addUser(*description); });
    if (!user) return exchange.replyFailure(user.failure());
    exchange.reply(201, {{"email", user->email}, {"userId", user->userId}});
}

void VHAdminService::describeUser(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    auto user = store_.accounts.user(exchange.params[0]);
    if (!user) return replyDone(exchange, false, "user");
    VHJson domains = VHJson::array(), shares = VHJson::array();
    for (const VHEmulatorMembership& member : store_.accounts.memberships(user->email)) {
        auto domain = store_.accounts.domainById(member.domainId);
        domains.push_back({{"url", domain ? domain->url : ""},
                           {"domainId", member.domainId},
                           {"token", member.token},
                           {"cookie", member.cookie},
                           {"primary", member.domainId == user->primaryDomainId}});
        for (const auto& [share, acl] : store_.accounts.sharesOf(user->email, member.domainId)) {
            shares.push_back({{"shareId", share.shareId},
                              {"name", share.name},
                              {"aclType", acl.aclType},
                              {"aclToken", acl.token}});
        }
    }
    exchange.reply(200, {{"email", user->email},
                         {"userId", user->userId},
                         {"companyId", user->companyId},
                         {"domains", std::move(domains)},
                         {"shares", std::move(shares)}});
}

void VHAdminService::removeUser(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    replyDone(exchange, store_.accounts.removeUser(exchange.params[0]), "user");
}

void VHAdminService::setDevice(VHEmulatorExchange& exchange) {
    auto description = exchange.jsonBody();
    if (!description || !description->is_object()) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "JSON expected"));
    }
    auto guard = store_.db.lock();
    std::string email = text(*description, "email"), deviceId = text(*description, "deviceId");
    auto wipe = description->find("wipe");
    bool done =
        store_.accounts.user(email) && !deviceId.empty() &&
        store_.accounts.setDevice(
            email, deviceId, wipe != description->end() && wipe->is_boolean() && wipe->get<bool>());
    replyDone(exchange, done, "user or device id");
}

void VHAdminService::addShare(VHEmulatorExchange& exchange) {
    auto description = exchange.jsonBody();
    if (!description || !description->is_object()) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "JSON expected"));
    }
    auto actions =
        VHEmulatorActions::prepare(description->value("actions", VHJson::array()), store_.blobs);
    if (!actions) return exchange.replyFailure(actions.failure());
    auto guard = store_.db.lock();
    auto share = store_.atomically(
        [&] { return VHEmulatorProvisioning(store_).addShare(*description, *actions); });
    if (!share) {
        actions->discardContents(store_.blobs);
        return exchange.replyFailure(share.failure());
    }
    if (!announce(*share, "New")) {
        return exchange.replyFailure(VHFail(500, kCodeBadRequest, store_.db.lastError()));
    }
    exchange.reply(201, describeShare(*store_.accounts.share(share->shareId)));
}

void VHAdminService::renameShare(VHEmulatorExchange& exchange) {
    auto description = exchange.jsonBody();
    std::string name = description ? text(*description, "name") : "";
    if (name.empty())
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "A name is needed"));
    auto guard = store_.db.lock();
    auto share = store_.accounts.share(exchange.params[0]);
    replyDone(
        exchange,
        share && store_.accounts.renameShare(share->shareId, name) && announce(*share, "Update"),
        "share");
}

void VHAdminService::removeShare(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    const std::string& shareId = exchange.params[0];
    auto share = store_.accounts.share(shareId);
    if (!share) return replyDone(exchange, false, "share");
    auto removed = store_.atomically([&]() -> VHEmulatorResult<bool> {
        std::vector<std::string> doomed = store_.accounts.subfolderShares(shareId);
        doomed.push_back(shareId);
        for (const std::string& id : doomed) {
            if (!store_.accounts.removeShare(id) || !store_.journal.forgetDepartures(id)) {
                return VHFail(500, kCodeBadRequest, store_.db.lastError());
            }
        }
        if (!share->isSubfolder() && !store_.journal.purge(shareId)) {
            return VHFail(500, kCodeBadRequest, store_.db.lastError());
        }
        return true;
    });
    replyDone(exchange, removed && announce(*share, "Delete"), "share");
}

void VHAdminService::setAcl(VHEmulatorExchange& exchange) {
    auto description = exchange.jsonBody();
    if (!description || !description->is_object()) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "JSON expected"));
    }
    auto guard = store_.db.lock();
    auto type = description->find("aclType");
    auto share = store_.accounts.share(exchange.params[0]);
    bool done =
        share && type != description->end() && type->is_number_integer() &&
        store_.accounts.setAcl(share->shareId, text(*description, "email"), type->get<int>()) &&
        announce(*share, "New");
    replyDone(exchange, done, "share, user or right");
}

void VHAdminService::removeAcl(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    auto share = store_.accounts.share(exchange.params[0]);
    replyDone(exchange,
              share && store_.accounts.removeAcl(share->shareId, exchange.params[1]) &&
                  announce(*share, "Delete"),
              "right");
}

}  // namespace vh::emulator
