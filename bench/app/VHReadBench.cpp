// Reading through the drive against the emulator on loopback: cold
// sequential MB/s of a 256 MB file (nothing cached), warm sequential MB/s
// (the file complete in the cache), and 4 KiB random read latency (cold and
// warm). The same bytes are read in the same run through bindfs over a local
// folder (the FUSE ceiling) and through rclone's full-cache mount of its own
// WebDAV server on loopback (a peer). Figures and ratios go to stdout.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "VHPeerMounts.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr int64_t kSize = 256LL << 20;
constexpr int kRandomReads = 300;

struct Figures {
    double coldMBps = 0, warmMBps = 0, coldLatencyMs = 0, warmLatencyMs = 0;
    bool ok = false;
};

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double sequentialMBps(const std::string& path) {
    vh::bench::VHDropKernelCaches();
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return 0;
    std::string buffer(1 << 20, '\0');
    int64_t total = 0;
    auto start = Clock::now();
    for (ssize_t n; (n = read(fd, buffer.data(), buffer.size())) > 0;) total += n;
    double seconds = since(start);
    close(fd);
    return total == kSize ? kSize / 1e6 / seconds : 0;
}

double randomLatencyMs(const std::string& path, unsigned seed) {
    vh::bench::VHDropKernelCaches();
    int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return 0;
    std::mt19937_64 random(seed);
    char buffer[4096];
    auto start = Clock::now();
    for (int i = 0; i < kRandomReads; ++i) {
        off_t offset = static_cast<off_t>(random() % (kSize / 4096)) * 4096;
        if (pread(fd, buffer, sizeof buffer, offset) != 4096) return 0;
    }
    double seconds = since(start);
    close(fd);
    return seconds * 1000 / kRandomReads;
}

// Cold: two files nobody read yet (one for sequential, one for random reads).
// Warm: the sequential file again, now complete in the mount's cache.
Figures measure(const std::string& sequential, const std::string& random) {
    Figures f;
    f.coldMBps = sequentialMBps(sequential);
    f.coldLatencyMs = randomLatencyMs(random, 1);
    f.warmMBps = sequentialMBps(sequential);
    f.warmLatencyMs = randomLatencyMs(sequential, 2);
    f.ok = f.coldMBps > 0 && f.warmMBps > 0 && f.coldLatencyMs > 0 && f.warmLatencyMs > 0;
    return f;
}

Figures peer(vh::bench::VHPeerMount::Kind kind, const std::string& root,
             const std::string& source) {
    vh::bench::VHPeerMount mount(kind, root, source);
    if (!mount.mounted()) return {};
    return measure(mount.path() + "/seq.bin", mount.path() + "/rnd.bin");
}

void print(const char* name, const Figures& f, const Figures& ours) {
    if (!f.ok) {
        std::printf("%-8s not measured (tool missing or failed)\n", name);
        return;
    }
    std::printf("%-8s cold %7.1f MB/s  warm %7.1f MB/s  random 4 KiB cold %7.3f ms  warm %7.3f ms",
                name, f.coldMBps, f.warmMBps, f.coldLatencyMs, f.warmLatencyMs);
    if (&f != &ours) {
        std::printf("  | ours/this: cold %.2f warm %.2f latency cold %.2f warm %.2f",
                    ours.coldMBps / f.coldMBps, ours.warmMBps / f.warmMBps,
                    ours.coldLatencyMs / f.coldLatencyMs, ours.warmLatencyMs / f.warmLatencyMs);
    }
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    vh::test::VHTestHome home;
    vh::test::VHEmulatorProcess emulator;
    if (!emulator.start()) return 1;
    json actions = json::array(
        {{{"action", "writeFile"}, {"path", "/seq.bin"}, {"size", kSize}, {"seed", 1}},
         {{"action", "writeFile"}, {"path", "/rnd.bin"}, {"size", kSize}, {"seed", 2}}});
    if (!emulator.act("my-files", actions)) return 1;

    std::string source = home.root() + "/source";
    fs::create_directories(source);
    for (const char* name : {"seq.bin", "rnd.bin"}) {
        std::ofstream(source + "/" + name, std::ios::binary)
            << *emulator.fileBytes("my-files", std::string("/") + name);
    }

    vh::test::VHTestClient client(emulator);
    client.start();
    std::string share = client.mountPath() + "/My Files";
    if (!client.waitForMount() ||
        !client.waitFor([&] { return fs::exists(share + "/rnd.bin"); }, 120s)) {
        std::fprintf(stderr, "the drive did not come up\n");
        return 1;
    }
    Figures ours = measure(share + "/seq.bin", share + "/rnd.bin");
    client.signal(SIGTERM);
    client.waitForExit();

    Figures ceiling = peer(vh::bench::VHPeerMount::Kind::Bindfs, home.root(), source);
    Figures rclone = peer(vh::bench::VHPeerMount::Kind::Rclone, home.root(), source);
    std::printf("reading a 256 MB file on loopback (%d random reads)\n", kRandomReads);
    print("varnholt", ours, ours);
    print("bindfs", ceiling, ours);
    print("rclone", rclone, ours);
    return ours.ok ? 0 : 1;
}
