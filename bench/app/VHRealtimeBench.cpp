// How long a change made elsewhere takes to show on a running client's
// mount: 100 changes (create, contents update, rename, move, delete, in
// turn) made through the emulator's admin API, each timed from the admin
// call to the moment stat/read on the mount shows it (polled every 2 ms).
// The admin call's own round trip is the floor the delays are compared with.
// Figures go to stdout, progress to stderr.
//
//   vh_realtime_bench [number of changes]
#include <signal.h>
#include <sys/stat.h>

#include <QCoreApplication>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "support/VHDriveProbe.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr auto kGiveUp = 30s;

struct Change {
    const char* kind;
    json action;
    std::function<bool()> visible;
};

double millisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

bool exists(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0;
}

// The five changes of round `n`, on files of their own.
std::vector<Change> round(int n, const std::string& share) {
    std::string name = "/rt/f" + std::to_string(n) + ".txt";
    std::string renamed = "/rt/g" + std::to_string(n) + ".txt";
    std::string moved = "/rt/sub/g" + std::to_string(n) + ".txt";
    std::string first = "first " + std::to_string(n);
    std::string second = "second, longer " + std::to_string(n);
    return {
        {"create",
         {{"action", "writeFile"}, {"path", name}, {"text", first}},
         [=] { return vh::test::VHReadWhole(share + name) == first; }},
        {"update",
         {{"action", "writeFile"}, {"path", name}, {"text", second}},
         [=] { return vh::test::VHReadWhole(share + name) == second; }},
        {"rename",
         {{"action", "move"}, {"path", name}, {"to", renamed}},
         [=] { return !exists(share + name) && exists(share + renamed); }},
        {"move",
         {{"action", "move"}, {"path", renamed}, {"to", moved}},
         [=] { return !exists(share + renamed) && exists(share + moved); }},
        {"delete", {{"action", "delete"}, {"path", moved}}, [=] { return !exists(share + moved); }},
    };
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    size_t index = std::min(values.size() - 1, static_cast<size_t>(p * (values.size() - 1) + 0.5));
    return values[index];
}

void print(const char* label, const std::vector<double>& values, double floor) {
    std::printf(
        "%-8s n=%3zu  p50 %7.1f ms  p95 %7.1f ms  max %7.1f ms  (p50 %.1fx the admin call)\n",
        label, values.size(), percentile(values, 0.5), percentile(values, 0.95),
        *std::max_element(values.begin(), values.end()), percentile(values, 0.5) / floor);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int changes = argc > 1 ? std::max(5, std::atoi(argv[1])) : 100;
    vh::test::VHTestHome home;
    vh::test::VHEmulatorProcess emulator;
    if (!emulator.start()) return 1;
    json folders = json::array({{{"action", "createFolder"}, {"path", "/rt/sub"}}});
    if (!emulator.act("my-files", folders)) return 1;
    vh::test::VHTestClient client(emulator);
    client.start();
    std::string share = client.mountPath() + "/My Files";
    if (!client.waitForMount() ||
        !client.waitFor([&] { return fs::exists(share + "/rt/sub"); }, 120s)) {
        std::fprintf(stderr, "the drive did not come up\n");
        return 1;
    }
    std::this_thread::sleep_for(2s);  // the hub connection settles after sign-in

    std::vector<double> all, admin;
    std::map<std::string, std::vector<double>> byKind;
    for (int n = 0; static_cast<int>(all.size()) < changes; ++n) {
        for (const Change& change : round(n, share)) {
            Clock::time_point start = Clock::now();
            if (!emulator.act("my-files", json::array({change.action}))) return 1;
            admin.push_back(millisecondsSince(start));
            while (!change.visible()) {
                if (Clock::now() - start > kGiveUp) {
                    std::fprintf(stderr, "%s of round %d never showed\n", change.kind, n);
                    return 1;
                }
                std::this_thread::sleep_for(2ms);
            }
            double delay = millisecondsSince(start);
            all.push_back(delay);
            byKind[change.kind].push_back(delay);
        }
        std::fprintf(stderr, "%zu changes\n", all.size());
    }
    client.signal(SIGTERM);
    client.waitForExit();

    double floor = percentile(admin, 0.5);
    std::printf("delay from a change made elsewhere to its visibility on the mount\n");
    std::printf("admin call round trip: p50 %.1f ms\n", floor);
    print("all", all, floor);
    for (const auto& [kind, values] : byKind) print(kind.c_str(), values, floor);
    return 0;
}
