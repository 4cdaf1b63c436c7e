#include "VHPeerMounts.h"

#include <signal.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::bench {

namespace {

using namespace std::chrono_literals;
constexpr const char* kWebdavAddress = "127.0.0.1:18473";

void stopProcess(pid_t& pid) {
    if (pid <= 0) return;
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
    pid = -1;
}

}  // namespace

VHPeerMount::VHPeerMount(Kind kind, const std::string& root, const std::string& source) {
    const char* program = kind == Kind::Bindfs ? "bindfs" : "rclone";
    path_ = root + "/" + program;
    if (!VHInstalled(program)) return;
    std::filesystem::create_directories(path_);
    if (kind == Kind::Bindfs) {
        client_ = test::VHSpawnQuietly({"bindfs", "-f", "--no-allow-other", source, path_});
    } else {
        server_ =
            test::VHSpawnQuietly({"rclone", "serve", "webdav", "--addr", kWebdavAddress, source});
        std::this_thread::sleep_for(1s);
        client_ = test::VHSpawnQuietly({"rclone", "mount", ":webdav:", path_, "--webdav-url",
                                        std::string("http://") + kWebdavAddress, "--vfs-cache-mode",
                                        "full", "--cache-dir", root + "/rclone-cache"});
    }
    mounted_ = test::VHTestClient::waitFor([&] { return test::VHIsMountPoint(path_); }, 60s);
}

VHPeerMount::~VHPeerMount() {
    std::system(("fusermount3 -u " + test::VHShellQuoted(path_) + " 2>/dev/null").c_str());
    stopProcess(client_);
    stopProcess(server_);
}

bool VHInstalled(const char* program) {
    return std::system(("command -v " + std::string(program) + " > /dev/null").c_str()) == 0;
}

void VHDropKernelCaches() {
    std::ofstream("/proc/sys/vm/drop_caches") << "3";
}

double VHResidentMB(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) return std::strtod(line.c_str() + 6, nullptr) / 1024;
    }
    return 0;
}

}  // namespace vh::bench
