// Contents read through the mounted drive from the real emulator: the store
// is filled from its login and catch-up answers, and every byte a tool reads
// comes through the download queue.
#include <gtest/gtest.h>

#include <algorithm>

#include "emulator/support/VHEmulatorProcess.h"
#include "store/VHDatabase.h"
#include "support/VHEmulatorStore.h"
#include "support/VHTestDrive.h"
#include "support/VHTestHome.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"

namespace vh::test {

namespace {

using nlohmann::json;

// The two spellings of "café.txt": precomposed and decomposed.
const std::string kComposed = "caf\xc3\xa9.txt";
const std::string kDecomposed = "cafe\xcc\x81.txt";

json seed() {
    auto text = VHWriteTextAction;
    json actions = {text("/..foo", "two dots"),
                    text("/...", "three dots"),
                    text("/.profile", "one dot"),
                    text("/plain.txt", "plain"),
                    text("/" + kComposed, "composed"),
                    text("/" + kDecomposed, "decomposed"),
                    {{"action", "writeFile"}, {"path", "/big.bin"}, {"size", 600000}, {"seed", 5}}};
    return VHTeamSeed(actions);
}

class VHDriveContentTest : public testing::Test {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        ASSERT_TRUE(emulator_.start({seed(), ""}));
        ASSERT_TRUE(VHFillStoreFromEmulator(emulator_, "a@varnholt.test", "pw", domains_));
        VHDownloadQueue::downloadQueue().runThread();
    }
    void TearDown() override {
        VHDownloadQueue::resetForTests();
        VHDatabase::database().unload();
        VHFileCache::resetForTests();
    }
    std::string mountPath() const { return VHCurrentTestHome() + "/Varnholt"; }
    std::string content(const std::string& path) { return *emulator_.fileBytes("team", path); }

    VHEmulatorProcess emulator_;
    VHEmulatorDomains domains_;
};

}  // namespace

TEST_F(VHDriveContentTest, NamesBeginningWithDotsAreUnlistedButReadByName) {
    VHTestDrive drive(mountPath());
    const std::string team = drive.path() + "/Team/";
    EXPECT_EQ(VHRun("ls -a '" + team + "' | grep -x -e big.bin -e plain.txt -e '\\..*'"),
              ".\n..\nbig.bin\nplain.txt\n");
    EXPECT_EQ(VHRun("cat '" + team + "..foo'"), "two dots");
    EXPECT_EQ(VHRun("cat '" + team + "...'"), "three dots");
    EXPECT_EQ(VHRun("cat '" + team + ".profile'"), "one dot");
    EXPECT_EQ(VHRun("stat -c '%s' '" + team + "...'"), "10\n");
}

TEST_F(VHDriveContentTest, TwoSpellingsOfANameAreTwoFiles) {
    std::vector<std::string> names = VHDatabase::database().fileNamesListWithParent("team");
    if (std::count(names.begin(), names.end(), kComposed) +
            std::count(names.begin(), names.end(), kDecomposed) <
        2) {
        GTEST_SKIP() << "the store keeps only one spelling of a server name";
    }
    VHTestDrive drive(mountPath());
    const std::string team = drive.path() + "/Team/";
    EXPECT_EQ(VHRun("ls '" + team + "' | LC_ALL=C sort"),
              "big.bin\n" + kDecomposed + "\n" + kComposed + "\nplain.txt\n");
    EXPECT_EQ(VHRun("cat '" + team + kComposed + "'"), "composed");
    EXPECT_EQ(VHRun("cat '" + team + kDecomposed + "'"), "decomposed");
}

TEST_F(VHDriveContentTest, AColdReadOutlastsPassingServerErrors) {
    ASSERT_TRUE(
        emulator_.addFault({{"method", "GET"}, {"path", "^/api/"}, {"status", 500}, {"count", 2}}));
    VHTestDrive drive(mountPath());
    std::string big = content("/big.bin");
    ASSERT_EQ(big.size(), 600000u);
    std::string read = VHRun("cat '" + drive.path() + "/Team/big.bin'");
    EXPECT_EQ(read.size(), big.size());
    EXPECT_TRUE(read == big);
    EXPECT_EQ(VHRun("cat '" + drive.path() + "/Team/plain.txt'"), "plain");
}

}  // namespace vh::test
