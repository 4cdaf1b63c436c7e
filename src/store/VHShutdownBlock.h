// Holds the application's shutdown while batches of server changes are being
// applied: the application polls shutdownBlocked() after beginTermination().
// Safe from any thread.
#pragma once

#include "lib/VHThreadSafety.h"

namespace vh {

class VHShutdownBlock {
  public:
    void blockShutdown() VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        ++blocks_;
    }
    void unblockShutdown() VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        if (blocks_ > 0) --blocks_;
    }
    bool shutdownBlocked() const VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        return blocks_ > 0;
    }
    void beginTermination() VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        terminating_ = true;
    }
    bool terminating() const VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        return terminating_;
    }

  private:
    mutable VHMutex mutex_;
    int blocks_ VH_GUARDED_BY(mutex_) = 0;
    bool terminating_ VH_GUARDED_BY(mutex_) = false;
};

// Blocks shutdown for the life of the object.
class VHShutdownBlocker {
  public:
    explicit VHShutdownBlocker(VHShutdownBlock& block) : block_(block) { block_.blockShutdown(); }
    ~VHShutdownBlocker() { block_.unblockShutdown(); }
    VHShutdownBlocker(const VHShutdownBlocker&) = delete;
    VHShutdownBlocker& operator=(const VHShutdownBlocker&) = delete;

  private:
    VHShutdownBlock& block_;
};

}  // namespace vh
