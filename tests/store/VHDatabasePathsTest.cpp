// Drive paths: lookups through the path caches stay right while items are
// renamed and moved, listings are clean, and full paths end on loops.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/VHStoreTestSupport.h"

namespace vh::test {
namespace {

class VHDatabasePathsTest : public VHStoreTest {
  protected:
    // /Share/a/b/c.txt
    void SetUp() override {
        VHStoreTest::SetUp();
        apply({serverItem("a", "s1", "a", false), serverItem("b", "a", "b", false),
               serverItem("c", "b", "c.txt"), serverItem("x", "s1", "x", false)});
    }
    static std::string idAt(const std::string& path) {
        std::optional<VHFile> file = db().fileWithPath(path);
        return file ? file->internalName : "<none>";
    }
};

TEST_F(VHDatabasePathsTest, LookupsFollowRenamesAndMoves) {
    EXPECT_EQ(idAt("/Share/a/b/c.txt"), "c");
    EXPECT_EQ(db().cachedItemWithPath("/Share/a/b", false), "b");
    EXPECT_EQ(idAt("/share/A/b/c.txt"), "<none>");  // items are case-sensitive
    EXPECT_EQ(idAt("/SHARE/a/b/c.txt"), "c");       // share names are not
    EXPECT_EQ(idAt("/Share"), "<none>");
    EXPECT_EQ(idAt("/"), "<none>");

    db().renameFile(*db().fileWithId("a"), "a2");  // local rename of an ancestor
    EXPECT_EQ(idAt("/Share/a/b/c.txt"), "<none>");
    EXPECT_EQ(idAt("/Share/a2/b/c.txt"), "c");

    db().renameFile(*db().fileWithId("b"), "b", "x");  // local move
    EXPECT_EQ(idAt("/Share/a2/b/c.txt"), "<none>");
    EXPECT_EQ(idAt("/Share/x/b/c.txt"), "c");

    apply({serverItem("x", "s1", "y", false, 2)});  // remote rename
    EXPECT_EQ(idAt("/Share/x/b/c.txt"), "<none>");
    EXPECT_EQ(idAt("/Share/y/b/c.txt"), "c");

    ASSERT_TRUE(db().renameShare("s1", "Work"));
    EXPECT_EQ(idAt("/Share/y/b/c.txt"), "<none>");
    EXPECT_EQ(idAt("/Work/y/b/c.txt"), "c");
    EXPECT_EQ(db().fullFilePath(*db().fileWithId("c")), "/Work/y/b/c.txt");
}

TEST_F(VHDatabasePathsTest, AFolderLookedUpOftenIsServedFromMemoryUntilTheNextWrite) {
    std::vector<VHVirtualFile> many;
    for (int i = 0; i < 100; ++i) {
        many.push_back(serverItem("m" + std::to_string(i), "x", "f" + std::to_string(i)));
    }
    apply(many);
    // Enough misses to load the folder whole, then every name is known.
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(idAt("/Share/x/f" + std::to_string(i)), "m" + std::to_string(i));
    EXPECT_EQ(idAt("/Share/x/nothing"), "<none>");

    // Each kind of write is seen by the next lookup.
    db().renameFile(*db().fileWithId("m1"), "renamed");
    EXPECT_EQ(idAt("/Share/x/f1"), "<none>");
    EXPECT_EQ(idAt("/Share/x/renamed"), "m1");
    ASSERT_TRUE(db().createFolder("new", "s1", "x"));
    EXPECT_NE(idAt("/Share/x/new"), "<none>");
    ASSERT_TRUE(db().removeFile(*db().fileWithId("m2"), true));
    EXPECT_TRUE(db().fileWithPath("/Share/x/f2")->deleted);
    apply({serverItem("m3", "x", "f3", true, 5, 2000)});  // a remote change
    EXPECT_EQ(db().fileWithId("m3")->modifyTime, VHDate{2000});
    for (int i = 4; i < 40; ++i) idAt("/Share/x/f" + std::to_string(i));
    apply({serverItem("m5", "a", "f5", true, 6)});  // moved elsewhere
    EXPECT_EQ(idAt("/Share/x/f5"), "<none>");
    EXPECT_EQ(idAt("/Share/a/f5"), "m5");
}

TEST_F(VHDatabasePathsTest, ShadowLookupFindsTheServersName) {
    db().renameFile(*db().fileWithId("c"), "c.txt.sb-7");
    EXPECT_EQ(db().shadowWithPath("/Share/a/b/c.txt")->status, kStatusShadow);
    EXPECT_EQ(idAt("/Share/a/b/c.txt"), "<none>");
    EXPECT_EQ(idAt("/Share/a/b/c.txt.sb-7"), "c");
}

TEST_F(VHDatabasePathsTest, ListingDropsDuplicatesAndHiddenNames) {
    VHFile twin = *db().fileWithId("c");
    twin.internalName = "c-twin";
    db().addFile(twin, kStatusSynchronized);
    VHFile hidden = twin;
    hidden.internalName = "h";
    hidden.publicName = ".fuse_hidden0001";
    db().addFile(hidden, kStatusSynchronized);
    VHLogRecorder log;
    EXPECT_EQ(db().fileNamesListWithParent("b"), std::vector<std::string>{"c.txt"});
    EXPECT_TRUE(log.contains("duplicate item c.txt in directory listing"));
    EXPECT_EQ(db().fileIdsWithParent("b").size(), 2u);  // one twin and the hidden one
    EXPECT_EQ(db().fileNamesListWithParent("b"), std::vector<std::string>{"c.txt"});
    EXPECT_EQ(log.count("duplicate item"), 1);
}

// A name is bytes: "café" composed and decomposed are two names.
TEST_F(VHDatabasePathsTest, NamesThatDifferOnlyInCompositionStayApart) {
    const std::string composed = "caf\xC3\xA9.txt", decomposed = "cafe\xCC\x81.txt";
    apply({serverItem("nfc", "x", composed), serverItem("nfd", "x", decomposed)});
    std::vector<std::string> names = db().fileNamesListWithParent("x");
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{decomposed, composed}));
    EXPECT_EQ(idAt("/Share/x/" + composed), "nfc");
    EXPECT_EQ(idAt("/Share/x/" + decomposed), "nfd");
    EXPECT_EQ(db().fileIdsWithParent("x").size(), 2u);  // neither was taken for a duplicate
}

TEST_F(VHDatabasePathsTest, FullPathsAndTheLoopGuard) {
    EXPECT_EQ(db().fullFilePath(*db().fileWithId("c")), "/Share/a/b/c.txt");
    EXPECT_EQ(db().fullFilePath(VHFile{}), "");
    EXPECT_EQ(db().allFolderSiblings("a", true).size(), 2u);
    std::vector<std::string> folders = db().allSubfolderIds({"s1"});
    std::sort(folders.begin(), folders.end());
    EXPECT_EQ(folders, (std::vector<std::string>{"a", "b", "s1", "x"}));

    VHLogRecorder log;
    apply({serverItem("a", "b", "a", false, 2)});  // the server makes a loop: a in b in a
    EXPECT_EQ(db().fullFilePath(*db().fileWithId("c")), "/Share/a/b/c.txt");
    EXPECT_TRUE(log.contains("Infinite recursivity with files"));
    EXPECT_FALSE(db().getSubshareForFile(*db().fileWithId("c")));
}

}  // namespace
}  // namespace vh::test
