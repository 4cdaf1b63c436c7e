// The client as a user runs it: the real varnholt process signed in to the
// real emulator, its drive mounted for real, observed with ordinary file
// system calls and through the emulator's request log.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "lib/VHAppInfo.h"
#include "lib/VHSettings.h"
#include "lib/VHSqlite.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

// The demo account's shares as the drive shows them (partner-archive is not demo's).
constexpr const char* kDemoShares[] = {"Company Handbook", "My Files", "Second Domain",
                                       "Shared with demo", "Team Documents"};

std::vector<std::string> rootNames(const std::string& mount) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(mount, error)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The emulator's tree of a share as the drive would list it.
std::string expectedListing(const VHEmulatorProcess& emulator, const std::string& shareId) {
    auto tree = emulator.tree(shareId);
    std::vector<std::string> lines;
    for (const json& item : tree->at("items")) {
        std::string path = item.at("path").get<std::string>().substr(1);
        lines.push_back(item.at("isFile").get<bool>()
                            ? path + " " + std::to_string(item.at("size").get<int64_t>())
                            : path + "/");
    }
    std::sort(lines.begin(), lines.end());
    std::string listing;
    for (const std::string& line : lines) listing += line + "\n";
    return listing;
}

// Exit statuses the client documents in --help.
namespace Exit {
constexpr int kNoCredentials = 2;
constexpr int kSignInRefused = 5;
constexpr int kUnconfirmedChanges = 6;
}  // namespace Exit

std::string credentialsText() {
    std::ifstream file(VHCurrentTestHome() + "/.local/state/Varnholt/credentials.json");
    return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

// The requests the emulator received whose path holds `part`.
int countRequests(const VHEmulatorProcess& emulator, const std::string& part) {
    int count = 0;
    for (const json& request : emulator.requests()) {
        count += request.value("path", "").find(part) != std::string::npos;
    }
    return count;
}

class VHClientLifecycleTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(emulator_.start()); }

    // Signs in and waits until the drive lists every share completely.
    void signInAndWaitForTheDrive(VHTestClient& client) {
        ASSERT_TRUE(client.start());
        ASSERT_TRUE(client.waitForMount()) << client.logs() << client.standardError();
        ASSERT_TRUE(client.waitFor([&] { return rootNames(client.mountPath()).size() == 5; }, 60s))
            << client.logs();
        ASSERT_TRUE(client.waitFor(
            [&] {
                return VHTreeListing(client.mountPath() + "/Team Documents") ==
                       expectedListing(emulator_, "team-documents");
            },
            60s));
    }

    VHEmulatorProcess emulator_;
};

}  // namespace

TEST_F(VHClientLifecycleTest, AfterSignInTheDriveShowsEveryShareWithTheServicesTrees) {
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    EXPECT_EQ(rootNames(client.mountPath()),
              std::vector<std::string>(std::begin(kDemoShares), std::end(kDemoShares)));
    const std::pair<const char*, const char*> shares[] = {{"Team Documents", "team-documents"},
                                                          {"My Files", "my-files"},
                                                          {"Company Handbook", "company-handbook"},
                                                          {"Second Domain", "second-domain"},
                                                          {"Shared with demo", "shared-with-demo"}};
    for (const auto& [name, id] : shares) {
        EXPECT_TRUE(client.waitFor(
            [&] {
                return VHTreeListing(client.mountPath() + "/" + name) ==
                       expectedListing(emulator_, id);
            },
            30s))
            << name << ":\n"
            << VHTreeListing(client.mountPath() + "/" + name);
    }
    // Times are the service's: a file written as another device now is dated now.
    auto written = emulator_.act(
        "my-files",
        json::array({{{"action", "writeFile"}, {"path", "/fresh.txt"}, {"text", "new"}}}));
    ASSERT_TRUE(written);
    client.signal(SIGTERM);
    ASSERT_TRUE(client.waitForExit());
    ASSERT_TRUE(client.start());
    ASSERT_TRUE(client.waitFor(
        [&] { return fs::exists(client.mountPath() + "/My Files/fresh.txt"); }, 60s));
    auto age = std::chrono::duration_cast<std::chrono::seconds>(
        fs::file_time_type::clock::now() -
        fs::last_write_time(client.mountPath() + "/My Files/fresh.txt"));
    EXPECT_LT(std::abs(age.count()), 120);
}

TEST_F(VHClientLifecycleTest, SharesAddedRenamedOrRemovedShowAfterTheNextGatewayLogin) {
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    ASSERT_TRUE(emulator_.addShare(
        {{"shareId", "added"},
         {"name", "Team Documents"},
         {"domain", "d2.varnholt.test"},
         {"owner", "demo@varnholt.test"},
         {"actions",
          json::array({{{"action", "writeFile"}, {"path", "/added.txt"}, {"text", "added"}}})}}));
    ASSERT_TRUE(emulator_.renameShare("my-files", "My Renamed Files"));
    ASSERT_TRUE(emulator_.removeShare("company-handbook"));

    // A restart signs in again: the stored view first, then the service's.
    client.signal(SIGTERM);
    ASSERT_TRUE(client.waitForExit());
    ASSERT_TRUE(client.start());
    ASSERT_TRUE(client.waitForMount());
    std::vector<std::string> expected = {"My Renamed Files", "Second Domain", "Shared with demo",
                                         "Team Documents", "Team Documents (2)"};
    EXPECT_TRUE(client.waitFor([&] { return rootNames(client.mountPath()) == expected; }, 60s))
        << ::testing::PrintToString(rootNames(client.mountPath()));
    EXPECT_TRUE(client.waitFor(
        [&] { return fs::exists(client.mountPath() + "/Team Documents (2)/added.txt"); }, 30s));
}

TEST_F(VHClientLifecycleTest, AShareOf25000ItemsArrivesThroughSeveralCatchUpPages) {
    json actions = json::array();
    for (int i = 0; i < 25000; ++i) {
        actions.push_back({{"action", "writeFile"},
                           {"path", "/bulk/f" + std::to_string(i) + ".txt"},
                           {"text", "x"}});
    }
    ASSERT_TRUE(emulator_.act("my-files", actions));
    VHTestClient client(emulator_);
    ASSERT_TRUE(client.start());
    ASSERT_TRUE(client.waitForMount());
    std::string bulk = client.mountPath() + "/My Files/bulk";
    auto countEntries = [&] {
        std::error_code error;
        auto it = fs::directory_iterator(bulk, error);
        return error ? 0 : static_cast<int>(std::distance(it, fs::directory_iterator()));
    };
    EXPECT_TRUE(client.waitFor([&] { return countEntries() == 25000; }, 120s)) << countEntries();
    std::regex page("sendCatchupRequest: continuing catchup for share My Files, tick (-?\\d+)\\.");
    std::string logs = client.logs();
    auto pages =
        std::distance(std::sregex_iterator(logs.begin(), logs.end(), page), std::sregex_iterator());
    EXPECT_GE(pages, 2);
}

TEST_F(VHClientLifecycleTest, ARefusedSignInIsToldAndEndsTheClientWithoutStoringIt) {
    VHTestClient client(emulator_);
    VHTestClient::Options wrong;
    wrong.password = "wrong-password";
    ASSERT_TRUE(client.start(wrong));
    EXPECT_EQ(client.waitForExit(60s), Exit::kSignInRefused);
    EXPECT_NE(client.standardError().find("sign-in refused"), std::string::npos)
        << client.standardError();
    EXPECT_EQ(countRequests(emulator_, "login2.aspx"), 1);
    EXPECT_FALSE(client.mounted());
    EXPECT_EQ(credentialsText().find("wrong-password"), std::string::npos);
    EXPECT_EQ(VHTestClient::settingsText().find("demo@varnholt.test"), std::string::npos);

    // Stored credentials the service stops accepting: tried three times, then told.
    signInAndWaitForTheDrive(client);
    client.signal(SIGTERM);
    ASSERT_EQ(client.waitForExit(), 0);
    ASSERT_TRUE(emulator_.removeUser("demo@varnholt.test"));
    ASSERT_TRUE(emulator_.addUser({{"email", "demo@varnholt.test"},
                                   {"password", "changed"},
                                   {"primaryDomain", "d1.varnholt.test"},
                                   {"domains", {"d1.varnholt.test", "d2.varnholt.test"}}}));
    emulator_.clearRequests();
    VHTestClient::Options stored;
    stored.user.clear();
    ASSERT_TRUE(client.start(stored));
    EXPECT_EQ(client.waitForExit(60s), Exit::kSignInRefused);
    EXPECT_EQ(countRequests(emulator_, "login2.aspx"), 3);
    EXPECT_NE(client.standardError().find("sign-in refused"), std::string::npos);
    EXPECT_FALSE(client.mounted());
}

TEST_F(VHClientLifecycleTest, AFirstSignInThatCannotReachTheServiceSaysItKeepsTrying) {
    ASSERT_TRUE(emulator_.addFault({{"host", "global|clientgateway"}, {"drop", true}}));
    VHTestClient client(emulator_);
    ASSERT_TRUE(client.start());
    EXPECT_TRUE(client.waitFor(
        [&] { return client.standardError().find("still trying") != std::string::npos; }, 60s))
        << client.standardError();
    EXPECT_TRUE(client.running());
    EXPECT_FALSE(client.mounted());
    client.signal(SIGTERM);
    EXPECT_EQ(client.waitForExit(), 0);
    EXPECT_EQ(credentialsText().find("demo"), std::string::npos);
}

TEST_F(VHClientLifecycleTest, TheClientNeverTouchesItsOwnMount) {
    // Every attribute request reaching the drive is logged with this switch.
    VHSettings::setValue("VHExcessiveLogging", true);
    VHSettings::sync();
    VHTestClient client(emulator_);
    ASSERT_TRUE(client.start());
    ASSERT_TRUE(client.waitForMount()) << client.logs() << client.standardError();
    ASSERT_TRUE(client.waitFor([&] { return rootNames(client.mountPath()).size() == 5; }, 60s));
    // Listings bring attributes along: a name never listed is sure to be asked for.
    ASSERT_FALSE(fs::exists(client.mountPath() + "/My Files/never listed"));
    client.signal(SIGTERM);
    ASSERT_EQ(client.waitForExit(), 0);
    std::string logs = client.logs();
    ASSERT_NE(logs.find("attributesOfItemAtPath:/My Files/never listed"), std::string::npos);
    EXPECT_EQ(logs.find(".fuselock"), std::string::npos);
}

TEST_F(VHClientLifecycleTest, AnUnknownDeviceIsRetriedOnceAndThenRefused) {
    ASSERT_TRUE(emulator_.addUser({{"email", "strict@varnholt.test"},
                                   {"password", "pw"},
                                   {"primaryDomain", "d1.varnholt.test"},
                                   {"domains", {"d1.varnholt.test"}},
                                   {"requireKnownDevices", true}}));
    // The per-version migration of a first start re-stores the credentials and
    // so spends the one retry; this start is a later one.
    VHSettings::setValue(VHSettings::prependAppTitle("lastMigratedVersion"), kShortVersion);
    VHSettings::sync();
    VHTestClient client(emulator_);
    VHTestClient::Options options;
    options.user = "strict@varnholt.test";
    options.password = "pw";
    ASSERT_TRUE(client.start(options));
    EXPECT_TRUE(client.waitFor(
        [&] {
            return client.logs().find(
                       "loginToGlobal: device id is not recognized on server, but "
                       "it was cleared already (?"
                       "?)") != std::string::npos;
        },
        90s))
        << client.logs();
    EXPECT_NE(
        client.logs().find("loginToGlobal: device id is not recognized on server. Cleared it, "
                           "trying to login again."),
        std::string::npos);
}

TEST_F(VHClientLifecycleTest, AWipeOrderClearsTheCredentials) {
    // The client's device id: the machine's serial number, else its machine id.
    std::string deviceId;
    for (const char* source : {"/sys/class/dmi/id/product_serial", "/etc/machine-id"}) {
        std::ifstream file(source);
        if (std::getline(file, deviceId) && !deviceId.empty()) break;
    }
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    client.signal(SIGTERM);
    ASSERT_TRUE(client.waitForExit());
    ASSERT_TRUE(emulator_.setDevice("demo@varnholt.test", deviceId, true));

    VHTestClient::Options noCredentials;
    noCredentials.user.clear();
    ASSERT_TRUE(client.start(noCredentials));
    // The wipe logs out, which also empties the logs: its effect is what stays.
    std::string credentials = VHCurrentTestHome() + "/.local/state/Varnholt/credentials.json";
    EXPECT_TRUE(client.waitFor(
        [&] {
            std::ifstream file(credentials);
            std::string stored((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
            return stored.find("demo") == std::string::npos &&
                   VHTestClient::settingsText().find("demo@varnholt.test") == std::string::npos;
        },
        30s))
        << client.logs() << client.standardError();
    client.signal(SIGTERM);
    client.waitForExit();
    // The next start has no credentials at all.
    ASSERT_TRUE(client.start(noCredentials));
    EXPECT_EQ(client.waitForExit(), 2);
    EXPECT_EQ(VHTestClient::settingsText().find("demo@varnholt.test"), std::string::npos);
}

TEST_F(VHClientLifecycleTest, AnUnreachableServiceKeepsTheStoredViewAndRetries) {
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    std::string before = VHTreeListing(client.mountPath());
    client.signal(SIGTERM);
    ASSERT_TRUE(client.waitForExit());

    ASSERT_TRUE(emulator_.addFault({{"host", "global|clientgateway"}, {"drop", true}}));
    emulator_.clearRequests();
    ASSERT_TRUE(client.start());
    ASSERT_TRUE(client.waitForMount());
    EXPECT_EQ(VHTreeListing(client.mountPath()), before);
    EXPECT_TRUE(client.waitFor([&] { return countRequests(emulator_, "login2.aspx") >= 2; }, 90s))
        << client.logs();
}

TEST_F(VHClientLifecycleTest, AKilledClientRefreshesEveryShareFromTheStartNextTime) {
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    client.signal(SIGKILL);
    ASSERT_TRUE(client.waitForExit());  // leaves a dead mount behind, which the next start clears

    ASSERT_TRUE(client.start());
    EXPECT_TRUE(client.waitFor(
        [&] {
            return client.logs().find(
                       "Refresh after failure requested : doing full catchup for all shares.") !=
                   std::string::npos;
        },
        60s));
    EXPECT_TRUE(client.waitFor(
        [&] {
            return client.logs().find(
                       "Full refresh finished : checking if there are missing uploads.") !=
                   std::string::npos;
        },
        60s));
    // The mark goes right after that line.
    EXPECT_TRUE(client.waitFor(
        [&] { return VHTestClient::settingsText().find("needsFullRefresh") == std::string::npos; },
        10s));
}

TEST_F(VHClientLifecycleTest, TerminationUnmountsAndRecordsACleanShutdown) {
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    client.signal(SIGTERM);
    EXPECT_EQ(client.waitForExit(), 0);
    EXPECT_FALSE(client.mounted());
    EXPECT_NE(client.logs().find("Recording clean shutdown."), std::string::npos);
    EXPECT_NE(VHTestClient::settingsText().find("cleanShutdown=true"), std::string::npos);
}

TEST_F(VHClientLifecycleTest, ASecondInstanceOnTheSameFoldersRefusesToStart) {
    VHTestClient first(emulator_), second(emulator_);
    signInAndWaitForTheDrive(first);
    ASSERT_TRUE(second.start());
    EXPECT_EQ(second.waitForExit(), 3) << second.standardError() << first.logs();
    EXPECT_NE(second.standardError().find("Another instance of Varnholt is already running"),
              std::string::npos);
    EXPECT_TRUE(first.running());
    EXPECT_TRUE(first.mounted());
}

TEST_F(VHClientLifecycleTest, AnUnmountFromOutsideMountsTheDriveAgain) {
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    ASSERT_EQ(std::system(("fusermount3 -u '" + client.mountPath() + "'").c_str()), 0);
    EXPECT_TRUE(client.waitFor(
        [&] {
            return client.logs().find("User unmounted the volume. Trying to re-mount.") !=
                   std::string::npos;
        },
        30s));
    EXPECT_TRUE(client.waitForMount());
    EXPECT_TRUE(client.waitFor([&] { return rootNames(client.mountPath()).size() == 5; }, 30s));
}

TEST_F(VHClientLifecycleTest, NoSecretReachesLogsSettingsOrTheCommandLine) {
    ASSERT_TRUE(emulator_.addUser({{"email", "secret@varnholt.test"},
                                   {"password", "VHSECRET-password"},
                                   {"primaryDomain", "d1.varnholt.test"},
                                   {"domains", {"d1.varnholt.test", "d2.varnholt.test"}}}));
    ASSERT_TRUE(emulator_.setAcl("team-documents", "secret@varnholt.test", 1));
    VHTestClient client(emulator_);
    VHTestClient::Options options;
    options.user = "secret@varnholt.test";
    options.password = "VHSECRET-password";
    ASSERT_TRUE(client.start(options));
    ASSERT_TRUE(client.waitForMount());
    ASSERT_TRUE(client.waitFor(
        [&] { return fs::exists(client.mountPath() + "/Team Documents/readme.txt"); }, 60s));

    std::vector<std::string> secrets = {"VHSECRET-password"};
    auto account = emulator_.account("secret@varnholt.test");
    ASSERT_TRUE(account);
    for (const json& domain : account->at("domains")) {
        secrets.push_back(domain.at("token"));
        secrets.push_back(domain.at("cookie"));
    }
    for (const json& share : account->at("shares")) secrets.push_back(share.at("aclToken"));
    std::ifstream cmdline("/proc/" + std::to_string(client.pid()) + "/cmdline");
    std::string commandLine((std::istreambuf_iterator<char>(cmdline)),
                            std::istreambuf_iterator<char>());
    for (const std::string& secret : secrets) {
        EXPECT_EQ(client.logs().find(secret), std::string::npos) << secret;
        EXPECT_EQ(client.standardError().find(secret), std::string::npos) << secret;
        EXPECT_EQ(VHTestClient::settingsText().find(secret), std::string::npos) << secret;
        EXPECT_EQ(commandLine.find(secret), std::string::npos) << secret;
    }
}

TEST_F(VHClientLifecycleTest, AnUnusableStoreEndsTheProcessWithItsStatus) {
    VHTestClient client(emulator_);
    std::string state = VHCurrentTestHome() + "/.local/state/Varnholt";
    fs::create_directories(fs::path(state).parent_path());
    std::ofstream(state) << "not a folder";
    ASSERT_TRUE(client.start());
    EXPECT_EQ(client.waitForExit(), 100);
    EXPECT_NE((client.logs() + client.standardError())
                  .find("Error! Unknown file exists at cache directory location"),
              std::string::npos);

    fs::remove(state);
    fs::create_directories(state);
    std::ofstream(state + "/files.db") << std::string(4096, 'x');  // not a database
    ASSERT_TRUE(client.start());
    EXPECT_EQ(client.waitForExit(), 10);
    EXPECT_FALSE(client.mounted());
}

TEST_F(VHClientLifecycleTest, LogoutKeepsUnconfirmedChangesUnlessForcedAndKeepsTheLogs) {
    VHTestClient client(emulator_);
    signInAndWaitForTheDrive(client);
    std::string readme = client.mountPath() + "/Team Documents/readme.txt";
    std::ifstream(readme).get();  // downloads it
    int changed = open((client.mountPath() + "/My Files/welcome.txt").c_str(), O_WRONLY);
    ASSERT_GE(changed, 0);
    ASSERT_EQ(pwrite(changed, "changed", 7, 0), 7);
    close(changed);
    client.signal(SIGTERM);
    ASSERT_EQ(client.waitForExit(), 0);
    std::string data = VHCurrentTestHome() + "/.local/share/Varnholt";
    ASSERT_FALSE(fs::is_empty(data + "/Files/team-documents"));

    VHTestClient::Options logout;
    logout.user.clear();
    logout.arguments = {"--logout"};
    ASSERT_TRUE(client.start(logout));
    EXPECT_EQ(client.waitForExit(), Exit::kUnconfirmedChanges);
    EXPECT_NE(client.standardError().find("1 change(s)"), std::string::npos)
        << client.standardError();
    EXPECT_NE(credentialsText().find("demo\""), std::string::npos);
    EXPECT_FALSE(fs::is_empty(data + "/Files/team-documents"));

    logout.arguments = {"--logout", "--force"};
    ASSERT_TRUE(client.start(logout));
    EXPECT_EQ(client.waitForExit(), 0) << client.standardError();
    EXPECT_TRUE(fs::is_empty(data + "/Files"));
    EXPECT_FALSE(fs::exists(data + "/shares.db"));
    EXPECT_FALSE(fs::is_empty(data + "/Logs"));
    EXPECT_NE(client.logs().find("didMount: drive was mounted."), std::string::npos);
    VHSqlite files;
    ASSERT_TRUE(files.open(VHCurrentTestHome() + "/.local/state/Varnholt/files.db",
                           VHSqlite::Mode::ReadOnly));
    VHSqliteStatement* rows = files.prepare("SELECT COUNT(*) FROM files");
    ASSERT_TRUE(rows && rows->step() == VHSqliteStatement::Step::Row);
    EXPECT_EQ(rows->columnInt64(0), 0);
    EXPECT_EQ(credentialsText().find("demo\""), std::string::npos) << credentialsText();
    // Signed out: the next headless start has no password.
    VHTestClient::Options none;
    none.user.clear();
    ASSERT_TRUE(client.start(none));
    EXPECT_EQ(client.waitForExit(), Exit::kNoCredentials);
}

TEST_F(VHClientLifecycleTest, WithoutCredentialsAHeadlessClientSaysHowAndStops) {
    VHTestClient client(emulator_);
    VHTestClient::Options options;
    options.user.clear();
    ASSERT_TRUE(client.start(options));
    EXPECT_EQ(client.waitForExit(), Exit::kNoCredentials);
    EXPECT_NE(client.standardError().find("--password-stdin"), std::string::npos);
}

}  // namespace vh::test
