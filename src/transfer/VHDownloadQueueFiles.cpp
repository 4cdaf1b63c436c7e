// The whole-file side of the download queue: files kept locally.
#include <QString>
#include <algorithm>

#include "lib/VHLog.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHTransferHooks.h"

namespace vh {

namespace {

constexpr uint64_t kProgressStep = 65536;
constexpr uint64_t kSpeedSampleSize = 65536;

}  // namespace

void VHDownloadQueue::downloadFileManually(const VHFile& file) {
    downloadFile(file, true);
}

void VHDownloadQueue::downloadFileAutomatically(const VHFile& file) {
    downloadFile(file, false);
}

void VHDownloadQueue::downloadFileViaMenu(const VHFile& file) {
    if (!isFileDownloaded(file)) downloadFileManually(file);
}

void VHDownloadQueue::downloadFolder(const VHFile& folder) {
    for (const VHFile& file :
         VHDatabase::database().allFolderSiblings(folder.internalName, false)) {
        downloadFileViaMenu(file);
    }
}

void VHDownloadQueue::downloadShare(const ManagedShare& share) {
    for (const VHFile& file : VHDatabase::database().allShareSiblings(share.shareId(), false)) {
        downloadFileViaMenu(file);
    }
}

void VHDownloadQueue::downloadFile(const VHFile& file, bool highPriority) {
    {
        VHMutexLock lock(downloadMutex_);
        auto it = allFileDownloads_.find(file.internalName);
        if (it != allFileDownloads_.end()) {
            Task task = it->second;
            if (!highPriority || task->isStarted || task->priority != 0) return;
            // Its priority stays 0, so asking again appends it again; the
            // scheduler skips the second entry once the first has started.
            priorityFileDownloads_.push_back(task);
            auto normal = std::find(fileDownloads_.begin(), fileDownloads_.end(), task);
            if (normal != fileDownloads_.end()) fileDownloads_.erase(normal);
            return;
        }
        auto task = std::make_shared<VHFileDownloadTask>(file, VHByteRange{0, file.fileSize}, true);
        task->priority = highPriority ? 1 : 0;
        (highPriority ? priorityFileDownloads_ : fileDownloads_).push_back(task);
        allFileDownloads_[file.internalName] = task;
        downloadFileBytes_ += file.fileSize;
    }
    scheduleCheckDownloads();
}

void VHDownloadQueue::cancelFileDownload(const VHFile& file) {
    VHMutexLock lock(downloadMutex_);
    auto it = allFileDownloads_.find(file.internalName);
    if (it == allFileDownloads_.end()) return;
    if (it->second->isStarted) {
        it->second->cancel = true;  // honoured at the connection's next bytes
    } else {
        deleteCompletedFileDownload(it->second);
    }
}

void VHDownloadQueue::setPaused(bool paused) {
    if (paused_.exchange(paused) == paused || paused) return;
    scheduleCheckDownloads();
}

void VHDownloadQueue::cancelAllDownloads() {
    {
        VHMutexLock lock(downloadMutex_);
        for (const Task& task : priorityFileDownloads_) task->cancel = true;
        for (const Task& task : fileDownloads_) task->cancel = true;
    }
    VHMutexLock lock(readMutex_);
    for (const Task& task : downloadTasks_) task->cancel = true;
}

void VHDownloadQueue::deleteCompletedFileDownload(Task task) {
    // Every entry goes: a task asked for twice stands twice in the high list.
    std::erase(priorityFileDownloads_, task);
    std::erase(fileDownloads_, task);
    auto it = allFileDownloads_.find(task->file.internalName);
    if (it == allFileDownloads_.end() || it->second != task) return;
    allFileDownloads_.erase(it);
    downloadFileBytes_ -= std::min(downloadFileBytes_, task->file.fileSize);
}

std::vector<VHDownloadQueue::Task> VHDownloadQueue::fileTasksToStart(
    std::vector<Task>& alreadyDownloaded) {
    std::vector<Task> toStart;
    if (paused_) return toStart;
    VHMutexLock lock(downloadMutex_);
    takeFileTasks(priorityFileDownloads_, toStart, alreadyDownloaded);
    takeFileTasks(fileDownloads_, toStart, alreadyDownloaded);
    return toStart;
}

void VHDownloadQueue::takeFileTasks(std::vector<Task>& list, std::vector<Task>& toStart,
                                    std::vector<Task>& alreadyDownloaded) {
    size_t index = 0;
    while (index < list.size() && runningFileDownloads_ < kMaxFileDownloads) {
        Task task = list[index];
        if (task->isStarted) {
            ++index;
        } else if (task->cancel || isFileDownloaded(task->file)) {
            // Completed meanwhile (read through the drive, say): nothing to fetch.
            if (!task->cancel) alreadyDownloaded.push_back(task);
            deleteCompletedFileDownload(task);  // the walk stays at this index
        } else {
            task->isStarted = true;
            ++runningFileDownloads_;
            toStart.push_back(task);
            ++index;
        }
    }
}

void VHDownloadQueue::processFileDownloadTask(const Task& task) {
    auto connection = std::make_shared<VHDownloadConnection>();
    connection->task = task;
    connection->range = task->range;
    std::optional<VHHttpRequest> request = downloadRequestForFile(task->file, task->range);
    if (!request || !multi_) {
        fileFailed(*connection, "no request could be made");
        scheduleCheckDownloads();
        return;
    }
    emit fileDownloadStarted(task->file);
    connection->startTime = VHDate::now();
    startConnection(connection, *request);
}

bool VHDownloadQueue::fileBytesReceived(VHDownloadConnection& connection, uint64_t length) {
    const VHFile& file = connection.task->file;
    bool cancelled = false;
    bool progress = false;
    {
        VHMutexLock lock(downloadMutex_);
        partiallyDownloadedBytes_ += length;
        if (connection.task->cancel) {
            if (runningFileDownloads_ > 0) --runningFileDownloads_;
            partiallyDownloadedBytes_ -= std::min(partiallyDownloadedBytes_, connection.received);
            deleteCompletedFileDownload(connection.task);
            cancelled = true;
        } else {
            uint64_t step = connection.received - connection.lastProgress;
            progress = step > kProgressStep && step > file.fileSize / 100;
        }
    }
    if (cancelled) {
        VHLog(kLogMain, "File %@ download canceled.", file.publicName);
        emit fileDownloadFinished(file, true);
        scheduleCheckDownloads();
        return false;  // ends the transfer without further callbacks
    }
    if (progress) {
        connection.lastProgress = connection.received;
        emit fileDownloadProgress(file, static_cast<qint64>(connection.received));
    }
    return true;
}

void VHDownloadQueue::fileFinished(VHDownloadConnection& connection) {
    const VHFile& file = connection.task->file;
    bool ok = connection.responceCode == 200;
    {
        VHMutexLock lock(downloadMutex_);
        if (runningFileDownloads_ > 0) --runningFileDownloads_;
        deleteCompletedFileDownload(connection.task);
        partiallyDownloadedBytes_ -= std::min(partiallyDownloadedBytes_, connection.received);
    }
    if (!ok) {
        VHLog(kLogMain, "File %@ download responce code %d, error message %@.", file.publicName,
              connection.responceCode, QString::fromUtf8(connection.data).toStdString());
        emit fileDownloadFinished(file, true);
        return;
    }
    double speed = VHTransferSpeeds::lastDownloadSpeed;
    if (speed < 0.1 || file.fileSize >= kSpeedSampleSize) {
        double seconds = std::max(-connection.startTime.timeIntervalSinceNow(), 0.001);
        VHTransferSpeeds::lastDownloadSpeed = static_cast<double>(file.fileSize) / seconds;
    }
    VHLog(kLogMain, "File %@ download finished.", file.publicName);
    emit fileDownloadFinished(file, false);
}

void VHDownloadQueue::fileFailed(VHDownloadConnection& connection, const std::string& error) {
    const VHFile& file = connection.task->file;
    VHLog(kLogMain, "File %@ download failed with error: %@", file.publicName, error);
    {
        VHMutexLock lock(downloadMutex_);
        if (runningFileDownloads_ > 0) --runningFileDownloads_;
        deleteCompletedFileDownload(connection.task);
        partiallyDownloadedBytes_ -= std::min(partiallyDownloadedBytes_, connection.received);
    }
    emit fileDownloadFinished(file, true);
}

}  // namespace vh
