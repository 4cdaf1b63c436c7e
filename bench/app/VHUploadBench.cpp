// Rewriting a 1 GiB file through the drive against the emulator on loopback:
// the time from the start of the rewrite until the service holds the new
// bytes (checked by SHA-256), and the client's peak RSS. The same bytes go in
// the same run through rclone's full-cache mount of its own WebDAV server on
// loopback (a peer), until its server's folder holds them. Figures and the
// ratios go to stdout.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "support/VHDriveProbe.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;

constexpr int64_t kSize = 1LL << 30;

struct Figures {
    double seconds = 0;
    double peakRssMB = 0;
    bool ok = false;
};

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The highest resident set of a running process so far, in MB.
double peakRssMB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024;
    }
    return 0;
}

std::string writeRandomFile(const std::string& path) {
    std::string bytes(kSize, '\0');
    std::mt19937_64 generator(42);
    for (int64_t i = 0; i < kSize; i += 8) {
        uint64_t word = generator();
        std::memcpy(&bytes[i], &word, 8);
    }
    std::ofstream(path, std::ios::binary) << bytes;
    return vh::test::VHSha256Hex(bytes);
}

// Reads the file once (so that the mount holds it), then times the rewrite
// with dd until `arrived` says the other side holds the new bytes.
Figures rewrite(const std::string& target, const std::string& source, pid_t process,
                const std::function<bool()>& arrived) {
    Figures f;
    if (!vh::test::VHRunShell("cat " + vh::test::VHShellQuoted(target) + " > /dev/null")) return f;
    auto start = Clock::now();
    if (!vh::test::VHRunShell("dd if=" + vh::test::VHShellQuoted(source) +
                              " of=" + vh::test::VHShellQuoted(target) +
                              " bs=1M conv=notrunc status=none")) {
        return f;
    }
    f.ok = vh::test::VHTestClient::waitFor(arrived, std::chrono::minutes(10));
    f.seconds = since(start);
    f.peakRssMB = peakRssMB(process);
    return f;
}

Figures varnholt(vh::test::VHEmulatorProcess& emulator, const std::string& source,
                 const std::string& sha) {
    vh::test::VHTestClient client(emulator);
    client.start();
    std::string file = client.mountPath() + "/My Files/big.bin";
    if (!client.waitForMount() || !client.waitFor([&] { return fs::exists(file); }, 120s)) {
        std::fprintf(stderr, "the drive did not come up\n");
        return {};
    }
    Figures f = rewrite(file, source, client.pid(), [&] {
        std::this_thread::sleep_for(200ms);
        return vh::test::VHTreeItem(emulator, "my-files", "/big.bin").value("sha256", "") == sha;
    });
    client.signal(SIGTERM);
    client.waitForExit();
    return f;
}

// Whether the server's copy was written after `since` and holds `sha`;
// hashed only once it has its full size and stopped changing.
bool serverCopyIs(const std::string& path, const std::string& sha) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0 || st.st_size != kSize) return false;
    static timespec hashed{};
    if (st.st_mtim.tv_sec == hashed.tv_sec && st.st_mtim.tv_nsec == hashed.tv_nsec) return false;
    hashed = st.st_mtim;
    return vh::test::VHSha256Hex(vh::test::VHReadWhole(path)) == sha;
}

Figures rclonePeer(const std::string& root, const std::string& original, const std::string& source,
                   const std::string& sha) {
    if (!vh::test::VHRunShell("command -v rclone > /dev/null")) return {};
    std::string remote = root + "/remote", mount = root + "/rclone";
    fs::create_directories(remote);
    fs::create_directories(mount);
    fs::copy_file(original, remote + "/big.bin");
    pid_t server = vh::test::VHSpawnQuietly(
        {"rclone", "serve", "webdav", "--addr", "127.0.0.1:18474", remote});
    std::this_thread::sleep_for(1s);
    pid_t client = vh::test::VHSpawnQuietly({"rclone", "mount", ":webdav:", mount, "--webdav-url",
                                             "http://127.0.0.1:18474", "--vfs-cache-mode", "full",
                                             "--cache-dir", root + "/rclone-cache"});
    Figures f;
    if (vh::test::VHTestClient::waitFor([&] { return fs::exists(mount + "/big.bin"); }, 60s)) {
        f = rewrite(mount + "/big.bin", source, client, [&] {
            std::this_thread::sleep_for(200ms);
            return serverCopyIs(remote + "/big.bin", sha);
        });
    }
    vh::test::VHRunShell("fusermount3 -u " + vh::test::VHShellQuoted(mount) + " 2>/dev/null");
    kill(client, SIGTERM);
    waitpid(client, nullptr, 0);
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
    return f;
}

void print(const char* name, const Figures& f) {
    if (!f.ok) {
        std::printf("%-8s not measured (tool missing or failed)\n", name);
        return;
    }
    std::printf("%-8s %6.1f s until the service holds it (%6.1f MB/s), peak RSS %6.1f MB\n", name,
                f.seconds, kSize / 1e6 / f.seconds, f.peakRssMB);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    vh::test::VHTestHome home;
    vh::test::VHEmulatorProcess emulator;
    if (!emulator.start()) return 1;
    json seed = json::array(
        {{{"action", "writeFile"}, {"path", "/big.bin"}, {"size", kSize}, {"seed", 1}}});
    if (!emulator.act("my-files", seed)) return 1;
    std::string original = home.root() + "/original.bin", source = home.root() + "/new.bin";
    std::ofstream(original, std::ios::binary) << *emulator.fileBytes("my-files", "/big.bin");
    std::string sha = writeRandomFile(source);

    Figures ours = varnholt(emulator, source, sha);
    Figures peer = rclonePeer(home.root(), original, source, sha);
    std::printf("rewriting a 1 GiB file on loopback (dd bs=1M conv=notrunc)\n");
    print("varnholt", ours);
    print("rclone", peer);
    if (ours.ok && peer.ok) {
        std::printf("ratio rclone/varnholt: time %.2f, peak RSS %.2f\n",
                    peer.seconds / ours.seconds, peer.peakRssMB / ours.peakRssMB);
    }
    return ours.ok ? 0 : 1;
}
