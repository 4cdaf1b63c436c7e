// The download queue against the real emulator: the store is filled from the
// emulator's real login and catch-up answers, and the user domain that signs
// the requests comes from its real global login answer.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "emulator/support/VHEmulatorProcess.h"
#include "lib/VHSettings.h"
#include "lib/VHSqlite.h"
#include "store/VHDatabase.h"
#include "support/VHEmulatorStore.h"
#include "support/VHStoreTestSupport.h"
#include "support/VHTestWait.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHNewAPI.h"
#include "transfer/VHTransferHooks.h"

namespace vh::test {

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr size_t kBatchSize = 200000;

json seed() {
    auto text = VHWriteTextAction;
    auto bytes = [](const std::string& path, size_t size, int seed) {
        return json{{"action", "writeFile"}, {"path", path}, {"size", size}, {"seed", seed}};
    };
    json actions = {text("/readme.txt", "hello world"), text("/other.txt", "outside"),
                    bytes("/big.bin", 3 << 20, 7),      bytes("/photo.bin", 300000, 3),
                    text("/sync/a.txt", "alpha"),       bytes("/sync/b.bin", 300000, 11),
                    text("/sync/inner/c.txt", "gamma")};
    for (int i = 1; i <= 7; ++i) {
        actions.push_back(bytes("/batch/f" + std::to_string(i) + ".bin", kBatchSize, i));
    }
    return VHTeamSeed(actions);
}

// The queue's signals as "s name", "p bytes" and "f name error", in order.
class Events {
  public:
    explicit Events(VHDownloadQueue& queue) {
        auto add = [this](std::string line) {
            std::lock_guard lock(mutex_);
            lines_.push_back(std::move(line));
        };
        QObject::connect(
            &queue, &VHDownloadQueue::fileDownloadStarted, &context_,
            [add](const VHFile& f) { add("s " + f.publicName); }, Qt::DirectConnection);
        QObject::connect(
            &queue, &VHDownloadQueue::fileDownloadProgress, &context_,
            [add](const VHFile&, qint64 p) { add("p " + std::to_string(p)); },
            Qt::DirectConnection);
        QObject::connect(
            &queue, &VHDownloadQueue::fileDownloadFinished, &context_,
            [add](const VHFile& f, bool e) { add("f " + f.publicName + (e ? " 1" : " 0")); },
            Qt::DirectConnection);
    }
    std::vector<std::string> with(char kind) const {
        std::lock_guard lock(mutex_);
        std::vector<std::string> found;
        for (const auto& line : lines_) {
            if (line[0] == kind) found.push_back(line.substr(2));
        }
        return found;
    }
    // The most whole-file downloads running at once.
    int peakRunning() const {
        std::lock_guard lock(mutex_);
        int running = 0, peak = 0;
        for (const auto& line : lines_)
            peak = std::max(peak, running += (line[0] == 's') - (line[0] == 'f'));
        return peak;
    }

  private:
    QObject context_;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

class VHDownloadQueueTest : public testing::Test {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        ASSERT_TRUE(emulator_.start({seed(), ""}));
        ASSERT_TRUE(VHFillStoreFromEmulator(emulator_, "a@varnholt.test", "pw", domains_));
        queue().runThread();
    }
    void TearDown() override {
        VHDownloadQueue::resetForTests();
        db().unload();
        VHFileCache::resetForTests();
    }

    static VHDatabase& db() { return VHDatabase::database(); }
    static VHDownloadQueue& queue() { return VHDownloadQueue::downloadQueue(); }
    VHFile file(const std::string& path) { return db().fileWithPath("/Team" + path).value(); }
    VHFile batch(int i) { return file("/batch/f" + std::to_string(i) + ".bin"); }
    std::string content(const std::string& path) { return *emulator_.fileBytes("team", path); }
    std::optional<std::string> read(const std::string& path, int64_t offset, uint64_t size) {
        return queue().downloadChunk(offset, size, file(path), "/Team" + path);
    }
    bool cachedCompletely(const std::string& path) {
        std::ifstream in(VHFileCache::fileCache().pathForFileCache(file(path)), std::ios::binary);
        std::stringstream bytes;
        bytes << in.rdbuf();
        return bytes.str() == content(path);
    }
    // The "Content-Range" of the content GETs logged since the last look,
    // once there are `count` (the log is written after the answer).
    std::vector<std::string> gets(size_t count) {
        std::vector<std::string> ranges;
        VHWaitUntil([&] {
            for (const json& r : emulator_.requests(lastSeq_)) {
                lastSeq_ = std::max<int64_t>(lastSeq_, r["seq"]);
                std::string path = r["path"];
                if (r["method"] != "GET" || !path.starts_with("/api/")) continue;
                ranges.push_back(r["headers"].value("Content-Range", ""));
            }
            return ranges.size() >= count;
        });
        return ranges;
    }
    void delayGets(int ms) {
        ASSERT_TRUE(emulator_.addFault({{"method", "GET"}, {"path", "^/api/"}, {"delayMs", ms}}));
    }
    void downloadedHoursAgo(const VHFile& file, double hours) {
        ASSERT_TRUE(db().markFileDownloaded(file));
        VHSqlite sql;
        ASSERT_TRUE(sql.open(db().databasePath(), VHSqlite::Mode::ReadWrite));
        ASSERT_TRUE(sql.run("UPDATE downloads SET downloadTime = ? WHERE internalName = ?",
                            {VHDate::now().seconds - 3600 * hours, file.internalName}));
    }

    VHEmulatorProcess emulator_;
    VHEmulatorDomains domains_;
    int64_t lastSeq_ = 0;
};

using Ranges = std::vector<std::string>;

}  // namespace

TEST_F(VHDownloadQueueTest, ReadsAreCutToTheFileAndFetchMoreBeyondTheCachedPrefix) {
    const std::string big = content("/big.bin");
    EXPECT_EQ(read("/big.bin", 3 << 20, 4096), "");
    EXPECT_EQ(read("/big.bin", (3 << 20) + 1, 4096), std::nullopt);
    // Past a gap: 1 MiB, which only its reader gets. The end is exclusive.
    EXPECT_EQ(read("/big.bin", 1 << 20, 4096), big.substr(1 << 20, 4096));
    EXPECT_EQ(gets(1), Ranges{"bytes 1048576-2097152/3145728"});
    // At the prefix: 256 KiB, kept by the cache, so a read inside is local.
    EXPECT_EQ(read("/big.bin", 0, 4096), big.substr(0, 4096));
    EXPECT_EQ(read("/big.bin", 200000, 60000), big.substr(200000, 60000));
    EXPECT_EQ(gets(1), Ranges{"bytes 0-262144/3145728"});
    EXPECT_EQ(read("/big.bin", (1 << 20) + 8192, 10), big.substr((1 << 20) + 8192, 10));
    EXPECT_EQ(gets(1), Ranges{"bytes 1056768-2105344/3145728"});
    EXPECT_EQ(read("/big.bin", (3 << 20) - 10, 4096), big.substr((3 << 20) - 10));
    EXPECT_EQ(gets(1), Ranges{"bytes 3145718-3145728/3145728"});

    // A record of an unknown share moves to the share its path lies in.
    VHFile stale = file("/readme.txt");
    stale.shareId = "gone";
    EXPECT_EQ(queue().downloadChunk(0, 100, stale, "/Team/readme.txt"), "hello world");
    EXPECT_EQ(db().fileWithId(stale.internalName)->shareId, "team");
}

TEST_F(VHDownloadQueueTest, ASequentialReaderGetsGrowingBites) {
    const std::string big = content("/big.bin");
    ASSERT_EQ(big.size(), 3u << 20);
    std::string whole;
    for (uint64_t offset = 0; offset < big.size(); offset += 131072)
        whole += read("/big.bin", offset, 131072).value_or("");
    EXPECT_EQ(whole, big);
    // Two plain bites first, then each twice the last, cut to the file.
    EXPECT_EQ(gets(5), (Ranges{"bytes 0-262144/3145728", "bytes 262144-524288/3145728",
                               "bytes 524288-1048576/3145728", "bytes 1048576-2097152/3145728",
                               "bytes 2097152-3145728/3145728"}));
}

TEST_F(VHDownloadQueueTest, ReadsWaitingOnOneFileAreServedByItsOneConnection) {
    delayGets(500);
    const std::string big = content("/big.bin");
    std::optional<std::string> first, second, other;
    std::thread a([&] { first = read("/big.bin", 0, 4096); });
    EXPECT_TRUE(VHWaitUntil([&] { return queue().isFileDownloading(file("/big.bin"), true); }));
    std::thread b([&] { second = read("/big.bin", 100000, 8192); });
    std::thread c([&] { other = read("/photo.bin", 0, 1000); });  // not held up
    a.join();
    b.join();
    c.join();
    EXPECT_EQ(first, big.substr(0, 4096));
    EXPECT_EQ(second, big.substr(100000, 8192));
    EXPECT_EQ(other, content("/photo.bin").substr(0, 1000));
    EXPECT_EQ(gets(2).size(), 2u);
}

TEST_F(VHDownloadQueueTest, AReadAsksAgainAfterPassingFailuresButNotAfterARefusal) {
    const std::string big = content("/big.bin");
    auto fault = [&](const json& rule) {
        json full = rule;
        full["method"] = "GET";
        full["path"] = "^/api/";
        ASSERT_TRUE(emulator_.addFault(full));
    };
    auto fired = [&] {
        int64_t total = 0;
        std::optional<json> rules = emulator_.admin("GET", "faults");
        for (const json& rule : rules.value_or(json::array())) total += rule.value("fired", 0);
        return total;
    };
    // A server error, a dropped connection and a cut answer, then the bytes.
    fault({{"status", 500}, {"count", 1}});
    fault({{"drop", true}, {"count", 1}});
    fault({{"truncateAt", 10}, {"count", 1}});
    EXPECT_EQ(read("/big.bin", 0, 64), big.substr(0, 64));
    EXPECT_EQ(fired(), 3);
    EXPECT_EQ(gets(4), Ranges(4, "bytes 0-262144/3145728"));
    ASSERT_TRUE(emulator_.clearFaults());

    // A refusal is final: one request, and nothing.
    fault({{"status", 404}});
    EXPECT_EQ(read("/photo.bin", 0, 100), std::nullopt);
    EXPECT_EQ(fired(), 1);
    ASSERT_TRUE(emulator_.clearFaults());

    // Failing all along, the read gives up at its limit having asked more than once.
    fault({{"status", 503}});
    EXPECT_EQ(read("/readme.txt", 0, 100), std::nullopt);
    EXPECT_GT(fired(), 1);
    ASSERT_TRUE(emulator_.clearFaults());
    EXPECT_EQ(read("/readme.txt", 0, 100), "hello world");
}

TEST_F(VHDownloadQueueTest, ADownloadedFileMovesToItsShareFolderAndIsReadWithoutRequests) {
    Events events(queue());
    QObject receiver;  // the signals also reach the main thread's event loop
    std::vector<bool> finished;
    QObject::connect(&queue(), &VHDownloadQueue::fileDownloadFinished, &receiver,
                     [&](const VHFile&, bool error) { finished.push_back(error); });
    VHFile photo = file("/photo.bin");
    EXPECT_FALSE(queue().isFileDownloaded(photo));
    queue().downloadFileManually(photo);
    EXPECT_TRUE(queue().isFileInQueue(photo));
    ASSERT_TRUE(VHWaitUntil([&] { return finished.size() == 1; }));
    EXPECT_EQ(finished, std::vector<bool>{false});

    VHFileCache& cache = VHFileCache::fileCache();
    EXPECT_FALSE(fs::exists(cache.pathForFileDownload(photo)));
    EXPECT_EQ(cache.pathForFileCache(photo),
              VHFileCache::filesCachePath() + "/team/" + photo.internalName);
    EXPECT_TRUE(cachedCompletely("/photo.bin"));
    EXPECT_TRUE(queue().isFileDownloaded(photo));
    EXPECT_EQ(queue().queueLen() + queue().queueBytes(), 0u);
    EXPECT_GT(VHTransferSpeeds::lastDownloadSpeed.load(), 0.0);
    std::vector<std::string> progress = events.with('p');
    ASSERT_GE(progress.size(), 2u);
    EXPECT_EQ(progress[0], "0");
    for (size_t i = 1; i < progress.size(); ++i) {
        EXPECT_GT(std::stoll(progress[i]) - std::stoll(progress[i - 1]), 65536);
    }

    gets(1);
    EXPECT_EQ(read("/photo.bin", 1000, 299000), content("/photo.bin").substr(1000));
    EXPECT_EQ(read("/readme.txt", 6, 5), "world");  // the only request since
    EXPECT_EQ(gets(1), Ranges{"bytes 6-11/11"});
}

TEST_F(VHDownloadQueueTest, FiveDownloadsRunAtOnceAndAMenuRequestOvertakesTheQueue) {
    delayGets(800);
    Events events(queue());
    for (int i = 1; i <= 7; ++i) queue().downloadFileAutomatically(batch(i));
    EXPECT_EQ(queue().queueBytes(), 7 * kBatchSize);
    ASSERT_TRUE(VHWaitUntil([&] { return events.with('s').size() == 5; }));
    queue().downloadFileManually(batch(7));
    queue().downloadFileManually(batch(7));  // asked twice
    queue().downloadFileManually(batch(1));  // running already
    ASSERT_TRUE(VHWaitUntil([&] { return events.with('f').size() == 7; }));

    EXPECT_EQ(events.with('s'),
              (Ranges{"f1.bin", "f2.bin", "f3.bin", "f4.bin", "f5.bin", "f7.bin", "f6.bin"}));
    EXPECT_EQ(events.peakRunning(), 5);
    for (int i = 1; i <= 7; ++i)
        EXPECT_TRUE(cachedCompletely("/batch/f" + std::to_string(i) + ".bin"));
    EXPECT_EQ(queue().queueLen() + queue().queueBytes(), 0u);
}

TEST_F(VHDownloadQueueTest, CancellationDropsAQueuedDownloadAndStopsARunningOne) {
    delayGets(800);
    VHLogRecorder log;
    Events events(queue());
    for (int i = 1; i <= 6; ++i) queue().downloadFileAutomatically(batch(i));
    ASSERT_TRUE(VHWaitUntil([&] { return events.with('s').size() == 5; }));
    queue().cancelFileDownload(batch(6));
    EXPECT_FALSE(queue().isFileInQueue(batch(6)));
    queue().cancelFileDownload(batch(1));
    EXPECT_TRUE(queue().isFileInQueue(batch(1)));  // until its next bytes
    ASSERT_TRUE(VHWaitUntil([&] { return events.with('f').size() == 5; }));

    std::vector<std::string> ends = events.with('f');
    std::sort(ends.begin(), ends.end());
    EXPECT_EQ(ends, (Ranges{"f1.bin 1", "f2.bin 0", "f3.bin 0", "f4.bin 0", "f5.bin 0"}));
    EXPECT_TRUE(log.contains("File f1.bin download canceled."));
    EXPECT_FALSE(queue().isFileDownloaded(batch(1)));
    EXPECT_FALSE(queue().isFileDownloaded(batch(6)));
    EXPECT_EQ(queue().queueLen() + queue().queueBytes(), 0u);
    queue().downloadFileViaMenu(batch(1));  // asked for again, it completes
    EXPECT_TRUE(VHWaitUntil([&] { return cachedCompletely("/batch/f1.bin"); }));
}

TEST_F(VHDownloadQueueTest, SynchronizedFoldersAndSharesGetAllTheirFilesDownloaded) {
    delayGets(1000);
    VHFile folder = file("/sync");
    VHFile inner = file("/sync/inner");
    queue().changeSycStatus(folder.internalName, true);
    EXPECT_TRUE(queue().pathIsSynchronized("/Team/sync"));
    EXPECT_FALSE(queue().pathIsSynchronized("/Team/sync/inner"));
    queue().checkAutomaticDownloads();
    ASSERT_TRUE(VHWaitUntil([&] { return queue().queueLen() == 3; }));
    EXPECT_TRUE(queue().pathHasDownloads("/Team/sync"));
    EXPECT_FALSE(queue().pathHasDownloads("/Team/batch"));
    ASSERT_TRUE(VHWaitUntil([&] { return queue().queueLen() == 0; }));
    for (const char* path : {"/sync/a.txt", "/sync/b.bin", "/sync/inner/c.txt"}) {
        EXPECT_TRUE(cachedCompletely(path)) << path;
    }
    EXPECT_FALSE(queue().isFileDownloaded(file("/other.txt")));

    // Unmarking a folder clears the marks below it.
    queue().changeSycStatus(inner.internalName, true);
    queue().changeSycStatus(folder.internalName, false);
    queue().refreshSyncStatus(folder);
    EXPECT_FALSE(queue().pathIsSynchronized("/Team/sync/inner"));
    EXPECT_TRUE(db().syncedFolders().empty());

    queue().changeSycStatus("team", true);
    EXPECT_TRUE(queue().pathIsSynchronized("/Team"));
    queue().checkAutomaticDownloads();
    EXPECT_TRUE(VHWaitUntil([&] { return cachedCompletely("/other.txt"); }));
}

TEST_F(VHDownloadQueueTest, OldDownloadsExpireByTheSettingExceptInSynchronizedFolders) {
    const std::vector<std::string> paths = {"/readme.txt", "/other.txt", "/sync/a.txt"};
    for (const std::string& path : paths) {
        VHFileCache::fileCache().addChunk(content(path), 0, file(path));
    }
    downloadedHoursAgo(file("/readme.txt"), 5);
    downloadedHoursAgo(file("/other.txt"), 3);
    downloadedHoursAgo(file("/sync/a.txt"), 5);
    queue().changeSycStatus(file("/sync").internalName, true);

    queue().checkDownloadsToDelete(-1);  // no setting: kept for ever
    for (const std::string& path : paths) EXPECT_TRUE(queue().isFileDownloaded(file(path)));
    VHSettings::setValue(VHSettings::prependAppTitle("storeDownloadedFiles"), 0);
    queue().checkDownloadsToDelete(-1);  // 0 days: 4 hours
    EXPECT_FALSE(queue().isFileDownloaded(file("/readme.txt")));
    EXPECT_TRUE(queue().isFileDownloaded(file("/other.txt")));
    EXPECT_TRUE(queue().isFileDownloaded(file("/sync/a.txt")));
}

TEST(VHNewAPITest, ADownloadIsRequestedOnlyWithNamesSafeInItsUrl) {
    ManagedShare share;
    share.ShareId = "s1";
    share.GateWayUrl = "d1.example";
    VHFile file;
    file.internalName = "abc";
    file.uploadName = "Uxyz";
    auto request = [&] { return VHNewAPI::newApiDownloadRequestForFile(file, {0, 1}, share, {}); };
    ASSERT_TRUE(request());
    EXPECT_EQ(request()->url, "https://filecache01.d1.example/api/shares/s1/files/Uxyz");
    file.uploadName = "..";
    EXPECT_FALSE(request());
    file.uploadName = "Uxyz";
    share.GateWayUrl = "evil.example/x?";
    EXPECT_FALSE(request());
    share.GateWayUrl = "me@evil.example";
    EXPECT_FALSE(request());
}

}  // namespace vh::test
