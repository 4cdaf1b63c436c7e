// The upload queue against the real emulator: local changes made through the
// store are sent by the real queue and compared with what the emulator holds.
#include <gtest/gtest.h>

#include <QString>
#include <fstream>
#include <mutex>
#include <random>

#include "emulator/support/VHEmulatorProcess.h"
#include "lib/VHNameRules.h"
#include "store/VHDatabase.h"
#include "support/VHEmulatorStore.h"
#include "support/VHStoreTestSupport.h"
#include "support/VHTestWait.h"
#include "transfer/VHFailedUploadInfo.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHUploadQueue.h"

namespace vh::test {

namespace {

using nlohmann::json;
using namespace std::chrono_literals;

json seed() {
    auto text = VHWriteTextAction;
    json seed =
        VHTeamSeed({text("/readme.txt", "hello world"), text("/other.txt", "outside"),
                    text("/held.txt", "held"), text("/gone.txt", "gone"), text("/free.txt", "free"),
                    text("/doomed/a.txt", "rescued"), text("/doomed/b.txt", "doomed"),
                    text("/swap-a.txt", "was a"), text("/swap-b.txt", "was b")});
    seed["users"].push_back(
        {{"email", "b@varnholt.test"}, {"password", "pw"}, {"primaryDomain", "d1.varnholt.test"}});
    seed["shares"][0]["acl"] = json::array({{{"email", "b@varnholt.test"}, {"aclType", 1}}});
    return seed;
}

std::string randomBytes(size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(generator());
    return bytes;
}

class VHUploadQueueTest : public testing::Test {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        VHFileCache::fileCache();
        ASSERT_TRUE(emulator_.start({seed(), ""}));
        ASSERT_TRUE(VHFillStoreFromEmulator(emulator_, "a@varnholt.test", "pw", domains_));
    }
    void TearDown() override {
        VHUploadQueue::resetForTests();
        db().unload();
        VHFileCache::resetForTests();
    }

    static VHDatabase& db() { return VHDatabase::database(); }
    static VHUploadQueue& queue() { return VHUploadQueue::uploadQueue(); }
    VHFile file(const std::string& path) { return db().fileWithPath("/Team" + path).value(); }

    // New contents written the way the drive writes them.
    VHFile write(VHFile file, const std::string& bytes) {
        queue().noteContentChanged(file.internalName);
        std::ofstream(VHFileCache::fileCache().pathForFileCache(file),
                      std::ios::binary | std::ios::trunc)
            << bytes;
        file.fileSize = bytes.size();
        file.modifyTime = VHDate::now();
        return db().markFileUpdated(file).value();
    }
    VHFile create(const std::string& name, const std::string& bytes) {
        return write(db().createFile(name, "team", "team").value(), bytes);
    }
    std::optional<json> item(const std::string& path) {
        json tree = emulator_.tree("team").value();
        for (const json& item : tree["items"]) {
            if (item["path"] == path) return item;
        }
        return std::nullopt;
    }
    bool serverHas(const std::string& path, const std::string& bytes) {
        std::optional<std::string> held = emulator_.fileBytes("team", path);
        return held && !held->empty() == !bytes.empty() && *held == bytes;
    }
    bool uploaded(const std::string& id) {
        std::optional<VHFile> row = db().fileWithId(id);
        return row && row->status == kStatusUploaded &&
               !queue().existsOperationOnFileWithInternalName(id);
    }
    // Chunk PUTs seen by the emulator: their "Content-Range" and size.
    std::vector<std::pair<std::string, int64_t>> chunks() {
        std::vector<std::pair<std::string, int64_t>> found;
        for (const json& r : emulator_.requests()) {
            if (r["method"] == "PUT" && r["path"].get<std::string>().starts_with("/api/uploads/") &&
                r["status"] != 0) {
                found.emplace_back(r["headers"].value("Content-Range", ""), r["bodyBytes"]);
            }
        }
        return found;
    }
    // The answer to the chunk PUT after `skip` others is cut short once.
    bool cutAnswer(int skip) {
        return emulator_
            .addFault({{"method", "PUT"},
                       {"path", "^/api/uploads/"},
                       {"phase", "after"},
                       {"truncateAt", 5},
                       {"skip", skip},
                       {"count", 1}})
            .has_value();
    }
    int events() {
        int n = 0;
        for (const json& r : emulator_.requests()) {
            n += r["path"].get<std::string>().starts_with("/api/shares/");
        }
        return n;
    }

    VHEmulatorProcess emulator_;
    VHEmulatorDomains domains_;
};

}  // namespace

TEST(VHFailedUploadInfoTest, RetriesFiveTimesWithGrowingDelaysThenGivesUp) {
    VHDate start = VHDate::fromSeconds(1000);
    VHFailedUploadInfo info = VHFailedUploadInfo::startingAt(start);
    std::vector<double> delays;
    while (std::optional<VHDate> next = info.recordFailure(start)) {
        delays.push_back(next->seconds - start.seconds);
    }
    EXPECT_EQ(delays, (std::vector<double>{5, 20, 60, 300, 600, 1800}));
    EXPECT_EQ(info.failures, 7);
}

TEST_F(VHUploadQueueTest, ItemChangesReachTheServer) {
    VHFile folder = db().createFolder("New", "team", "team").value();
    VHFile readme = db().renameFile(file("/readme.txt"), "renamed.txt").value();
    VHFile other = file("/other.txt");
    ASSERT_TRUE(db().removeFile(other, true));
    VHFile free = file("/free.txt");
    free.isLocked = true;
    ASSERT_TRUE(db().updateFileLockStatus(free));
    VHFile empty = create("empty.txt", "");
    VHFile small = create("small.txt", "small contents");
    queue().runThread();

    for (const VHFile& f : {folder, readme, other, free, empty, small}) {
        EXPECT_TRUE(VHWaitUntil([&] { return uploaded(f.internalName); }, 30s)) << f.publicName;
    }
    ASSERT_TRUE(item("/New"));
    EXPECT_FALSE(item("/New")->at("isFile").get<bool>());
    EXPECT_TRUE(serverHas("/renamed.txt", "hello world"));
    EXPECT_FALSE(item("/other.txt"));
    EXPECT_TRUE(item("/free.txt")->at("locked").get<bool>());
    EXPECT_TRUE(serverHas("/empty.txt", ""));
    EXPECT_TRUE(serverHas("/small.txt", "small contents"));
    // The service's record is written back: the new contents' upload name.
    EXPECT_EQ(db().fileWithId(small.internalName)->uploadName,
              item("/small.txt")->at("uploadName").get<std::string>());
}

TEST_F(VHUploadQueueTest, RefusalsOfTheServiceAreHandled) {
    VHLogRecorder log;
    QString alert;
    QObject context;
    QObject::connect(
        &queue(), &VHUploadQueue::lockAlert, &context, [&](const QString& m) { alert = m; },
        Qt::DirectConnection);
    ASSERT_TRUE(
        emulator_.act("team", {{{"action", "lock"}, {"path", "/held.txt"}}}, "b@varnholt.test"));
    ASSERT_TRUE(emulator_.act("team", {{{"action", "delete"}, {"path", "/gone.txt"}}}));
    VHFile held = file("/held.txt");
    held.isLocked = true;
    ASSERT_TRUE(db().updateFileLockStatus(held));
    VHFile gone = file("/gone.txt");
    ASSERT_TRUE(db().removeFile(gone, true));
    // An answer lost after the service took the change: 400/7 counts as done.
    VHFile small = create("lost-answer.txt", "");
    ASSERT_TRUE(emulator_.addFault({{"method", "POST"},
                                    {"path", "^/api/shares/"},
                                    {"phase", "after"},
                                    {"status", 400},
                                    {"code", 7},
                                    {"count", 1}}));
    queue().runThread();

    // Deleted on the server already: the local rows go, nothing is retried.
    EXPECT_TRUE(VHWaitUntil(
        [&] {
            return !db().fileWithId(gone.internalName) && !db().fileWithId(gone.internalName, true);
        },
        30s));
    EXPECT_TRUE(VHWaitUntil([&] { return !alert.isEmpty(); }, 30s));
    EXPECT_TRUE(alert.startsWith("This file is already locked by "));
    EXPECT_FALSE(alert.contains("another user"));
    EXPECT_TRUE(VHWaitUntil([&] { return uploaded(small.internalName); }, 30s));
    EXPECT_TRUE(log.contains("Received 400/7 upload reply"));
    EXPECT_TRUE(item("/lost-answer.txt"));
}

TEST_F(VHUploadQueueTest, ContentsGoInAdaptiveChunksAndResumeOnlyWithTheSameBytes) {
    const int64_t size = 3 * 1048576 + 12345;
    std::string bytes = randomBytes(size, 1);
    VHFile big = create("big.bin", bytes);
    // The third chunk is taken but its answer is cut short: the attempt
    // fails and waits 5 s for the next, and the application ends meanwhile.
    VHLogRecorder log;
    const std::string cutShort = "Cannot parse new file API chunk upload responce";
    ASSERT_TRUE(cutAnswer(2));
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil([&] { return log.count(cutShort) == 1; }, 30s));
    VHUploadQueue::resetForTests();  // as if the application ended here
    std::optional<VHFileUploadStatus> saved = db().uploadStatusForFile(big);
    ASSERT_TRUE(saved);
    EXPECT_FALSE(saved->token.empty());
    EXPECT_EQ(saved->fileHash.size(), 64u);

    // The next run goes on from where the service stands, without a new event.
    int eventsBefore = events();
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil([&] { return uploaded(big.internalName); }, 60s));
    EXPECT_TRUE(serverHas("/big.bin", bytes));
    EXPECT_EQ(events(), eventsBefore);
    EXPECT_FALSE(db().uploadStatusForFile(big));
    auto sent = chunks();
    ASSERT_GE(sent.size(), 4u);
    EXPECT_EQ(sent[0], std::make_pair(std::string("bytes 0-262143/3158073"), int64_t{262144}));
    EXPECT_EQ(sent.back().first.substr(sent.back().first.find('-')), "-3158072/3158073");
    for (const auto& [range, length] : sent) {
        EXPECT_GE(length, 1);
        EXPECT_LE(length, VHUploadOperation::kMaxChunkSize);
    }

    // Interrupted again, but the file changes (same size) before the restart.
    VHUploadQueue::resetForTests();
    std::string changed = randomBytes(size, 2);
    big = write(db().fileWithId(big.internalName).value(), bytes);
    ASSERT_TRUE(cutAnswer(1));
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil([&] { return log.count(cutShort) == 2; }, 30s));
    VHUploadQueue::resetForTests();
    ASSERT_TRUE(db().uploadStatusForFile(big));
    big = write(db().fileWithId(big.internalName).value(), changed);
    eventsBefore = events();
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil([&] { return uploaded(big.internalName); }, 60s));
    EXPECT_TRUE(serverHas("/big.bin", changed));
    EXPECT_EQ(events(), eventsBefore + 1);
}

TEST_F(VHUploadQueueTest, AChangeDuringTheUploadIsFollowedByAnotherUpload) {
    const int64_t size = 2 * 1048576;
    std::string first = randomBytes(size, 3), last = randomBytes(size, 4);
    VHFile target = create("changing.bin", first);
    QObject context;
    std::atomic<bool> changed{false};
    // Changed (same size) on the operation's own thread after its first
    // chunk, so the change lands in the middle of the upload.
    QObject::connect(
        &queue(), &VHUploadQueue::fileUploadProgress, &context,
        [&](const VHFile& f, qint64) {
            if (f.internalName == target.internalName && !changed.exchange(true)) {
                write(db().fileWithId(target.internalName).value(), last);
            }
        },
        Qt::DirectConnection);
    int eventsBefore = events();
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil([&] { return changed && uploaded(target.internalName); }, 60s));
    EXPECT_TRUE(serverHas("/changing.bin", last));
    EXPECT_EQ(events(), eventsBefore + 2);
}

TEST_F(VHUploadQueueTest, QueueKeepsBackWhatMustNotGoYet) {
    VHFile open = create("open.txt", "being written");
    std::atomic<bool> released{false};
    queue().setUploadPermission(
        [&](const VHFile& f) { return f.internalName != open.internalName || released.load(); });
    VHFile temp;
    temp.publicName = "temp.txt";
    temp.internalName = VHDatabase::generateFileInternalName();
    temp.shareId = temp.parentId = kTempShareId;
    EXPECT_FALSE(queue().upload(temp));
    VHFile renamed = create("first-name.txt", randomBytes(1048576, 5));
    QObject context;
    std::atomic<bool> renamedMidway{false};
    QObject::connect(
        &queue(), &VHUploadQueue::fileUploadProgress, &context,
        [&](const VHFile& f, qint64) {
            if (f.internalName != renamed.internalName || renamedMidway.exchange(true)) return;
            db().renameFile(db().fileWithId(renamed.internalName).value(), "second-name.txt");
            // Taken at once: it follows the running upload instead of waiting for it.
            queue().checkUploads();
            EXPECT_TRUE(queue().existsOperationOnFileWithInternalName(renamed.internalName));
            EXPECT_EQ(queue().operationCount(), 2u);
        },
        Qt::DirectConnection);
    queue().runThread();

    ASSERT_TRUE(VHWaitUntil([&] { return uploaded(renamed.internalName); }, 60s));
    EXPECT_TRUE(renamedMidway);
    EXPECT_TRUE(item("/second-name.txt"));
    EXPECT_FALSE(item("/first-name.txt"));
    EXPECT_FALSE(item("/open.txt"));
    EXPECT_TRUE(queue().isFileInUploadQueue(*db().fileWithId(open.internalName)));
    released = true;
    queue().uploadsAdded();
    EXPECT_TRUE(VHWaitUntil([&] { return uploaded(open.internalName); }, 30s));
    EXPECT_TRUE(serverHas("/open.txt", "being written"));
}

// Sent in the wrong order, each of these changes would be refused by the
// service: a parent not made yet, a name still taken, a folder deleted with a
// file that was moved out of it.
TEST_F(VHUploadQueueTest, ChangesThatDependOnOthersWaitForThem) {
    VHFile folder = db().createFolder("New", "team", "team").value();
    VHFile inner = db().createFolder("Inner", "team", folder.internalName).value();
    VHFile moved = db().renameFile(file("/readme.txt"), "moved.txt", inner.internalName).value();
    VHFile rescued = db().renameFile(file("/doomed/a.txt"), "rescued.txt", "team").value();
    ASSERT_TRUE(db().removeFile(file("/doomed/b.txt"), true));
    VHFile doomed = file("/doomed");
    ASSERT_TRUE(db().removeFile(doomed, true));
    VHFile a = file("/swap-a.txt"), b = file("/swap-b.txt");
    ASSERT_TRUE(db().renameFile(a, "swap-c.txt"));
    ASSERT_TRUE(db().renameFile(b, "swap-a.txt"));
    ASSERT_TRUE(db().renameFile(*db().fileWithId(a.internalName), "swap-b.txt"));
    // The name of a deleted file taken by a new one.
    ASSERT_TRUE(db().removeFile(file("/other.txt"), true));
    VHFile reborn = create("other.txt", "reborn");
    queue().runThread();

    for (const VHFile& f : {folder, inner, moved, rescued, reborn}) {
        EXPECT_TRUE(VHWaitUntil([&] { return uploaded(f.internalName); }, 60s)) << f.publicName;
    }
    EXPECT_TRUE(
        VHWaitUntil([&] { return uploaded(a.internalName) && uploaded(b.internalName); }, 60s));
    EXPECT_TRUE(VHWaitUntil([&] { return !item("/doomed"); }, 60s));
    EXPECT_TRUE(serverHas("/New/Inner/moved.txt", "hello world"));
    EXPECT_TRUE(serverHas("/rescued.txt", "rescued"));
    EXPECT_TRUE(serverHas("/swap-a.txt", "was b"));
    EXPECT_TRUE(serverHas("/swap-b.txt", "was a"));
    EXPECT_TRUE(serverHas("/other.txt", "reborn"));
    EXPECT_EQ(item("/swap-a.txt")->at("internalName"), b.internalName);
    std::vector<json> changes;
    for (const json& r : emulator_.requests()) {
        if (r["path"].get<std::string>().starts_with("/api/shares/")) changes.push_back(r);
    }
    ASSERT_FALSE(changes.empty());
    for (const json& r : changes) {
        EXPECT_EQ(r["status"].get<int>() / 100, 2) << r["method"] << " " << r["path"];
    }
}

TEST_F(VHUploadQueueTest, AnUpdateOfAnItemTheServiceLostCreatesItAgain) {
    ASSERT_TRUE(emulator_.act("team", {{{"action", "delete"}, {"path", "/free.txt"}}}));
    VHFile changed = write(file("/free.txt"), "written again");
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil([&] { return uploaded(changed.internalName); }, 30s));
    EXPECT_TRUE(serverHas("/free.txt", "written again"));
}

TEST_F(VHUploadQueueTest, APassReadsPagesOfTwentyUntilItTookTwenty) {
    for (int i = 0; i < 45; ++i) create("pending-" + std::to_string(i) + ".txt", "");
    // The first 25 asked about are not ready yet: the pass reads on.
    std::mutex mutex;
    int asked = 0, accepted = 0;
    queue().setUploadPermission([&](const VHFile&) {
        std::lock_guard lock(mutex);
        bool ready = ++asked > 25;
        accepted += ready;
        return ready;
    });
    queue().checkUploads();
    std::lock_guard lock(mutex);
    EXPECT_EQ(asked, 45);
    EXPECT_EQ(accepted, 20);
}

TEST_F(VHUploadQueueTest, ATimedOutChunkIsSentAgainWithALongerWaitUpToALimit) {
    VHLogRecorder log;
    const std::string timedOut = "Upload request timeout detected. Re-uploading.";
    // Every answer comes 2.5 s late: longer than the first wait (1 s), not
    // than the raised one (4 s).
    std::string bytes = randomBytes(300000, 6);
    VHFile slow = create("slow.bin", bytes);
    ASSERT_TRUE(
        emulator_.addFault({{"method", "PUT"}, {"path", "^/api/uploads/"}, {"delayMs", 2500}}));
    queue().setChunkTimeoutsForTesting({1, 3, 4});
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil([&] { return uploaded(slow.internalName); }, 60s));
    EXPECT_TRUE(serverHas("/slow.bin", bytes));
    EXPECT_EQ(log.count(timedOut), 1);

    // An answer that never comes in time: the twentieth time-out gives up.
    VHUploadQueue::resetForTests();
    ASSERT_TRUE(
        emulator_.addFault({{"method", "PUT"}, {"path", "^/api/uploads/"}, {"delayMs", 3000}}));
    VHFile stuck = create("stuck.bin", randomBytes(300000, 7));
    queue().setChunkTimeoutsForTesting({1, 0, 1});
    queue().runThread();
    ASSERT_TRUE(VHWaitUntil(
        [&] { return log.contains("Too many retransmits for the file stuck.bin"); }, 90s));
    EXPECT_EQ(log.count(timedOut), 1 + 20);
    EXPECT_FALSE(uploaded(stuck.internalName));
}

}  // namespace vh::test
