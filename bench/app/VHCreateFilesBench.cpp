// Creating 10,000 small files (100 B to 8 KiB in about 100 folders) with
// tar xf: into a fresh folder of the drive against the emulator on loopback,
// timed also until the service holds every file with its size (contents
// checked by SHA-256); into bindfs over a local folder (the FUSE ceiling);
// and into rclone's full-cache mount of its own WebDAV server on loopback (a
// peer), timed also until its server's folder holds every file. Figures and
// ratios go to stdout, progress to stderr.
//
//   vh_create_files_bench [number of files]
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QCoreApplication>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "support/VHDriveProbe.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using nlohmann::json;
using vh::test::VHShellQuoted;

// 10,000 uploads at a few files per second take most of it.
constexpr auto kWaitLimit = 30min;
constexpr int kFilesPerFolder = 100;
constexpr int kSpotChecks = 20;
constexpr int kRclonePort = 18475;
const std::string kTop = "create-bench";  // the tarball's one top folder

volatile sig_atomic_t gInterrupted = 0;

struct SmallFile {
    std::string path;  // below kTop, "a03/b07/f00342.bin"
    int64_t size = 0;
    std::string sha256;
};

struct Tarball {
    std::string path;
    std::vector<SmallFile> files;
    int folders = 0;
    int64_t bytes = 0;
};

struct Figures {
    std::optional<double> untar;   // seconds of tar xf
    std::optional<double> stored;  // seconds from the start of tar xf until the far side holds all
    double resolution = 0;         // the poll interval when `stored` was seen
    std::string problem;           // why a figure is missing
};

Figures failed(std::string problem) {
    Figures f;
    f.problem = std::move(problem);
    return f;
}

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

bool installed(const char* program) {
    return vh::test::VHRunShell("command -v " + std::string(program) + " > /dev/null");
}

std::string firstLine(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    return line;
}

// The files, their folders "aNN/bNN" (ten leaves each), and the tarball of
// them all below kTop; the same bytes on every run.
Tarball makeTarball(const std::string& root, int count) {
    Tarball t;
    t.path = root + "/files.tar";
    std::string tree = root + "/tree";
    std::mt19937_64 random(7);
    std::uniform_int_distribution<int64_t> size(100, 8192);
    std::string bytes;
    for (int i = 0; i < count; ++i) {
        int leaf = i / kFilesPerFolder;
        char name[64];
        std::snprintf(name, sizeof name, "a%02d/b%02d/f%05d.bin", leaf / 10, leaf % 10, i);
        bytes.resize(size(random));
        for (char& c : bytes) c = static_cast<char>(random());
        fs::path file = fs::path(tree) / kTop / name;
        fs::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << bytes;
        t.files.push_back({name, static_cast<int64_t>(bytes.size()), vh::test::VHSha256Hex(bytes)});
        t.bytes += static_cast<int64_t>(bytes.size());
    }
    int leaves = (count + kFilesPerFolder - 1) / kFilesPerFolder;
    t.folders = 1 + leaves + (leaves + 9) / 10;
    if (!vh::test::VHRunShell("tar cf " + VHShellQuoted(t.path) + " -C " + VHShellQuoted(tree) +
                              " " + kTop)) {
        t.files.clear();
    }
    return t;
}

// tar xf into `folder`, bounded by kWaitLimit; its seconds, or nothing with
// the reason in `problem`.
std::optional<double> untar(const Tarball& tarball, const std::string& folder,
                            std::string& problem) {
    std::string errors = tarball.path + ".errors";
    auto limit = std::chrono::duration_cast<std::chrono::seconds>(kWaitLimit).count();
    std::string command = "timeout -k 10 " + std::to_string(limit) + " tar xf " +
                          VHShellQuoted(tarball.path) + " -C " + VHShellQuoted(folder) + " 2> " +
                          VHShellQuoted(errors);
    auto start = Clock::now();
    int status = std::system(command.c_str());
    double seconds = since(start);
    if (status == 0) return seconds;
    int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (code == 124 || code == 137) {
        problem = "timed out: tar xf still ran after " + std::to_string(limit / 60) + " min";
    } else if (code > 128) {
        gInterrupted = 1;  // tar got the terminal's signal; we ignored it meanwhile
        problem = "interrupted";
    } else {
        problem = "tar xf failed (exit status " + std::to_string(code) + "): " + firstLine(errors);
    }
    return std::nullopt;
}

std::string progress(int held, int total, const char* where, double seconds) {
    char text[160];
    std::snprintf(text, sizeof text, "%d of %d files %s after %.0f s (%.1f files/s so far)", held,
                  total, where, seconds, held / seconds);
    return text;
}

// Polls `held` (how many of the files the far side holds) until it is
// `total`, at most until `start` + kWaitLimit. The poll interval grows with
// the poll's own cost so that watching takes little from what is watched.
bool waitForAll(const char* where, const std::function<int()>& held, int total,
                Clock::time_point start, Figures& f) {
    auto interval = 250ms;
    for (auto lastReport = Clock::now();;) {
        auto pollStart = Clock::now();
        int now = held();
        auto cost = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - pollStart);
        if (now == total) {
            f.stored = since(start);
            f.resolution = std::chrono::duration<double>(interval).count();
            return true;
        }
        std::string status = progress(now, total, where, since(start));
        if (gInterrupted || Clock::now() - start > kWaitLimit) {
            f.problem = (gInterrupted ? "interrupted: " : "timed out: ") + status;
            return false;
        }
        if (Clock::now() - lastReport > 30s) {
            std::fprintf(stderr, "%s\n", status.c_str());
            lastReport = Clock::now();
        }
        interval = std::clamp(cost * 8, 250ms, 5000ms);
        std::this_thread::sleep_for(interval);
    }
}

// How many of the files the share's tree on the emulator holds with their sizes.
int serviceHolds(const vh::test::VHEmulatorProcess& emulator, const Tarball& tarball) {
    std::unordered_map<std::string, int64_t> sizes;
    for (const json& item :
         emulator.tree("my-files").value_or(json::object()).value("items", json::array())) {
        if (item.value("isFile", false)) sizes[item.value("path", "")] = item.value("size", -1LL);
    }
    int held = 0;
    for (const SmallFile& file : tarball.files) {
        auto it = sizes.find("/" + kTop + "/" + file.path);
        if (it != sizes.end() && it->second == file.size) ++held;
    }
    return held;
}

// Every file's hash as the service computed it, and the bytes of a few files
// fetched and hashed here; empty when all match.
std::string checkService(const vh::test::VHEmulatorProcess& emulator, const Tarball& tarball) {
    std::unordered_map<std::string, std::string> hashes;
    for (const json& item :
         emulator.tree("my-files").value_or(json::object()).value("items", json::array())) {
        hashes[item.value("path", "")] = item.value("sha256", "");
    }
    int wrong = 0;
    size_t step = std::max<size_t>(1, tarball.files.size() / kSpotChecks);
    for (size_t i = 0; i < tarball.files.size(); ++i) {
        const SmallFile& file = tarball.files[i];
        std::string path = "/" + kTop + "/" + file.path;
        bool ok = hashes[path] == file.sha256;
        if (ok && i % step == 0) {
            auto bytes = emulator.fileBytes("my-files", path);
            ok = bytes && vh::test::VHSha256Hex(*bytes) == file.sha256;
        }
        wrong += ok ? 0 : 1;
    }
    return wrong ? std::to_string(wrong) + " files on the service have other contents" : "";
}

// How many of the files a local folder holds with their sizes.
int folderHolds(const std::string& folder, const Tarball& tarball) {
    int held = 0;
    for (const SmallFile& file : tarball.files) {
        std::error_code error;
        auto size = fs::file_size(folder + "/" + kTop + "/" + file.path, error);
        if (!error && static_cast<int64_t>(size) == file.size) ++held;
    }
    return held;
}

std::string checkFolder(const std::string& folder, const Tarball& tarball) {
    int wrong = 0;
    for (const SmallFile& file : tarball.files) {
        std::string bytes = vh::test::VHReadWhole(folder + "/" + kTop + "/" + file.path);
        if (vh::test::VHSha256Hex(bytes) != file.sha256) ++wrong;
    }
    return wrong ? std::to_string(wrong) + " files in " + folder + " have other contents" : "";
}

Figures varnholt(const vh::test::VHEmulatorProcess& emulator, const Tarball& tarball) {
    Figures f;
    vh::test::VHTestClient client(emulator);
    std::string share = client.mountPath() + "/My Files";
    if (!client.start() || !client.waitForMount() ||
        !client.waitFor(
            [&] {
                std::error_code error;
                return fs::is_directory(share, error);
            },
            120s)) {
        f.problem = "the drive did not come up";
        return f;
    }
    auto start = Clock::now();
    f.untar = untar(tarball, share, f.problem);
    auto held = [&] { return serviceHolds(emulator, tarball); };
    if (f.untar &&
        waitForAll("on the service", held, static_cast<int>(tarball.files.size()), start, f)) {
        f.problem = checkService(emulator, tarball);
        if (!f.problem.empty()) f.stored.reset();
    }
    client.signal(SIGTERM);
    if (!client.waitForExit()) std::fprintf(stderr, "the client did not end on SIGTERM\n");
    return f;
}

// A reference tool's process and mount: detached and stopped when this goes,
// also when a measurement fails.
struct Spawned {
    pid_t pid = -1;
    std::string mount;

    Spawned(const std::vector<std::string>& arguments, std::string mountPoint)
        : pid(vh::test::VHSpawnQuietly(arguments)), mount(std::move(mountPoint)) {}
    Spawned(const Spawned&) = delete;
    Spawned& operator=(const Spawned&) = delete;
    ~Spawned() {
        if (!mount.empty() && vh::test::VHIsMountPoint(mount)) {
            vh::test::VHRunShell("fusermount3 -u " + VHShellQuoted(mount) +
                                 " 2>/dev/null || fusermount3 -uz " + VHShellQuoted(mount));
        }
        if (pid <= 0) return;
        kill(pid, SIGTERM);
        auto reaped = [this] { return waitpid(pid, nullptr, WNOHANG) == pid; };
        if (vh::test::VHTestClient::waitFor(reaped, 30s)) return;
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }

    // Whether the process still runs (reaping it when it ended).
    bool running() {
        if (pid > 0 && waitpid(pid, nullptr, WNOHANG) == pid) pid = -1;
        return pid > 0;
    }
};

bool waitForMount(Spawned& tool) {
    return vh::test::VHTestClient::waitFor(
               [&] { return vh::test::VHIsMountPoint(tool.mount) || !tool.running(); }, 60s) &&
           tool.running();
}

bool portOpen(int port) {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool open = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    close(fd);
    return open;
}

Figures bindfsCeiling(const std::string& root, const Tarball& tarball) {
    Figures f;
    if (!installed("bindfs")) return failed("bindfs is not installed");
    std::string source = root + "/bindfs-source", mount = root + "/bindfs";
    fs::create_directories(source);
    fs::create_directories(mount);
    Spawned bindfs({"bindfs", "-f", "--no-allow-other", source, mount}, mount);
    if (!waitForMount(bindfs)) return failed("bindfs did not mount");
    f.untar = untar(tarball, mount, f.problem);
    if (f.untar) f.problem = checkFolder(source, tarball);
    if (!f.problem.empty()) f.untar.reset();
    return f;
}

Figures rclonePeer(const std::string& root, const Tarball& tarball) {
    Figures f;
    if (!installed("rclone")) return failed("rclone is not installed");
    std::string remote = root + "/rclone-remote", mount = root + "/rclone";
    fs::create_directories(remote);
    fs::create_directories(mount);
    std::string url = "127.0.0.1:" + std::to_string(kRclonePort);
    Spawned server({"rclone", "serve", "webdav", "--addr", url, remote}, "");
    if (!vh::test::VHTestClient::waitFor([&] { return portOpen(kRclonePort); }, 30s)) {
        return failed("rclone serve webdav did not listen on " + url);
    }
    Spawned client({"rclone", "mount", ":webdav:", mount, "--webdav-url", "http://" + url,
                    "--vfs-cache-mode", "full", "--cache-dir", root + "/rclone-cache"},
                   mount);
    if (!waitForMount(client)) return failed("rclone mount did not mount");
    auto start = Clock::now();
    f.untar = untar(tarball, mount, f.problem);
    auto held = [&] { return folderHolds(remote, tarball); };
    if (f.untar &&
        waitForAll("on its server", held, static_cast<int>(tarball.files.size()), start, f)) {
        f.problem = checkFolder(remote, tarball);
        if (!f.problem.empty()) f.stored.reset();
    }
    return f;
}

void print(const char* name, const char* farSide, const Figures& f, size_t files) {
    std::printf("%-8s ", name);
    if (f.untar) std::printf("untar %7.2f s %7.0f files/s", *f.untar, files / *f.untar);
    if (f.stored) {
        std::printf(" | until %s holds them %7.1f s (+-%.1f) %7.0f files/s", farSide, *f.stored,
                    f.resolution, files / *f.stored);
    }
    if (!f.problem.empty())
        std::printf("%snot measured: %s", f.untar ? " | " : "", f.problem.c_str());
    std::printf("\n");
}

// Files per second of the drive over the reference's: above 1, the drive is faster.
void printRatios(const char* name, const Figures& ours, const Figures& theirs) {
    if (!ours.untar || !theirs.untar) return;
    std::printf("varnholt/%s files per second: untar %.2f", name, *theirs.untar / *ours.untar);
    if (ours.stored && theirs.stored) {
        std::printf(", until stored %.2f", *theirs.stored / *ours.stored);
    }
    std::printf("\n");
}

int run(int count) {
    vh::test::VHTestHome home;
    vh::test::VHEmulatorProcess emulator;
    if (!emulator.start()) return 1;
    Tarball tarball = makeTarball(home.root(), count);
    if (tarball.files.empty()) {
        std::fprintf(stderr, "could not make the tarball\n");
        return 1;
    }
    Figures ours = varnholt(emulator, tarball);
    Figures skipped = failed("interrupted");
    Figures ceiling = gInterrupted ? skipped : bindfsCeiling(home.root(), tarball);
    Figures peer = gInterrupted ? skipped : rclonePeer(home.root(), tarball);
    std::printf(
        "creating %d files of 100 B to 8 KiB (%.1f MB in %d folders) with tar xf, on "
        "loopback\n",
        count, tarball.bytes / 1e6, tarball.folders);
    print("varnholt", "the service", ours, count);
    print("bindfs", "", ceiling, count);
    print("rclone", "its server", peer, count);
    printRatios("bindfs", ours, ceiling);
    printRatios("rclone", ours, peer);
    return ours.stored ? 0 : 1;
}

void onSignal(int) {
    gInterrupted = 1;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    int count = argc > 1 ? std::atoi(argv[1]) : 10000;
    if (count <= 0) {
        std::fprintf(stderr, "usage: %s [number of files]\n", argv[0]);
        return 2;
    }
    // A signal ends the waits; every mount and process is then cleaned up.
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    try {
        return run(count);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "failed: %s\n", error.what());
        return 1;
    }
}
