// Changes of the drive's name space made with system calls on a real mount,
// checked against the store and the content cache behind it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QObject>
#include <QThread>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "drive/VHDriveEvents.h"
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
  {"ShareId":"s2","ShareName":"Beta","DisplayName":"Beta","AssociationType":2,"Status":0,
   "ShareChanged":false,"Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0,
   "ShareAcl":{"AclType":1,"AclToken":"a2"},"DomainId":"dom1","GateWayUrl":"d1.varnholt.test"},
  {"ShareId":"s3","ShareName":"Gamma","DisplayName":"Gamma","AssociationType":2,"Status":0,
   "ShareChanged":false,"Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0,
   "ShareAcl":{"AclType":0,"AclToken":"a3"},"DomainId":"dom1","GateWayUrl":"d1.varnholt.test"}]})";

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

// The errno of a call that failed, 0 when it succeeded.
int errorOf(int result) {
    return result == 0 ? 0 : errno;
}

class VHDriveNamespaceTest : public testing::Test {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        VHLoadStoreWithShares(kShares);
        VHApplyItems("s1", {VHTestItem("s1", "i-server", "s1", "server.txt", 40, 1)});
        VHApplyItems("s3", {VHTestItem("s3", "i-ro", "s3", "ro.txt", 5, 1)});
        drive_ = std::make_unique<VHTestDrive>(VHCurrentTestHome() + "/Varnholt");
        ASSERT_TRUE(drive_->mounted());
        // Queued to this thread: the drive raises alerts on its own threads.
        QObject::connect(&VHDriveEvents::instance(), &VHDriveEvents::driveAlert, &receiver_,
                         [this](const QString&, const QString& message) {
                             alerts_.push_back(message.toStdString());
                         });
    }
    void TearDown() override {
        drive_.reset();
        VHDatabase::database().unload();
        VHFileCache::resetForTests();
    }
    std::string path(const std::string& drivePath) const { return drive_->path() + drivePath; }
    std::optional<VHFile> record(const std::string& drivePath) {
        return VHDatabase::database().fileWithPath(drivePath);
    }

    QObject receiver_;
    std::unique_ptr<VHTestDrive> drive_;
    std::vector<std::string> alerts_;
};

}  // namespace

TEST_F(VHDriveNamespaceTest, RenameOverAFileKeepsItsIdentityAndABackupKeepsItsBytes) {
    writeFile(path("/Alpha/doc.txt"), "version one");
    auto original = record("/Alpha/doc.txt");
    ASSERT_TRUE(original);

    // Written beside it and renamed over it: the document stays the same item.
    writeFile(path("/Alpha/doc.txt.tmp"), "version two, longer");
    ASSERT_EQ(rename(path("/Alpha/doc.txt.tmp").c_str(), path("/Alpha/doc.txt").c_str()), 0);
    EXPECT_EQ(readFile(path("/Alpha/doc.txt")), "version two, longer");
    auto replaced = record("/Alpha/doc.txt");
    ASSERT_TRUE(replaced);
    EXPECT_EQ(replaced->internalName, original->internalName);
    EXPECT_EQ(replaced->fileSize, 19u);
    EXPECT_FALSE(fs::exists(path("/Alpha/doc.txt.tmp")));

    // A server file changed, moved aside as a backup and written anew (an
    // editor's save): the new file takes over the item, the backup keeps the
    // bytes it had.
    writeFile(path("/Alpha/server.txt"), "edited locally");
    ASSERT_EQ(rename(path("/Alpha/server.txt").c_str(), path("/Alpha/server.txt~").c_str()), 0);
    writeFile(path("/Alpha/server.txt"), "saved again");
    EXPECT_EQ(record("/Alpha/server.txt")->internalName, "i-server");
    EXPECT_EQ(readFile(path("/Alpha/server.txt")), "saved again");
    EXPECT_EQ(readFile(path("/Alpha/server.txt~")), "edited locally");
    EXPECT_EQ(record("/Alpha/server.txt~")->fileSize, 14u);
}

TEST_F(VHDriveNamespaceTest, AFileDeletedWhileOpenIsGoneAtOnceAndStillReadable) {
    writeFile(path("/Alpha/open.txt"), "still here");
    std::string id = record("/Alpha/open.txt")->internalName;
    int fd = ::open(path("/Alpha/open.txt").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(unlink(path("/Alpha/open.txt").c_str()), 0);
    EXPECT_FALSE(fs::exists(path("/Alpha/open.txt")));
    char buffer[32] = {};
    EXPECT_EQ(pread(fd, buffer, sizeof buffer, 0), 10);
    EXPECT_STREQ(buffer, "still here");
    struct stat st {};
    EXPECT_EQ(fstat(fd, &st), 0);
    EXPECT_EQ(st.st_size, 10);
    // The record lasts as long as the file is open, hidden, and goes with it.
    QThread::msleep(200);
    EXPECT_EQ(pread(fd, buffer, sizeof buffer, 0), 10);
    EXPECT_EQ(fstat(fd, &st), 0);
    close(fd);
    EXPECT_TRUE(VHWaitUntil([&] {
        auto gone = VHDatabase::database().fileWithId(id);
        return !gone || gone->deleted;
    }));
    // A new file under the old name is a new item.
    writeFile(path("/Alpha/open.txt"), "new");
    EXPECT_NE(record("/Alpha/open.txt")->internalName, id);
}

TEST_F(VHDriveNamespaceTest, SavePatternsOfApplications) {
    writeFile(path("/Alpha/sheet.xlsx"), "cells");
    // Into a safe-save name: accepted, nothing changes.
    EXPECT_EQ(rename(path("/Alpha/sheet.xlsx").c_str(), path("/Alpha/sheet.sb-1").c_str()), 0);
    EXPECT_EQ(readFile(path("/Alpha/sheet.xlsx")), "cells");
    // A spreadsheet's temporary save gets a record of its own.
    EXPECT_EQ(rename(path("/Alpha/sheet.xlsx").c_str(), path("/Alpha/sheet.xlsx.sb-2").c_str()), 0);
    EXPECT_TRUE(record("/Alpha/sheet.xlsx.sb-2"));
    EXPECT_TRUE(record("/Alpha/sheet.xlsx"));

    // A save folder lives in the temp area; what moves out of it arrives.
    ASSERT_EQ(mkdir(path("/Alpha/Doc.sb-7").c_str(), 0755), 0);
    auto saveFolder = record("/.TempFiles/Doc.sb-7");
    ASSERT_TRUE(saveFolder);
    EXPECT_EQ(saveFolder->shareId, "tmp");
    writeFile(path("/Alpha/Doc.sb-7/Doc.txt"), "saved");
    ASSERT_EQ(rename(path("/Alpha/Doc.sb-7/Doc.txt").c_str(), path("/Alpha/Doc.txt").c_str()), 0);
    auto arrived = record("/Alpha/Doc.txt");
    ASSERT_TRUE(arrived);
    EXPECT_EQ(arrived->shareId, "s1");
    EXPECT_EQ(readFile(path("/Alpha/Doc.txt")), "saved");
    EXPECT_EQ(rmdir(path("/Alpha/Doc.sb-7").c_str()), 0);
    EXPECT_FALSE(record("/.TempFiles/Doc.sb-7"));
}

TEST_F(VHDriveNamespaceTest, RefusalsGiveTheirErrnoAndTellTheUser) {
    int created = ::open(path("/Gamma/new.txt").c_str(), O_CREAT | O_WRONLY, 0644);
    EXPECT_EQ(created < 0 ? errno : 0, EACCES);
    EXPECT_EQ(errorOf(mkdir(path("/Gamma/New").c_str(), 0755)), EACCES);
    EXPECT_EQ(errorOf(unlink(path("/Gamma/ro.txt").c_str())), EACCES);
    EXPECT_EQ(errorOf(truncate(path("/Gamma/ro.txt").c_str(), 0)), EACCES);
    EXPECT_EQ(errorOf(rename(path("/Gamma/ro.txt").c_str(), path("/Gamma/r2.txt").c_str())), EIO);
    writeFile(path("/Alpha/mine.txt"), "mine");
    EXPECT_EQ(errorOf(rename(path("/Alpha/mine.txt").c_str(), path("/Beta/mine.txt").c_str())),
              EIO);
    EXPECT_EQ(errorOf(rename(path("/Alpha/mine.txt").c_str(), path("/Alpha/a*b.txt").c_str())),
              EIO);
    EXPECT_EQ(errorOf(mkdir(path("/Alpha/a:b").c_str(), 0755)), EIO);
    // Not read yet: only emptying needs none of its bytes.
    EXPECT_EQ(errorOf(truncate(path("/Alpha/server.txt").c_str(), 5)), EFBIG);
    EXPECT_EQ(errorOf(truncate(path("/Alpha/server.txt").c_str(), 0)), 0);
    EXPECT_EQ(fs::file_size(path("/Alpha/server.txt")), 0u);
    EXPECT_TRUE(fs::exists(path("/Alpha/mine.txt")));

    ASSERT_TRUE(VHWaitUntil([&] { return alerts_.size() >= 3; }));
    EXPECT_EQ(alerts_[0], "You do not have permissions to alter items in read only share.");
    EXPECT_EQ(alerts_[1], "You can't move files between shares.");
    EXPECT_EQ(alerts_[2], "File Name cannot contain any of these characters \\/:*?\"<>|");
}

TEST_F(VHDriveNamespaceTest, AFolderRenamedOverAnEmptyOneKeepsItsContents) {
    ASSERT_EQ(mkdir(path("/Alpha/d1").c_str(), 0755), 0);
    writeFile(path("/Alpha/d1/x.txt"), "x-ray");
    ASSERT_EQ(mkdir(path("/Alpha/empty").c_str(), 0755), 0);
    ASSERT_EQ(rename(path("/Alpha/d1").c_str(), path("/Alpha/empty").c_str()), 0);
    EXPECT_EQ(readFile(path("/Alpha/empty/x.txt")), "x-ray");
    EXPECT_EQ(errorOf(rmdir(path("/Alpha/empty").c_str())), ENOTEMPTY);
}

TEST_F(VHDriveNamespaceTest, ExchangeAndNoReplace) {
    writeFile(path("/Alpha/a.txt"), "first");
    writeFile(path("/Alpha/b.txt"), "second one");
    std::string a = path("/Alpha/a.txt"), b = path("/Alpha/b.txt");
    EXPECT_EQ(renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_NOREPLACE), -1);
    EXPECT_EQ(errno, EEXIST);
    ASSERT_EQ(renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE), 0);
    EXPECT_EQ(readFile(a), "second one");
    EXPECT_EQ(readFile(b), "first");
    EXPECT_EQ(fs::file_size(a), 10u);
    EXPECT_EQ(record("/Alpha/b.txt")->fileSize, 5u);
}

}  // namespace vh::test
