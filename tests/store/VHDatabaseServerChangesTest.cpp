// Server changes applied to the rows: what the server says wins, except over
// local changes that are not uploaded yet.
#include <gtest/gtest.h>

#include <set>

#include "support/VHStoreTestSupport.h"

namespace vh::test {
namespace {

using Statuses = std::vector<int64_t>;

// The upload queue's side of the bookkeeping: which items it is sending and
// which it sent without confirmation.
class UploadBook final : public VHUploadHooks {
  public:
    void cancelUpload(const VHFile&) override {}
    void uploadsAdded() override {}
    bool upload(const VHFile&) override { return true; }
    bool existsOperationOnFileWithInternalName(const std::string& id) override {
        return busy.count(id) > 0;
    }
    bool uploadUnconfirmed(const VHFile& file) override {
        return unconfirmed.count(file.internalName) > 0;
    }
    void confirmUpload(const VHFile& file) override { confirmed.push_back(file.internalName); }
    std::set<std::string> busy, unconfirmed;
    std::vector<std::string> confirmed;
};

class FolderRefreshes final : public VHAppHooks {
  public:
    std::string username() override { return "ann"; }
    void globalLoginResponceLoaded(const GlobalLoginResponce&) override {}
    void refreshFinderFolders(const std::vector<std::string>& paths) override {
        refreshed.insert(paths.begin(), paths.end());
    }
    void refreshFinderRootFolder() override {}
    void refreshFileInFinder(const VHFile&) override {}
    std::set<std::string> refreshed;
};

class VHServerChangesTest : public VHStoreTest {
  protected:
    void SetUp() override {
        VHStoreTest::SetUp();
        VHStoreHooks::setUploads(&uploads_);
        VHStoreHooks::setApp(&app_);
    }
    // A local write at `modifyTime`.
    static void writeLocally(const std::string& id, double modifyTime) {
        VHFile file = *db().fileWithId(id);
        file.fileSize = 5;
        file.modifyTime = VHDate{modifyTime};
        db().markFileUpdated(file);
    }
    UploadBook uploads_;
    FolderRefreshes app_;
};

TEST_F(VHServerChangesTest, NewItemsAndTheShareTick) {
    OSXCatchUpResponse page;
    page.VhVirtualFiles = {serverItem("d1", "s1", "dir", false), serverItem("f1", "d1", "a.txt")};
    page.LargestTick = 42;
    db().updateFiles(page, share());
    EXPECT_EQ(db().fileWithPath("/Share/dir/a.txt")->internalName, "f1");
    EXPECT_EQ(share().LastApplyedJournalTick, 42);
    EXPECT_TRUE(app_.refreshed.count("/Share"));
    EXPECT_TRUE(app_.refreshed.count("/Share/dir"));

    VHVirtualFile item = serverItem("f2", "d1", "b.txt", true, 7);
    item.ShareTick = 43;
    db().updateFile(item, share());
    EXPECT_EQ(share().LastApplyedJournalTick, 43);
    EXPECT_EQ(db().fileWithId("f2")->tick, 7u);
}

TEST_F(VHServerChangesTest, PendingLocalChangeIsKeptUntilTheSameWriteComesBack) {
    synced("f1", "s1", "a.txt");
    writeLocally("f1", 2000);
    VHLogRecorder log;
    apply({serverItem("f1", "s1", "a.txt", true, 2, 3000)});
    EXPECT_EQ(statuses("f1"), (Statuses{2, 5}));
    EXPECT_EQ(db().fileWithId("f1")->fileSize, 5u);
    EXPECT_TRUE(log.contains("File a.txt was modified locally, but also updated remotely."));

    apply({serverItem("f1", "s1", "a.txt", true, 3, 2000.9)});  // our write, in whole seconds
    EXPECT_EQ(statuses("f1"), Statuses{0});
    EXPECT_EQ(db().fileWithId("f1")->tick, 3u);

    // Deleted here: a late echo of that write must not bring the file back.
    ASSERT_TRUE(db().removeFile(*db().fileWithId("f1"), true));
    apply({serverItem("f1", "s1", "a.txt", true, 3, 2000.9)});
    std::optional<VHFile> row = db().fileWithId("f1");
    ASSERT_TRUE(row);
    EXPECT_TRUE(row->deleted);
    EXPECT_EQ(row->status, kStatusChanged);
}

TEST_F(VHServerChangesTest, ModifyTimeDecidesWhetherLocalPermissionsSurvive) {
    VHFile file = synced("f1", "s1", "a.txt");
    file.permissions = 0644;
    db().updateFileAttributes(file);
    VHVirtualFile item = serverItem("f1", "s1", "a.txt", true, 2, 1000.8);
    item.POSIXPermissions = 0666;
    apply({item});
    EXPECT_EQ(db().fileWithId("f1")->permissions, 0666u);  // same second: the server's record

    db().updateFileAttributes(file);
    item = serverItem("f1", "s1", "a.txt", true, 3, 1500);
    item.POSIXPermissions = 0666;
    apply({item});
    std::optional<VHFile> row = db().fileWithId("f1");
    EXPECT_EQ(row->permissions, 0644u);
    EXPECT_EQ(row->modifyTime, VHDate{1500});
    EXPECT_EQ(row->status, kStatusSynchronized);
}

TEST_F(VHServerChangesTest, UploadsAreConfirmedAndBusyItemsWait) {
    for (const char* id : {"f1", "f2", "f3"}) synced(id, "s1", std::string(id) + ".txt");
    for (const char* id : {"f1", "f2"}) {
        writeLocally(id, 3000);
        db().markFileUploaded(*db().fileWithId(id));
        uploads_.unconfirmed.insert(id);
    }
    uploads_.busy.insert("f3");
    apply({serverItem("f1", "s1", "f1.txt", true, 2, 3000.4),
           serverItem("f2", "s1", "f2.txt", true, 2, 4000),
           serverItem("f3", "s1", "renamed.txt", true, 2, 5000)});
    EXPECT_EQ(uploads_.confirmed, std::vector<std::string>{"f1"});
    EXPECT_EQ(statuses("f1"), Statuses{0});
    EXPECT_EQ(statuses("f2"), Statuses{0});  // not ours, but no pending change either
    EXPECT_EQ(db().fileWithId("f3")->publicName, "f3.txt");
}

TEST_F(VHServerChangesTest, Deletions) {
    synced("d1", "s1", "dir", false);
    apply({serverItem("f1", "d1", "in-dir.txt"), serverItem("f2", "s1", "pending.txt"),
           serverItem("f3", "s1", "gone-here.txt"), serverItem("f4", "s1", "plain.txt")});
    writeLocally("f2", 2000);
    db().removeFile(*db().fileWithId("f3"), true);
    db().renameFile(*db().fileWithId("d1"), "moved-dir");  // a folder goes whatever its status
    app_.refreshed.clear();

    std::vector<VHVirtualFile> gone{serverItem("d1", "s1", "x", false, 9)};
    for (const char* id : {"f2", "f3", "f4"}) gone.push_back(serverItem(id, "s1", "x", true, 9));
    for (VHVirtualFile& item : gone) item.Deleted = true;
    VHLogRecorder log;
    apply(gone);
    EXPECT_EQ(statuses("d1"), Statuses{});
    EXPECT_EQ(statuses("f2"), (Statuses{2, 5}));
    EXPECT_TRUE(log.contains("File pending.txt was deleted remotely, but was not uploaded yet."));
    EXPECT_EQ(statuses("f3"), Statuses{});
    EXPECT_EQ(statuses("f4"), Statuses{});
    EXPECT_EQ(app_.refreshed, std::set<std::string>{"/Share"});
    EXPECT_FALSE(db().fileWithPath("/Share/moved-dir"));
}

TEST_F(VHServerChangesTest, SubfolderShareItemsBelongToIt) {
    ManagedShare sub = makeShare("sub", "Team");
    sub.ShareType = 1;
    sub.ParentShareId = "s1";
    sub.InternalName = "d1";
    ClientLoginResponse response;
    response.ManagedShares = std::vector<ManagedShare>{makeShare("s1", "Share"), sub};
    db().updateShares(response, makeDomain("d1"));
    synced("d1", "s1", "team", false);
    db().updateFiles(std::vector<VHVirtualFile>{serverItem("f1", "d1", "a.txt")}, share());
    OSXCatchUpResponse page;
    page.VhVirtualFiles = {serverItem("f2", "d1", "b.txt")};
    db().updateFiles(page, *db().shareWithId("sub"));

    std::optional<VHFile> b = db().fileWithPath("/Team/b.txt");
    ASSERT_TRUE(b);
    EXPECT_EQ(b->shareId, "sub");
    EXPECT_EQ(b->parentShareId, "s1");
    EXPECT_EQ(b->parentId, "d1");  // the shared folder, by which the drive lists the share
    EXPECT_EQ(db().fullFilePathFromSubShare(*b), "/Team/b.txt");

    apply({serverItem("f1", "d1", "a2.txt", true, 5)});  // via the enclosing share
    std::optional<VHFile> a = db().fileWithId("f1");
    EXPECT_EQ(a->shareId, "sub");
    EXPECT_EQ(a->parentShareId, "s1");
    EXPECT_EQ(db().getSubshareForFile(*a)->shareId(), "sub");
    EXPECT_EQ(db().fullFilePathsForFile(*a),
              (std::vector<std::string>{"/Share/team/a2.txt", "/Team/a2.txt"}));
}

}  // namespace
}  // namespace vh::test
