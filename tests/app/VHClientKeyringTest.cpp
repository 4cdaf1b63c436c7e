// Where the real client keeps the password: in a real Secret Service
// (gnome-keyring-daemon on a private session bus) and in no file, or, where no
// Secret Service answers, in a private file; either way a later start signs in
// with what was kept, and the log says once per start which store is used.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <vector>

#include "lib/VHCrypto.h"
#include "support/VHDriveProbe.h"
#include "support/VHSessionKeyring.h"
#include "support/VHShareTree.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr const char* kUser = "keeper@varnholt.test";
constexpr const char* kPassword = "Kq7-vault-Pw!93xz";
// The client's item: QtKeychain's attributes for its service and account.
constexpr const char* kItem = "server Varnholtkeys user keeper@varnholt.test";
constexpr const char* kKeyringLine = "Credentials are kept in the Secret Service.";
constexpr const char* kFileLine = "No Secret Service answers: credentials are kept in ";

size_t count(const std::string& text, const std::string& part) {
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

// Files below the test's folders (HOME, every XDG folder) that hold the
// password, in clear or in Base64 as it travels to the service.
std::vector<std::string> filesHoldingThePassword() {
    std::vector<std::string> holding;
    std::error_code error;
    fs::path root = fs::path(VHCurrentTestHome()).parent_path();
    for (auto it = fs::recursive_directory_iterator(root, error); !error && it != fs::end(it);
         it.increment(error)) {
        if (!it->is_regular_file()) continue;
        std::string bytes = VHReadWhole(it->path().string());
        if (bytes.find(kPassword) != std::string::npos ||
            bytes.find(VHBase64Encode(kPassword)) != std::string::npos) {
            holding.push_back(it->path().string());
        }
    }
    return holding;
}

std::string credentialsFile() {
    return VHCurrentTestHome() + "/.local/state/Varnholt/credentials.json";
}

class VHClientKeyringTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        ASSERT_TRUE(emulator_.addUser({{"email", kUser},
                                       {"password", kPassword},
                                       {"name", "Keeper"},
                                       {"primaryDomain", "d1.varnholt.test"},
                                       {"domains", {"d1.varnholt.test"}}}));
    }

    // Runs the client until it has signed in, then ends it in order. With
    // `signIn` the credentials come on the command line, else from the store.
    void runOnce(const std::string& busAddress, bool signIn) {
        VHTestClient::Options options;
        options.user = signIn ? kUser : "";
        options.password = kPassword;
        if (!busAddress.empty()) options.environment["DBUS_SESSION_BUS_ADDRESS"] = busAddress;
        size_t before = count(client_.logs(), "Login to global reply code: U100");
        ASSERT_TRUE(client_.start(options));
        auto signedIn = [&] {
            return count(client_.logs(), "Login to global reply code: U100") > before;
        };
        client_.waitFor([&] { return signedIn() || !client_.running(); }, 60s);
        ASSERT_TRUE(signedIn()) << client_.standardError() << VHTail(client_.logs());
        ASSERT_TRUE(client_.waitForMount());
        client_.signal(SIGTERM);
        EXPECT_EQ(client_.waitForExit(), 0);
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

}  // namespace

TEST_F(VHClientKeyringTest, TheSecretServiceKeepsThePasswordAndNoFileHoldsIt) {
    VHSessionKeyring keyring;
    ASSERT_TRUE(keyring.start());
    ASSERT_NO_FATAL_FAILURE(runOnce(keyring.address(), true));
    EXPECT_EQ(keyring.lookup(kItem), std::string(kPassword));
    EXPECT_EQ(filesHoldingThePassword(), std::vector<std::string>{});
    EXPECT_FALSE(fs::exists(credentialsFile()));

    ASSERT_NO_FATAL_FAILURE(runOnce(keyring.address(), false));
    std::string logs = client_.logs();
    EXPECT_EQ(count(logs, kKeyringLine), 2u) << VHTail(logs);
    EXPECT_EQ(count(logs, kFileLine), 0u);
    EXPECT_EQ(filesHoldingThePassword(), std::vector<std::string>{});
}

TEST_F(VHClientKeyringTest, WithoutASecretServiceThatKeepsItAPrivateFileDoes) {
    // No session bus at all (the test client is given none).
    ASSERT_NO_FATAL_FAILURE(runOnce("", true));
    EXPECT_EQ(filesHoldingThePassword(), std::vector<std::string>{credentialsFile()});
    struct stat info {};
    ASSERT_EQ(stat(credentialsFile().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    // A bus where nothing answers for secrets, and a Secret Service without
    // an unlocked keyring, which answers reads but keeps nothing: each start
    // signs in with the password of the file.
    for (auto secrets : {VHSessionKeyring::Secrets::None, VHSessionKeyring::Secrets::Empty}) {
        VHSessionKeyring bus;
        ASSERT_TRUE(bus.start(secrets));
        ASSERT_NO_FATAL_FAILURE(runOnce(bus.address(), false));
    }
    std::string logs = client_.logs();
    EXPECT_EQ(count(logs, kFileLine + credentialsFile() + "."), 3u) << VHTail(logs);
    EXPECT_EQ(count(logs, kKeyringLine), 0u);
}

}  // namespace vh::test
