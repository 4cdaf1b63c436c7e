// Work handed to another thread through Qt (a queued or blocking
// invokeMethod, QThreadPool::start).
//
// Qt is not built with ThreadSanitizer, so the queues it hands work through
// are invisible to it, and everything the sender wrote before handing over
// would be reported as a race with the receiver. VHHandOff wraps such a job so
// that the sender's past happens before the job; VHHandOffBlocking also makes
// the job happen before the sender goes on. VHStartThread and VHWaitForThread
// do the same for a thread's end and its waiter. In other builds they cost
// nothing.
#pragma once

#include <QThread>
#include <QThreadPool>
#include <utility>

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VH_TSAN 1
#endif
#endif
#if defined(__SANITIZE_THREAD__) && !defined(VH_TSAN)
#define VH_TSAN 1
#endif

#ifdef VH_TSAN
extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);
#endif

namespace vh {

inline void VHHappensBefore([[maybe_unused]] void* token) {
#ifdef VH_TSAN
    __tsan_release(token);
#endif
}

inline void VHHappensAfter([[maybe_unused]] void* token) {
#ifdef VH_TSAN
    __tsan_acquire(token);
#endif
}

// Every hand-off releases and acquires one clock: the job must not read
// anything of its own (not even a token it carries) before it has acquired,
// and Qt may have moved it meanwhile. One clock orders more than needed,
// which can hide a race but never reports a false one.
inline void* VHHandOffClock() {
    static char clock;
    return &clock;
}

// For a job posted and not waited for, or waited for with VHWaitForPool.
template <typename Job>
auto VHHandOff(Job job) {
#ifdef VH_TSAN
    VHHappensBefore(VHHandOffClock());
    return [job = std::move(job)]() mutable {
        VHHappensAfter(VHHandOffClock());
        job();
        VHHappensBefore(VHHandOffClock());
    };
#else
    return job;
#endif
}

// Runs `post(wrapped)`, where `post` runs the wrapped job on another thread
// and returns once it has run.
template <typename Job, typename Post>
void VHHandOffBlocking(Job& job, Post post) {
    VHHappensBefore(VHHandOffClock());
    post([&job] {
        VHHappensAfter(VHHandOffClock());
        job();
        VHHappensBefore(VHHandOffClock());
    });
    VHHappensAfter(VHHandOffClock());
}

// Starts `thread`, so that what it did before finishing happens before
// whatever follows VHWaitForThread on it.
inline void VHStartThread(QThread& thread) {
    QObject::connect(
        &thread, &QThread::finished, &thread, [&thread] { VHHappensBefore(&thread); },
        Qt::DirectConnection);
    thread.start();
}

inline void VHWaitForThread(QThread& thread) {
    thread.wait();
    VHHappensAfter(&thread);
}

// Waits for every job of `pool`, which were handed over with VHHandOff.
inline void VHWaitForPool(QThreadPool& pool) {
    pool.waitForDone();
    VHHappensAfter(VHHandOffClock());
}

}  // namespace vh
