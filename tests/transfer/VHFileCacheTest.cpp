#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>

#include "lib/VHFatalError.h"
#include "lib/VHLog.h"
#include "lib/VHPaths.h"
#include "support/VHTestWait.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string readFile(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void writeFile(const std::string& path, const std::string& bytes,
               std::ios::openmode mode = std::ios::trunc) {
    std::ofstream(path, std::ios::binary | mode) << bytes;
}

VHFile makeFile(const std::string& internalName, uint64_t size) {
    VHFile file;
    file.publicName = internalName + ".txt";
    file.internalName = internalName;
    file.shareId = "s1";
    file.fileSize = size;
    return file;
}

// Asks the cache again from inside the completion hook, which would deadlock
// if the cache still held its lock there.
class RecordingApp final : public VHAppHooks {
  public:
    std::string username() override { return ""; }
    void globalLoginResponceLoaded(const GlobalLoginResponce&) override {}
    void refreshFinderFolders(const std::vector<std::string>&) override {}
    void refreshFinderRootFolder() override {}
    void refreshFileInFinder(const VHFile& file) override {
        refreshed.push_back(file.internalName + "=" +
                            std::to_string(VHFileCache::fileCache().availableDataForFile(file)));
    }
    std::vector<std::string> refreshed;  // only the writing thread completes files
};

class VHFileCacheTest : public testing::Test {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        VHStoreHooks::setApp(&app_);
        VHSetLogSink([this](int, const std::string& line) {
            std::lock_guard lock(logMutex_);
            log_ += line + "\n";
        });
    }
    void TearDown() override {
        VHFileCache::resetForTests();
        VHStoreHooks::setApp(nullptr);
        VHSetLogSink({});
    }
    bool logged(const std::string& text) {
        std::lock_guard lock(logMutex_);
        return log_.find(text) != std::string::npos;
    }

    RecordingApp app_;
    std::mutex logMutex_;
    std::string log_;  // guarded by logMutex_
};

TEST_F(VHFileCacheTest, FoldersPathsAndRegistration) {
    VHFileCache& cache = VHFileCache::fileCache();
    std::string root = VHPaths::dataRoot();
    EXPECT_EQ(VHFileCache::metadataPath(), root);
    for (const std::string& folder :
         {VHFileCache::filesCachePath(), VHFileCache::uploadsCachePath(),
          VHFileCache::downloadsCachePath(), VHFileCache::logsPath()}) {
        EXPECT_TRUE(fs::is_directory(folder)) << folder;
    }
    EXPECT_EQ(cache.pathForShareCache("s1"), root + "/Files/s1");
    EXPECT_FALSE(fs::exists(root + "/Files/s1"));
    EXPECT_EQ(cache.pathForFileExtAttrs(makeFile("abc", 1)), root + "/Files/s1/abc.attrs");
    EXPECT_TRUE(fs::is_directory(root + "/Files/s1"));

    EXPECT_EQ(cache.pathForFileCache("a/b", "x"), "");
    VHFile escaping = makeFile("..", 3);
    cache.addChunk("abc", 0, escaping);
    EXPECT_EQ(cache.availableDataForFile(escaping), 0u);
    EXPECT_TRUE(logged("unsafe name \"..\""));

    VHFileCache::resetForTests();
    EXPECT_EQ(VHStoreHooks::cache().shareCachePath("s1"), "");
    VHFileCache::fileCache();
    EXPECT_EQ(VHStoreHooks::cache().shareCachePath("s1"), root + "/Files/s1");
}

TEST_F(VHFileCacheTest, ABrokenDataRootIsReportedAsFatalAndFailsTheCalls) {
    // A forked child's exit would remove this test's home; a re-executed child
    // repeats the steps below in the same HOME and dies at its own statement.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    VHSetLogSink({});
    std::string home = VHPaths::home();
    std::error_code ignored;
    fs::create_directories(home + "/data/Varnholt", ignored);
    writeFile(home + "/data/Varnholt/Downloads", "in the way");
    setenv("XDG_DATA_HOME", (home + "/data").c_str(), 1);
    // With a handler the process goes on, and nothing lands anywhere.
    EXPECT_EXIT(
        {
            std::vector<int> reported;
            VHSetFatalErrorHandler([&](int status) { reported.push_back(status); });
            VHFileCache& cache = VHFileCache::fileCache();
            VHFile file = makeFile("f", 3);
            cache.addChunk("abc", 0, file);
            bool failed = !cache.getChunk(0, 3, file) && cache.pathForFileCache(file).empty() &&
                          !fs::exists(home + "/data/Varnholt/Files/s1");
            std::exit(reported == std::vector<int>{100} && failed ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "Unknown file exists at cache directory location : .*/data/Varnholt/Downloads");

    // Without one the process ends with the status.
    writeFile(home + "/plain", "");
    setenv("XDG_DATA_HOME", (home + "/plain/data").c_str(), 1);
    EXPECT_EXIT(VHFileCache::fileCache(), testing::ExitedWithCode(100),
                "Cannot create cache directory at path : .*/plain/data/Varnholt, error : Not a "
                "directory");
}

TEST_F(VHFileCacheTest, EveryFolderOfTheCacheIsPrivate) {
    std::string root = VHPaths::dataRoot();
    fs::create_directories(root + "/Files");
    fs::permissions(root, fs::perms(0755));
    fs::permissions(root + "/Files", fs::perms(0775));
    VHFileCache& cache = VHFileCache::fileCache();
    cache.pathForFileCache(makeFile("f", 1));
    for (const std::string& folder :
         {root, VHFileCache::filesCachePath(), VHFileCache::uploadsCachePath(),
          VHFileCache::downloadsCachePath(), VHFileCache::logsPath(), root + "/Files/s1"}) {
        ASSERT_TRUE(fs::is_directory(folder)) << folder;
        EXPECT_EQ(fs::status(folder).permissions(), fs::perms::owner_all) << folder;
    }
}

TEST_F(VHFileCacheTest, PrefixGrowsOnlyAtItsEndAndCompletesIntoFiles) {
    VHFileCache& cache = VHFileCache::fileCache();
    VHFile file = makeFile("f1", 10);
    std::string partial = cache.pathForFileDownload(file);

    cache.addChunk("56789", 5, file);
    EXPECT_EQ(cache.availableDataForFile(file), 0u);
    cache.addChunk("0123", 0, file);
    EXPECT_EQ(cache.getChunk(1, 3, file), "123");
    EXPECT_FALSE(cache.getChunk(1, 4, file));

    cache.addChunk("XX4567", 2, file);
    cache.addChunk("ab", 0, file);
    EXPECT_EQ(readFile(partial), "01234567");
    EXPECT_TRUE(app_.refreshed.empty());

    cache.addChunk("89", 8, file);
    EXPECT_FALSE(fs::exists(partial));
    EXPECT_EQ(readFile(cache.pathForFileCache(file)), "0123456789");
    EXPECT_EQ(cache.getChunk(0, 10, file), "0123456789");
    EXPECT_EQ(app_.refreshed, std::vector<std::string>{"f1=10"});
    cache.addChunk("zz", 8, file);
    EXPECT_EQ(readFile(cache.pathForFileCache(file)), "0123456789");
}

TEST_F(VHFileCacheTest, PresentLengthComesFromThePartialFileOrTheRecord) {
    VHFileCache& cache = VHFileCache::fileCache();
    VHFile resumed = makeFile("resumed", 10);
    writeFile(cache.pathForFileDownload(resumed), "abcdef");
    cache.addChunk("ghij", 6, resumed);
    EXPECT_EQ(readFile(cache.pathForFileCache(resumed)), "abcdefghij");

    VHFile shortOnDisk = makeFile("short", 5);
    writeFile(cache.pathForFileCache(shortOnDisk), "xyz");
    EXPECT_EQ(cache.getChunk(0, 5, shortOnDisk), "xyz");
    EXPECT_FALSE(cache.getChunk(0, 6, shortOnDisk));

    VHFile oversent = makeFile("oversent", 4);
    cache.addChunk("abcdefgh", 0, oversent);
    EXPECT_EQ(readFile(cache.pathForFileCache(oversent)), "abcd");

    VHFile empty = makeFile("empty", 0);
    EXPECT_EQ(cache.getChunk(0, 0, empty), "");
    cache.addChunk("abc", 0, empty);
    EXPECT_EQ(fs::file_size(cache.pathForFileDownload(empty)), 0u);
    EXPECT_FALSE(VHStoreHooks::cache().hasCompleteCache(empty));
}

TEST_F(VHFileCacheTest, IdleItemsAreDroppedAndReopenedFromDisk) {
    VHFileCache& cache = VHFileCache::fileCache();
    VHFile file = makeFile("idle", 100);
    cache.addChunk("abcd", 0, file);
    writeFile(cache.pathForFileDownload(file), "efgh", std::ios::app);

    // Reads keep the item, and its stale length, past the expiry time.
    for (auto until = std::chrono::steady_clock::now() + 6500ms;
         std::chrono::steady_clock::now() < until; std::this_thread::sleep_for(500ms)) {
        EXPECT_EQ(cache.getChunk(0, 4, file), "abcd");
    }
    EXPECT_EQ(cache.availableDataForFile(file), 4u);

    auto idleSince = std::chrono::steady_clock::now();
    EXPECT_TRUE(test::VHWaitUntil([&] { return cache.availableDataForFile(file) == 8; }, 15s));
    EXPECT_GE(std::chrono::steady_clock::now() - idleSince, 4900ms);
}

TEST_F(VHFileCacheTest, SideFilesDeletionExchangeAndMove) {
    VHFileCache& cache = VHFileCache::fileCache();
    VHFile file = makeFile("side", 3);
    writeFile(cache.pathForFileCache(file), "old");
    VHStoreHooks::cache().createCacheFile(file);
    EXPECT_EQ(fs::file_size(cache.pathForFileCache(file)), 0u);
    cache.createExAttrsForFile(file);
    VHStoreHooks::cache().deleteFileCache(file);
    EXPECT_FALSE(fs::exists(cache.pathForFileCache(file)));
    EXPECT_FALSE(fs::exists(cache.pathForFileExtAttrs(file)));

    VHFile blocked = makeFile("blocked", 0);
    fs::create_directory(cache.pathForFileCache(blocked));
    cache.createCacheFile(blocked);
    EXPECT_TRUE(
        logged("Warning! Cannot create cache file for file blocked.txt : file with the "
               "same name already exists there."));
    cache.addChunk("abc", 0, file);
    VHStoreHooks::cache().deleteFileDownload(file);
    VHStoreHooks::cache().deleteFileDownload(file);
    EXPECT_FALSE(fs::exists(cache.pathForFileDownload(file)));
    EXPECT_FALSE(logged("Cannot delete"));

    std::string p = cache.pathForFileCache("s9", "p"), q = cache.pathForFileCache("s9", "q");
    writeFile(p, "P");
    writeFile(q, "Q");
    EXPECT_TRUE(VHFileCache::exchangeFileContents(p, q));
    EXPECT_EQ(readFile(p) + readFile(q), "QP");
    EXPECT_FALSE(VHFileCache::exchangeFileContents(p, q + "-missing"));
    EXPECT_TRUE(logged("Warning! exchange contents failed"));

    VHFile oldFile = makeFile("old", 3), newFile = makeFile("new", 3);
    writeFile(cache.pathForFileCache(oldFile), "old");
    writeFile(cache.pathForFileCache(newFile), "new");
    writeFile(cache.pathForFileExtAttrs(newFile), "new attrs");
    VHStoreHooks::cache().exchangeFileCaches(oldFile, newFile);
    // The taken-over item's bytes live on under the new item (a backup copy).
    EXPECT_EQ(readFile(cache.pathForFileCache(oldFile)), "new");
    EXPECT_EQ(readFile(cache.pathForFileCache(newFile)), "old");
    EXPECT_EQ(readFile(cache.pathForFileExtAttrs(oldFile)), "new attrs");
    EXPECT_FALSE(fs::exists(cache.pathForFileExtAttrs(newFile)));

    VHStoreHooks::cache().moveFileCache("old", "renamed", "s1", "s2");
    EXPECT_EQ(readFile(cache.pathForFileCache("s2", "renamed")), "new");
    EXPECT_EQ(readFile(cache.pathForFileExtAttrs("s2", "renamed")), "new attrs");
    EXPECT_FALSE(fs::exists(cache.pathForFileCache(oldFile)));
}

TEST_F(VHFileCacheTest, ConcurrentReadersSeeOnlyBytesThatWereWritten) {
    VHFileCache& cache = VHFileCache::fileCache();
    std::string content(1 << 20, '\0');
    for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 % 251);
    VHFile file = makeFile("busy", content.size());

    std::atomic<bool> writing = true;
    std::atomic<int> attempts = 0, hits = 0, wrong = 0;
    auto reader = [&](unsigned seed) {
        for (std::mt19937 random(seed); writing;) {
            uint64_t offset = random() % content.size();
            uint64_t length = random() % std::min<uint64_t>(65536, content.size() - offset);
            auto bytes = cache.getChunk(offset, length, file);
            ++attempts;
            hits += bytes.has_value();
            wrong += bytes && *bytes != content.substr(offset, length);
        }
    };
    std::thread first(reader, 1), second(reader, 2);
    // 16 KiB chunks that resend the last 4 KiB, as a resumed download does,
    // each followed by a few reads.
    for (size_t at = 0; at < content.size(); at += 12288) {
        cache.addChunk(std::string_view(content).substr(at, 16384), at, file);
        for (int seen = attempts; attempts < seen + 4;) std::this_thread::yield();
    }
    writing = false;
    first.join();
    second.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(hits, 0);
    EXPECT_EQ(cache.getChunk(0, content.size(), file), content);
}

}  // namespace

}  // namespace vh
