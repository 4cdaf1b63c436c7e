// Real programs working on the drive: version control, an archiver, a mirror
// tool, an editor's safe save and a write-then-rename. After each one the
// service must hold what the drive shows, and a file saved in place keeps its
// identity on the service.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "support/VHDriveProbe.h"
#include "support/VHShareTree.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

struct ProgramRun {
    int status = -1;
    std::string output;  // standard output and error
};

// `text` as one word for the shell, whatever quotes it holds.
std::string quoted(const std::string& text) {
    std::string word = "'";
    for (char c : text) word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return word + "'";
}

// Runs a shell command with a time limit.
ProgramRun runProgram(const std::string& command, int seconds = 120) {
    std::string line = "timeout " + std::to_string(seconds) + " sh -c " + quoted(command) + " 2>&1";
    ProgramRun result;
    FILE* pipe = popen(line.c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        result.output.append(buffer, n);
    int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

std::string randomBytes(size_t size, uint64_t seed) {
    std::mt19937_64 generator(seed);
    std::string bytes(size, '\0');
    for (char& c : bytes) c = static_cast<char>(generator());
    return bytes;
}

void writeLocal(const std::string& path, const std::string& bytes) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
}

// About 500 files in a few folders, some of them binary, committed.
std::string makeRepository(const std::string& root) {
    const char* folders[] = {"src/core", "src/net", "docs/guide", "assets", "tests"};
    int n = 0;
    for (const char* folder : folders) {
        for (int i = 0; i < 100; ++i, ++n) {
            std::string name = root + "/" + folder + "/file-" + std::to_string(i);
            if (n % 25 == 0) {
                writeLocal(name + ".bin", randomBytes(70000, n));
            } else {
                writeLocal(name + ".txt",
                           std::string(static_cast<size_t>(n % 37) * 40, 'a' + n % 26) + "\nfile " +
                               std::to_string(n) + "\n");
            }
        }
    }
    return "cd " + VHShellQuoted(root) +
           " && git init -q -b main && git add -A && git -c user.name=Tester"
           " -c user.email=tester@varnholt.test commit -q -m files";
}

// The lines of a tree without those below "/.git" (which the drive does not list).
std::string withoutGitFolder(const std::string& tree) {
    std::istringstream in(tree);
    std::string kept;
    for (std::string line; std::getline(in, line);) {
        if (!line.starts_with("/.git/")) kept += line + "\n";
    }
    return kept;
}

time_t modifiedAt(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 ? st.st_mtim.tv_sec : -1;
}

class VHClientProgramsTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        ASSERT_TRUE(emulator_.act("my-files", json::array({{{"action", "writeFile"},
                                                            {"path", "/editor/notes.txt"},
                                                            {"text", "line one\n"}},
                                                           {{"action", "writeFile"},
                                                            {"path", "/editor/settings.json"},
                                                            {"text", "{\"v\":1}\n"}}})));
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
        ASSERT_TRUE(
            client_.waitFor([&] { return fs::exists(drive("/editor/settings.json")); }, 60s))
            << VHTail(client_.logs());
    }

    // A path in "My Files" on the drive.
    std::string drive(const std::string& inShare) const {
        return client_.mountPath() + "/My Files" + inShare;
    }
    std::string internalName(const std::string& inShare) const {
        json item = VHTreeItem(emulator_, "my-files", inShare);
        return item.is_null() ? "" : item.value("internalName", "");
    }
    // A polling pass of the upload queue takes at most twenty items every three
    // seconds: many new files need more than the usual thirty seconds.
    testing::AssertionResult serviceMatchesDrive(int newItems = 0) const {
        return VHServiceMatchesDrive(emulator_, "my-files", drive(""),
                                     30s + std::chrono::seconds(3 * (newItems / 20 + 1)));
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

}  // namespace

TEST_F(VHClientProgramsTest, AGitCloneOnTheDriveIsCleanAndWhole) {
    std::string source = VHCurrentTestHome() + "/repo-source";
    ProgramRun made = runProgram(makeRepository(source));
    ASSERT_EQ(made.status, 0) << made.output;
    std::string repo = drive("/repo");

    ProgramRun clone =
        runProgram("git clone -q " + VHShellQuoted(source) + " " + VHShellQuoted(repo), 300);
    ASSERT_EQ(clone.status, 0) << clone.output << VHTail(client_.logs());
    ProgramRun status = runProgram("cd " + VHShellQuoted(repo) + " && git status --porcelain");
    EXPECT_EQ(status.status, 0) << status.output;
    EXPECT_EQ(status.output, "");
    ProgramRun fsck = runProgram("cd " + VHShellQuoted(repo) + " && git fsck --full", 300);
    EXPECT_EQ(fsck.status, 0) << fsck.output;

    std::string expected = withoutGitFolder(VHFolderTree(source));
    ASSERT_NE(expected.find("/src/core/file-99.txt "), std::string::npos);
    EXPECT_EQ(VHFolderTree(repo), expected);
    EXPECT_TRUE(serviceMatchesDrive(500)) << VHTail(client_.logs());
}

TEST_F(VHClientProgramsTest, ArchiversMirrorsAndEditorsLeaveTheServiceAsTheDriveShows) {
    // tar: everything but the symbolic link arrives, with its times.
    std::string home = VHCurrentTestHome();
    writeLocal(home + "/tarball/tree/a/b/c/deep.txt", "deep\n");
    writeLocal(home + "/tarball/tree/a/notes.txt", "notes\n");
    writeLocal(home + "/tarball/tree/a/data.bin", randomBytes(300000, 5));
    writeLocal(home + "/tarball/tree/top.txt", "top\n");
    fs::create_directories(home + "/tarball/tree/empty");
    fs::create_symlink("b/c/deep.txt", home + "/tarball/tree/a/link");
    ASSERT_EQ(runProgram("touch -d '2001-02-03 04:05:06' " +
                         VHShellQuoted(home + "/tarball/tree/top.txt") + " && tar cf " +
                         VHShellQuoted(home + "/tree.tar") + " -C " +
                         VHShellQuoted(home + "/tarball") + " tree")
                  .status,
              0);
    ProgramRun tar = runProgram("tar xf " + VHShellQuoted(home + "/tree.tar") + " -C " +
                                VHShellQuoted(drive("")));
    EXPECT_NE(tar.status, 0) << "the symbolic link cannot be made";
    EXPECT_NE(tar.output.find("Cannot create symlink"), std::string::npos) << tar.output;
    EXPECT_EQ(VHFolderTree(drive("/tree")), VHFolderTree(home + "/tarball/tree"));
    EXPECT_EQ(modifiedAt(drive("/tree/top.txt")), modifiedAt(home + "/tarball/tree/top.txt"));
    EXPECT_TRUE(serviceMatchesDrive()) << VHTail(client_.logs());

    // rsync: a copy, then an update with a change, a new file and a removal.
    std::string mirror = home + "/mirror/";
    writeLocal(mirror + "docs/a.txt", "a\n");
    writeLocal(mirror + "docs/b.txt", "b\n");
    writeLocal(mirror + "img/pic.bin", randomBytes(200000, 6));
    writeLocal(mirror + "notes.txt", "first\n");
    fs::permissions(mirror + "notes.txt", fs::perms::owner_read | fs::perms::owner_write);
    std::string rsync =
        "rsync -a --delete " + VHShellQuoted(mirror) + " " + VHShellQuoted(drive("/mirror/"));
    ProgramRun copied = runProgram(rsync);
    EXPECT_EQ(copied.status, 0) << copied.output;
    EXPECT_EQ(VHFolderTree(drive("/mirror")), VHFolderTree(mirror));
    EXPECT_TRUE(serviceMatchesDrive()) << VHTail(client_.logs());
    writeLocal(mirror + "notes.txt", "second, longer\n");
    writeLocal(mirror + "docs/c.txt", "c\n");
    fs::remove(mirror + "docs/b.txt");
    ProgramRun updated = runProgram(rsync);
    EXPECT_EQ(updated.status, 0) << updated.output;
    EXPECT_EQ(VHFolderTree(drive("/mirror")), VHFolderTree(mirror));
    // Sizes, times, modes: rsync itself finds nothing left to do.
    ProgramRun again = runProgram("rsync -ai --dry-run " + VHShellQuoted(mirror) + " " +
                                  VHShellQuoted(drive("/mirror/")));
    EXPECT_EQ(again.output, "");
    EXPECT_TRUE(serviceMatchesDrive()) << VHTail(client_.logs());

    // An editor's safe save: the original is renamed to a backup and written
    // anew ("backupskip": vim never backs up below /tmp, where the HOME lies).
    std::string notesId = internalName("/editor/notes.txt");
    ASSERT_FALSE(notesId.empty());
    ProgramRun vim =
        runProgram("cd " + VHShellQuoted(drive("/editor")) +
                   " && vim -u NONE -i NONE -es +'set backup writebackup backupcopy=no backupskip='"
                   " +'normal Goappended by vim' +wq notes.txt");
    EXPECT_EQ(vim.status, 0) << vim.output;
    EXPECT_EQ(VHReadWhole(drive("/editor/notes.txt")), "line one\nappended by vim\n");
    EXPECT_EQ(VHReadWhole(drive("/editor/notes.txt~")), "line one\n");
    EXPECT_TRUE(serviceMatchesDrive()) << VHTail(client_.logs());
    EXPECT_EQ(internalName("/editor/notes.txt"), notesId) << "the saved file lost its identity";

    // A program's write-then-rename over its settings.
    std::string settingsId = internalName("/editor/settings.json");
    ASSERT_FALSE(settingsId.empty());
    ProgramRun saved = runProgram("cd " + VHShellQuoted(drive("/editor")) +
                                  " && printf '{\"v\":2}\\n' > settings.json.tmp"
                                  " && mv settings.json.tmp settings.json");
    EXPECT_EQ(saved.status, 0) << saved.output;
    EXPECT_EQ(VHReadWhole(drive("/editor/settings.json")), "{\"v\":2}\n");
    EXPECT_FALSE(fs::exists(drive("/editor/settings.json.tmp")));
    EXPECT_TRUE(serviceMatchesDrive()) << VHTail(client_.logs());
    EXPECT_EQ(internalName("/editor/settings.json"), settingsId) << "the file lost its identity";
}

}  // namespace vh::test
