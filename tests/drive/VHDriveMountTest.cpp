// The mounted drive seen through ordinary tools: what ls, stat, find and df
// report for a store of two shares, and how mounting fails or recovers.
#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>

#include "drive/VHDriveEvents.h"
#include "drive/VHFuseMount.h"
#include "store/VHDatabase.h"
#include "support/VHTestDrive.h"
#include "support/VHTestHome.h"
#include "support/VHTestWait.h"
#include "transfer/VHFileCache.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* kShares = R"({"ManagedShares":[
  {"ShareId":"s1","ShareName":"Alpha","DisplayName":"Alpha","AssociationType":2,"Status":0,
   "ShareChanged":false,"Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0,
   "ShareAcl":{"AclType":1,"AclToken":"a1"},"DomainId":"dom1","GateWayUrl":"d1.varnholt.test"},
  {"ShareId":"s2","ShareName":"Beta","AssociationType":0,"Status":0,"ShareChanged":false,
   "Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0,
   "ShareAcl":{"AclType":0,"AclToken":"a2"},"DomainId":"dom1","GateWayUrl":"d1.varnholt.test"}]})";

class VHDriveMountTest : public testing::Test {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        mountPath_ = VHCurrentTestHome() + "/Varnholt";
    }
    void TearDown() override {
        VHDatabase::database().unload();
        VHFileCache::resetForTests();
    }

    // Two shares: nested folders, files of several sizes, a file locked by
    // another user, and names the drive must not list.
    void fillStore() {
        VHLoadStoreWithShares(kShares);
        std::vector<VHVirtualFile> alpha = {
            VHTestItem("s1", "f-docs", "s1", "docs", std::nullopt, 1),
            VHTestItem("s1", "f-deep", "f-docs", "deep", std::nullopt, 2),
            VHTestItem("s1", "i-empty", "s1", "empty.txt", 0, 3),
            VHTestItem("s1", "i-report", "f-docs", "report.txt", 1000, 4),
            VHTestItem("s1", "i-half", "f-deep", "half.bin", 512, 5),
            VHTestItem("s1", "i-big", "f-deep", "big.bin", 52428800, 6),
            VHTestItem("s1", "i-locked", "f-docs", "locked.docx", 10, 7),
            VHTestItem("s1", "i-colon", "s1", "a:b.txt", 1, 8),
            VHTestItem("s1", "i-tilde", "s1", "~$report.docx", 1, 9),
            VHTestItem("s1", "i-tmp", "s1", "scratch.tmp", 1, 10),
            VHTestItem("s1", "i-dot", "s1", ".hidden", 1, 11),
            VHTestItem("s1", "i-long", "s1", std::string(300, 'n'), 1, 12),
            VHTestItem("s1", "i-gone", "s1", "deleted.txt", 1, 13),
        };
        alpha[6].FileLock = ::vh::FileLock{"other-device", true, 0, "bob"};
        alpha[6].POSIXPermissions = 0644;
        alpha.push_back(alpha.back());
        alpha.back().Deleted = true;
        alpha.back().Tick = 14;
        VHApplyItems("s1", alpha);
        // Beta is a share the user may only read.
        VHApplyItems("s2", {VHTestItem("s2", "b-read", "s2", "readme.md", 42, 1),
                            VHTestItem("s2", "b-folder", "s2", "notes", std::nullopt, 2)});
    }

    std::string mountPath_;
};

}  // namespace

TEST_F(VHDriveMountTest, ToolsSeeTheStoredSharesFoldersAndFiles) {
    fillStore();
    VHTestDrive drive(mountPath_);
    const std::string m = drive.path();

    EXPECT_EQ(VHRun("ls -a '" + m + "'"), ".\n..\nAlpha\nBeta\n");
    EXPECT_EQ(VHRun("cd '" + m + "' && find . | sort"),
              ".\n./Alpha\n./Alpha/docs\n./Alpha/docs/deep\n./Alpha/docs/deep/big.bin\n"
              "./Alpha/docs/deep/half.bin\n./Alpha/docs/locked.docx\n./Alpha/docs/report.txt\n"
              "./Alpha/empty.txt\n./Beta\n./Beta/notes\n./Beta/readme.md\n");

    // mode, size, st_blocks, mtime, type
    auto stat = [&](const std::string& p) {
        return VHRun("stat -c '%a %s %b %Y %F' '" + m + p + "'");
    };
    EXPECT_EQ(stat("/Alpha/docs/report.txt"), "600 1000 2 1700000204 regular file\n");
    EXPECT_EQ(stat("/Alpha/docs/deep/half.bin"), "600 512 1 1700000205 regular file\n");
    EXPECT_EQ(stat("/Alpha/empty.txt"), "600 0 0 1700000203 regular empty file\n");
    EXPECT_EQ(stat("/Alpha/docs/deep/big.bin"), "600 52428800 102400 1700000206 regular file\n");
    EXPECT_EQ(stat("/Alpha/docs/locked.docx"), "444 10 1 1700000207 regular file\n");
    EXPECT_EQ(stat("/Alpha/docs"), "700 0 0 1700000201 directory\n");
    EXPECT_EQ(VHRun("stat -c '%a %F %s' '" + m + "/Alpha'"), "700 directory 0\n");
    // Nothing in a share the user may only read shows as writable.
    EXPECT_EQ(VHRun("cd '" + m + "' && stat -c '%a %n' Beta Beta/notes Beta/readme.md"),
              "500 Beta\n500 Beta/notes\n400 Beta/readme.md\n");
    // Names are bytes: another case is another name.
    EXPECT_NE(VHRun("stat '" + m + "/alpha'", true).find("No such file"), std::string::npos);
    EXPECT_NE(VHRun("stat '" + m + "/ALPHA/empty.txt'", true).find("No such file"),
              std::string::npos);
    EXPECT_EQ(VHRun("stat -c '%u:%g' '" + m + "/Alpha/empty.txt'"),
              std::to_string(geteuid()) + ":" + std::to_string(getegid()) + "\n");
    EXPECT_EQ(VHRun("stat -c '%X' '" + m + "/Alpha/empty.txt'"), "1700000100\n");

    // Special names answer without the database; hidden names stay out of listings.
    EXPECT_EQ(VHRun("stat -c '%a %s %F' '" + m + "/.fuselock' '" + m + "/Alpha/.vhrefresh'"),
              "700 0 regular empty file\n700 0 regular empty file\n");

    // Missing and deleted items, and the refused links.
    EXPECT_NE(VHRun("stat '" + m + "/Alpha/nothing'", true).find("No such file"),
              std::string::npos);
    EXPECT_NE(VHRun("stat '" + m + "/Alpha/deleted.txt'", true).find("No such file"),
              std::string::npos);
    EXPECT_NE(VHRun("stat '" + m + "/Gamma'", true).find("No such file"), std::string::npos);
    EXPECT_NE(VHRun("ln -s x '" + m + "/Alpha/link'", true).find("Permission denied"),
              std::string::npos);
    EXPECT_NE(
        VHRun("ln '" + m + "/Alpha/empty.txt' '" + m + "/Alpha/hard'", true).find("not permitted"),
        std::string::npos);

    // Used space is the total size of all files.
    uint64_t total = 1000 + 512 + 52428800 + 10 + 42 + 5;  // the unlisted names count too
    std::string df = VHRun("stat -f -c '%S %b %f' '" + m + "'");
    uint64_t fragment = 0, blocks = 0, freeBlocks = 0;
    ASSERT_EQ(std::sscanf(df.c_str(), "%lu %lu %lu", &fragment, &blocks, &freeBlocks), 3) << df;
    uint64_t used = (blocks - freeBlocks) * fragment;
    EXPECT_LE(used, total);
    EXPECT_GT(used + fragment, total);
    EXPECT_NE(VHRun("df -P '" + m + "'").find("Varnholt"), std::string::npos);

    bool unmounted = false;
    QObject::connect(&VHDriveEvents::instance(), &VHDriveEvents::fuseDidUnmount,
                     [&] { unmounted = true; });
    EXPECT_TRUE(drive.unmount());
    EXPECT_TRUE(unmounted);
    EXPECT_EQ(VHRun("grep -c ' " + m + " ' /proc/mounts"), "0\n");
}

TEST_F(VHDriveMountTest, TheLockFileIsAnEmptyFileThatNothingIsStoredIn) {
    fillStore();
    VHTestDrive drive(mountPath_);
    const std::string lock = drive.path() + "/.fuselock";
    auto filesFolder = [] { return VHRun("ls -a '" + VHFileCache::filesCachePath() + "'"); };
    std::string before = filesFolder();
    ASSERT_FALSE(before.empty());

    // Opened for reading, writing or creation, it reads as empty.
    EXPECT_EQ(VHRun("cat '" + lock + "' && echo read", true), "read\n");
    EXPECT_EQ(VHRun(": >> '" + lock + "' && : <> '" + lock + "' && echo opened", true), "opened\n");
    EXPECT_NE(VHRun("echo x | dd of='" + lock + "' oflag=append conv=notrunc", true)
                  .find("Permission denied"),
              std::string::npos);
    EXPECT_EQ(VHRun("stat -c '%s' '" + lock + "'"), "0\n");
    EXPECT_EQ(VHRun("ls -a '" + drive.path() + "'"), ".\n..\nAlpha\nBeta\n");
    EXPECT_EQ(filesFolder(), before);
    EXPECT_EQ(VHRun("cat '" + drive.path() + "/Alpha/.vhrefresh' && echo read", true), "read\n");
}

TEST_F(VHDriveMountTest, ListingsTellTypesAndUnsupportedAttributesSaySo) {
    fillStore();
    VHTestDrive drive(mountPath_);
    // Types come with the listing: find and ls need not stat each entry.
    std::map<std::string, unsigned char> types;
    DIR* folder = opendir((drive.path() + "/Alpha/docs").c_str());
    ASSERT_TRUE(folder);
    while (dirent* entry = readdir(folder)) types[entry->d_name] = entry->d_type;
    closedir(folder);
    EXPECT_EQ(types, (std::map<std::string, unsigned char>{{".", DT_DIR},
                                                           {"..", DT_DIR},
                                                           {"deep", DT_DIR},
                                                           {"locked.docx", DT_REG},
                                                           {"report.txt", DT_REG}}));
    // Labels and ACLs are not kept: ENOTSUP, which tools remember per mount.
    std::string report = drive.path() + "/Alpha/docs/report.txt";
    char value[64];
    for (const char* name : {"security.selinux", "system.posix_acl_access"}) {
        EXPECT_EQ(lgetxattr(report.c_str(), name, value, sizeof value), -1);
        EXPECT_EQ(errno, ENOTSUP) << name;
    }
    EXPECT_EQ(lgetxattr(report.c_str(), "user.note", value, sizeof value), -1);
    EXPECT_EQ(errno, ENODATA);
    EXPECT_EQ(VHRun("ls -l --time-style=+%s '" + drive.path() +
                    "/Alpha/docs' | awk 'NR > 1 {print $1, $5, $6, $7}'"),
              "drwx------ 0 1700000202 deep\n-r--r--r-- 10 1700000207 locked.docx\n"
              "-rw------- 1000 1700000204 report.txt\n");
}

TEST_F(VHDriveMountTest, FailuresOfTheLocalFoldersReachTheKernelAsTheirErrno) {
    fillStore();
    // Attributes are asked for at every call, so the root's answer is fresh.
    VHTestDrive drive(mountPath_, "fsname=Varnholt,subtype=varnholt,attr_timeout=0");
    const std::string m = drive.path();
    ASSERT_EQ(VHRun("stat -c '%F' '" + m + "'"), "directory\n");
    ASSERT_FALSE(VHRun("stat -f -c '%b' '" + m + "'").empty());

    VHRemoveTree(VHFileCache::filesCachePath());
    EXPECT_NE(VHRun("stat '" + m + "'", true).find("No such file or directory"), std::string::npos);
    VHRemoveTree(VHFileCache::rootCachePath());
    EXPECT_NE(VHRun("stat -f '" + m + "'", true).find("No such file or directory"),
              std::string::npos);
}

TEST_F(VHDriveMountTest, AFileOpenedForReplacingKeepsNothingOfItsOldContents) {
    fillStore();
    VHDatabase& db = VHDatabase::database();
    auto report = db.fileWithPath("/Alpha/docs/report.txt");
    ASSERT_TRUE(report);
    std::ofstream(VHFileCache::fileCache().pathForFileCache(*report)) << std::string(1000, 'a');
    VHTestDrive drive(mountPath_);
    const std::string path = drive.path() + "/Alpha/docs/report.txt";

    EXPECT_EQ(VHRun("printf xy > '" + path + "' && cat '" + path + "'"), "xy");
    EXPECT_EQ(VHRun("stat -c %s '" + path + "'"), "2\n");
    report = db.fileWithPath("/Alpha/docs/report.txt");
    ASSERT_TRUE(report);
    EXPECT_EQ(report->fileSize, 2u);
    EXPECT_EQ(report->status, kStatusModified);
    // Opened for replacing and closed without a write, it is empty.
    EXPECT_EQ(VHRun(": > '" + path + "' && stat -c %s '" + path + "'"), "0\n");
}

TEST_F(VHDriveMountTest, MountPointFailuresGiveTheirCodes) {
    std::vector<int> announced;
    QObject::connect(&VHDriveEvents::instance(), &VHDriveEvents::fuseMountFailed,
                     [&](int code) { announced.push_back(code); });
    auto mount = [](const std::string& path) {
        std::vector<std::string> args = {"varnholt", path, "-f", "-o", "fsname=Varnholt"};
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(arg.data());
        return mount_varnholt(static_cast<int>(argv.size()), argv.data());
    };
    std::ofstream(mountPath_) << "a plain file";
    EXPECT_EQ(mount(mountPath_), -2);
    EXPECT_EQ(mount(mountPath_ + "/inside"), -3);
    EXPECT_EQ(mount(VHCurrentTestHome() + "/missing/parent/Varnholt"), -4);
    EXPECT_EQ(announced, (std::vector<int>{-2, -3, -4}));
}

TEST_F(VHDriveMountTest, ADeadMountLeftOverIsClearedBeforeMounting) {
    fillStore();
    fs::create_directories(mountPath_);
    // Another process serves the drive and dies without unmounting.
    pid_t holder = fork();
    if (holder == 0) {
        execl(VH_TEST_FUSE_HOLDER, VH_TEST_FUSE_HOLDER, mountPath_.c_str(), nullptr);
        _exit(127);
    }
    ASSERT_TRUE(
        VHWaitUntil([&] { return VHRun("grep -c ' " + mountPath_ + " ' /proc/mounts") == "1\n"; }));
    // Its root's attributes are still in the kernel's cache when it dies.
    struct stat root {};
    ASSERT_EQ(stat(mountPath_.c_str(), &root), 0);
    kill(holder, SIGKILL);
    waitpid(holder, nullptr, 0);
    ASSERT_TRUE(VHIsDeadMount(mountPath_));

    VHTestDrive drive(mountPath_);
    EXPECT_EQ(VHRun("ls '" + mountPath_ + "'"), "Alpha\nBeta\n");
}

}  // namespace vh::test
