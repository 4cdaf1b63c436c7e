// The open-file table's timing rules: when a changed file may be uploaded,
// and how the delayed update check wakes the upload queue.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "drive/VHFuseFileData.h"
#include "store/VHStoreHooks.h"
#include "support/VHTestWait.h"

namespace vh {

namespace {

using namespace std::chrono_literals;

VHFile fileWithId(const std::string& id) {
    VHFile file;
    file.internalName = id;
    file.publicName = id + ".txt";
    return file;
}

// Counts how often the table wakes the upload queue.
class UploadWakeups final : public VHUploadHooks {
  public:
    UploadWakeups() { VHStoreHooks::setUploads(this); }
    ~UploadWakeups() override { VHStoreHooks::setUploads(nullptr); }
    void uploadsAdded() override { ++count; }
    void cancelUpload(const VHFile&) override {}
    bool upload(const VHFile&) override { return true; }
    bool existsOperationOnFileWithInternalName(const std::string&) override { return false; }
    bool uploadUnconfirmed(const VHFile&) override { return false; }
    void confirmUpload(const VHFile&) override {}
    std::atomic<int> count{0};
};

}  // namespace

TEST(VHFuseFileData, AChangedFileSettlesFiveSecondsAfterItsLastChange) {
    VHFile closed = fileWithId("closed"), open = fileWithId("open"),
           untouched = fileWithId("untouched");
    VHFuseFileData::fileWasModified(closed);
    VHFuseFileData handle(O_RDWR, -1, getpid());
    handle.setFileId("open");
    handle.markWritten();
    EXPECT_FALSE(VHFuseFileData::canUploadFile(closed));
    EXPECT_FALSE(VHFuseFileData::canUploadFile(open));
    EXPECT_TRUE(VHFuseFileData::canUploadFile(untouched));
    std::this_thread::sleep_for(5200ms);
    EXPECT_TRUE(VHFuseFileData::canUploadFile(closed));
    // A handle that wrote holds its file back until it is released, and the
    // release starts a new quiet period.
    EXPECT_FALSE(VHFuseFileData::canUploadFile(open));
    handle.close();
    EXPECT_FALSE(VHFuseFileData::canUploadFile(open));
    EXPECT_TRUE(VHFuseFileData::openedFiles().empty());
    std::this_thread::sleep_for(5200ms);
    EXPECT_TRUE(VHFuseFileData::canUploadFile(open));
}

TEST(VHFuseFileData, ExchangedIdsFollowTheOpenHandlesAndTheirChanges) {
    VHFuseFileData a(O_RDONLY, -1, -1), b(O_RDONLY, -1, -1);
    a.setFileId("a");
    b.setFileId("b");
    VHFuseFileData::fileWasModified(fileWithId("a"));
    VHFuseFileData::exchangeFileId("a", "b");
    EXPECT_EQ(a.fileId(), "b");
    EXPECT_EQ(b.fileId(), "a");
    EXPECT_FALSE(VHFuseFileData::canUploadFile(fileWithId("b")));  // the change moved with the id
    EXPECT_EQ(VHFuseFileData::openedFiles().size(), 2u);
}

TEST(VHFuseFileData, ChangesInAQuickSeriesWakeTheUploadQueueOnceTheySettle) {
    UploadWakeups wakeups;
    VHFuseFileData handle(O_RDWR, -1, -1);
    handle.setFileId("f");
    handle.setNeedsUpdate(true);
    handle.markWritten();
    VHFuseFileData::fileWasModified(fileWithId("f"));
    VHFuseFileData::fileWasModified(fileWithId("f"));  // within the same 3 s: one check
    // The check at 3 s finds the write too fresh and checks again 3 s later.
    std::this_thread::sleep_for(4s);
    EXPECT_EQ(wakeups.count, 0);
    EXPECT_TRUE(test::VHWaitUntil([&] { return wakeups.count > 0; }, 5s));
    std::this_thread::sleep_for(4s);
    EXPECT_EQ(wakeups.count, 1);  // one pending handle: woken once, no check left scheduled
}

}  // namespace vh
