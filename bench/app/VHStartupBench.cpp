// How soon the client is useful: from `varnholt --headless` to a complete
// listing of a 25,000-item share (cold: nothing stored yet) and to a mounted
// drive from stored data (warm). References measured in the same run: the
// service's own answers for the same items fetched directly (the network
// floor of the cold start) and an empty FUSE drive mounted by a bare
// process (the mount floor of the warm start).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;
constexpr int kItems = 25000;

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int entries(const std::string& folder) {
    std::error_code error;
    auto it = std::filesystem::directory_iterator(folder, error);
    return error ? 0 : static_cast<int>(std::distance(it, std::filesystem::directory_iterator()));
}

// The same items as the client's catch-up asks for them, page by page.
double fetchDirectly(const vh::test::VHEmulatorProcess& emulator) {
    auto account = emulator.account("demo@varnholt.test");
    std::string token;
    for (const json& share : account->at("shares")) {
        if (share.at("shareId") == "my-files") token = share.at("aclToken");
    }
    auto start = Clock::now();
    for (int tick = -1;; tick += 10000) {
        auto reply = emulator.request("POST", "clientgateway.d1.varnholt.test", "/CatchUp7.aspx",
                                      {{"share", "my-files"},
                                       {"token", token},
                                       {"tickfrom", std::to_string(tick)},
                                       {"tickstart", std::to_string(tick)},
                                       {"ticktake", "10000"}});
        if (reply.json().value("VhVirtualFiles", json::array()).size() < 10000) break;
    }
    return since(start);
}

double mountEmptyDrive(const std::string& path) {
    std::filesystem::create_directories(path);
    auto start = Clock::now();
    pid_t holder = fork();
    if (holder == 0) {
        execl(VH_BENCH_FUSE_HOLDER, VH_BENCH_FUSE_HOLDER, path.c_str(), nullptr);
        _exit(127);
    }
    vh::test::VHTestClient::waitFor([&] { return vh::test::VHIsMountPoint(path); }, 30s);
    double seconds = since(start);
    kill(holder, SIGTERM);
    std::system(("fusermount3 -u '" + path + "' 2>/dev/null").c_str());
    waitpid(holder, nullptr, 0);
    return seconds;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    vh::test::VHTestHome home;
    vh::test::VHEmulatorProcess emulator;
    if (!emulator.start()) return 1;
    json actions = json::array();
    for (int i = 0; i < kItems; ++i) {
        actions.push_back(
            {{"action", "writeFile"}, {"path", "/bulk/f" + std::to_string(i)}, {"text", "x"}});
    }
    if (!emulator.act("my-files", actions)) return 1;
    double direct = fetchDirectly(emulator);

    vh::test::VHTestClient client(emulator);
    std::string bulk = client.mountPath() + "/My Files/bulk";
    auto start = Clock::now();
    client.start();
    bool complete = vh::test::VHTestClient::waitFor([&] { return entries(bulk) == kItems; }, 300s);
    double cold = since(start);
    client.signal(SIGTERM);
    client.waitForExit();

    start = Clock::now();
    client.start();
    client.waitForMount();
    double warm = since(start);
    bool stored = entries(bulk) == kItems;
    client.signal(SIGTERM);
    client.waitForExit();
    double floor = mountEmptyDrive(home.root() + "/empty-mount");

    std::printf("start-up with a share of %d items\n", kItems);
    std::printf(
        "cold, start to complete listing: %7.2f s%s (items fetched directly %.2f s; ratio %.1f)\n",
        cold, complete ? "" : " (incomplete)", direct, cold / direct);
    std::printf(
        "warm, start to mounted drive:    %7.2f s%s (empty drive mounted %.2f s; ratio %.1f)\n",
        warm, stored ? "" : " (listing missing)", floor, warm / floor);
    return 0;
}
