// The read side of the download queue: ranges the drive is waiting for.
#include <algorithm>
#include <chrono>

#include "lib/VHLog.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"

namespace vh {

std::optional<std::string> VHDownloadQueue::downloadChunk(int64_t offset, uint64_t size,
                                                          const VHFile& requested,
                                                          const std::string& path) {
    VHFile file = requested;
    if (!VHDatabase::database().shareWithId(file.shareId)) repairShare(file, path);
    if (offset < 0 || file.fileSize < static_cast<uint64_t>(offset)) return std::nullopt;
    VHByteRange range{static_cast<uint64_t>(offset),
                      std::min(size, file.fileSize - static_cast<uint64_t>(offset))};
    if (range.length == 0) return std::string();
    if (auto bytes = VHFileCache::fileCache().getChunk(offset, range.length, file)) return bytes;

    Task task = queueRead(file, range);
    scheduleCheckDownloads();
    auto waitFor = std::chrono::duration<double>(kReadWaitSeconds);
    task->waitForCompletion(
        std::chrono::steady_clock::now() +
        std::chrono::duration_cast<std::chrono::steady_clock::duration>(waitFor));
    VHMutexLock lock(readMutex_);
    deleteCompletedTask(task);
    return std::move(task->data);
}

void VHDownloadQueue::repairShare(VHFile& file, const std::string& path) {
    VHDatabase& db = VHDatabase::database();
    std::optional<ManagedShare> share = db.metadataStorage().shareWithFilePath(path);
    if (!share) return;
    file.shareId = share->shareId();
    VHFileCache::fileCache().deleteFileCache(file);
    db.updateFileWithId(file.internalName, file.shareId, "");
}

VHDownloadQueue::Task VHDownloadQueue::queueRead(const VHFile& file, VHByteRange range) {
    auto task = std::make_shared<VHFileDownloadTask>(file, range);
    VHMutexLock lock(readMutex_);
    VHFileDownloadStatus& status = filesStatus_[file.internalName];
    status.file = file;
    status.lastRead = VHDate::now();
    ++status.reads;
    if (range.location != static_cast<uint64_t>(status.readFromBeginning)) {
        status.nonSequentialReads = true;
    }
    downloadTasks_.push_back(task);
    return task;
}

void VHDownloadQueue::deleteCompletedTask(const Task& task) {
    auto it = std::find(downloadTasks_.begin(), downloadTasks_.end(), task);
    if (it != downloadTasks_.end()) downloadTasks_.erase(it);
}

std::vector<VHDownloadQueue::Task> VHDownloadQueue::readTasksToStart() {
    std::vector<Task> toStart;
    VHMutexLock lock(readMutex_);
    for (const Task& task : downloadTasks_) {
        if (runningTasks_ >= kMaxReadConnections) break;
        if (task->isCompleted) continue;
        // Reads of one file queue behind its running connection.
        VHFileDownloadStatus& status = filesStatus_[task->file.internalName];
        if (status.downloadingChunk) continue;
        status.downloadingChunk = true;
        ++runningTasks_;
        task->isStarted = true;
        toStart.push_back(task);
    }
    return toStart;
}

void VHDownloadQueue::processDownloadTask(const Task& task) {
    auto connection = std::make_shared<VHDownloadConnection>();
    connection->task = task;
    connection->startTime = VHDate::now();
    const VHFile& file = task->file;
    uint64_t location = task->range.location;
    // Past a gap in the cache read ahead: the bytes serve only this file's
    // readers, so a bigger bite saves round trips.
    bool beyondPrefix = VHFileCache::fileCache().availableDataForFile(file) < location;
    uint64_t length = beyondPrefix ? 4 * recommendedChunkSize : recommendedChunkSize;
    length = std::max(length, task->range.length);
    if (location + length > file.fileSize) length = file.fileSize - location;
    connection->range = {location, length};
    connection->data.reserve(length);

    std::optional<VHHttpRequest> request = downloadRequestForFile(file, connection->range);
    if (!request || !multi_) {
        readEnded(*connection);
        scheduleCheckDownloads();
        return;
    }
    startConnection(connection, *request);
}

void VHDownloadQueue::deliverReads(const VHDownloadConnection& connection) {
    VHByteRange received{connection.range.location, connection.received};
    const std::string& name = connection.task->file.internalName;
    VHMutexLock lock(readMutex_);
    for (const Task& task : downloadTasks_) {
        if (task->isCompleted || task->file.internalName != name) continue;
        if (!received.contains(task->range)) continue;
        task->data =
            connection.data.substr(task->range.location - received.location, task->range.length);
        task->isCompleted = true;
        task->signalCompleted();
    }
}

void VHDownloadQueue::readEnded(VHDownloadConnection& connection) {
    VHMutexLock lock(readMutex_);
    if (runningTasks_ > 0) --runningTasks_;
    filesStatus_[connection.task->file.internalName].downloadingChunk = false;
    // A connection that ends without its own task's bytes (failure, an error
    // status, a short answer) is not repeated: that reader runs into its limit.
    connection.task->isCompleted = true;
}

}  // namespace vh
