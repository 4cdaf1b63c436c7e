#include "support/VHSessionKeyring.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string_view>
#include <thread>
#include <vector>

#include "lib/VHPaths.h"
#include "support/VHTestClient.h"

extern char** environ;

namespace vh::test {

namespace {

using namespace std::chrono_literals;

constexpr const char* kKeyringPassword = "vh-test-keyring";

// A session bus without service directories: nothing is activated on demand.
std::string busConfig(const std::string& socketDir) {
    return "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig><type>session</type><listen>unix:dir=" +
           socketDir +
           "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
           "<allow send_destination=\"*\" eavesdrop=\"true\"/><allow eavesdrop=\"true\"/>"
           "<allow own=\"*\"/></policy></busconfig>\n";
}

// Runs `arguments` with `input` written to its standard input, its standard
// output into `out` (when given) and `extraEnv` ("NAME=value") added to the
// environment; standard error is discarded. The child's pid, or -1.
pid_t spawn(const std::vector<std::string>& arguments, const std::string& input, int* out,
            const std::string& extraEnv = "") {
    std::vector<char*> argv, envp;
    for (const std::string& arg : arguments) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    for (char** entry = environ; *entry; ++entry) {
        if (std::string_view(*entry).starts_with("DBUS_SESSION_BUS_ADDRESS=")) continue;
        envp.push_back(*entry);
    }
    if (!extraEnv.empty()) envp.push_back(const_cast<char*>(extraEnv.c_str()));
    envp.push_back(nullptr);
    int in[2], output[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) return -1;
    int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(output[1], STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
    close(null);
    close(in[0]);
    close(output[1]);
    if (!input.empty() && write(in[1], input.data(), input.size()) < 0) pid = -1;
    close(in[1]);
    if (out) {
        *out = output[0];
    } else {
        close(output[0]);
    }
    return pid;
}

void end(pid_t& pid) {
    if (pid <= 0) return;
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    pid = -1;
}

}  // namespace

VHSessionKeyring::~VHSessionKeyring() {
    end(keyringPid_);
    end(busPid_);
}

bool VHSessionKeyring::start(Secrets secrets) {
    if (!startBus()) {
        std::fprintf(stderr, "dbus-daemon did not start\n");
        return false;
    }
    if (secrets != Secrets::None && !startKeyring(secrets == Secrets::Unlocked)) {
        std::fprintf(stderr, "gnome-keyring-daemon did not start\n");
        return false;
    }
    return true;
}

bool VHSessionKeyring::startBus() {
    std::string config = VHPaths::runtimeDir() + "/session-bus.conf";
    std::ofstream(config) << busConfig(VHPaths::runtimeDir());
    int out = -1;
    busPid_ = spawn({"dbus-daemon", "--config-file=" + config, "--nofork", "--print-address=1"}, "",
                    &out);
    if (busPid_ <= 0) return false;
    // The address is printed, ending in a line feed, once the bus listens.
    char buffer[512];
    std::string text;
    for (ssize_t n;
         text.find('\n') == std::string::npos && (n = read(out, buffer, sizeof buffer)) > 0;) {
        text.append(buffer, static_cast<size_t>(n));
    }
    close(out);
    address_ = text.substr(0, text.find('\n'));
    return !address_.empty();
}

bool VHSessionKeyring::startKeyring(bool unlocked) {
    std::vector<std::string> arguments = {"gnome-keyring-daemon", "--foreground",
                                          "--components=secrets"};
    // --unlock makes the login keyring, with the password read from stdin.
    if (unlocked) arguments.push_back("--unlock");
    keyringPid_ = spawn(arguments, unlocked ? kKeyringPassword : "", nullptr,
                        "DBUS_SESSION_BUS_ADDRESS=" + address_);
    if (keyringPid_ <= 0) return false;
    // Up once it keeps an item in the login keyring, or, without one, once
    // a lookup finds nothing without an error.
    return VHTestClient::waitFor(
        [this, unlocked] {
            int status = -1;
            if (unlocked) {
                shell("printf probe | secret-tool store --label=probe vh-test probe", &status);
                return status == 0;
            }
            return shell("secret-tool lookup vh-test probe", &status).empty() && status == 1;
        },
        20s);
}

std::optional<std::string> VHSessionKeyring::lookup(const std::string& attributes) const {
    int status = -1;
    std::string found = shell("secret-tool lookup " + attributes, &status);
    if (status != 0) return std::nullopt;
    return found;
}

std::string VHSessionKeyring::shell(const std::string& command, int* status) const {
    std::string line = "export DBUS_SESSION_BUS_ADDRESS='" + address_ + "'; (" + command + ") 2>&1";
    FILE* pipe = popen(line.c_str(), "r");
    if (!pipe) return "";
    std::string out;
    char buffer[512];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    int result = pclose(pipe);
    *status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    return out;
}

}  // namespace vh::test
