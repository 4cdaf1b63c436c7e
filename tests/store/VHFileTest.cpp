// The file record: the service's item record mapped in and out, and rows that
// come back from files.db exactly as written.
#include <gtest/gtest.h>

#include <regex>

#include "support/VHStoreTestSupport.h"

namespace vh::test {
namespace {

TEST(VHFileRecord, ServerItemWithoutOptionalFields) {
    VHVirtualFile item = serverItem("f1", "p1", "Caf\xC3\xA9.txt");  // composed é
    item.POSIXPermissions.reset();
    item.LastWriteTime.reset();
    item.EndOfFile = 100;
    item.AllocationSize = 4096;
    VHFile file = VHFile::fromVirtualFile(item);
    EXPECT_EQ(file.publicName, "Caf\xC3\xA9.txt");  // as given, not normalised
    EXPECT_EQ(file.fileSize, 4096u);
    EXPECT_EQ(file.permissions, 0600u);
    EXPECT_EQ(file.modifyTime, VHDate::distantPast());
    EXPECT_EQ(file.status, kStatusSynchronized);
    EXPECT_FALSE(file.isLocked);

    item.IsFile = false;
    item.AllocationSize = 1;
    EXPECT_EQ(VHFile::fromVirtualFile(item).permissions, 0700u);
    EXPECT_EQ(VHFile::fromVirtualFile(item).fileSize, 100u);
    item.POSIXPermissions = 0750;
    EXPECT_EQ(VHFile::fromVirtualFile(item).permissions, 0750u);
}

TEST(VHFileRecord, LockAndReverseMapping) {
    VHVirtualFile item = serverItem("f1", "p1", "a.txt");
    item.FileLock = FileLock{};
    item.FileLock->IsLocked = true;
    item.FileLock->LockTime = 77;
    VHFile file = VHFile::fromVirtualFile(item);
    EXPECT_TRUE(file.isLocked);
    EXPECT_EQ(file.lockTick, 77u);
    EXPECT_EQ(file.lockDeviceId, "");

    file.fileSize = 12;
    VHVirtualFile back = file.virtualFile();
    EXPECT_EQ(back.EndOfFile, 12u);
    EXPECT_EQ(back.AllocationSize, 12u);
    ASSERT_TRUE(back.FileLock);
    EXPECT_EQ(back.FileLock->IsLocked, true);
    EXPECT_EQ(back.ParrentId, "p1");
}

TEST(VHFileRecord, Identifiers) {
    EXPECT_TRUE(
        std::regex_match(VHDatabase::generateFileInternalName(), std::regex("[0-9a-f]{32}")));
    std::string guid = "[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}";
    EXPECT_TRUE(
        std::regex_match(VHDatabase::generateFileUploadName(), std::regex("U" + guid + guid)));
    EXPECT_NE(VHDatabase::generateFileInternalName(), VHDatabase::generateFileInternalName());
}

using VHFileRowTest = VHStoreTest;

TEST_F(VHFileRowTest, RowReadsBackAsWritten) {
    VHFile file;
    file.publicName = "report.pdf";
    file.shareId = "s1";
    file.internalName = "f1";
    file.parentId = "s1";
    file.parentShareId = "outer";
    file.user = "ann";
    file.fileHash = "h";
    file.uploadName = "U1";
    file.shareTick = 5;
    file.fileSize = 5'000'000'000;
    file.createTime = VHDate{1.25};
    file.accessTime = VHDate{-2};
    file.modifyTime = VHDate{1700000000.5};
    file.attributes = 128;
    file.permissions = 0640;
    file.isLocked = true;
    file.lockDeviceId = "dev";
    file.lockTick = 9;
    file.lockedBy = "bob";
    file.status = kStatusModified;
    ASSERT_TRUE(db().addFile(file, kStatusModified));
    std::optional<VHFile> row = db().fileWithId("f1");
    ASSERT_TRUE(row);
    EXPECT_EQ(*row, file);
    EXPECT_EQ(row->tick, kNoTick);  // not assigned yet: all bits survive
}

}  // namespace
}  // namespace vh::test
