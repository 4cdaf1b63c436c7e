// The read side of the download queue: ranges the drive is waiting for.
#include <algorithm>
#include <chrono>
#include <thread>

#include "lib/VHLog.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

using Clock = std::chrono::steady_clock;

// Between attempts of a failed read: short at first, never long, so that a
// server that fails now and then costs a read little.
constexpr std::chrono::milliseconds kFirstRetryDelay{100};
constexpr std::chrono::milliseconds kLongestRetryDelay{1000};

// Answers that say nothing about the range itself: the next request may get it.
bool isPassing(long status) {
    return status == 408 || status == 429 || status >= 500;
}

}  // namespace

std::optional<std::string> VHDownloadQueue::downloadChunk(int64_t offset, uint64_t size,
                                                          const VHFile& requested,
                                                          const std::string& path) {
    VHFile file = requested;
    if (!VHDatabase::database().shareWithId(file.shareId)) repairShare(file, path);
    if (offset < 0 || file.fileSize < static_cast<uint64_t>(offset)) return std::nullopt;
    VHByteRange range{static_cast<uint64_t>(offset),
                      std::min(size, file.fileSize - static_cast<uint64_t>(offset))};
    if (range.length == 0) return std::string();

    Clock::time_point deadline =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(
                           std::chrono::duration<double>(kReadWaitSeconds));
    std::chrono::milliseconds delay = kFirstRetryDelay;
    while (true) {
        if (auto bytes = VHFileCache::fileCache().getChunk(offset, range.length, file)) {
            return bytes;
        }
        ReadAttempt attempt = fetchRange(file, range, deadline);
        if (attempt.data || !attempt.retryable) return std::move(attempt.data);
        if (Clock::now() + delay >= deadline) return std::nullopt;
        std::this_thread::sleep_for(delay);
        delay = std::min(delay * 2, kLongestRetryDelay);
    }
}

VHDownloadQueue::ReadAttempt VHDownloadQueue::fetchRange(const VHFile& file, VHByteRange range,
                                                         Clock::time_point deadline) {
    Task task = queueRead(file, range);
    scheduleCheckDownloads();
    task->waitForCompletion(deadline);
    VHMutexLock lock(readMutex_);
    deleteCompletedTask(task);
    return {std::move(task->data), task->isCompleted && task->retryable};
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
    uint64_t length = std::max(readLength(file, location), task->range.length);
    if (location + length > file.fileSize) length = file.fileSize - location;
    connection->range = {location, length};
    connection->data.reserve(length);

    std::optional<VHHttpRequest> request = downloadRequestForFile(file, connection->range);
    if (!request || !multi_) {
        readEnded(*connection, false);
        scheduleCheckDownloads();
        return;
    }
    startConnection(connection, *request);
}

uint64_t VHDownloadQueue::readLength(const VHFile& file, uint64_t location) {
    uint64_t prefix = VHFileCache::fileCache().availableDataForFile(file);
    VHMutexLock lock(readMutex_);
    int& fetches = filesStatus_[file.internalName].prefixFetches;
    fetches = prefix == location ? fetches + 1 : 0;
    // Past a gap in the cache read ahead: the bytes serve only this file's
    // readers, so a bigger bite saves round trips.
    if (prefix < location) return 4 * recommendedChunkSize;
    // A reader going on from the prefix is reading the file through: after
    // two plain bites each round trip brings twice as much, up to a limit
    // that bounds the memory a connection holds.
    int doublings = std::min(fetches - 2, kReadAheadDoublings);
    return doublings > 0 ? recommendedChunkSize << doublings : recommendedChunkSize;
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

void VHDownloadQueue::readEnded(VHDownloadConnection& connection, bool mayPass) {
    VHFileDownloadTask& task = *connection.task;
    VHMutexLock lock(readMutex_);
    if (runningTasks_ > 0) --runningTasks_;
    filesStatus_[task.file.internalName].downloadingChunk = false;
    if (task.isCompleted) return;
    // Ended without its own task's bytes: the reader decides whether to ask again.
    task.isCompleted = true;
    task.retryable = mayPass;
    task.signalCompleted();
}

bool VHDownloadQueue::readFailureMayPass(const VHDownloadConnection& connection,
                                         const VHHttpResponse& response) {
    if (response.error) return true;
    long status = connection.responceCode ? connection.responceCode : response.status;
    return status == 200 || isPassing(status);  // a 200 that ended short
}

}  // namespace vh
