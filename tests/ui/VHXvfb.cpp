#include "VHXvfb.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

namespace vh::test {

namespace {

bool onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    std::string paths = path ? path : "/usr/bin:/bin";
    size_t start = 0;
    while (start <= paths.size()) {
        size_t end = paths.find(':', start);
        std::string dir = paths.substr(start, end == std::string::npos ? end : end - start);
        if (access((dir + "/" + program).c_str(), X_OK) == 0) return true;
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return false;
}

}  // namespace

VHXvfb::~VHXvfb() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
}

bool VHXvfb::start(std::string& why) {
    if (!onPath("Xvfb")) {
        why = "Xvfb is not installed (Debian package xvfb)";
        return false;
    }
    int fds[2];
    if (pipe(fds) != 0) {
        why = "no pipe";
        return false;
    }
    std::string fd = std::to_string(fds[1]);
    pid_ = fork();
    if (pid_ == 0) {
        close(fds[0]);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1280x800x24", "-nolisten",
               "tcp", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    // Xvfb writes the display number once it accepts clients.
    std::string number;
    struct pollfd wait = {fds[0], POLLIN, 0};
    char c = 0;
    while (poll(&wait, 1, 30000) == 1 && read(fds[0], &c, 1) == 1 && c != '\n') number += c;
    close(fds[0]);
    if (number.empty()) {
        why = "Xvfb did not start";
        return false;
    }
    display_ = ":" + number;
    return true;
}

}  // namespace vh::test
