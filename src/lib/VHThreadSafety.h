// Clang thread-safety annotations and the annotated mutex the code base uses.
//
// libstdc++'s std::mutex carries no capability attribute, so members guarded
// by one cannot be checked. VHMutex is a std::mutex that clang's
// -Wthread-safety understands; VHMutexLock is its scoped lock, and it also
// meets BasicLockable so that std::condition_variable_any can wait on it.
// With GCC every macro expands to nothing.
#pragma once

#include <mutex>

#if defined(__clang__)
#define VH_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VH_THREAD_ANNOTATION(x)
#endif

#define VH_CAPABILITY(x) VH_THREAD_ANNOTATION(capability(x))
#define VH_SCOPED_CAPABILITY VH_THREAD_ANNOTATION(scoped_lockable)
#define VH_GUARDED_BY(x) VH_THREAD_ANNOTATION(guarded_by(x))
#define VH_PT_GUARDED_BY(x) VH_THREAD_ANNOTATION(pt_guarded_by(x))
#define VH_ACQUIRED_AFTER(...) VH_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define VH_ACQUIRED_BEFORE(...) VH_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define VH_REQUIRES(...) VH_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VH_ACQUIRE(...) VH_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VH_RELEASE(...) VH_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VH_TRY_ACQUIRE(...) VH_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define VH_EXCLUDES(...) VH_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define VH_RETURN_CAPABILITY(x) VH_THREAD_ANNOTATION(lock_returned(x))
#define VH_NO_THREAD_SAFETY_ANALYSIS VH_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace vh {

class VH_CAPABILITY("mutex") VHMutex {
  public:
    VHMutex() = default;
    VHMutex(const VHMutex&) = delete;
    VHMutex& operator=(const VHMutex&) = delete;

    void lock() VH_ACQUIRE() { mutex_.lock(); }
    void unlock() VH_RELEASE() { mutex_.unlock(); }
    bool try_lock() VH_TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  private:
    std::mutex mutex_;
};

// Holds the mutex for its scope. unlock()/lock() in between are allowed (a
// condition variable does that while it waits).
class VH_SCOPED_CAPABILITY VHMutexLock {
  public:
    explicit VHMutexLock(VHMutex& mutex) VH_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~VHMutexLock() VH_RELEASE() {
        if (held_) mutex_.unlock();
    }
    VHMutexLock(const VHMutexLock&) = delete;
    VHMutexLock& operator=(const VHMutexLock&) = delete;

    void lock() VH_ACQUIRE() {
        mutex_.lock();
        held_ = true;
    }
    void unlock() VH_RELEASE() {
        held_ = false;
        mutex_.unlock();
    }

  private:
    VHMutex& mutex_;
    bool held_ = true;
};

}  // namespace vh
