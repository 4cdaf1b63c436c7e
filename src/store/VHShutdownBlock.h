// Holds the application's shutdown while batches of server changes are being
// applied: the application polls shutdownBlocked() after beginTermination().
// Safe from any thread.
#pragma once

#include <mutex>

namespace vh {

class VHShutdownBlock {
  public:
    void blockShutdown() {
        std::lock_guard lock(mutex_);
        ++blocks_;
    }
    void unblockShutdown() {
        std::lock_guard lock(mutex_);
        if (blocks_ > 0) --blocks_;
    }
    bool shutdownBlocked() const {
        std::lock_guard lock(mutex_);
        return blocks_ > 0;
    }
    void beginTermination() {
        std::lock_guard lock(mutex_);
        terminating_ = true;
    }
    bool terminating() const {
        std::lock_guard lock(mutex_);
        return terminating_;
    }

  private:
    mutable std::mutex mutex_;
    int blocks_ = 0;            // guarded by mutex_
    bool terminating_ = false;  // guarded by mutex_
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
