#include "support/VHEmulatorStore.h"

#include <gtest/gtest.h>

#include "lib/VHCrypto.h"
#include "lib/VHHttp.h"
#include "lib/VHStrings.h"
#include "store/VHCatchUpResponse.h"
#include "store/VHDatabase.h"

namespace vh::test {

std::optional<UserDomain> VHEmulatorDomains::userDomainWithId(const std::string& id) {
    auto& domain = global.PrimaryUserDomain;
    if (domain && domain->Domain && domain->Domain->DomainId == id) return domain;
    return std::nullopt;
}

bool VHFillStoreFromEmulator(const VHEmulatorProcess& emulator, const std::string& email,
                             const std::string& password, VHEmulatorDomains& domains) {
    VHHttp::setConnectTo(emulator.connectTo());
    VHHttp::setExtraCAFile(emulator.caFile());
    VHDatabase& db = VHDatabase::database();
    db.load();
    auto global = VHParseRecord<GlobalLoginResponce>(
        emulator
            .request("GET", "global.varnholt.test", "/GlobalLogin.aspx",
                     {{"useremail", email}, {"password2", VHBase64Encode(password)}})
            .body);
    if (!global || !global->PrimaryUserDomain || !global->PrimaryUserDomain->Domain) {
        ADD_FAILURE() << "global login failed";
        return false;
    }
    domains.global = *global;
    const UserDomain& domain = *global->PrimaryUserDomain;
    std::string gateway = "clientgateway." + domain.Domain->Url.value_or("");
    auto login = VHParseRecord<ClientLoginResponse>(
        emulator
            .request("GET", gateway,
                     "/ClientLogin.aspx?userEmail=" + VHEscapeURLValue(email) +
                         "&API=1&token=" + VHEscapeURLValue(domain.UserDomainToken.value_or("")))
            .body);
    if (!login || !login->ManagedShares) {
        ADD_FAILURE() << "gateway login failed";
        return false;
    }
    db.updateShares(*login, domain);
    for (const ManagedShare& share : *login->ManagedShares) {
        auto page = VHParseRecord<OSXCatchUpResponse>(
            emulator
                .request("POST", gateway, "/CatchUp7.aspx",
                         {{"share", share.shareId()},
                          {"token", VHEscapeURLValue(share.ShareAcl->AclToken.value_or(""))},
                          {"tickfrom", "0"},
                          {"ticktake", "10000"}})
                .body);
        auto stored = db.shareWithId(share.shareId());
        if (!page || !stored) {
            ADD_FAILURE() << "catch-up of " << share.shareId() << " failed";
            return false;
        }
        db.updateFiles(*page, *stored);
    }
    return true;
}

nlohmann::json VHTeamSeed(const nlohmann::json& actions) {
    using nlohmann::json;
    return {{"globalHost", "global.varnholt.test"},
            {"domains", {{{"url", "d1.varnholt.test"}}}},
            {"users",
             {{{"email", "a@varnholt.test"},
               {"password", "pw"},
               {"primaryDomain", "d1.varnholt.test"}}}},
            {"shares",
             {{{"shareId", "team"},
               {"name", "Team"},
               {"domain", "d1.varnholt.test"},
               {"owner", "a@varnholt.test"},
               {"actions", actions}}}}};
}

nlohmann::json VHWriteTextAction(const std::string& path, const std::string& text) {
    return {{"action", "writeFile"}, {"path", path}, {"text", text}};
}

}  // namespace vh::test
