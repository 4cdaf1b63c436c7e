// The drive against its peers on the operations of a file manager and a
// shell: listing, finding and stat-ing a folder of 10,000 files, and the
// client's memory after signing in to 25,000 items. The same tree is served
// by the real client (the emulator on loopback), bindfs over a local folder,
// rclone's full-cache mount of its WebDAV server on loopback, and read from
// the local folder itself, all in one run. Reads are vh_read_bench's.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "VHPeerMounts.h"
#include "drive/VHFuseMount.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;
using vh::bench::VHDropKernelCaches;

constexpr int kListed = 10000;
constexpr int kOthers = 15000;

struct Figures {
    double listCold = 0, listAgain = 0, findCold = 0, statCold = 0, statLater = 0, rssMB = 0;
    bool ok = false;
};

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string name(int i) {
    return "file-" + std::to_string(i) + ".txt";
}

double timedShell(const std::string& command) {
    auto start = Clock::now();
    return vh::test::VHRunShell(command) ? since(start) : 0;
}

double statsPerSecond(const std::string& folder) {
    struct stat st {};
    auto start = Clock::now();
    for (int i = 0; i < kListed; ++i) {
        if (lstat((folder + "/" + name(i)).c_str(), &st) != 0) return 0;
    }
    return kListed / since(start);
}

// Everything up to the second stat pass, which waits for the time-outs.
void measureFirst(const std::string& root, Figures& f) {
    std::string folder = vh::test::VHShellQuoted(root + "/ten");
    VHDropKernelCaches();
    f.listCold = timedShell("ls -l " + folder + " > /dev/null");
    f.listAgain = timedShell("ls -l " + folder + " > /dev/null");
    VHDropKernelCaches();
    f.findCold = timedShell("find " + vh::test::VHShellQuoted(root) + " > /dev/null");
    VHDropKernelCaches();
    f.statCold = statsPerSecond(root + "/ten");
}

void writeTree(const std::string& root) {
    fs::create_directories(root + "/ten");
    fs::create_directories(root + "/more");
    for (int i = 0; i < kListed; ++i) std::ofstream(root + "/ten/" + name(i)) << "x";
    for (int i = 0; i < kOthers; ++i) std::ofstream(root + "/more/" + name(i)) << "x";
}

bool fillService(const vh::test::VHEmulatorProcess& emulator) {
    json actions = json::array();
    for (int i = 0; i < kListed; ++i) {
        actions.push_back({{"action", "writeFile"}, {"path", "/ten/" + name(i)}, {"text", "x"}});
    }
    for (int i = 0; i < kOthers; ++i) {
        actions.push_back({{"action", "writeFile"}, {"path", "/more/" + name(i)}, {"text", "x"}});
    }
    return emulator.act("my-files", actions).has_value();
}

void printRow(const char* label, const char* unit, double Figures::*field, const Figures& ours,
              const Figures& bindfs, const Figures& rclone, const Figures& local) {
    std::printf("%-34s", label);
    for (const Figures* f : {&ours, &bindfs, &rclone, &local}) {
        if (f->ok && f->*field > 0) {
            std::printf(" %10.3f", f->*field);
        } else {
            std::printf(" %10s", "—");
        }
    }
    std::printf("  %-4s", unit);
    for (const Figures* f : {&bindfs, &rclone, &local}) {
        if (f->ok && f->*field > 0 && ours.*field > 0) {
            std::printf("  %6.2f", ours.*field / f->*field);
        } else {
            std::printf("  %6s", "—");
        }
    }
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    vh::test::VHTestHome home;
    vh::test::VHEmulatorProcess emulator;
    std::string source = home.root() + "/source";
    writeTree(source);
    if (!emulator.start() || !fillService(emulator)) return 1;

    Figures ours, bindfs, rclone, local;
    vh::test::VHTestClient client(emulator);
    std::string share = client.mountPath() + "/My Files";
    client.start();
    // A lookup, not a listing: the folder stays cold for the first ls.
    bool up =
        client.waitForMount() &&
        client.waitFor([&] { return fs::exists(share + "/more/" + name(kOthers - 1)); }, 300s) &&
        client.waitFor([&] { return fs::exists(share + "/ten/" + name(kListed - 1)); }, 60s);
    if (!up) {
        std::fprintf(stderr, "the drive did not come up\n");
        return 1;
    }
    std::this_thread::sleep_for(2s);
    ours.rssMB = vh::bench::VHResidentMB(client.pid());
    measureFirst(share, ours);
    vh::bench::VHPeerMount bindfsMount(vh::bench::VHPeerMount::Kind::Bindfs, home.root(), source);
    vh::bench::VHPeerMount rcloneMount(vh::bench::VHPeerMount::Kind::Rclone, home.root(), source);
    for (auto [mount, f] : {std::pair{&bindfsMount, &bindfs}, std::pair{&rcloneMount, &rclone}}) {
        if (!mount->mounted()) continue;
        measureFirst(mount->path(), *f);
        f->rssMB = vh::bench::VHResidentMB(mount->servingProcess());
        f->ok = true;
    }
    measureFirst(source, local);
    local.ok = true;

    // Past every kernel cache time-out: the second pass asks the file systems again.
    std::this_thread::sleep_for(std::chrono::duration<double>(vh::kDriveCacheTimeoutSeconds + 1));
    ours.statLater = statsPerSecond(share + "/ten");
    if (bindfs.ok) bindfs.statLater = statsPerSecond(bindfsMount.path() + "/ten");
    if (rclone.ok) rclone.statLater = statsPerSecond(rcloneMount.path() + "/ten");
    local.statLater = statsPerSecond(source + "/ten");
    ours.ok = ours.listCold > 0 && ours.statCold > 0 && ours.statLater > 0;
    local.rssMB = 0;

    std::printf("a folder of %d files, %d items in all\n", kListed, kListed + kOthers);
    std::printf("%-34s %10s %10s %10s %10s  %-4s  %6s  %6s  %6s\n", "", "varnholt", "bindfs",
                "rclone", "local", "", "/bindf", "/rclon", "/local");
    printRow("ls -l, cold", "s", &Figures::listCold, ours, bindfs, rclone, local);
    printRow("ls -l, repeated", "s", &Figures::listAgain, ours, bindfs, rclone, local);
    printRow("find over the mount, cold", "s", &Figures::findCold, ours, bindfs, rclone, local);
    printRow("stat, first pass", "/s", &Figures::statCold, ours, bindfs, rclone, local);
    printRow("stat, after the attribute time-out", "/s", &Figures::statLater, ours, bindfs, rclone,
             local);
    printRow("serving process RSS after sign-in", "MB", &Figures::rssMB, ours, bindfs, rclone,
             local);
    std::printf("(ratios: varnholt / other; for s and MB lower is better, for /s higher)\n");
    client.signal(SIGTERM);
    client.waitForExit();
    return ours.ok ? 0 : 1;
}
