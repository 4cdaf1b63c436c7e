// Changes made on the drive: shadows kept for the server's last state, the
// status rules, and saves that keep a document's identity.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/VHStoreTestSupport.h"

namespace vh::test {
namespace {

using Statuses = std::vector<int64_t>;
using VHDatabaseItemsTest = VHStoreTest;

TEST_F(VHDatabaseItemsTest, WritingASynchronizedFileKeepsOneShadow) {
    VHFile file = synced("f1", "s1", "a.txt");
    file.fileSize = 99;
    std::optional<VHFile> written = db().markFileUpdated(file);
    ASSERT_TRUE(written);
    EXPECT_EQ(written->status, kStatusModified);
    EXPECT_EQ(written->fileSize, 99u);
    EXPECT_EQ(db().fileWithId("f1", true)->fileSize, 10u);  // the server's state
    file.fileSize = 100;
    db().markFileUpdated(file);
    EXPECT_EQ(statuses("f1"), (Statuses{2, 5}));

    db().markFileUploaded(file);
    EXPECT_EQ(db().markFileUpdated(file)->status, kStatusModified);
    EXPECT_EQ(statuses("f1"), (Statuses{2, 5}));
}

TEST_F(VHDatabaseItemsTest, RemovingDependsOnWhetherTheServerKnowsTheItem) {
    std::optional<VHFile> created = db().createFile("new.txt", "s1", "s1");
    ASSERT_TRUE(created);
    EXPECT_EQ(created->status, kStatusCreated);
    EXPECT_EQ(created->tick, kNoTick);
    EXPECT_TRUE(db().removeFile(*created, true));
    EXPECT_EQ(statuses(created->internalName), Statuses{});

    VHFile file = synced("f1", "s1", "a.txt");
    EXPECT_TRUE(db().removeFile(file, true));
    EXPECT_EQ(statuses("f1"), (Statuses{3, 5}));
    EXPECT_TRUE(db().fileWithId("f1")->deleted);
    EXPECT_EQ(db().fileNamesListWithParent("s1"), std::vector<std::string>{});
    EXPECT_EQ(db().uploadsFromIndex(0, 10).front().internalName, "f1");

    VHFile other = synced("f2", "s1", "b.txt");
    EXPECT_TRUE(db().removeFile(other, true, true));
    EXPECT_EQ(statuses("f2"), Statuses{});
}

TEST_F(VHDatabaseItemsTest, RenameStatusRules) {
    VHFile plain = synced("f1", "s1", "a.txt");
    EXPECT_EQ(db().renameFile(plain, "b.txt")->status, kStatusChanged);
    EXPECT_EQ(statuses("f1"), Statuses{3});  // an ordinary name keeps no shadow

    VHFile hidden = synced("f2", "s1", "c.txt");
    EXPECT_EQ(db().renameFile(hidden, "c.txt.sb-1234")->status, kStatusChanged);
    EXPECT_EQ(statuses("f2"), (Statuses{3, 5}));
    EXPECT_EQ(db().fileWithId("f2", true)->publicName, "c.txt");

    std::optional<VHFile> temp = db().createFile("~lock.tmp", "s1", "s1");
    ASSERT_EQ(temp->status, kStatusTemporary);
    std::optional<VHFile> kept = db().renameFile(*temp, "notes.txt");
    EXPECT_EQ(kept->status, kStatusCreated);
    EXPECT_EQ(db().uploadsNumber(), 1);
    EXPECT_EQ(db().renameFile(*kept, ".hidden")->status, kStatusTemporary);

    std::optional<VHFile> folder = db().createFolder("dir", "s1", "s1");
    std::optional<VHFile> moved =
        db().renameFile(*db().fileWithId("f1"), "b.txt", folder->internalName);
    EXPECT_EQ(moved->parentId, folder->internalName);
    EXPECT_EQ(db().fileWithPath("/Share/dir/b.txt")->internalName, "f1");
}

TEST_F(VHDatabaseItemsTest, InsideATemporaryFolderEverythingIsTemporary) {
    std::optional<VHFile> folder = db().createFolder("x.sb-12", "s1", "s1");
    EXPECT_EQ(folder->status, kStatusTemporary);
    EXPECT_EQ(db().createFile("plain.txt", "s1", folder->internalName)->status, kStatusTemporary);
    EXPECT_EQ(db().createFile("A Document Being Saved By X", "s1", "s1")->status, kStatusTemporary);
    EXPECT_FALSE(db().createFile("x", "unknown-share", "s1"));
}

TEST_F(VHDatabaseItemsTest, SaveByReplacementKeepsTheIdentity) {
    VHFile original = synced("f1", "s1", "doc.txt");
    db().renameFile(original, "doc.txt.sb-old");  // the application moves the original away
    std::optional<VHFile> saved = db().createFile("doc.txt", "s1", "s1");
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->internalName, "f1");
    EXPECT_EQ(saved->publicName, "doc.txt");
    EXPECT_EQ(saved->status, kStatusModified);
    EXPECT_EQ(db().fileWithPath("/Share/doc.txt")->internalName, "f1");
    std::optional<VHFile> leftover = db().fileWithPath("/Share/doc.txt.sb-old");
    ASSERT_TRUE(leftover);
    EXPECT_NE(leftover->internalName, "f1");
    EXPECT_EQ(leftover->uploadName, "");
}

TEST_F(VHDatabaseItemsTest, SaveByRenameKeepsTheIdentity) {
    VHFile original = synced("f1", "s1", "doc.txt");
    db().renameFile(original, "doc.txt.sb-old");
    std::optional<VHFile> copy = db().createFile("doc.sb-new", "s1", "s1");
    ASSERT_EQ(copy->status, kStatusTemporary);
    copy->fileSize = 42;
    db().markFileUpdated(*copy);
    std::optional<VHFile> saved = db().renameFile(*db().fileWithId(copy->internalName), "doc.txt");
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->internalName, "f1");
    EXPECT_EQ(saved->fileSize, 42u);
    EXPECT_EQ(saved->status, kStatusModified);
    EXPECT_EQ(db().fileWithId(copy->internalName)->publicName, "doc.txt.sb-old");
    EXPECT_EQ(db().fileNamesListWithParent("s1").size(), 2u);
}

// A folder keeps its own identity (its children stay with it), and a deleted
// item's name is free to take without its identity.
TEST_F(VHDatabaseItemsTest, OnlyALiveFileIsTakenOverByRename) {
    ASSERT_TRUE(db().removeFile(synced("d1", "s1", "old", false), true));
    VHFile folder = db().createFolder("new", "s1", "s1").value();
    VHFile child = db().createFile("child.txt", "s1", folder.internalName).value();
    std::optional<VHFile> renamed = db().renameFile(folder, "old");
    ASSERT_TRUE(renamed);
    EXPECT_EQ(renamed->internalName, folder.internalName);
    EXPECT_EQ(db().fileWithPath("/Share/old")->internalName, folder.internalName);
    EXPECT_EQ(db().fileWithPath("/Share/old/child.txt")->internalName, child.internalName);
    EXPECT_TRUE(db().fileWithId("d1")->deleted);

    ASSERT_TRUE(db().removeFile(synced("f2", "s1", "b.txt"), true));
    VHFile a = db().createFile("a.txt", "s1", "s1").value();
    EXPECT_EQ(db().renameFile(a, "b.txt")->internalName, a.internalName);
    EXPECT_TRUE(db().fileWithId("f2")->deleted);
    std::vector<std::string> names = db().fileNamesListWithParent("s1");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"b.txt", "old"}));
}

TEST_F(VHDatabaseItemsTest, MovingAFolderIntoAnotherShareMakesNewItems) {
    VHFile folder = synced("d1", "s1", "dir", false);
    apply({serverItem("d2", "d1", "sub", false), serverItem("f1", "d2", "a.txt"),
           serverItem("f2", "d1", "b.txt")});
    db().changeFilesShareIdInFolderRecursive(folder, "tmp");
    for (const char* id : {"d1", "d2", "f1", "f2"}) {
        std::optional<VHFile> row = db().fileWithId(id);
        EXPECT_EQ(row->shareId, "tmp") << id;
        EXPECT_EQ(row->status, kStatusCreated) << id;
    }
    EXPECT_EQ(db().blockMap().value("d1"), "block");
    EXPECT_EQ(db().blockMap().value("d2"), "block");
}

}  // namespace
}  // namespace vh::test
