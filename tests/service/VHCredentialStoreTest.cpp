// The credentials file of machines without a Secret Service, and the
// connector's use of it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "lib/VHSettings.h"
#include "service/VHConnector.h"
#include "service/VHFileCredentialStore.h"

namespace vh::test {
namespace {

using Names = std::vector<std::string>;

unsigned modeOf(const std::string& path) {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? info.st_mode & 0777 : 0;
}

TEST(FileCredentialStore, KeepsTriplesInAPrivateFileOfAPrivateFolder) {
    VHFileCredentialStore store;
    std::string folder = std::filesystem::path(store.path()).parent_path().string();
    std::filesystem::create_directories(folder);
    ASSERT_EQ(chmod(folder.c_str(), 0755), 0);
    ASSERT_TRUE(store.setPassword("s", "a@x", "one"));
    ASSERT_TRUE(store.setPassword("s", "b@x", "two"));
    ASSERT_TRUE(store.setPassword("other", "a@x", "three"));
    ASSERT_TRUE(store.setPassword("s", "a@x", "uno"));
    EXPECT_EQ(store.accounts("s"), (Names{"a@x", "b@x"}));
    EXPECT_EQ(store.password("s", "a@x"), "uno");
    EXPECT_EQ(store.password("other", "a@x"), "three");
    ASSERT_TRUE(store.deletePassword("s", "a@x"));
    EXPECT_EQ(store.accounts("s"), (Names{"b@x"}));
    EXPECT_FALSE(store.password("s", "a@x"));
    EXPECT_EQ(modeOf(store.path()), 0600u);
    EXPECT_EQ(modeOf(folder), 0700u);
    EXPECT_FALSE(std::filesystem::exists(store.path() + ".new"));

    // A file opened up by someone is private again after the next write.
    ASSERT_EQ(chmod(store.path().c_str(), 0644), 0);
    ASSERT_TRUE(store.setPassword("s", "b@x", "deux"));
    EXPECT_EQ(modeOf(store.path()), 0600u);
}

TEST(ConnectorCredentials, OnlyTheLastAccountIsKeptAndTheUserNameOutlivesIt) {
    VHConnector& connector = VHConnector::defaultConnector();
    VHFileCredentialStore store;
    connector.setPassword("pw");
    connector.saveCredentials();  // no user name: nothing at all
    EXPECT_FALSE(std::filesystem::exists(store.path()));
    EXPECT_FALSE(VHSettings::contains(VHSettings::prependAppTitle("username")));

    for (const char* name : {"old@x", "new@x"}) {
        connector.setUsername(name);
        connector.setPassword(std::string(name) + "-pw");
        connector.saveCredentials();
    }
    EXPECT_EQ(store.accounts("Varnholtkeys"), (Names{"new@x"}));
    connector.setUsername("");
    connector.setPassword("");
    connector.loadCredentials();
    EXPECT_EQ(connector.password(), "new@x-pw");

    connector.clearCredentials(false);
    EXPECT_TRUE(store.accounts("Varnholtkeys").empty());
    connector.setUsername("");
    connector.loadCredentials();
    EXPECT_EQ(connector.username(), "new@x");
    EXPECT_FALSE(connector.credentialsAvailable());
}

}  // namespace
}  // namespace vh::test
