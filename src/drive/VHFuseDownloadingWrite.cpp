#include "drive/VHFuseDownloadingWrite.h"

#include <cerrno>
#include <chrono>
#include <string_view>
#include <thread>

#include "lib/VHLog.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(20);

// One attempt at the partial copy: written, failed, or nothing yet.
std::optional<int> writeIntoPrefix(const VHFile& file, std::string_view data, off_t offset) {
    // A range that reaches the end is written once the copy is complete.
    if (static_cast<uint64_t>(offset) + data.size() >= file.fileSize) return std::nullopt;
    int error = 0;
    switch (VHFileCache::fileCache().writeIntoPrefix(data, offset, file, error)) {
        case VHFileCache::PrefixWrite::kWritten:
            return static_cast<int>(data.size());
        case VHFileCache::PrefixWrite::kFailed:
            return -error;
        case VHFileCache::PrefixWrite::kNotPresent:
            break;
    }
    return std::nullopt;
}

}  // namespace

std::optional<int> VHWriteWhileDownloading(const VHFile& file, const char* buffer, size_t size,
                                           off_t offset, const std::string& path) {
    VHDownloadQueue& queue = VHDownloadQueue::downloadQueue();
    if (queue.isFileDownloaded(file)) return std::nullopt;
    VHLog(kLogDrive, "%s:%@ waits for the file's download", "varnholt_write", path);
    queue.downloadFileManually(file);
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration<double>(VHDownloadQueue::kReadWaitSeconds);
    std::string_view data(buffer, size);
    for (;;) {
        if (queue.isFileDownloaded(file)) return std::nullopt;
        if (std::optional<int> written = writeIntoPrefix(file, data, offset)) return written;
        if (std::chrono::steady_clock::now() >= deadline) break;
        std::this_thread::sleep_for(kPollInterval);
    }
    VHLog(kLogDrive, "%s:%@ failed : the file did not arrive in time", "varnholt_write", path);
    return -EIO;
}

}  // namespace vh
