// Login against the real emulator: global login, device rules, gateway
// login, and the record keys the client reads.
#include <gtest/gtest.h>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

class EmulatorLogin : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(emulator.start({VHCompactSeed(), ""})); }

    json globalLogin(const std::string& email, const std::string& password2,
                     const std::string& deviceId, const std::string& host = kGlobal,
                     const std::string& path = "/GlobalLogin.aspx") {
        VHEmulatorReply reply = emulator.request("GET", host, path,
                                                 {{"useremail", email},
                                                  {"password2", password2},
                                                  {"deviceid", deviceId},
                                                  {"devicetype", "Linux"},
                                                  {"devicename", "test"},
                                                  {"deviceos", "Linux test"},
                                                  {"applicationversion", "1.0 (1)"}});
        EXPECT_EQ(reply.status, 200);
        return reply.json();
    }

    VHEmulatorProcess emulator;
};

// Keys of the records, written from the record tables the client follows.
const std::set<std::string> kGlobalLoginKeys = {
    "PrimaryUserDomain", "UserDomains", "DeviceId", "ErrorCode",
    "ConfirmKey",        "Wipe",        "User",     "Reseller"};
const std::set<std::string> kDomainKeys = {"DomainId", "Url", "DomainName", "ResellerId"};
const std::set<std::string> kUsersKeys = {"UserId",     "Email",         "AltMail",
                                          "Alias",      "Name",          "ResellerId",
                                          "CreateTime", "LastLoginTime", "Status"};
const std::set<std::string> kResellerKeys = {"ResellerId",
                                             "ExternalId",
                                             "ParrentResellerId",
                                             "ProviderId",
                                             "Name",
                                             "SkinVersion",
                                             "ResellerHomePageUrl",
                                             "CompanyHomePageUrl",
                                             "BrowserClientHomaPage",
                                             "SkinUrl",
                                             "CreateTime"};
const std::set<std::string> kManagedShareKeys = {"VshareId",
                                                 "ShareId",
                                                 "CompanyId",
                                                 "VshareName",
                                                 "ShareName",
                                                 "TransmitId",
                                                 "AliasName",
                                                 "DisplayName",
                                                 "ParentShareId",
                                                 "InternalName",
                                                 "ShareType",
                                                 "AssociationType",
                                                 "Status",
                                                 "ShareChanged",
                                                 "Online",
                                                 "TransmitCounter",
                                                 "LastApplyedJournalTick",
                                                 "LastUpdate",
                                                 "LastBufferEntry",
                                                 "ConflicTnternalId",
                                                 "DomainId",
                                                 "ShareAcl",
                                                 "GateWayUrl",
                                                 "NextCathUp",
                                                 "CreationDate",
                                                 "ModificationDate",
                                                 "CompanyName",
                                                 "Synchronize"};
const std::set<std::string> kShareAclKeys = {"ShareId", "AclType", "ShareShareRights",
                                             "FileShareRights", "AclToken"};

TEST_F(EmulatorLogin, GlobalLoginAnswersWithTheUsersDomains) {
    VHEmulatorReply lookup =
        emulator.request("GET", kGlobal, "/GetUserDomain.aspx?useremail=alice@varnholt.test");
    ASSERT_EQ(lookup.status, 200);
    EXPECT_EQ(lookup.body.substr(lookup.body.find(',') + 1), "d1.varnholt.test");
    EXPECT_EQ(std::count(lookup.body.begin(), lookup.body.end(), ','), 1);
    EXPECT_EQ(
        emulator.request("GET", kGlobal, "/GetUserDomain.aspx?useremail=nobody@x.test").status,
        404);

    json answer = globalLogin("alice@varnholt.test", VHTestBase64("alice-pw"), "dev-1");
    EXPECT_EQ(answer["ErrorCode"], "U100");
    EXPECT_EQ(answer["Wipe"], false);
    EXPECT_EQ(answer["DeviceId"], "dev-1");
    for (const std::string& key : VHKeys(answer)) EXPECT_TRUE(kGlobalLoginKeys.count(key)) << key;
    EXPECT_EQ(VHKeys(answer["PrimaryUserDomain"]),
              (std::set<std::string>{"Domain", "UserDomainToken"}));
    EXPECT_EQ(VHKeys(answer["PrimaryUserDomain"]["Domain"]), kDomainKeys);
    EXPECT_EQ(answer["PrimaryUserDomain"]["Domain"]["Url"], "d1.varnholt.test");
    ASSERT_EQ(answer["UserDomains"].size(), 1u);
    EXPECT_EQ(answer["UserDomains"][0]["Domain"]["Url"], "d2.varnholt.test");
    EXPECT_NE(answer["UserDomains"][0]["UserDomainToken"],
              answer["PrimaryUserDomain"]["UserDomainToken"]);
    EXPECT_EQ(VHKeys(answer["User"]), kUsersKeys);
    EXPECT_TRUE(answer["User"]["Status"].is_number_integer());
    EXPECT_EQ(VHKeys(answer["Reseller"]), kResellerKeys);
    EXPECT_TRUE(answer["Reseller"]["SkinVersion"].is_number_integer());
    // login2 on a gateway answers the same way for a member of that domain.
    json island = globalLogin("alice@varnholt.test", VHTestBase64("alice-pw"), "dev-1", kGateway1,
                              "/login2.aspx");
    EXPECT_EQ(island["ErrorCode"], "U100");
    EXPECT_EQ(globalLogin("bob@varnholt.test", VHTestBase64("bob-pw"), "dev-1",
                          "clientgateway.d2.varnholt.test", "/login2.aspx")["ErrorCode"],
              "U101");
}

TEST_F(EmulatorLogin, PasswordsAreBase64AndDeviceIdsAreAssigned) {
    EXPECT_EQ(globalLogin("alice@varnholt.test", "alice-pw", "dev-1")["ErrorCode"], "U101");
    EXPECT_EQ(globalLogin("alice@varnholt.test", VHTestBase64("wrong"), "dev-1")["ErrorCode"],
              "U101");
    EXPECT_EQ(globalLogin("nobody@varnholt.test", VHTestBase64("x"), "dev-1")["ErrorCode"], "U101");
    json first = globalLogin("alice@varnholt.test", VHTestBase64("alice-pw"), "");
    ASSERT_EQ(first["ErrorCode"], "U100");
    std::string assigned = first["DeviceId"];
    EXPECT_FALSE(assigned.empty());
    EXPECT_EQ(globalLogin("alice@varnholt.test", VHTestBase64("alice-pw"), assigned)["DeviceId"],
              assigned);
}

TEST_F(EmulatorLogin, KnownDevicesAndWipeOrders) {
    std::string password = VHTestBase64("carol-pw");
    EXPECT_EQ(globalLogin("carol@varnholt.test", password, "stranger")["ErrorCode"], "U107");
    EXPECT_EQ(globalLogin("carol@varnholt.test", password, "")["ErrorCode"], "U107");
    EXPECT_EQ(globalLogin("carol@varnholt.test", password, "carol-laptop")["ErrorCode"], "U100");

    ASSERT_TRUE(emulator.setDevice("carol@varnholt.test", "carol-laptop", true));
    json wiped = globalLogin("carol@varnholt.test", password, "carol-laptop");
    EXPECT_EQ(wiped["Wipe"], true);
    // Delivered once: the next login is an ordinary one.
    json after = globalLogin("carol@varnholt.test", password, "carol-laptop");
    EXPECT_EQ(after["Wipe"], false);
    EXPECT_EQ(after["ErrorCode"], "U100");
}

TEST_F(EmulatorLogin, GatewayLoginHandsOutSharesRightsAndCookie) {
    VHTestSession alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
    ASSERT_FALSE(alice.domainToken.empty());
    EXPECT_FALSE(alice.cookie.empty());
    const json& shares = alice.managedShares;
    EXPECT_EQ(VHKeys(shares), (std::set<std::string>{"team", "mine", "ro", "sub"}));
    for (const auto& [id, share] : shares.items()) {
        EXPECT_EQ(VHKeys(share), kManagedShareKeys) << id;
        EXPECT_EQ(VHKeys(share["ShareAcl"]), kShareAclKeys) << id;
        EXPECT_EQ(share["GateWayUrl"], "d1.varnholt.test");
        EXPECT_TRUE(share["LastApplyedJournalTick"].is_number_integer());
    }
    EXPECT_EQ(shares["team"]["ShareAcl"]["AclType"], 1);
    EXPECT_EQ(shares["mine"]["ShareAcl"]["AclType"], 2);
    EXPECT_EQ(shares["mine"]["AssociationType"], 2);
    EXPECT_EQ(shares["ro"]["ShareAcl"]["AclType"], 0);
    EXPECT_EQ(shares["sub"]["ShareType"], 1);
    EXPECT_EQ(shares["sub"]["ParentShareId"], "archive");
    EXPECT_EQ(shares["sub"]["InternalName"], VHInternalName(emulator, "archive", "/Shared"));
    EXPECT_EQ(shares["team"]["ShareType"], 0);

    std::string query = "/ClientLogin.aspx?userEmail=alice@varnholt.test&API=1&token=";
    json answer = emulator.request("GET", kGateway1, query + alice.domainToken).json();
    EXPECT_EQ(answer["FilecacheUrls"], json::array({"filecache01.d1.varnholt.test"}));
    ASSERT_FALSE(answer["SharingCompanies"].empty());
    EXPECT_TRUE(answer["SharingCompanies"][0].contains("AssociationType"));
    EXPECT_TRUE(answer.contains("LoginTokenn"));
    EXPECT_EQ(emulator.request("GET", kGateway1, query + "wrong").status, 401);
    EXPECT_EQ(emulator.request("GET", kGateway1, query).status, 401);
    // The d2 token does not open d1.
    auto account = emulator.account("alice@varnholt.test");
    ASSERT_TRUE(account);
    for (const json& domain : (*account)["domains"]) {
        if (domain["url"] != "d2.varnholt.test") continue;
        EXPECT_EQ(
            emulator.request("GET", kGateway1, query + domain["token"].get<std::string>()).status,
            401);
        json second = emulator
                          .request("GET", "clientgateway.d2.varnholt.test",
                                   query + domain["token"].get<std::string>())
                          .json();
        ASSERT_EQ(second["ManagedShares"].size(), 1u);
        EXPECT_EQ(second["ManagedShares"][0]["ShareId"], "d2share");
        EXPECT_EQ(second["ManagedShares"][0]["GateWayUrl"], "d2.varnholt.test");
    }
}

}  // namespace
}  // namespace vh::test
