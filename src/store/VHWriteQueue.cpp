#include "store/VHWriteQueue.h"

#include "store/VHDatabaseThread.h"

namespace vh {

bool VHWriteQueue::run(Job job) {
    Waiter waiter{std::move(job), {}};
    std::future<bool> committed = waiter.committed.get_future();
    bool post = false;
    {
        VHMutexLock lock(mutex_);
        queued_.push_back(&waiter);
        post = !drainPosted_;
        drainPosted_ = true;
    }
    if (post) thread_.post([this] { runQueued(); });
    return committed.get();
}

void VHWriteQueue::runQueued() {
    std::vector<Waiter*> group;
    {
        VHMutexLock lock(mutex_);
        group.swap(queued_);
        drainPosted_ = false;
    }
    std::vector<Job*> jobs;
    jobs.reserve(group.size());
    for (Waiter* waiter : group) jobs.push_back(&waiter->job);
    bool committed = runGroup_(jobs);
    for (Waiter* waiter : group) waiter->committed.set_value(committed);
}

}  // namespace vh
