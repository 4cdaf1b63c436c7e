#include "desktop/VHInstanceLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace vh {

namespace {

// The first line of the lock file: the holder's PID.
long long readHolder(int fd) {
    char text[32] = {};
    ssize_t got = pread(fd, text, sizeof text - 1, 0);
    return got > 0 ? std::atoll(text) : 0;
}

}  // namespace

VHInstanceLock::~VHInstanceLock() {
    if (fd_ >= 0) ::close(fd_);  // closing drops the lock
}

bool VHInstanceLock::tryLock(long long& holder) {
    holder = 0;
    if (fd_ >= 0) return true;
    int fd = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        holder = readHolder(fd);
        ::close(fd);
        return false;
    }
    std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd, 0) == 0) {
        ssize_t written = pwrite(fd, pid.data(), pid.size(), 0);
        (void)written;  // only the message of a second instance needs it
    }
    fd_ = fd;
    return true;
}

}  // namespace vh
