// The changes waiting for the database thread, run in groups: whenever the
// thread gets to them it takes every change queued so far and runs them in
// queue order inside one transaction, so that one commit (one sync of the
// log) serves them all, the way LevelDB's write path bundles its writers.
#pragma once

#include <functional>
#include <future>
#include <vector>

#include "lib/VHThreadSafety.h"
#include "store/VHFilesTable.h"

namespace vh {

class VHDatabaseThread;

class VHWriteQueue {
  public:
    using Job = std::function<void(VHFilesTable&)>;
    // Runs the jobs of one group on the database thread; whether they
    // committed.
    using GroupRunner = std::function<bool(const std::vector<Job*>& jobs)>;

    VHWriteQueue(VHDatabaseThread& thread, GroupRunner runGroup)
        : thread_(thread), runGroup_(std::move(runGroup)) {}

    // Queues `job` and blocks until its group is over; whether the group
    // committed. Any thread but the database thread (which would wait for
    // itself).
    bool run(Job job) VH_EXCLUDES(mutex_);

  private:
    struct Waiter {
        Job job;
        std::promise<bool> committed;
    };

    void runQueued() VH_EXCLUDES(mutex_);  // database thread

    VHDatabaseThread& thread_;
    GroupRunner runGroup_;
    VHMutex mutex_;
    std::vector<Waiter*> queued_ VH_GUARDED_BY(mutex_);
    bool drainPosted_ VH_GUARDED_BY(mutex_) = false;
};

}  // namespace vh
