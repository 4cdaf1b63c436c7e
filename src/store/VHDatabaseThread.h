// The database thread: a QThread with its own event loop on which every
// change of the metadata database runs, one job after another in the order
// they were handed over (first in, first out).
#pragma once

#include <QThread>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>

namespace vh {

class VHDatabaseThread {
  public:
    VHDatabaseThread();
    // Stops the event loop and waits for the thread.
    ~VHDatabaseThread();
    VHDatabaseThread(const VHDatabaseThread&) = delete;
    VHDatabaseThread& operator=(const VHDatabaseThread&) = delete;

    bool isCurrent() const { return QThread::currentThread() == &thread_; }

    // Runs `fn` on the database thread and returns its result; the caller
    // blocks until then. On the database thread itself `fn` runs at once.
    template <typename Fn>
    auto run(Fn&& fn) -> std::invoke_result_t<Fn&> {
        using Result = std::invoke_result_t<Fn&>;
        if constexpr (std::is_void_v<Result>) {
            runBlocking([&] { fn(); });
        } else {
            std::optional<Result> result;
            runBlocking([&] { result.emplace(fn()); });
            return std::move(*result);
        }
    }

    // Queues `fn` behind everything handed over so far and returns at once,
    // also on the database thread.
    void post(std::function<void()> fn);

  private:
    void runBlocking(const std::function<void()>& fn);

    QThread thread_;
    QObject* context_;  // lives on thread_; the target of hand-overs
};

}  // namespace vh
