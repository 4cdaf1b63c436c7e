// Extended attributes through the real client's drive: what the attribute
// tools and rsync store stays across a restart, the status attributes follow
// real transfers, and a lock taken by another user shows and stops writes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/VHDriveProbe.h"
#include "support/VHShareTree.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// What getfattr prints as the attribute's value ("" when it fails).
std::string attribute(const std::string& path, const std::string& name) {
    std::string command = "getfattr --only-values -n " + name + " " + VHShellQuoted(path);
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    std::string value;
    char buffer[256];
    while (size_t n = fread(buffer, 1, sizeof buffer, pipe)) value.append(buffer, n);
    pclose(pipe);
    return value;
}

bool setAttribute(const std::string& path, const std::string& name, const std::string& value) {
    return VHRunShell("setfattr -n " + name + " -v " + value + " " + VHShellQuoted(path));
}

// A status attribute's byte, or minus the errno.
int status(const std::string& path, const std::string& which) {
    char byte = 0;
    std::string name = "user.com.varnholt.clouddrive-osx." + which;
    return getxattr(path.c_str(), name.c_str(), &byte, 1) == 1 ? byte : -errno;
}

// The errno of opening, 0 when it opens.
int openError(const std::string& path, int flags) {
    int fd = open(path.c_str(), flags);
    if (fd < 0) return errno;
    close(fd);
    return 0;
}

bool writable(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && (st.st_mode & 0222) != 0;
}

class VHClientXattrTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
        ASSERT_TRUE(client_.waitFor(
            [&] {
                return fs::exists(drive("/My Files/welcome.txt")) &&
                       fs::exists(drive("/Team Documents/Projects/Alpha/notes.txt"));
            },
            60s));
    }
    std::string drive(const std::string& path) const { return client_.mountPath() + path; }
    // The client holds a poll on the realtime hub, so changes reach it at once.
    bool listening() const {
        for (const json& c : emulator_.admin("GET", "hub/connections").value_or(json::array())) {
            if (c.value("user", "") == "demo@varnholt.test" && c.value("polling", false))
                return true;
        }
        return false;
    }
    // The service has the file's bytes and the client has its confirmation.
    bool confirmed(const std::string& shareId, const std::string& path, const std::string& bytes) {
        json item = VHTreeItem(emulator_, shareId, path);
        return !item.is_null() && item.at("sha256") == VHSha256Hex(bytes) &&
               VHRecordStatus(item.at("internalName")) == 0;
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

}  // namespace

TEST_F(VHClientXattrTest, StoredAttributesSurviveCopiesUploadsAndARestart) {
    std::string file = drive("/My Files/tagged.txt"), share = drive("/My Files");
    std::string local = VHCurrentTestHome() + "/local";
    writeFile(file, "tagged");
    ASSERT_TRUE(setAttribute(file, "user.colour", "blue"));
    ASSERT_TRUE(setAttribute(share, "user.scope", "team"));
    fs::create_directories(local + "/in");
    writeFile(local + "/in/a.txt", "copied in");
    ASSERT_TRUE(setAttribute(local + "/in/a.txt", "user.origin", "here"));
    ASSERT_TRUE(VHRunShell("rsync -aX " + VHShellQuoted(local + "/in/") + " " +
                           VHShellQuoted(drive("/My Files/copied/"))));
    ASSERT_TRUE(VHRunShell("rsync -aX " + VHShellQuoted(drive("/My Files/copied/")) + " " +
                           VHShellQuoted(local + "/out/")));
    EXPECT_EQ(attribute(local + "/out/a.txt", "user.origin"), "here");

    ASSERT_TRUE(client_.waitFor(
        [&] {
            return confirmed("my-files", "/tagged.txt", "tagged") &&
                   confirmed("my-files", "/copied/a.txt", "copied in");
        },
        60s))
        << VHTail(client_.logs());
    client_.signal(SIGTERM);
    ASSERT_TRUE(client_.waitForExit());
    ASSERT_TRUE(client_.start());
    ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
    ASSERT_TRUE(client_.waitFor([&] { return fs::exists(file); }, 60s));
    EXPECT_EQ(attribute(file, "user.colour"), "blue");
    EXPECT_EQ(attribute(share, "user.scope"), "team");
    EXPECT_EQ(attribute(drive("/My Files/copied/a.txt"), "user.origin"), "here");
}

TEST_F(VHClientXattrTest, StatusAttributesFollowRealTransfers) {
    // A write into a file not yet here waits for the whole file, which the
    // service is slow to send: the file shows as transferring meanwhile, and
    // again while the change is uploaded.
    std::string notes = drive("/Team Documents/Projects/Alpha/notes.txt");
    EXPECT_EQ(status(notes, "overlayicon"), 2);
    json item = VHTreeItem(emulator_, "team-documents", "/Projects/Alpha/notes.txt");
    std::string changed = emulator_.fileBytes("team-documents", "/Projects/Alpha/notes.txt")
                              .value_or("?")
                              .replace(0, 1, "N");
    ASSERT_TRUE(emulator_.addFault(
        {{"method", "GET"}, {"path", item.at("uploadName")}, {"delayMs", 3000}, {"count", 1}}));
    std::atomic<bool> writerDone{false};
    ssize_t written = 0;
    std::thread writer([&] {
        int fd = open(notes.c_str(), O_WRONLY);
        written = fd < 0 ? -2 : pwrite(fd, "N", 1, 0);
        if (fd >= 0) close(fd);
        writerDone = true;
    });
    bool downloading = client_.waitFor([&] { return status(notes, "overlayicon") == 3; }, 3s);
    EXPECT_TRUE(downloading && !writerDone);
    writer.join();
    EXPECT_EQ(written, 1);
    EXPECT_EQ(status(notes, "overlayicon"), 3);
    EXPECT_TRUE(client_.waitFor([&] { return status(notes, "overlayicon") == 1; }, 60s))
        << status(notes, "overlayicon") << VHTail(client_.logs(), 60);
    EXPECT_TRUE(client_.waitFor(
        [&] { return confirmed("team-documents", "/Projects/Alpha/notes.txt", changed); }, 30s));

    std::string fresh = drive("/My Files/fresh.txt");
    writeFile(fresh, "fresh");
    EXPECT_EQ(status(fresh, "overlayicon"), 3);
    EXPECT_TRUE(client_.waitFor([&] { return status(fresh, "overlayicon") == 1; }, 60s))
        << VHTail(client_.logs());

    writeFile(drive("/My Files/~lock.txt"), "x");
    writeFile(drive("/My Files/draft.tmp"), "x");
    EXPECT_EQ(status(fresh, "filestatus"), 1);
    EXPECT_EQ(status(drive("/My Files/~lock.txt"), "filestatus"), 0);
    EXPECT_EQ(status(drive("/My Files/draft.tmp"), "filestatus"), 0);
    EXPECT_EQ(status(fresh, "writeaccess"), '1');
    EXPECT_EQ(status(drive("/Company Handbook/handbook.txt"), "writeaccess"), '0');
}

TEST_F(VHClientXattrTest, ALockTakenByAnotherUserShowsAtOnceAndStopsWritesUntilReleased) {
    std::string readme = drive("/Team Documents/readme.txt");
    std::string original = VHReadWhole(readme);
    ASSERT_FALSE(original.empty());
    EXPECT_EQ(status(readme, "lockstatus"), 0);
    int early = open(readme.c_str(), O_WRONLY);
    ASSERT_GE(early, 0);
    ASSERT_TRUE(client_.waitFor([&] { return listening(); }, 60s));

    json lock = json::array({{{"action", "lock"}, {"path", "/readme.txt"}}});
    ASSERT_TRUE(emulator_.act("team-documents", lock, "partner@varnholt.test", "partner-pc"));
    EXPECT_TRUE(client_.waitFor(
        [&] { return status(readme, "lockstatus") == 2 && openError(readme, O_WRONLY) == EACCES; },
        2s))
        << VHTail(client_.logs());
    EXPECT_EQ(pwrite(early, "x", 1, 0), -1);
    EXPECT_EQ(errno, EACCES);
    // The kernel forgets what it knew of an open file's attributes once it is closed.
    close(early);
    EXPECT_TRUE(client_.waitFor([&] { return !writable(readme); }, 1s));

    json unlock = json::array({{{"action", "unlock"}, {"path", "/readme.txt"}}});
    ASSERT_TRUE(emulator_.act("team-documents", unlock, "partner@varnholt.test", "partner-pc"));
    EXPECT_TRUE(
        client_.waitFor([&] { return status(readme, "lockstatus") == 0 && writable(readme); }, 2s));
    writeFile(readme, "changed while unlocked");
    EXPECT_EQ(VHReadWhole(readme), "changed while unlocked");
    EXPECT_TRUE(client_.waitFor(
        [&] { return confirmed("team-documents", "/readme.txt", "changed while unlocked"); }, 60s))
        << VHTail(client_.logs());
}

}  // namespace vh::test
