// Batches of server changes as transactions: a failure leaves rows and
// journal position as they were, local changes made meanwhile survive, and
// readers on other threads neither wait for a batch nor miss a write that
// joined it.
#include <gtest/gtest.h>

#include <condition_variable>
#include <future>
#include <set>

#include "support/VHStoreTestSupport.h"

namespace vh::test {
namespace {

using Statuses = std::vector<int64_t>;
constexpr auto kDeadlock = std::chrono::seconds(60);  // only a hang takes this long

// Holds the next batch between its first two slices until released.
class SliceGate {
  public:
    SliceGate() {
        VHDatabase::database().setSliceGateForTesting([this](std::function<void()> resume) {
            std::lock_guard lock(mutex_);
            if (used_) return resume();
            used_ = true;
            resume_ = std::move(resume);
            held_.notify_all();
        });
    }
    ~SliceGate() {
        release();
        VHDatabase::database().setSliceGateForTesting({});
    }
    bool waitUntilHeld() {
        std::unique_lock lock(mutex_);
        return held_.wait_for(lock, kDeadlock, [this] { return bool(resume_); });
    }
    void release() {
        std::function<void()> resume;
        {
            std::lock_guard lock(mutex_);
            resume.swap(resume_);
        }
        if (resume) resume();
    }

  private:
    std::mutex mutex_;
    std::condition_variable held_;
    bool used_ = false;
    std::function<void()> resume_;
};

// The upload queue's answer to "is an upload of this item running?".
class BusyUploads final : public VHUploadHooks {
  public:
    void cancelUpload(const VHFile&) override {}
    void uploadsAdded() override {}
    bool upload(const VHFile&) override { return true; }
    bool existsOperationOnFileWithInternalName(const std::string& id) override {
        std::lock_guard lock(mutex_);
        return busy_.count(id) > 0;
    }
    bool uploadUnconfirmed(const VHFile&) override { return false; }
    void confirmUpload(const VHFile&) override {}
    void setBusy(const std::string& id) {
        std::lock_guard lock(mutex_);
        busy_.insert(id);
    }

  private:
    std::mutex mutex_;
    std::set<std::string> busy_;
};

// `count` new files "p0".."p<count-1>" in the share's top folder.
// Items p0, p1, ... at ticks 1, 2, ...
OSXCatchUpResponse pageOf(int count, int64_t largestTick) {
    OSXCatchUpResponse page;
    page.VhVirtualFiles.emplace();
    for (int i = 0; i < count; ++i) {
        std::string id = "p" + std::to_string(i);
        page.VhVirtualFiles->push_back(serverItem(id, "s1", id + ".txt", true, i + 1));
    }
    page.LargestTick = largestTick;
    return page;
}

// Fails the `n`th insert into files from now on.
void failNthInsert(int n) {
    auto seen = std::make_shared<int>(0);
    VHDatabase::database().setStatementFaultForTesting([seen, n](const std::string& sql) {
        return sql.rfind("INSERT INTO files", 0) == 0 && ++*seen == n;
    });
}

class VHDatabaseBatchesTest : public VHStoreTest {
  protected:
    void SetUp() override {
        VHStoreTest::SetUp();
        db().updateFiles(pageOf(0, 5), share());
        ASSERT_EQ(share().LastApplyedJournalTick, 5);
        synced("f1", "s1", "local.txt");
    }
    // Queues the page; the future tells whether it was applied.
    static std::future<bool> queue(const OSXCatchUpResponse& page) {
        auto applied = std::make_shared<std::promise<bool>>();
        std::future<bool> result = applied->get_future();
        db().applyCatchUpPage(page, share(), [applied](bool ok) { applied->set_value(ok); });
        return result;
    }
    static bool finished(std::future<bool>& result) {
        return result.wait_for(kDeadlock) == std::future_status::ready;
    }
    template <typename Fn>
    static auto onOtherThread(Fn fn) {
        std::future<std::invoke_result_t<Fn>> result = std::async(std::launch::async, fn);
        EXPECT_EQ(result.wait_for(kDeadlock), std::future_status::ready);
        return result.get();
    }
    static void writeLocally(const std::string& id, uint64_t size) {
        VHFile file = *db().fileWithId(id);
        file.fileSize = size;
        ASSERT_TRUE(db().markFileUpdated(file));
    }
};

TEST_F(VHDatabaseBatchesTest, AFailedStatementUndoesTheWholeBatchAndKeepsThePosition) {
    VHLogRecorder log;
    failNthInsert(400);  // beyond the first slice
    std::future<bool> result = queue(pageOf(600, 9));
    ASSERT_TRUE(finished(result));
    EXPECT_FALSE(result.get());
    EXPECT_TRUE(log.contains("Update query INSERT INTO files"));
    EXPECT_EQ(statuses("p0"), Statuses{});  // the first slice went too
    EXPECT_EQ(statuses("p599"), Statuses{});
    EXPECT_EQ(share().LastApplyedJournalTick, 5);

    db().setStatementFaultForTesting({});
    EXPECT_TRUE(db().updateFiles(pageOf(600, 9), share()));  // fetched again
    EXPECT_EQ(db().fileNamesListWithParent("s1").size(), 601u);
    EXPECT_EQ(share().LastApplyedJournalTick, 9);

    // Two items are one transaction too.
    failNthInsert(2);
    EXPECT_FALSE(db().updateFiles(
        std::vector<VHVirtualFile>{serverItem("n1", "s1", "n1"), serverItem("n2", "s1", "n2")},
        share()));
    EXPECT_EQ(statuses("n1"), Statuses{});
}

TEST_F(VHDatabaseBatchesTest, ReadersDuringABatchAndLocalChangesThatJoinedIt) {
    VHLogRecorder log;
    {
        SliceGate gate;
        std::future<bool> result = queue(pageOf(600, 9));
        ASSERT_TRUE(gate.waitUntilHeld());
        // The batch holds its transaction open; a reader elsewhere goes on.
        EXPECT_EQ(onOtherThread([] { return db().fileWithPath("/Share/local.txt"); })->fileSize,
                  10u);
        EXPECT_FALSE(onOtherThread([] { return db().fileWithId("p0"); }));

        onOtherThread([] { writeLocally("f1", 77); });  // joins the open transaction
        std::optional<VHFile> seen = onOtherThread([] { return db().fileWithId("f1"); });
        ASSERT_TRUE(seen);
        EXPECT_EQ(seen->fileSize, 77u);

        failNthInsert(1);
        gate.release();
        ASSERT_TRUE(finished(result));
        EXPECT_FALSE(result.get());
    }
    EXPECT_EQ(statuses("p0"), Statuses{});
    EXPECT_EQ(share().LastApplyedJournalTick, 5);
    EXPECT_EQ(db().fileWithId("f1")->fileSize, 77u);  // the local write survived
    EXPECT_EQ(statuses("f1"), (Statuses{2, 5}));
    EXPECT_TRUE(log.contains("Applying again"));

    // Fetched again, with an upload of one of its items starting meanwhile.
    db().setStatementFaultForTesting({});
    BusyUploads uploads;
    VHStoreHooks::setUploads(&uploads);
    SliceGate gate;
    std::future<bool> result = queue(pageOf(600, 600));
    ASSERT_TRUE(gate.waitUntilHeld());
    onOtherThread([] { writeLocally("f1", 88); });
    uploads.setBusy("p500");
    gate.release();
    ASSERT_TRUE(finished(result));
    EXPECT_TRUE(result.get());
    EXPECT_EQ(onOtherThread([] { return db().fileWithId("f1"); })->fileSize, 88u);
    EXPECT_TRUE(db().fileWithId("p499"));
    EXPECT_FALSE(db().fileWithId("p500"));  // the upload is asked about as the item comes
    // Held before the item left out, so that the next catch-up brings it again.
    EXPECT_EQ(share().LastApplyedJournalTick, 500);
}

TEST_F(VHDatabaseBatchesTest, ReadingConnectionsFollowTheDatabaseAndTheirThreads) {
    ASSERT_TRUE(db().fileWithId("f1"));  // this thread's connection is open now
    size_t threads = db().readerThreadCountForTesting();
    std::thread([] { EXPECT_TRUE(db().fileWithId("f1")); }).join();
    EXPECT_EQ(db().readerThreadCountForTesting(), threads);

    db().clear();
    ASSERT_TRUE(db().load());
    EXPECT_FALSE(db().fileWithId("f1"));  // not the removed file's rows
}

}  // namespace
}  // namespace vh::test
