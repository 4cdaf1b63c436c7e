// One demand on the download queue: a byte range that a reader is waiting
// for, or a whole file to keep locally. Shared between the queue, the reader
// and the connection that serves it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <optional>
#include <string>

#include "lib/VHThreadSafety.h"
#include "store/VHFile.h"
#include "transfer/VHByteRange.h"

namespace vh {

class VHFileDownloadTask {
  public:
    // Nothing delivered, every flag false, priority 0.
    VHFileDownloadTask(const VHFile& file, VHByteRange range, bool isFileDownload = false);
    VHFileDownloadTask(const VHFileDownloadTask&) = delete;
    VHFileDownloadTask& operator=(const VHFileDownloadTask&) = delete;

    const VHFile file;
    const VHByteRange range;  // (0, fileSize) for a whole-file download
    const bool isFileDownload;

    // Guarded by the queue's mutex of the task's kind: the read mutex for
    // reads, the download mutex for whole-file downloads.
    std::optional<std::string> data;  // a read's bytes, once delivered
    bool isStarted = false;
    bool isCompleted = false;  // delivered, or ended without bytes
    // A read that ended without bytes for a reason that may pass (no answer,
    // a server error, a short answer): asking again may help.
    bool retryable = false;
    int32_t priority = 0;  // 1 when queued as high priority
    bool cancel = false;

    // Wakes the waiting reader. Takes only the task's own lock (a leaf).
    void signalCompleted() VH_EXCLUDES(mutex_);
    // Blocks until signalCompleted() or the deadline; true when signalled.
    bool waitForCompletion(std::chrono::steady_clock::time_point deadline) VH_EXCLUDES(mutex_);

  private:
    VHMutex mutex_;
    std::condition_variable_any completed_;
    bool signalled_ VH_GUARDED_BY(mutex_) = false;
};

}  // namespace vh
