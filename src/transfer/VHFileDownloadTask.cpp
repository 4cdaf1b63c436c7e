#include "transfer/VHFileDownloadTask.h"

namespace vh {

VHFileDownloadTask::VHFileDownloadTask(const VHFile& file, VHByteRange range, bool isFileDownload)
    : file(file), range(range), isFileDownload(isFileDownload) {}

void VHFileDownloadTask::signalCompleted() {
    {
        VHMutexLock lock(mutex_);
        signalled_ = true;
    }
    completed_.notify_all();
}

bool VHFileDownloadTask::waitForCompletion(std::chrono::steady_clock::time_point deadline) {
    VHMutexLock lock(mutex_);
    while (!signalled_) {
        if (completed_.wait_until(lock, deadline) == std::cv_status::timeout) return signalled_;
    }
    return true;
}

}  // namespace vh
