#include "transfer/VHFileDownloadTask.h"

namespace vh {

VHFileDownloadTask::VHFileDownloadTask(const VHFile& file, VHByteRange range, bool isFileDownload)
    : file(file), range(range), isFileDownload(isFileDownload) {}

void VHFileDownloadTask::signalCompleted() {
    {
        std::lock_guard lock(mutex_);
        signalled_ = true;
    }
    completed_.notify_all();
}

bool VHFileDownloadTask::waitForCompletion(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    return completed_.wait_until(lock, deadline, [this] { return signalled_; });
}

}  // namespace vh
