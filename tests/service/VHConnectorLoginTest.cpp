// Sign-in against the real emulator: the global login and its reply codes,
// the gateway login batch, and what must never be written in clear.
#include <sys/stat.h>

#include <filesystem>

#include "VHConnectorTestSupport.h"
#include "desktop/VHLogging.h"
#include "lib/VHCrypto.h"
#include "lib/VHPaths.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"

namespace vh::test {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

std::string setting(const std::string& key) {
    return VHSettings::string(VHSettings::prependAppTitle(key), "<missing>");
}

TEST_F(ConnectorTest, SignInStoresEveryDomainsSharesAndKeepsSecretsOutOfFiles) {
    connector().setUsername(kErin);
    connector().setPassword(kErinPassword);
    connector().saveCredentials();
    ASSERT_EQ(loginAgain(), Outcome::LoggedIn);
    EXPECT_EQ(connector().userDomain(), "d1.varnholt.test");
    EXPECT_EQ(requestsTo(kGlobalHost, "/GetUserDomain.aspx").size(), 1u);
    std::vector<json> logins = requestsTo(kGateway1, "/login2.aspx");
    ASSERT_EQ(logins.size(), 1u);
    EXPECT_EQ(logins[0]["headers"]["password2"], VHBase64Encode(kErinPassword));

    ASSERT_TRUE(loginBatch());
    EXPECT_TRUE(connector().failedUserDomains().empty());
    for (const char* shareId : {"reports", "team", "reports-two"}) {
        ASSERT_TRUE(caughtUp(shareId, 30s)) << shareId;
    }
    // Both domains have a share named "Reports"; each needs its own folder.
    std::string one = storedShare("reports")->displayName();
    std::string two = storedShare("reports-two")->displayName();
    EXPECT_NE(VHLowercase(one), VHLowercase(two));
    EXPECT_TRUE(VHDatabase::database().fileWithPath("/" + one + "/q1.txt"));
    EXPECT_TRUE(VHDatabase::database().fileWithPath("/" + two + "/r.txt"));

    std::vector<std::string> secrets = {kErinPassword, VHBase64Encode(kErinPassword)};
    json account = *emulator.account(kErin);
    for (const json& domain : account["domains"]) {
        secrets.insert(secrets.end(), {domain["token"], domain["cookie"]});
    }
    for (const json& share : account["shares"]) secrets.push_back(share["aclToken"]);
    std::string logs;
    for (const auto& entry : std::filesystem::directory_iterator(VHLogDir())) {
        logs += VHFileText(entry.path());
    }
    std::string settings = VHFileText(VHPaths::settingsFile());
    EXPECT_NE(logs.find("Login to global reply code: U100"), std::string::npos);
    for (const std::string& secret : secrets) {
        EXPECT_EQ(logs.find(secret), std::string::npos) << secret;
        EXPECT_EQ(settings.find(secret), std::string::npos) << secret;
    }
    std::string credentials = VHPaths::join(VHPaths::metadataDir(), "credentials.json");
    struct stat info {};
    ASSERT_EQ(stat(credentials.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_NE(VHFileText(credentials).find(kErinPassword), std::string::npos);
}

TEST_F(ConnectorTest, BatchEndsWhenEveryDomainAnsweredAndLaterBatchesFollowTheService) {
    ASSERT_TRUE(emulator.addFault({{"host", "d2"}, {"path", "ClientLogin"}, {"status", 500}}));
    ASSERT_EQ(signIn(kErin, kErinPassword), Outcome::LoggedIn);
    ASSERT_TRUE(loginBatch());
    ASSERT_EQ(connector().failedUserDomains().size(), 1u);
    EXPECT_EQ(connector().failedUserDomains()[0].Domain->Url, "d2.varnholt.test");
    EXPECT_TRUE(storedShare("reports"));
    EXPECT_FALSE(storedShare("reports-two"));

    ASSERT_TRUE(emulator.clearFaults());
    ASSERT_TRUE(emulator.addShare({{"shareId", "added"},
                                   {"name", "Added"},
                                   {"domain", "d2.varnholt.test"},
                                   {"owner", kErin}}));
    ASSERT_TRUE(emulator.removeShare("team"));
    ASSERT_TRUE(loginBatch());
    EXPECT_TRUE(connector().failedUserDomains().empty());
    EXPECT_TRUE(storedShare("added") && storedShare("reports-two"));
    EXPECT_FALSE(storedShare("team"));
}

TEST_F(ConnectorTest, RefusedLoginForgetsAKnownUserDomain) {
    connector().setUserDomain("d1.varnholt.test");
    ASSERT_EQ(signIn(kErin, "wrong"), Outcome::LoginFailed);
    EXPECT_EQ(connector().userDomain(), "");
    EXPECT_TRUE(requestsTo(kGlobalHost, "/GetUserDomain.aspx").empty());
    EXPECT_EQ(requestsTo(kGateway1, "/login2.aspx").size(), 1u);

    // The next attempt asks again; an unknown user has no domain and goes to the global host.
    ASSERT_EQ(signIn("nobody@varnholt.test", "x"), Outcome::LoginFailed);
    EXPECT_EQ(requestsTo(kGlobalHost, "/GetUserDomain.aspx").size(), 1u);
    EXPECT_EQ(logCount("Failed to retrieve user domain: error , HTTP status code: 404"), 1);
    EXPECT_EQ(requestsTo(kGlobalHost, "/GlobalLogin.aspx").size(), 1u);
    EXPECT_EQ(connectionFailed + loggedIn, 0);
}

TEST_F(ConnectorTest, UnknownDeviceIsRetriedOnceUntilASignInSucceeds) {
    connector().setDeviceId("earlier-id");
    ASSERT_EQ(signIn(kGina, "gina-pw"), Outcome::ConnectionFailed);
    EXPECT_TRUE(lastError.isEmpty());
    EXPECT_EQ(setting("deviceId"), "");
    EXPECT_EQ(loginAgain(), Outcome::LoginFailed);

    // A registered device signs in, and that allows one retry again.
    ASSERT_TRUE(emulator.setDevice(kGina, connector().deviceId(), false));
    ASSERT_EQ(loginAgain(), Outcome::LoggedIn);
    ASSERT_TRUE(emulator.removeUser(kGina));
    ASSERT_TRUE(emulator.addUser(VHConnectorSeed()["users"][2]));
    EXPECT_EQ(loginAgain(), Outcome::ConnectionFailed);
    EXPECT_EQ(loginAgain(), Outcome::LoginFailed);
}

TEST_F(ConnectorTest, WipeClearsCredentialsUserDomainAndDeviceId) {
    connector().setUsername(kErin);
    connector().setPassword(kErinPassword);
    connector().saveCredentials();
    connector().setDeviceId("earlier-id");
    ASSERT_TRUE(emulator.setDevice(kErin, connector().deviceId(), true));
    ASSERT_EQ(loginAgain(), Outcome::LoginFailed);
    EXPECT_EQ(loggedOut, 1);
    EXPECT_FALSE(connector().loggedIn() || connector().credentialsAvailable());
    EXPECT_EQ(setting("username"), "<missing>");
    EXPECT_EQ(setting("deviceId"), "");
    EXPECT_EQ(setting("userDomain"), "");
    connector().loadCredentials();
    EXPECT_EQ(connector().username(), "");
}

TEST_F(ConnectorTest, AnAddressAndPasswordWithURLCharactersSignInEverywhere) {
    const std::string email = "erin+work@varnholt.test";
    ASSERT_TRUE(emulator.addUser({{"email", email},
                                  {"password", "p+w&d=1 %"},
                                  {"primaryDomain", "d1.varnholt.test"},
                                  {"domains", {"d1.varnholt.test"}}}));
    ASSERT_TRUE(emulator.setAcl("team", email, 1));
    ASSERT_EQ(signIn(email, "p+w&d=1 %"), Outcome::LoggedIn);
    EXPECT_EQ(connector().userDomain(), "d1.varnholt.test");
    ASSERT_TRUE(loginBatch());
    EXPECT_TRUE(connector().failedUserDomains().empty());
    EXPECT_TRUE(storedShare("team"));
}

TEST_F(ConnectorTest, LoginAddressFollowsTheUserDomainReplyAndTheConfiguration) {
    ASSERT_TRUE(
        emulator.addFault({{"path", "GetUserDomain"}, {"status", 200}, {"message", "a,b"}}));
    ASSERT_EQ(signIn(kErin, kErinPassword), Outcome::LoggedIn);
    EXPECT_EQ(logCount("Invalid user domain reply: {"), 1);
    EXPECT_EQ(requestsTo(kGlobalHost, "/GlobalLogin.aspx").size(), 1u);
    EXPECT_EQ(connector().userDomain(), "");

    connector().setConfiguration({"d2.varnholt.test", true, true});
    ASSERT_EQ(loginAgain(), Outcome::LoggedIn);
    EXPECT_EQ(requestsTo(kGateway2, "/login2.aspx").size(), 1u);
    EXPECT_EQ(requestsTo(kGlobalHost, "/GetUserDomain.aspx").size(), 1u);
}

}  // namespace
}  // namespace vh::test
