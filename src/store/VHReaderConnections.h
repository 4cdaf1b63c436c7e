// One read-only connection of files.db per thread that reads, so that a
// reader waits neither for the database thread nor for other readers. Each
// caches its own prepared statements.
//
// A connection is opened on a thread's first read. close() closes them all (a
// connection in use is closed as soon as its read is over) and makes later
// reads open new ones to the path of the next open(). A thread's connection
// is dropped after the thread ends (FUSE threads come and go): its slot is
// marked abandoned, and the next thread that takes a slot closes it.
//
// Thread-safe. Lock order: a slot's lock and the registry's lock are never
// held together. The registry must outlive every thread that read through it
// (the store's is never destroyed).
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "lib/VHSqlite.h"
#include "lib/VHThreadSafety.h"

namespace vh {

class VHReaderConnections {
  public:
    // Connections open `path` from now on.
    void open(const std::string& path) VH_EXCLUDES(mutex_);
    // Closes every connection; until the next open() none is made.
    void close() VH_EXCLUDES(mutex_);

    // Runs `body(VHSqlite*)` on this thread's connection, opened when needed;
    // the pointer is null when none is open or it cannot be opened.
    template <typename Body>
    auto run(Body&& body) VH_EXCLUDES(mutex_);

    // Threads that hold a slot (tests).
    size_t slotCount() const VH_EXCLUDES(mutex_);

  private:
    struct Slot {
        VHMutex mutex;
        VHSqlite connection VH_GUARDED_BY(mutex);
        uint64_t generation VH_GUARDED_BY(mutex) = 0;
        // Set by the thread's end; the thread may outlive the registry, so it
        // touches nothing else of it.
        std::atomic<bool> abandoned = false;
    };
    struct Target {
        uint64_t generation;
        std::shared_ptr<const std::string> path;  // null: closed
    };
    class ThreadSlots;

    std::shared_ptr<Slot> slotOfThisThread() VH_EXCLUDES(mutex_);
    Target target() const VH_EXCLUDES(mutex_);
    static VHSqlite* connect(Slot& slot, const Target& target) VH_REQUIRES(slot.mutex);

    mutable VHMutex mutex_;
    uint64_t generation_ VH_GUARDED_BY(mutex_) = 1;
    std::shared_ptr<const std::string> path_ VH_GUARDED_BY(mutex_);
    std::set<std::shared_ptr<Slot>> slots_ VH_GUARDED_BY(mutex_);
};

template <typename Body>
auto VHReaderConnections::run(Body&& body) {
    std::shared_ptr<Slot> slot = slotOfThisThread();
    Target wanted = target();
    VHMutexLock lock(slot->mutex);
    return body(connect(*slot, wanted));
}

}  // namespace vh
