// Many threads at once: lookups, listings, creations, writes, renames and
// server batches. Nothing may be lost, nothing may block for good, and SQLite
// must never report the database busy.
#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "support/VHStoreTestSupport.h"

namespace vh::test {
namespace {

constexpr int kFolders = 8;
constexpr int kFilesPerFolder = 20;

std::string folderId(int folder) {
    return "d" + std::to_string(folder);
}
std::string fileId(int folder, int file) {
    return folderId(folder) + "f" + std::to_string(file);
}

// The drive's side of a change: it asks the store for more work from another
// thread and waits, which only ends if the store holds no lock meanwhile.
class ReentrantOpenFiles final : public VHOpenFilesHooks {
  public:
    void fileWasModified(const VHFile& file) override {
        std::async(std::launch::async, [&] {
            VHDatabase::database().markItemSynchronized("probe-" + file.internalName, false);
        }).get();
        ++calls;
    }
    void exchangeFileId(const std::string&, const std::string&) override {}
    std::atomic<int> calls{0};
};

class VHDatabaseConcurrencyTest : public VHStoreTest {
  protected:
    void SetUp() override {
        VHStoreTest::SetUp();
        std::vector<VHVirtualFile> items;
        for (int d = 0; d < kFolders; ++d) {
            items.push_back(serverItem(folderId(d), "s1", folderId(d), false));
            for (int f = 0; f < kFilesPerFolder; ++f) {
                items.push_back(serverItem(fileId(d, f), folderId(d), fileId(d, f) + ".txt"));
            }
        }
        apply(items);
        VHStoreHooks::setOpenFiles(&openFiles_);
    }
    ReentrantOpenFiles openFiles_;
};

TEST_F(VHDatabaseConcurrencyTest, NoLostUpdateNoDeadlockNoBusy) {
    VHLogRecorder log;
    std::vector<std::thread> threads;
    for (int reader = 0; reader < 3; ++reader) {  // folders 0..2 keep their paths
        threads.emplace_back([reader] {
            for (int i = 0; i < 200; ++i) {
                int d = (reader + i) % 3, f = i % kFilesPerFolder;
                std::string path = "/Share/" + folderId(d) + "/" + fileId(d, f) + ".txt";
                EXPECT_TRUE(db().fileWithPath(path)) << path;
                if (i % 20 == 0) db().clearAllPathCaches();
                if (i % 10 == 0) {
                    EXPECT_GE(db().fileNamesListWithParent(folderId(d)).size(), 20u);
                }
            }
        });
    }
    threads.emplace_back([] {  // new items next to the readers' ones
        for (int i = 0; i < 60; ++i) db().createFile("new" + std::to_string(i), "s1", "d0");
    });
    threads.emplace_back([] {  // content writes
        for (int round = 1; round <= 5; ++round) {
            for (int f = 0; f < kFilesPerFolder; ++f) {
                VHFile file = *db().fileWithId(fileId(3, f));
                file.fileSize = round * 100 + f;
                db().markFileUpdated(file);
            }
        }
    });
    for (int renamer = 0; renamer < 2; ++renamer) {
        threads.emplace_back([renamer] {
            int d = 4 + renamer;
            for (int round = 1; round <= 4; ++round) {
                for (int f = 0; f < kFilesPerFolder; ++f) {
                    std::string name = fileId(d, f) + ".v" + std::to_string(round);
                    db().renameFile(*db().fileWithId(fileId(d, f)), name);
                    EXPECT_EQ(db().fileWithPath("/Share/" + folderId(d) + "/" + name)->internalName,
                              fileId(d, f));
                }
            }
        });
    }
    for (int batcher = 0; batcher < 2; ++batcher) {
        threads.emplace_back([batcher] {
            int d = 6 + batcher;
            for (uint64_t tick = 2; tick <= 16; ++tick) {
                std::vector<VHVirtualFile> items;
                for (int f = 0; f < kFilesPerFolder; ++f) {
                    items.push_back(
                        serverItem(fileId(d, f), folderId(d), fileId(d, f) + ".txt", true, tick));
                }
                db().updateFiles(items, *db().shareWithId("s1"));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(log.count("failed"), 0) << log.first("failed");
    EXPECT_EQ(log.count("locked"), 0) << log.first("locked");
    EXPECT_EQ(db().fileNamesListWithParent("d0").size(), size_t(kFilesPerFolder + 60));
    for (int f = 0; f < kFilesPerFolder; ++f) {
        std::optional<VHFile> written = db().fileWithId(fileId(3, f));
        EXPECT_EQ(written->fileSize, uint64_t(500 + f));
        EXPECT_EQ(statuses(fileId(3, f)), (std::vector<int64_t>{2, 5}));
        for (int d : {4, 5}) {
            EXPECT_EQ(db().fileWithId(fileId(d, f))->publicName, fileId(d, f) + ".v4");
        }
        for (int d : {6, 7}) EXPECT_EQ(db().fileWithId(fileId(d, f))->tick, 16u);
    }
    EXPECT_GT(openFiles_.calls, 0);
}

}  // namespace
}  // namespace vh::test
