#include "support/VHTestClient.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "support/VHTestHome.h"

extern char** environ;

namespace vh::test {

namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

}  // namespace

VHTestClient::VHTestClient(const VHEmulatorProcess& emulator) : emulator_(emulator) {}

VHTestClient::~VHTestClient() {
    stop();
    VHDetachMountsBelow(VHCurrentTestHome());
}

void VHTestClient::stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    auto reaped = [this] { return waitpid(pid_, nullptr, WNOHANG) == pid_; };
    if (!waitFor(reaped, std::chrono::seconds(30))) {
        // Hanging on its own mount: a forced unmount aborts the FUSE
        // connection, which frees it.
        umount2(mountPath().c_str(), MNT_FORCE);
        waitFor(reaped, std::chrono::seconds(30));
    }
    pid_ = -1;
}

bool VHTestClient::start(const Options& options) {
    stop();  // a client that should have ended but did not (a failed test)
    stderrPath_ = VHCurrentTestHome() + "/client-stderr-" + std::to_string(time(nullptr)) + ".txt";
    int input[2];
    if (pipe2(input, O_CLOEXEC) != 0) return false;
    std::vector<std::string> args = {VH_TEST_CLIENT_BINARY, "--headless"};
    if (!options.user.empty())
        args.insert(args.end(), {"--user", options.user, "--password-stdin"});
    args.insert(args.end(), options.arguments.begin(), options.arguments.end());
    std::map<std::string, std::string> env = {
        {"VARNHOLT_CONNECT_TO", emulator_.connectTo()},
        {"VARNHOLT_CA_FILE", emulator_.caFile()},
        {"VARNHOLT_GLOBAL_ADDRESS", "global.varnholt.test"},
        // The emulator's direct-link key and IV, Base64.
        {"VARNHOLT_DIRECT_LINK_KEY", "VmFybmhvbHRFbXVsYXRvckRpcmVjdExpbmtLZXktMDE="},
        {"VARNHOLT_DIRECT_LINK_IV", "VmFybmhvbHRFbXVJVi0wMQ=="},
    };
    for (const auto& [key, value] : options.environment) env[key] = value;

    // Everything the child needs is prepared before fork: only exec follows.
    std::vector<std::string> environment;
    for (char** entry = environ; *entry; ++entry) {
        std::string text = *entry;
        std::string key = text.substr(0, text.find('='));
        if (key != "DBUS_SESSION_BUS_ADDRESS" && !env.count(key)) environment.push_back(text);
    }
    for (const auto& [key, value] : env) environment.push_back(key + "=" + value);
    std::vector<char*> argv, envp;
    for (std::string& arg : args) argv.push_back(arg.data());
    for (std::string& entry : environment) envp.push_back(entry.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    int err = open(stderrPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);

    pid_ = fork();
    if (pid_ == 0) {
        dup2(input[0], STDIN_FILENO);
        dup2(err, STDERR_FILENO);
        dup2(err, STDOUT_FILENO);
        execve(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(err);
    close(input[0]);
    std::string line = options.user.empty() ? "" : options.password + "\n";
    if (!line.empty() && write(input[1], line.data(), line.size()) < 0) return false;
    close(input[1]);
    return pid_ > 0;
}

bool VHTestClient::running() {
    if (pid_ <= 0) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        pid_ = -1;
        return false;
    }
    return true;
}

std::string VHTestClient::mountPath() const {
    return VHCurrentTestHome() + "/Varnholt";
}

bool VHTestClient::mounted() const {
    std::ifstream mounts("/proc/mounts");
    std::string needle = " " + mountPath() + " fuse.varnholt ";
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(needle) != std::string::npos) return true;
    }
    return false;
}

bool VHTestClient::waitFor(const std::function<bool()>& condition,
                           std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

bool VHTestClient::waitForMount(std::chrono::seconds timeout) const {
    return waitFor(
        [this] {
            struct stat st {};
            return mounted() && stat(mountPath().c_str(), &st) == 0;
        },
        timeout);
}

bool VHTestClient::waitForUnmount(std::chrono::seconds timeout) const {
    return waitFor([this] { return !mounted(); }, timeout);
}

void VHTestClient::signal(int number) const {
    if (pid_ > 0) kill(pid_, number);
}

bool VHTestClient::handlesTermination() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) != 0) continue;
        unsigned long long caught = std::stoull(line.substr(7), nullptr, 16);
        return caught & (1ull << (SIGTERM - 1));
    }
    return false;
}

std::string VHTestClient::threadStates() const {
    std::string states;
    std::error_code ignored;
    for (const auto& task :
         fs::directory_iterator("/proc/" + std::to_string(pid_) + "/task", ignored)) {
        std::string stat = readFile(task.path() / "stat");
        size_t nameEnd = stat.rfind(')');
        if (nameEnd != std::string::npos && nameEnd + 2 < stat.size()) states += stat[nameEnd + 2];
    }
    return states;
}

std::optional<int> VHTestClient::waitForExit(std::chrono::seconds timeout) {
    if (pid_ <= 0) return exitStatus_ >= 0 ? std::optional<int>(exitStatus_) : std::nullopt;
    if (!waitFor([this] { return !running(); }, timeout)) return std::nullopt;
    return exitStatus_;
}

std::string VHTestClient::logs() const {
    fs::path dir = fs::path(VHCurrentTestHome()) / ".local/share/Varnholt/Logs";
    std::vector<fs::path> files;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(dir, ignored)) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::string all;
    for (const fs::path& file : files) all += readFile(file);
    return all;
}

std::string VHTestClient::standardError() const {
    return readFile(stderrPath_);
}

std::string VHTestClient::settingsText() {
    return readFile(fs::path(VHCurrentTestHome()) / ".config/Varnholt/Varnholt.conf");
}

pid_t VHSpawnQuietly(const std::vector<std::string>& arguments) {
    pid_t pid = fork();
    if (pid == 0) {
        std::vector<char*> argv;
        for (const std::string& arg : arguments) argv.push_back(const_cast<char*>(arg.c_str()));
        argv.push_back(nullptr);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

bool VHRunShell(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

std::string VHShellQuoted(const std::string& path) {
    return "'" + path + "'";
}

std::string VHTreeListing(const std::string& root) {
    std::vector<std::string> lines;
    std::error_code error;
    for (auto it = fs::recursive_directory_iterator(root, error); !error && it != fs::end(it);
         it.increment(error)) {
        std::string relative = fs::relative(it->path(), root).string();
        if (it->is_directory()) {
            lines.push_back(relative + "/");
        } else {
            lines.push_back(relative + " " + std::to_string(it->file_size()));
        }
    }
    std::sort(lines.begin(), lines.end());
    std::string listing;
    for (const std::string& line : lines) listing += line + "\n";
    return listing;
}

}  // namespace vh::test
