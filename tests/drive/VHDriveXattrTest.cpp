// Extended attributes and remote locks on a real mount: what applications
// store, the status attributes a file manager reads, and the writes a lock
// held elsewhere refuses.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "store/VHDatabase.h"
#include "store/VHStoreHooks.h"
#include "support/VHTestDrive.h"
#include "support/VHTestHome.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;

// Alpha: read-write, owned by someone else; Beta: the user's own; Gamma: read-only.
constexpr const char* kShares = R"({"ManagedShares":[
  {"ShareId":"s1","ShareName":"Alpha","AssociationType":1,"ShareAcl":{"AclType":1},"Status":0,
   "ShareChanged":false,"Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0},
  {"ShareId":"s2","ShareName":"Beta","AssociationType":2,"ShareAcl":{"AclType":2},"Status":0,
   "ShareChanged":false,"Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0},
  {"ShareId":"s3","ShareName":"Gamma","AssociationType":1,"ShareAcl":{"AclType":0},"Status":0,
   "ShareChanged":false,"Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0}]})";

class SignedInUser final : public VHAppHooks {
  public:
    std::string username() override { return "me@varnholt.test"; }
    std::string deviceId() override { return "this-device"; }
    void globalLoginResponceLoaded(const GlobalLoginResponce&) override {}
    void refreshFinderFolders(const std::vector<std::string>&) override {}
    void refreshFinderRootFolder() override {}
    void refreshFileInFinder(const VHFile&) override {}
};

VHVirtualFile lockedItem(const std::string& shareId, const std::string& id, const std::string& name,
                         const std::string& by, const std::string& device) {
    VHVirtualFile item = VHTestItem(shareId, id, shareId, name, 5, 1);
    item.FileLock = FileLock{device, true, 1.0, by};
    return item;
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

int errorOf(ssize_t result) {
    return result >= 0 ? 0 : errno;
}

std::string valueOf(const std::string& path, const char* name) {
    char buffer[64];
    ssize_t length = getxattr(path.c_str(), name, buffer, sizeof buffer);
    return length < 0 ? "errno " + std::to_string(errno) : std::string(buffer, length);
}

// The listed names, sorted, each followed by a space.
std::string namesOf(const std::string& path) {
    char buffer[1024];
    ssize_t length = listxattr(path.c_str(), buffer, sizeof buffer);
    if (length < 0) return "errno " + std::to_string(errno);
    std::set<std::string> names;
    for (ssize_t at = 0; at < length;) {
        std::string name(buffer + at);
        at += static_cast<ssize_t>(name.size()) + 1;
        names.insert(name);
    }
    std::string joined;
    for (const std::string& name : names) joined += name + " ";
    return joined;
}

// A status attribute's byte, or minus the errno.
int status(const std::string& path, const std::string& which) {
    char byte = 0;
    std::string name = "user.com.varnholt.clouddrive-osx." + which;
    return getxattr(path.c_str(), name.c_str(), &byte, 1) == 1 ? byte : -errno;
}

class VHDriveXattrTest : public testing::Test {
  protected:
    void SetUp() override {
        VHFileCache::resetForTests();
        VHFileCache::fileCache();  // as at start-up: share folders are made with the shares
        VHStoreHooks::setApp(&user_);
        VHLoadStoreWithShares(kShares);
        VHApplyItems("s1", {VHTestItem("s1", "i-server", "s1", "server.txt", 40, 1),
                            VHTestItem("s1", "i-empty", "s1", "empty.txt", 0, 1),
                            VHTestItem("s1", "i-done", "s1", "done.txt", 4, 1),
                            VHTestItem("s1", "i-queued", "s1", "queued.txt", 9, 1),
                            VHTestItem("s1", "i-dir", "s1", "dir", std::nullopt, 1),
                            VHTestItem("s1", "i-sync", "s1", "sync", std::nullopt, 1),
                            lockedItem("s1", "i-other", "other.txt", "you@x", "that-device"),
                            lockedItem("s1", "i-mine", "mine.txt", "me@varnholt.test", "laptop"),
                            lockedItem("s1", "i-here", "here.txt", "you@x", "this-device")});
        VHApplyItems("s2", {lockedItem("s2", "i-owned", "owned.txt", "you@x", "that-device")});
        VHApplyItems("s3", {VHTestItem("s3", "i-ro", "s3", "ro.txt", 5, 1)});
        VHFileCache::fileCache().addChunk("done", 0, *record("/Alpha/done.txt"));
        mount();
    }
    void TearDown() override {
        drive_.reset();
        VHDownloadQueue::resetForTests();
        VHDatabase::database().unload();
        VHFileCache::resetForTests();
        VHStoreHooks::setApp(nullptr);
    }
    void mount() {
        drive_.reset();
        drive_ = std::make_unique<VHTestDrive>(VHCurrentTestHome() + "/Varnholt");
        ASSERT_TRUE(drive_->mounted());
    }
    std::string path(const std::string& drivePath) const { return drive_->path() + drivePath; }
    std::optional<VHFile> record(const std::string& drivePath) {
        return VHDatabase::database().fileWithPath(drivePath);
    }

    SignedInUser user_;
    std::unique_ptr<VHTestDrive> drive_;
};

}  // namespace

TEST_F(VHDriveXattrTest, StoredAttributesRoundTripOnFilesFoldersAndShares) {
    writeFile(path("/Alpha/doc.txt"), "text");
    const std::string binary("\0\1\2", 3);
    for (const char* item : {"/Alpha/doc.txt", "/Alpha/dir", "/Alpha"}) {
        SCOPED_TRACE(item);
        std::string p = path(item);
        EXPECT_EQ(namesOf(p), "");
        EXPECT_EQ(errorOf(getxattr(p.c_str(), "user.tag", nullptr, 0)), ENODATA);
        ASSERT_EQ(setxattr(p.c_str(), "user.tag", "red", 3, 0), 0);
        EXPECT_EQ(getxattr(p.c_str(), "user.tag", nullptr, 0), 3);
        EXPECT_EQ(valueOf(p, "user.tag"), "red");
        EXPECT_EQ(errorOf(setxattr(p.c_str(), "user.tag", "x", 1, XATTR_CREATE)), EEXIST);
        ASSERT_EQ(setxattr(p.c_str(), "user.bin", binary.data(), binary.size(), 0), 0);
        EXPECT_EQ(namesOf(p), "user.bin user.tag ");
        ASSERT_EQ(removexattr(p.c_str(), "user.tag"), 0);
        EXPECT_EQ(errorOf(getxattr(p.c_str(), "user.tag", nullptr, 0)), ENODATA);
        EXPECT_EQ(errorOf(removexattr(p.c_str(), "user.tag")), ENODATA);
        EXPECT_EQ(namesOf(p), "user.bin ");
    }
    mount();
    for (const char* item : {"/Alpha/doc.txt", "/Alpha/dir", "/Alpha"}) {
        EXPECT_EQ(valueOf(path(item), "user.bin"), binary) << item;
    }
}

TEST_F(VHDriveXattrTest, TheRootKeepsNothingAndLabelsAndAclsAreNotSupported) {
    std::string root = path("");
    EXPECT_EQ(errorOf(setxattr(root.c_str(), "user.tag", "x", 1, 0)), EACCES);
    EXPECT_EQ(errorOf(getxattr(root.c_str(), "user.tag", nullptr, 0)), ENODATA);
    EXPECT_EQ(status(root, "overlayicon"), -ENODATA);
    EXPECT_EQ(namesOf(root), "");
    EXPECT_EQ(errorOf(removexattr(root.c_str(), "user.tag")), ENODATA);
    std::string file = path("/Alpha/done.txt");
    EXPECT_EQ(errorOf(getxattr(file.c_str(), "security.selinux", nullptr, 0)), EOPNOTSUPP);
    EXPECT_EQ(errorOf(setxattr(file.c_str(), "security.selinux", "x", 1, 0)), EOPNOTSUPP);
}

TEST_F(VHDriveXattrTest, StatusAttributesFollowTheItemsState) {
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    downloads.downloadFileManually(*record("/Alpha/queued.txt"));  // never started here
    writeFile(path("/Alpha/new.txt"), "not uploaded yet");
    EXPECT_EQ(status(path("/Alpha/server.txt"), "overlayicon"), 2);
    EXPECT_EQ(status(path("/Alpha/empty.txt"), "overlayicon"), 1);
    EXPECT_EQ(status(path("/Alpha/done.txt"), "overlayicon"), 1);
    EXPECT_EQ(status(path("/Alpha/queued.txt"), "overlayicon"), 3);
    EXPECT_EQ(status(path("/Alpha/new.txt"), "overlayicon"), 3);
    EXPECT_EQ(status(path("/Alpha/dir"), "overlayicon"), 0);
    EXPECT_EQ(status(path("/Alpha"), "overlayicon"), 3);
    EXPECT_EQ(status(path("/Beta"), "overlayicon"), 0);
    downloads.changeSycStatus("i-sync", true);
    EXPECT_EQ(status(path("/Alpha/sync"), "overlayicon"), 4);
    writeFile(path("/Alpha/sync/pending.txt"), "x");
    EXPECT_EQ(status(path("/Alpha/sync"), "overlayicon"), 5);

    EXPECT_EQ(status(path("/Alpha/server.txt"), "writeaccess"), '1');
    EXPECT_EQ(status(path("/Gamma/ro.txt"), "writeaccess"), '0');
    writeFile(path("/Alpha/~draft.txt"), "x");
    writeFile(path("/Alpha/copy.tmp"), "x");
    EXPECT_EQ(status(path("/Alpha/server.txt"), "filestatus"), 1);
    EXPECT_EQ(status(path("/Alpha/~draft.txt"), "filestatus"), 0);
    EXPECT_EQ(status(path("/Alpha/copy.tmp"), "filestatus"), 0);

    EXPECT_EQ(status(path("/Alpha/server.txt"), "lockstatus"), 0);
    EXPECT_EQ(status(path("/Alpha/other.txt"), "lockstatus"), 2);
    EXPECT_EQ(status(path("/Alpha/mine.txt"), "lockstatus"), 1);
    EXPECT_EQ(status(path("/Alpha/here.txt"), "lockstatus"), 1);
    EXPECT_EQ(status(path("/Beta/owned.txt"), "lockstatus"), 1);
    EXPECT_EQ(status(path("/Alpha/dir"), "lockstatus"), -ENODATA);

    // One byte each, only into a buffer that takes it; never stored or listed.
    std::string file = path("/Alpha/server.txt");
    const char* overlay = "user.com.varnholt.clouddrive-osx.overlayicon";
    EXPECT_EQ(errorOf(getxattr(file.c_str(), overlay, nullptr, 0)), ERANGE);
    EXPECT_EQ(errorOf(setxattr(file.c_str(), overlay, "1", 1, 0)), EPERM);
    EXPECT_EQ(errorOf(removexattr(file.c_str(), overlay)), EPERM);
    EXPECT_EQ(namesOf(file), "");
}

TEST_F(VHDriveXattrTest, AFileLockedElsewhereRefusesEveryWrite) {
    std::string locked = path("/Alpha/other.txt");
    struct stat st {};
    ASSERT_EQ(stat(locked.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0222, 0u);
    EXPECT_EQ(errorOf(open(locked.c_str(), O_WRONLY)), EACCES);
    EXPECT_EQ(errorOf(open(locked.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644)), EACCES);
    EXPECT_EQ(errorOf(truncate(locked.c_str(), 0)), EACCES);

    // A lock that arrives while the file is open stops the handle's writes.
    int fd = open(path("/Alpha/done.txt").c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    VHVirtualFile item = VHTestItem("s1", "i-done", "s1", "done.txt", 4, 1);
    item.Tick = item.ShareTick = 2;
    item.FileLock = FileLock{"that-device", true, 1.0, "you@x"};
    VHApplyItems("s1", {item});
    EXPECT_EQ(errorOf(pwrite(fd, "x", 1, 0)), EACCES);
    EXPECT_EQ(errorOf(ftruncate(fd, 0)), EACCES);
    item.Tick = item.ShareTick = 3;
    item.FileLock = FileLock{"", false, 0.0, ""};
    VHApplyItems("s1", {item});
    EXPECT_EQ(pwrite(fd, "D", 1, 0), 1);
    close(fd);
}

TEST_F(VHDriveXattrTest, AttributesFollowTheirItemAndGoWithIt) {
    writeFile(path("/Alpha/a.txt"), "a");
    ASSERT_EQ(mkdir(path("/Alpha/folder").c_str(), 0755), 0);
    for (const char* item : {"/Alpha/a.txt", "/Alpha/folder"}) {
        ASSERT_EQ(setxattr(path(item).c_str(), "user.k", "v", 1, 0), 0) << item;
    }
    ASSERT_EQ(rename(path("/Alpha/a.txt").c_str(), path("/Alpha/dir/b.txt").c_str()), 0);
    ASSERT_EQ(rename(path("/Alpha/folder").c_str(), path("/Alpha/dir/renamed").c_str()), 0);
    EXPECT_EQ(valueOf(path("/Alpha/dir/b.txt"), "user.k"), "v");
    EXPECT_EQ(valueOf(path("/Alpha/dir/renamed"), "user.k"), "v");

    VHFileCache& cache = VHFileCache::fileCache();
    std::string fileAttrs = cache.pathForFileExtAttrs(*record("/Alpha/dir/b.txt"));
    std::string folderAttrs = cache.pathForFileExtAttrs(*record("/Alpha/dir/renamed"));
    ASSERT_TRUE(fs::exists(fileAttrs));
    ASSERT_TRUE(fs::exists(folderAttrs));
    ASSERT_EQ(unlink(path("/Alpha/dir/b.txt").c_str()), 0);
    ASSERT_EQ(rmdir(path("/Alpha/dir/renamed").c_str()), 0);
    EXPECT_FALSE(fs::exists(fileAttrs));
    EXPECT_FALSE(fs::exists(folderAttrs));
}

}  // namespace vh::test
