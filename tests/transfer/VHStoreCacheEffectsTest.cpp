// What the metadata store's changes do to the content cache, with both real.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/VHStoreTestSupport.h"
#include "support/VHTestWait.h"
#include "transfer/VHFileCache.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;

class VHStoreCacheEffectsTest : public VHStoreTest {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        cache_ = &VHFileCache::fileCache();
        VHStoreTest::SetUp();
    }
    void TearDown() override {
        VHStoreTest::TearDown();
        VHFileCache::resetForTests();
    }
    // A synchronized file whose contents are completely in the cache.
    VHFile downloaded(const std::string& id, const std::string& content, double modifyTime) {
        VHVirtualFile item = serverItem(id, "s1", id + ".txt", true, 1, modifyTime);
        item.EndOfFile = content.size();
        apply({item});
        VHFile file = *db().fileWithId(id);
        cache_->addChunk(content, 0, file);
        db().markFileDownloaded(file);
        return file;
    }
    VHFileCache* cache_ = nullptr;
};

}  // namespace

TEST_F(VHStoreCacheEffectsTest, SharesOwnACacheFolderAndAttributesForAsLongAsTheyAreKnown) {
    std::string folder = cache_->pathForShareCache("s1");
    std::string attributes = cache_->pathForShareExtAttrs("s1");
    EXPECT_TRUE(fs::is_directory(folder));
    EXPECT_TRUE(fs::is_regular_file(attributes));
    db().deleteShareData("s1");
    EXPECT_TRUE(VHWaitUntil([&] { return !fs::exists(folder); }));
    EXPECT_FALSE(fs::exists(attributes));
}

TEST_F(VHStoreCacheEffectsTest, AFoldersAttributesGoWhenItIsRemovedHereOrOnTheServer) {
    VHFile here = synced("d-here", "s1", "here", false);
    VHFile there = synced("d-there", "s1", "there", false);
    cache_->createExAttrsForFile(here);
    cache_->createExAttrsForFile(there);
    ASSERT_TRUE(fs::exists(cache_->pathForFileExtAttrs(here)));
    ASSERT_TRUE(fs::exists(cache_->pathForFileExtAttrs(there)));
    EXPECT_TRUE(db().removeFile(here, true));
    EXPECT_FALSE(fs::exists(cache_->pathForFileExtAttrs(here)));
    VHVirtualFile deleted = serverItem("d-there", "s1", "there", false, 2);
    deleted.Deleted = true;
    apply({deleted});
    EXPECT_TRUE(VHWaitUntil([&] { return !fs::exists(cache_->pathForFileExtAttrs(there)); }));
}

TEST_F(VHStoreCacheEffectsTest, LocalFilesGetAnEmptyCacheCopyThatRemovalDeletes) {
    auto file = db().createFile("new.txt", "s1", "s1");
    ASSERT_TRUE(file);
    std::string path = cache_->pathForFileCache(*file);
    ASSERT_TRUE(fs::exists(path));
    EXPECT_EQ(fs::file_size(path), 0u);
    auto folder = db().createFolder("dir", "s1", "s1");
    ASSERT_TRUE(folder);
    EXPECT_FALSE(fs::exists(cache_->pathForFileCache(*folder)));
    EXPECT_TRUE(db().removeFile(*file, true));
    EXPECT_FALSE(fs::exists(path));
}

TEST_F(VHStoreCacheEffectsTest, ARemoteContentChangeDropsTheCachedCopyAndAMetadataChangeKeepsIt) {
    VHFile kept = downloaded("f1", "contents", 1000);
    VHFile dropped = downloaded("f2", "contents", 1000);
    ASSERT_TRUE(cache_->hasCompleteCache(kept));
    ASSERT_TRUE(cache_->hasCompleteCache(dropped));

    VHVirtualFile renamed = serverItem("f1", "s1", "renamed.txt", true, 2, 1000.4);
    renamed.EndOfFile = 8;
    VHVirtualFile rewritten = serverItem("f2", "s1", "f2.txt", true, 3, 2000);
    rewritten.EndOfFile = 8;
    apply({renamed, rewritten});
    EXPECT_TRUE(cache_->hasCompleteCache(kept));  // same modify time in whole seconds
    EXPECT_FALSE(cache_->hasCompleteCache(dropped));
}

TEST_F(VHStoreCacheEffectsTest, ExpiredDownloadsAreDeletedOutsideSynchronizedFolders) {
    apply({serverItem("sync", "s1", "kept", false)});
    VHFile old = downloaded("old", "x", 1000);
    VHVirtualFile inSync = serverItem("insync", "sync", "a.txt", true, 1, 1000);
    inSync.EndOfFile = 1;
    apply({inSync});
    VHFile synced = *db().fileWithId("insync");
    cache_->addChunk("y", 0, synced);
    db().markFileDownloaded(synced);
    db().markItemSynchronized("sync", true);

    db().deleteDownloadsOlderThen(VHDate::now().addingSeconds(60));
    EXPECT_FALSE(cache_->hasCompleteCache(old));
    EXPECT_TRUE(cache_->hasCompleteCache(synced));
}

}  // namespace vh::test
