// The single-instance lock of a folder: an flock() on a file in it. The kernel
// drops it when the process ends, however it ends, so a lock is never stale;
// a PID written in a lock file may be reused, also by a thread of another
// process, and cannot tell that alone.
#pragma once

#include <string>

namespace vh {

class VHInstanceLock {
  public:
    explicit VHInstanceLock(std::string path) : path_(std::move(path)) {}
    ~VHInstanceLock();
    VHInstanceLock(const VHInstanceLock&) = delete;
    VHInstanceLock& operator=(const VHInstanceLock&) = delete;

    // Takes the lock and writes this process's PID into the file. False when
    // another process holds it (`holder`: the PID it wrote, 0 when unknown)
    // or the file cannot be opened.
    bool tryLock(long long& holder);

  private:
    std::string path_;
    int fd_ = -1;
};

}  // namespace vh
