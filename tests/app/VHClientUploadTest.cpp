// Changes written through the mounted drive of the real client reach the
// emulator: what it holds afterwards is compared byte for byte (by SHA-256)
// with what was written, also across a kill and with failing requests.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <thread>

#include "support/VHDriveProbe.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

constexpr int64_t kKiB = 1024, kMiB = 1024 * kKiB;

std::string randomBytes(size_t size, uint64_t seed) {
    std::mt19937_64 generator(seed);
    std::string bytes(size, '\0');
    for (size_t i = 0; i + 8 <= size; i += 8) {
        uint64_t word = generator();
        std::memcpy(&bytes[i], &word, 8);
    }
    return bytes;
}

// A chunk PUT as the emulator logged it.
struct Chunk {
    int64_t seq = 0;
    int64_t start = 0;
    int64_t length = 0;
    long status = 0;
};

std::vector<Chunk> chunkPuts(const VHEmulatorProcess& emulator, int64_t after = 0) {
    std::vector<Chunk> chunks;
    for (const json& r : emulator.requests(after)) {
        if (r.value("method", "") != "PUT" || !r.value("path", "").starts_with("/api/uploads/")) {
            continue;
        }
        std::string range = r.at("headers").value("Content-Range", "");
        Chunk chunk{r.at("seq").get<int64_t>(), -1, r.value("bodyBytes", int64_t{0}),
                    r.value("status", 0L)};
        if (range.starts_with("bytes ")) chunk.start = std::stoll(range.substr(6));
        chunks.push_back(chunk);
    }
    return chunks;
}

// How often the installed fault rules fired.
int64_t firedFaults(const VHEmulatorProcess& emulator) {
    int64_t fired = 0;
    for (const json& rule : emulator.admin("GET", "faults").value_or(json::array())) {
        fired += rule.value("fired", int64_t(0));
    }
    return fired;
}

// Requests that change something on the service: events and chunks.
int changeRequestsAfter(const VHEmulatorProcess& emulator, int64_t after) {
    int count = 0;
    for (const json& r : emulator.requests(after)) {
        std::string method = r.value("method", "");
        count += method != "GET" && r.value("path", "").starts_with("/api/");
    }
    return count;
}

class VHClientUploadTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(emulator_.start()); }

    // Writes the files into "My Files" as another device, then starts the
    // client and waits until the drive lists them.
    void startWith(const json& actions) {
        ASSERT_TRUE(emulator_.act("my-files", actions));
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << client_.logs();
        std::string last = actions.back().at("path");
        ASSERT_TRUE(client_.waitFor([&] { return fs::exists(path(last)); }, 60s));
    }

    std::string path(const std::string& inShare) const {
        return client_.mountPath() + "/My Files" + inShare;
    }
    std::string serverSha(const std::string& inShare) const {
        json item = VHTreeItem(emulator_, "my-files", inShare);
        return item.is_null() ? "" : item.value("sha256", "");
    }
    std::string internalName(const std::string& inShare) const {
        return VHTreeItem(emulator_, "my-files", inShare).value("internalName", "");
    }
    // Waits until the service holds `bytes` for every path; the seconds it took.
    std::optional<double> waitForServer(const std::map<std::string, std::string>& expected,
                                        std::chrono::seconds timeout) const {
        auto start = std::chrono::steady_clock::now();
        bool all = client_.waitFor(
            [&] {
                for (const auto& [inShare, bytes] : expected) {
                    if (serverSha(inShare) != VHSha256Hex(bytes)) return false;
                }
                return true;
            },
            timeout);
        if (!all) return std::nullopt;
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    bool waitForConfirmation(const std::vector<std::string>& inShare,
                             std::chrono::seconds timeout) const {
        return client_.waitFor(
            [&] {
                for (const std::string& p : inShare) {
                    if (VHRecordStatus(internalName(p)) != 0) return false;
                }
                return true;
            },
            timeout);
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

json writeText(const std::string& path, const std::string& text) {
    return {{"action", "writeFile"}, {"path", path}, {"text", text}};
}

json writePattern(const std::string& path, int64_t size, int seed) {
    return {{"action", "writeFile"}, {"path", path}, {"size", size}, {"seed", seed}};
}

}  // namespace

TEST_F(VHClientUploadTest, AppendsAndOverwritesReachTheServiceOnceTheFileIsReleased) {
    ASSERT_NO_FATAL_FAILURE(startWith(json::array(
        {writeText("/notes.txt", "first line\n"), writeText("/never-read.txt", "unread\n"),
         writeText("/held.txt", "held\n"), writePattern("/inplace.bin", kMiB, 3)})));
    std::string notes = VHReadWhole(path("/notes.txt"));
    ASSERT_EQ(notes, "first line\n");
    std::string inplace = *emulator_.fileBytes("my-files", "/inplace.bin");
    std::string patch(8192, 'P');
    std::string patchFile = VHCurrentTestHome() + "/patch";
    std::ofstream(patchFile, std::ios::binary) << patch;

    // A writer that keeps its file open holds it back.
    int held = open(path("/held.txt").c_str(), O_WRONLY);
    ASSERT_GE(held, 0);
    ASSERT_EQ(pwrite(held, "changed", 7, 0), 7);
    auto heldWritten = std::chrono::steady_clock::now();

    // The shell's append, also to a file never read before, and dd's overwrite in place.
    ASSERT_TRUE(VHRunShell("echo appended >> " + VHShellQuoted(path("/notes.txt"))));
    ASSERT_TRUE(VHRunShell("echo more >> " + VHShellQuoted(path("/never-read.txt"))));
    ASSERT_TRUE(VHRunShell("dd if=" + VHShellQuoted(patchFile) +
                           " of=" + VHShellQuoted(path("/inplace.bin")) +
                           " bs=4096 seek=10 conv=notrunc status=none"));
    inplace.replace(10 * 4096, patch.size(), patch);
    std::map<std::string, std::string> expected{{"/notes.txt", notes + "appended\n"},
                                                {"/never-read.txt", "unread\nmore\n"},
                                                {"/inplace.bin", inplace}};
    std::optional<double> took = waitForServer(expected, 60s);
    ASSERT_TRUE(took) << client_.logs();
    std::printf("changes held by the service %.1f s after the last close\n", *took);
    EXPECT_LT(*took, 20.0);

    client_.waitFor([&] { return std::chrono::steady_clock::now() - heldWritten > 8s; }, 10s);
    EXPECT_EQ(*emulator_.fileBytes("my-files", "/held.txt"), "held\n");
    close(held);
    expected["/held.txt"] = "changed";
    ASSERT_TRUE(waitForServer({{"/held.txt", "changed"}}, 30s)) << client_.logs();

    EXPECT_TRUE(
        waitForConfirmation({"/notes.txt", "/never-read.txt", "/inplace.bin", "/held.txt"}, 60s))
        << client_.logs();
    for (const auto& [inShare, bytes] : expected) {
        EXPECT_EQ(VHReadWhole(path(inShare)), bytes) << inShare;
    }
}

TEST_F(VHClientUploadTest, ALargeRewriteGrowsItsChunksAndResumesAfterAKill) {
    const int64_t size = 200 * kMiB;
    ASSERT_NO_FATAL_FAILURE(startWith(json::array({writePattern("/large.bin", size, 11)})));
    ASSERT_TRUE(VHRunShell("cat " + VHShellQuoted(path("/large.bin")) + " > /dev/null"));
    std::string bytes = randomBytes(size, 12);
    std::string source = VHCurrentTestHome() + "/large.new";
    std::ofstream(source, std::ios::binary) << bytes;
    // Slower chunks, so that the kill lands in the middle of the upload.
    ASSERT_TRUE(
        emulator_.addFault({{"method", "PUT"}, {"path", "^/api/uploads/"}, {"delayMs", 150}}));
    ASSERT_TRUE(VHRunShell("dd if=" + VHShellQuoted(source) + " of=" +
                           VHShellQuoted(path("/large.bin")) + " bs=1M conv=notrunc status=none"));

    auto acknowledged = [&] {
        int64_t end = 0;
        for (const Chunk& c : chunkPuts(emulator_)) {
            if (c.status / 100 == 2) end = std::max(end, c.start + c.length);
        }
        return end;
    };
    ASSERT_TRUE(client_.waitFor([&] { return acknowledged() >= 60 * kMiB; }, 120s))
        << client_.logs();
    client_.signal(SIGKILL);
    ASSERT_TRUE(client_.waitForExit());
    // A chunk the client sent just before it died may still be delayed or taken.
    std::this_thread::sleep_for(1s);
    ASSERT_TRUE(client_.waitFor(
        [&] {
            json uploads =
                emulator_.state().value_or(json::object()).value("uploads", json::object());
            return uploads.value("receiving", 1) == 0 && uploads.value("waiting", 1) == 0;
        },
        30s));
    int64_t killedAt = VHLastRequestSeq(emulator_);
    int64_t resumeFrom = acknowledged();
    ASSERT_LT(resumeFrom, size);
    std::vector<Chunk> before = chunkPuts(emulator_);
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(before.front().length, 256 * kKiB);
    int64_t largest = 0;
    for (const Chunk& c : before) largest = std::max(largest, c.length);
    EXPECT_EQ(largest, 2 * kMiB);

    ASSERT_TRUE(client_.start());
    ASSERT_TRUE(client_.waitForMount()) << client_.logs();
    ASSERT_TRUE(waitForServer({{"/large.bin", bytes}}, 180s)) << client_.logs();
    EXPECT_NE(client_.logs().find("Found previously started upload token."), std::string::npos);
    std::vector<Chunk> after = chunkPuts(emulator_, killedAt);
    ASSERT_FALSE(after.empty());
    for (const Chunk& c : after) {
        // Only the service's "wrong position" answer may send a byte it holds again.
        if (c.status != 400) {
            EXPECT_GE(c.start, resumeFrom) << "chunk " << c.seq;
        }
    }
    EXPECT_TRUE(waitForConfirmation({"/large.bin"}, 60s)) << client_.logs();
}

TEST_F(VHClientUploadTest, FiftyChangedFilesAllArriveDespiteFailingRequests) {
    json actions = json::array();
    for (int i = 0; i < 50; ++i) {
        actions.push_back(writeText("/many/file-" + std::to_string(i) + ".txt",
                                    "original " + std::to_string(i) + "\n"));
    }
    ASSERT_NO_FATAL_FAILURE(startWith(actions));
    for (const char* method : {"POST", "PUT"}) {
        std::string changes = "^/api/(shares|uploads)/";
        ASSERT_TRUE(emulator_.addFault(
            {{"method", method}, {"path", changes}, {"status", 500}, {"probability", 0.1}}));
        ASSERT_TRUE(emulator_.addFault(
            {{"method", method}, {"path", changes}, {"drop", true}, {"probability", 0.05}}));
    }
    auto faultsFrom = std::chrono::steady_clock::now();
    std::map<std::string, std::string> expected;
    for (int i = 0; i < 50; ++i) {
        std::string name = "/many/file-" + std::to_string(i) + ".txt";
        std::string text = "changed " + std::to_string(i);
        // Half rewritten, half appended to (their copies not yet downloaded).
        bool rewrite = i % 2 == 0;
        ASSERT_TRUE(
            VHRunShell("echo " + text + (rewrite ? " > " : " >> ") + VHShellQuoted(path(name))));
        expected[name] = (rewrite ? "" : "original " + std::to_string(i) + "\n") + text + "\n";
    }
    // 40 s of faults cover every file's first attempts and retries, but no
    // file can fail a fourth time in them (its back-off would be 300 s).
    std::this_thread::sleep_until(faultsFrom + 40s);
    EXPECT_GT(firedFaults(emulator_), 0);
    ASSERT_TRUE(emulator_.clearFaults());
    ASSERT_TRUE(waitForServer(expected, 180s)) << client_.logs();
    std::vector<std::string> names;
    for (const auto& [name, bytes] : expected) names.push_back(name);
    ASSERT_TRUE(waitForConfirmation(names, 120s)) << client_.logs();

    // Confirmed means done: nothing is sent again.
    int64_t confirmedAt = VHLastRequestSeq(emulator_);
    std::this_thread::sleep_for(10s);
    EXPECT_EQ(changeRequestsAfter(emulator_, confirmedAt), 0);
    for (const auto& [name, bytes] : expected) EXPECT_EQ(serverSha(name), VHSha256Hex(bytes));
}

}  // namespace vh::test
