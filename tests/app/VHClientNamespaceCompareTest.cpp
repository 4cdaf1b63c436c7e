// Namespace changes on the drive behave as on a plain local folder: one script
// of system calls runs on both and the transcripts must be equal. The few
// differences the drive keeps on purpose are listed in one table and checked
// on the drive. Afterwards the service must hold what the drive shows.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <thread>

#include "support/VHDriveProbe.h"
#include "support/VHShareTree.h"
#include "support/VHSyscallTranscript.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

void createAndReplace(VHSyscallTranscript& t) {
    t.create("a.txt", "alpha");
    t.read("a.txt");
    t.stat("a.txt");
    t.create("zero.txt", "");
    t.stat("zero.txt");
    t.create("b.txt", "bravo");
    t.rename("a.txt", "b.txt");
    t.read("b.txt");
    t.stat("a.txt");
    t.close(t.open("b.txt", O_CREAT | O_EXCL | O_WRONLY));
    int fd = t.open("b.txt", O_WRONLY | O_TRUNC);
    t.write(fd, "bravo two");
    t.close(fd);
    t.read("b.txt");
    t.unlink("b.txt");
    t.stat("b.txt");
    t.create("b.txt", "bravo three");
    t.read("b.txt");
    t.list("");
}

void renameFolders(VHSyscallTranscript& t) {
    t.mkdir("d1");
    t.create("d1/x.txt", "x-ray");
    t.mkdir("d1/sub");
    t.create("d1/sub/y.txt", "yankee");
    t.rename("d1", "d2");
    t.stat("d1");
    t.read("d2/x.txt");
    t.read("d2/sub/y.txt");
    t.mkdir("empty");
    t.rename("d2", "empty");
    t.stat("d2");
    t.list("empty");
    t.read("empty/sub/y.txt");
    t.rename("b.txt", "empty/sub/b.txt");
    t.list("empty/sub");
    t.rename("empty/sub/b.txt", "b.txt");
    t.rename("empty/sub", "moved-sub");
    t.read("moved-sub/y.txt");
    t.rename("moved-sub", "empty/sub");
    t.list("empty/sub");
}

void refusals(VHSyscallTranscript& t) {
    t.mkdir("empty");
    t.mkdir("b.txt");
    t.rmdir("empty");
    t.rmdir("b.txt");
    t.unlink("empty");
    t.rmdir("missing");
    t.unlink("missing");
    t.mkdir("missing/child");
    t.close(t.open("missing/new.txt", O_CREAT | O_WRONLY));
    t.rename("missing", "found");
    t.mkdir("target");
    t.rename("b.txt", "target");
    t.rename("target", "b.txt");
    t.rename("target", "empty");
    t.rmdir("target");
    t.stat("target");
    t.list("");
}

// A handle stays good across a rename and an unlink of its path.
void openHandles(VHSyscallTranscript& t) {
    int fd = t.open("b.txt", O_WRONLY | O_APPEND);
    t.write(fd, "-1");
    t.rename("b.txt", "c.txt");
    t.write(fd, "-2");
    t.close(fd);
    t.read("c.txt");

    t.create("open.txt", "still here");
    int held = t.open("open.txt", O_RDONLY);
    t.unlink("open.txt");
    t.stat("open.txt");
    t.list("");
    t.readOpen("read the unlinked file", held);
    t.create("open.txt", "a new one");
    // Long enough for any removal the drive puts off after the unlink.
    std::this_thread::sleep_for(300ms);
    t.fstat("fstat the unlinked file", held);
    t.readOpen("read the unlinked file again", held);
    t.close(held);
    t.read("open.txt");
    t.list("");
}

void sizes(VHSyscallTranscript& t) {
    t.truncate("c.txt", 20);
    t.stat("c.txt");
    t.read("c.txt");
    t.truncate("c.txt", 5);
    t.read("c.txt");
    int fd = t.open("c.txt", O_RDWR);
    t.run("ftruncate 2", [&] { return ftruncate(fd, 2); });
    t.fstat("fstat after ftruncate", fd);
    t.run("ftruncate 8", [&] { return ftruncate(fd, 8); });
    t.readOpen("read after ftruncate", fd);
    t.close(fd);
    t.stat("c.txt");
}

void timesAndModes(VHSyscallTranscript& t) {
    int fd = t.open("c.txt", O_RDWR);
    struct timespec times[2] = {{0, UTIME_OMIT}, {1600000000, 0}};
    t.run("futimens", [&] { return futimens(fd, times); });
    t.mtime("c.txt");
    t.run("fchmod 0640", [&] { return fchmod(fd, 0640); });
    t.mode("c.txt");
    t.run("fchown", [&] { return fchown(fd, geteuid(), getegid()); });
    t.close(fd);
    t.mtime("c.txt");
    t.utimens("c.txt", 1400000000, 1500000000);
    t.mtime("c.txt");
    t.chmod("c.txt", 0600);
    t.mode("c.txt");
    std::string path = t.path("c.txt");
    t.run("chown", [&] { return chown(path.c_str(), geteuid(), getegid()); });
    t.chmod("empty", 0750);
    t.mode("empty");
    t.utimens("empty", 1300000000, 1300000000);
    t.mtime("empty");
    t.read("c.txt");
}

void renameFlags(VHSyscallTranscript& t) {
    t.create("e1.txt", "echo");
    t.create("e2.txt", "foxtrot");
    t.rename("e1.txt", "e2.txt", RENAME_NOREPLACE);
    t.read("e1.txt");
    t.read("e2.txt");
    t.rename("e1.txt", "e3.txt", RENAME_NOREPLACE);
    t.stat("e1.txt");
    t.rename("e3.txt", "e2.txt", RENAME_EXCHANGE);
    t.read("e3.txt");
    t.read("e2.txt");
    t.stat("e3.txt");
    t.stat("e2.txt");
    t.rename("e3.txt", "missing.txt", RENAME_EXCHANGE);
    t.list("");
}

// Every step below `root` (an empty folder); the transcript as text.
std::string runScript(const std::string& root) {
    VHSyscallTranscript t(root);
    createAndReplace(t);
    renameFolders(t);
    refusals(t);
    openHandles(t);
    sizes(t);
    timesAndModes(t);
    renameFlags(t);
    t.note("tree", "\n" + VHFolderTree(root));
    return t.text();
}

// A system call's outcome: 0, or the errno of its failure.
int outcome(int result) {
    return result < 0 ? errno : 0;
}

int createFile(const std::string& path) {
    int fd = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    if (fd >= 0) close(fd);
    return fd;
}

// What the drive refuses on purpose; paths below the drive's root (or a local
// copy of its shares).
struct Difference {
    std::string step;
    std::function<int(const std::string& root)> call;
    int driveErrno;
    int localErrno;
};

std::vector<Difference> deliberateDifferences() {
    auto at = [](const std::string& root, const char* inDrive) { return root + "/" + inDrive; };
    auto rename = [at](const char* from, const char* to) {
        return
            [=](const std::string& r) { return ::rename(at(r, from).c_str(), at(r, to).c_str()); };
    };
    return {
        // Must run first: its window closes once the service confirms.
        {"rename of an upload the service has not confirmed",
         rename("My Files/diff/pending.txt", "My Files/diff/pending-renamed.txt"), EIO, 0},
        {"hard link",
         [at](const std::string& r) {
             return link(at(r, "My Files/diff/link-src.txt").c_str(),
                         at(r, "My Files/diff/hard.txt").c_str());
         },
         EPERM, 0},
        {"symbolic link",
         [at](const std::string& r) {
             return symlink("link-src.txt", at(r, "My Files/diff/soft").c_str());
         },
         EACCES, 0},
        {"create a name with ':'",
         [at](const std::string& r) { return createFile(at(r, "My Files/diff/a:b.txt")); }, EIO, 0},
        {"mkdir a name with '*'",
         [at](const std::string& r) { return mkdir(at(r, "My Files/diff/star*").c_str(), 0755); },
         EIO, 0},
        {"rename to a name with '?'",
         rename("My Files/diff/rename-src.txt", "My Files/diff/what?.txt"), EIO, 0},
        {"create in a read-only share",
         [at](const std::string& r) { return createFile(at(r, "Company Handbook/new.txt")); },
         EACCES, 0},
        {"mkdir in a read-only share",
         [at](const std::string& r) { return mkdir(at(r, "Company Handbook/New").c_str(), 0755); },
         EACCES, 0},
        {"truncate in a read-only share",
         [at](const std::string& r) {
             return truncate(at(r, "Company Handbook/handbook.txt").c_str(), 0);
         },
         EACCES, 0},
        {"chmod in a read-only share",
         [at](const std::string& r) {
             return chmod(at(r, "Company Handbook/handbook.txt").c_str(), 0600);
         },
         EACCES, 0},
        {"rename in a read-only share",
         rename("Company Handbook/Policies/travel.txt", "Company Handbook/Policies/trips.txt"), EIO,
         0},
        {"rmdir in a read-only share",
         [at](const std::string& r) { return rmdir(at(r, "Company Handbook/Empty").c_str()); },
         EACCES, 0},
        {"unlink in a read-only share",
         [at](const std::string& r) {
             return unlink(at(r, "Company Handbook/handbook.txt").c_str());
         },
         EACCES, 0},
        {"move between two shares",
         rename("My Files/diff/move-src.txt", "Team Documents/move-src.txt"), EIO, 0},
        {"truncate a file not yet downloaded to more than nothing",
         [at](const std::string& r) {
             return truncate(at(r, "Team Documents/readme.txt").c_str(), 1);
         },
         EFBIG, 0},
    };
}

void writeLocal(const std::string& path, const std::string& bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

class VHClientNamespaceCompareTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        ASSERT_TRUE(emulator_.act("company-handbook",
                                  json::array({{{"action", "createFolder"}, {"path", "/Empty"}}})));
        json files = json::array();
        for (const char* name : {"link-src.txt", "rename-src.txt", "move-src.txt"}) {
            files.push_back(
                {{"action", "writeFile"}, {"path", std::string("/diff/") + name}, {"text", name}});
        }
        ASSERT_TRUE(emulator_.act("my-files", files));
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
        ASSERT_TRUE(client_.waitFor(
            [&] {
                return fs::exists(drive("My Files/diff/move-src.txt")) &&
                       fs::exists(drive("Company Handbook/Empty"));
            },
            60s))
            << VHTail(client_.logs());
    }

    std::string drive(const std::string& inDrive) const {
        return client_.mountPath() + "/" + inDrive;
    }
    // The shares the table touches, as plain folders.
    std::string makeLocalCopy() const {
        std::string root = VHCurrentTestHome() + "/local-drive";
        for (const char* name : {"link-src.txt", "rename-src.txt", "move-src.txt"}) {
            writeLocal(root + "/My Files/diff/" + name, name);
        }
        writeLocal(root + "/Company Handbook/handbook.txt", "handbook");
        writeLocal(root + "/Company Handbook/Policies/travel.txt", "travel");
        fs::create_directories(root + "/Company Handbook/Empty");
        writeLocal(root + "/Team Documents/readme.txt", "readme");
        return root;
    }
    // Writes through the drive and waits until the service holds the bytes.
    void uploadThroughDrive(const std::string& inShare, const std::string& bytes) {
        writeLocal(drive("My Files" + inShare), bytes);
        ASSERT_TRUE(client_.waitFor(
            [&] {
                json item = VHTreeItem(emulator_, "my-files", inShare);
                return !item.is_null() && item.value("sha256", "") == VHSha256Hex(bytes);
            },
            60s))
            << VHTail(client_.logs());
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

}  // namespace

TEST_F(VHClientNamespaceCompareTest, TheScriptGivesTheSameTranscriptOnTheDriveAsOnALocalFolder) {
    std::string onDrive = drive("My Files/compare");
    std::string onLocal = VHCurrentTestHome() + "/local-compare";
    ASSERT_EQ(mkdir(onDrive.c_str(), 0755), 0) << std::strerror(errno);
    ASSERT_TRUE(fs::create_directory(onLocal));

    std::string driveTranscript = runScript(onDrive);
    std::string localTranscript = runScript(onLocal);
    // The script itself must have done something for the comparison to mean anything.
    ASSERT_NE(localTranscript.find("read c.txt: bravo three-1-2"), std::string::npos)
        << localTranscript;
    EXPECT_EQ(driveTranscript, localTranscript) << VHTail(client_.logs(), 400);

    EXPECT_TRUE(VHServiceMatchesDrive(emulator_, "my-files", drive("My Files"), 30s))
        << VHTail(client_.logs());
}

TEST_F(VHClientNamespaceCompareTest, TheDriveRefusesWhatItCannotKeepAndTellsWhy) {
    std::string local = makeLocalCopy();
    writeLocal(local + "/My Files/diff/pending.txt", "pending upload");
    // The service takes the upload but answers it late: the client cannot
    // have the confirmation before the rename.
    ASSERT_TRUE(emulator_.addFault(
        {{"method", "PUT"}, {"path", "^/api/uploads/"}, {"phase", "after"}, {"delayMs", 20000}}));
    ASSERT_NO_FATAL_FAILURE(uploadThroughDrive("/diff/pending.txt", "pending upload"));

    for (const Difference& row : deliberateDifferences()) {
        EXPECT_EQ(outcome(row.call(client_.mountPath())), row.driveErrno) << "drive: " << row.step;
        EXPECT_EQ(outcome(row.call(local)), row.localErrno) << "local folder: " << row.step;
    }
    const std::string wait = "Please wait until the file is uploaded on server and then try again.";
    EXPECT_TRUE(client_.waitFor(
        [&] { return (client_.logs() + client_.standardError()).find(wait) != std::string::npos; },
        10s))
        << VHTail(client_.logs());

    // Nothing of the refused changes reached the service, or stayed on the drive.
    ASSERT_TRUE(emulator_.clearFaults());
    EXPECT_TRUE(
        VHServiceMatchesDrive(emulator_, "company-handbook", drive("Company Handbook"), 30s))
        << VHTail(client_.logs());
    EXPECT_TRUE(VHServiceMatchesDrive(emulator_, "my-files", drive("My Files"), 30s))
        << VHTail(client_.logs());
    std::string diff = VHFolderTree(drive("My Files/diff"));
    for (const char* name : {"link-src.txt", "rename-src.txt", "move-src.txt", "pending.txt"}) {
        EXPECT_NE(diff.find(std::string("/") + name + " "), std::string::npos) << name << diff;
    }
    for (const char* name : {"hard", "soft", "a:b", "star*", "what?", "pending-renamed"}) {
        EXPECT_EQ(diff.find(name), std::string::npos) << name << diff;
    }
    EXPECT_FALSE(fs::exists(drive("Team Documents/move-src.txt")));
}

}  // namespace vh::test
