#include "transfer/VHDownloadQueue.h"

#include <QThreadPool>
#include <QTimer>

#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "store/VHDatabase.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHNewAPI.h"
#include "transfer/VHTransferHooks.h"

namespace vh {

namespace {

constexpr int kSchedulerPeriodMs = 3000;
constexpr int kFirstChecksDelayMs = 5000;

VHMutex gInstanceMutex;
std::atomic<VHDownloadQueue*> gInstance{nullptr};

}  // namespace

VHDownloadQueue& VHDownloadQueue::downloadQueue() {
    if (VHDownloadQueue* queue = gInstance.load(std::memory_order_acquire)) return *queue;
    VHMutexLock lock(gInstanceMutex);
    if (!gInstance.load(std::memory_order_relaxed)) {
        gInstance.store(new VHDownloadQueue, std::memory_order_release);
    }
    return *gInstance.load(std::memory_order_relaxed);
}

void VHDownloadQueue::resetForTests() {
    VHMutexLock lock(gInstanceMutex);
    VHDownloadQueue* queue = gInstance.exchange(nullptr);
    if (!queue) return;
    queue->stopThread();
    // Background scans of synchronized folders and expiry hold `queue`.
    VHWaitForPool(*QThreadPool::globalInstance());
    delete queue;
}

VHDownloadQueue::VHDownloadQueue() : thread_(std::make_unique<QThread>()) {
    qRegisterMetaType<VHFile>();
    thread_->setObjectName("download");
    context_ = new QObject;
    multi_ = new VHHttpMulti(context_);
    scheduler_ = new QTimer(context_);
    scheduler_->setInterval(kSchedulerPeriodMs);
    context_->moveToThread(thread_.get());
    connect(thread_.get(), &QThread::started, context_, [this] { threadStarted(); });
    connect(scheduler_, &QTimer::timeout, context_, [this] { schedulerTick(); });
}

VHDownloadQueue::~VHDownloadQueue() {
    stopThread();
    delete context_;  // its thread has ended (or never ran)
}

void VHDownloadQueue::runThread() {
    std::call_once(started_, [this] { VHStartThread(*thread_); });
}

void VHDownloadQueue::stopThread() {
    if (!thread_->isRunning()) return;
    QMetaObject::invokeMethod(context_, VHHandOff([this] { endThread(); }), Qt::QueuedConnection);
    VHWaitForThread(*thread_);
}

void VHDownloadQueue::threadStarted() {
    scheduler_->start();
    QTimer::singleShot(kFirstChecksDelayMs, context_, [this] {
        performCheckDownloadsToDelete();
        QThreadPool::globalInstance()->start(VHHandOff([this] { checkAutomaticDownloads(); }));
    });
}

void VHDownloadQueue::endThread() {
    scheduler_->stop();
    delete multi_;  // drops the running transfers without callbacks
    multi_ = nullptr;
    thread_->quit();
}

void VHDownloadQueue::schedulerTick() {
    if (VHDatabase::database().terminating()) {
        endThread();
        return;
    }
    checkDownloads();
}

void VHDownloadQueue::scheduleCheckDownloads() {
    // One posted check serves every request made before it runs.
    if (checkPending_.exchange(true)) return;
    QMetaObject::invokeMethod(
        context_,
        VHHandOff([this] {
            checkPending_ = false;
            if (!multi_) return;
            scheduler_->start();
            checkDownloads();
        }),
        Qt::QueuedConnection);
}

void VHDownloadQueue::checkDownloads() {
    for (const Task& task : readTasksToStart()) processDownloadTask(task);
    std::vector<Task> alreadyDownloaded;
    for (const Task& task : fileTasksToStart(alreadyDownloaded)) processFileDownloadTask(task);
    for (const Task& task : alreadyDownloaded) emit fileDownloadFinished(task->file, false);
}

std::optional<VHHttpRequest> VHDownloadQueue::downloadRequestForFile(const VHFile& file,
                                                                     VHByteRange range) {
    std::optional<ManagedShare> share = VHDatabase::database().shareForFile(file);
    std::optional<UserDomain> domain;
    if (share) domain = VHTransferHooks::get().userDomainWithId(share->DomainId.value_or(""));
    if (!domain) {
        VHLog(kLogMain, "Warning! No share or user domain to download file %@ from.",
              file.publicName);
        return std::nullopt;
    }
    return VHNewAPI::newApiDownloadRequestForFile(file, range, *share, *domain);
}

void VHDownloadQueue::startConnection(const Connection& connection, const VHHttpRequest& request) {
    VHHttpMulti::Handlers handlers;
    handlers.onResponse = [this, connection](long status, const VHHttpHeaders&) {
        connectionResponded(*connection, status);
    };
    handlers.onData = [this, connection](std::string_view bytes) {
        return connectionReceived(*connection, bytes);
    };
    handlers.onFinished = [this, connection](VHHttpResponse response) {
        connectionFinished(*connection, response);
    };
    multi_->start(request, std::move(handlers));
}

void VHDownloadQueue::connectionResponded(VHDownloadConnection& connection, long status) {
    connection.responceCode = static_cast<int32_t>(status);
    if (!connection.task->isFileDownload) return;
    if (status == 200) {
        emit fileDownloadProgress(connection.task->file, 0);
    } else {
        connection.data.clear();  // collects the error answer
    }
}

bool VHDownloadQueue::connectionReceived(VHDownloadConnection& connection, std::string_view bytes) {
    const VHFileDownloadTask& task = *connection.task;
    bool ok = connection.responceCode == 200;
    if (!task.isFileDownload || !ok) connection.data.append(bytes);
    if (ok) {
        VHFileCache::fileCache().addChunk(bytes, connection.range.location + connection.received,
                                          task.file);
        connection.received += bytes.size();
    }
    if (task.isFileDownload) return fileBytesReceived(connection, ok ? bytes.size() : 0);
    deliverReads(connection);
    return true;
}

void VHDownloadQueue::connectionFinished(VHDownloadConnection& connection,
                                         const VHHttpResponse& response) {
    bool failed = static_cast<bool>(response.error);
    if (!connection.task->isFileDownload) {
        readEnded(connection, readFailureMayPass(connection, response));
    } else if (failed) {
        fileFailed(connection, response.error.message);
    } else {
        fileFinished(connection);
    }
    scheduleCheckDownloads();
}

bool VHDownloadQueue::isFileDownloaded(const VHFile& file) {
    // An ignored name that the service holds contents of (".profile", "...")
    // is fetched like any other; only one that never left this machine has
    // nothing to fetch.
    bool localOnly = VHIsPathIgnored(file.publicName) && file.uploadName.empty();
    return localOnly || file.fileSize == 0 || VHFileCache::fileCache().hasCompleteCache(file);
}

bool VHDownloadQueue::isFileDownloading(const VHFile& file, bool rightNow) {
    if (file.uploadName.empty()) return false;
    VHMutexLock lock(readMutex_);
    auto it = filesStatus_.find(file.internalName);
    if (it == filesStatus_.end()) return false;
    return !rightNow || it->second.downloadingChunk;
}

bool VHDownloadQueue::isFileInQueue(const VHFile& file) {
    if (file.uploadName.empty()) return false;
    VHMutexLock lock(downloadMutex_);
    return allFileDownloads_.contains(file.internalName);
}

uint64_t VHDownloadQueue::queueBytes() {
    VHMutexLock lock(downloadMutex_);
    return downloadFileBytes_ > partiallyDownloadedBytes_
               ? downloadFileBytes_ - partiallyDownloadedBytes_
               : 0;
}

uint64_t VHDownloadQueue::queueLen() {
    VHMutexLock lock(downloadMutex_);
    return fileDownloads_.size() + priorityFileDownloads_.size();
}

}  // namespace vh
