// Work handed to another thread through Qt (a queued or blocking
// invokeMethod, QThreadPool::start).
//
// Qt is not built with ThreadSanitizer, so the queues it hands work through
// are invisible to it, and everything the sender wrote before handing over
// would be reported as a race with the receiver. VHHandOff wraps such a job so
// that the sender's past happens before the job; VHHandOffBlocking also makes
// the job happen before the sender goes on. In other builds they cost nothing.
#pragma once

#include <memory>
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

// For a job posted and not waited for.
template <typename Job>
auto VHHandOff(Job job) {
#ifdef VH_TSAN
    auto token = std::make_shared<char>();
    VHHappensBefore(token.get());
    return [token, job = std::move(job)]() mutable {
        VHHappensAfter(token.get());
        job();
    };
#else
    return job;
#endif
}

// Runs `post(wrapped)`, where `post` runs the wrapped job on another thread
// and returns once it has run.
template <typename Job, typename Post>
void VHHandOffBlocking(Job& job, Post post) {
    char token = 0;
    VHHappensBefore(&token);
    post([&] {
        VHHappensAfter(&token);
        job();
        VHHappensBefore(&token);
    });
    VHHappensAfter(&token);
}

}  // namespace vh
