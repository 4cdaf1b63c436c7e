// Reading files through the mounted drive of the real client: every byte
// compared with the emulator's, on demand and from the cache.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "support/VHDriveProbe.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

// The emulator's ranged reads of a file (by its upload name) since `after`.
std::vector<std::string> rangesRequested(const VHEmulatorProcess& emulator,
                                         const std::string& uploadName, int64_t after = 0) {
    std::vector<std::string> ranges;
    for (const json& request : emulator.requests(after)) {
        if (request.value("method", "") != "GET") continue;
        if (request.value("path", "").find(uploadName) == std::string::npos) continue;
        ranges.push_back(request.at("headers").value(
            "Content-Range", request.at("headers").value("content-range", "")));
    }
    return ranges;
}

class VHClientReadTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        ASSERT_TRUE(emulator_.act("my-files", json::array({{{"action", "writeFile"},
                                                            {"path", "/big.bin"},
                                                            {"size", 64 << 20},
                                                            {"seed", 7}}})));
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << client_.logs();
        ASSERT_TRUE(client_.waitFor(
            [&] {
                return fs::exists(share("My Files") + "/big.bin") &&
                       fs::exists(share("Team Documents") + "/Media/video.bin");
            },
            60s));
    }

    std::string share(const std::string& name) const { return client_.mountPath() + "/" + name; }
    std::string cachePath(const std::string& shareId, const std::string& path) {
        return VHCurrentTestHome() + "/.local/share/Varnholt/Files/" + shareId + "/" +
               VHTreeItem(emulator_, shareId, path).at("internalName").get<std::string>();
    }
    static void dropKernelCaches() { std::ofstream("/proc/sys/vm/drop_caches") << "3"; }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

}  // namespace

TEST_F(VHClientReadTest, EveryFileOfAShareReadsAsTheServiceHasIt) {
    json tree = emulator_.tree("team-documents").value_or(json::object());
    ASSERT_FALSE(tree.value("items", json::array()).empty()) << tree.dump();
    int files = 0;
    for (const json& item : tree.value("items", json::array())) {
        if (!item.at("isFile").get<bool>()) continue;
        std::string path = item.at("path");
        std::string bytes = VHReadWhole(share("Team Documents") + path);
        EXPECT_EQ(bytes.size(), item.at("size").get<size_t>()) << path;
        EXPECT_EQ(VHSha256Hex(bytes), item.at("sha256").get<std::string>()) << path;
        ++files;
    }
    EXPECT_GE(files, 5) << tree.dump();
}

TEST_F(VHClientReadTest, RandomReadsOfALargeFileReturnTheRightBytes) {
    std::string expected = *emulator_.fileBytes("my-files", "/big.bin");
    int fd = open((share("My Files") + "/big.bin").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    std::mt19937_64 random(42);
    std::string buffer(65536, '\0');
    for (int i = 0; i < 1000; ++i) {
        size_t size = 1 + random() % buffer.size();
        off_t offset = static_cast<off_t>(random() % expected.size());
        ssize_t got = pread(fd, buffer.data(), size, offset);
        size_t want = std::min(size, expected.size() - static_cast<size_t>(offset));
        ASSERT_EQ(got, static_cast<ssize_t>(want)) << "offset " << offset;
        ASSERT_EQ(buffer.compare(0, want, expected, offset, want), 0) << "offset " << offset;
    }
    close(fd);
}

TEST_F(VHClientReadTest, ConcurrentReadersAllGetTheirBytes) {
    // Eight processes read different files, two more read one file at once.
    std::vector<std::pair<std::string, std::string>> files = {
        {"Team Documents", "/readme.txt"},
        {"Team Documents", "/Projects/Alpha/diagram.bin"},
        {"Team Documents", "/Projects/Alpha/notes.txt"},
        {"Team Documents", "/Media/photo.bin"},
        {"Team Documents", "/Projects/Beta/plan.txt"},
        {"My Files", "/welcome.txt"},
        {"My Files", "/Photos/holiday.bin"},
        {"Second Domain", "/Reports/q1.txt"},
        {"My Files", "/big.bin"},
        {"My Files", "/big.bin"}};
    const std::map<std::string, std::string> ids = {{"Team Documents", "team-documents"},
                                                    {"My Files", "my-files"},
                                                    {"Second Domain", "second-domain"}};
    std::vector<pid_t> readers;
    for (const auto& [name, path] : files) {
        std::string sum = VHTreeItem(emulator_, ids.at(name), path).at("sha256");
        std::string command =
            "test \"$(sha256sum < '" + share(name) + path + "' | cut -d' ' -f1)\" = " + sum;
        pid_t pid = fork();
        if (pid == 0) {
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            _exit(127);
        }
        readers.push_back(pid);
    }
    for (size_t i = 0; i < readers.size(); ++i) {
        int status = 0;
        waitpid(readers[i], &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << files[i].second;
    }
}

TEST_F(VHClientReadTest, AReadBeyondTheCachedPrefixFetchesOneMebibyte) {
    json video = VHTreeItem(emulator_, "team-documents", "/Media/video.bin");
    int64_t before = VHLastRequestSeq(emulator_);
    int fd = open((share("Team Documents") + "/Media/video.bin").c_str(), O_RDONLY);
    char buffer[4096];
    ASSERT_EQ(pread(fd, buffer, sizeof buffer, 10 << 20), 4096);
    close(fd);
    auto ranges = rangesRequested(emulator_, video.at("uploadName"), before);
    ASSERT_FALSE(ranges.empty());
    EXPECT_EQ(ranges.front(), "bytes 10485760-11534336/50000000");
}

TEST_F(VHClientReadTest, AFailingServiceGivesAnIOErrorInSevenSecondsAndRecovers) {
    auto fault = emulator_.addFault({{"method", "GET"}, {"host", "filecache01"}, {"status", 500}});
    ASSERT_TRUE(fault);
    int fd = open((share("Team Documents") + "/Media/photo.bin").c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    char buffer[4096];
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pread(fd, buffer, sizeof buffer, 0), -1);
    EXPECT_EQ(errno, EIO);
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GT(took, 5s);
    EXPECT_LT(took, 10s);
    ASSERT_TRUE(emulator_.removeFault(*fault));
    EXPECT_EQ(pread(fd, buffer, sizeof buffer, 0), 4096);
    close(fd);
}

TEST_F(VHClientReadTest, ACompletedFileMovesIntoTheShareFolderAndIsReadWithoutRequests) {
    json item = VHTreeItem(emulator_, "team-documents", "/Projects/Alpha/diagram.bin");
    std::string complete = cachePath("team-documents", "/Projects/Alpha/diagram.bin");
    std::string partial = VHCurrentTestHome() + "/.local/share/Varnholt/Downloads/" +
                          item.at("internalName").get<std::string>();
    std::string bytes = VHReadWhole(share("Team Documents") + "/Projects/Alpha/diagram.bin");
    EXPECT_EQ(VHSha256Hex(bytes), item.at("sha256").get<std::string>());
    ASSERT_TRUE(client_.waitFor([&] { return fs::exists(complete); }, 30s));
    EXPECT_FALSE(fs::exists(partial));

    int64_t before = VHLastRequestSeq(emulator_);
    dropKernelCaches();
    EXPECT_EQ(VHSha256Hex(VHReadWhole(share("Team Documents") + "/Projects/Alpha/diagram.bin")),
              item.at("sha256").get<std::string>());
    EXPECT_TRUE(rangesRequested(emulator_, item.at("uploadName"), before).empty());
}

TEST_F(VHClientReadTest, WritingFollowsTheShareRightsAndTheDownloadState) {
    EXPECT_EQ(open((share("Company Handbook") + "/handbook.txt").c_str(), O_WRONLY), -1);
    EXPECT_EQ(errno, EACCES);
    int reader = open((share("Company Handbook") + "/handbook.txt").c_str(), O_RDONLY);
    EXPECT_GE(reader, 0);
    close(reader);
}

TEST_F(VHClientReadTest, AWriteIntoAFileNotYetDownloadedWaitsForItsBytes) {
    std::string welcome = *emulator_.fileBytes("my-files", "/welcome.txt");
    std::string plan = *emulator_.fileBytes("team-documents", "/Projects/Beta/plan.txt");
    std::string big = *emulator_.fileBytes("my-files", "/big.bin");
    ASSERT_GT(welcome.size(), 9u);
    ASSERT_FALSE(plan.empty());
    ASSERT_EQ(big.size(), 64u << 20);

    // At the start, at the end, and in the middle of a large file whose
    // download is still running: the other bytes stay the service's.
    int first = open((share("My Files") + "/welcome.txt").c_str(), O_WRONLY);
    ASSERT_GE(first, 0);
    EXPECT_EQ(pwrite(first, "new start", 9, 0), 9);
    close(first);
    int second = open((share("Team Documents") + "/Projects/Beta/plan.txt").c_str(), O_WRONLY);
    ASSERT_GE(second, 0);
    EXPECT_EQ(pwrite(second, "x", 1, static_cast<off_t>(plan.size())), 1);
    close(second);
    int third = open((share("My Files") + "/big.bin").c_str(), O_RDWR);
    ASSERT_GE(third, 0);
    EXPECT_EQ(pwrite(third, "MIDDLE", 6, 1 << 20), 6);
    close(third);

    EXPECT_EQ(VHReadWhole(share("My Files") + "/welcome.txt"), "new start" + welcome.substr(9));
    EXPECT_EQ(VHReadWhole(share("Team Documents") + "/Projects/Beta/plan.txt"), plan + "x");
    big.replace(1 << 20, 6, "MIDDLE");
    EXPECT_EQ(VHSha256Hex(VHReadWhole(share("My Files") + "/big.bin")), VHSha256Hex(big));

    // Bytes that do not come are an I/O error after the read's limit.
    auto fault = emulator_.addFault({{"method", "GET"}, {"host", "filecache01"}, {"status", 500}});
    ASSERT_TRUE(fault);
    int fourth = open((share("Team Documents") + "/Media/photo.bin").c_str(), O_WRONLY);
    ASSERT_GE(fourth, 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(pwrite(fourth, "x", 1, 100), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_GT(std::chrono::steady_clock::now() - start, 5s);
    close(fourth);
}

}  // namespace vh::test
