// The upload thread and its polling pass: which pending items are taken.
#include "transfer/VHUploadQueue.h"

#include <QTimer>
#include <chrono>
#include <cstdio>

#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "store/VHDatabase.h"
#include "transfer/VHTransferHooks.h"

namespace vh {

namespace {

constexpr int64_t kSummaryEverySeconds = 10;

VHMutex gInstanceMutex;
std::atomic<VHUploadQueue*> gInstance{nullptr};

// The system console of the original platform: standard error.
void printToConsole(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
}

int64_t steadySeconds() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

VHUploadQueue& VHUploadQueue::uploadQueue() {
    if (VHUploadQueue* queue = gInstance.load(std::memory_order_acquire)) return *queue;
    VHMutexLock lock(gInstanceMutex);
    if (!gInstance.load(std::memory_order_relaxed)) {
        gInstance.store(new VHUploadQueue, std::memory_order_release);
    }
    return *gInstance.load(std::memory_order_relaxed);
}

void VHUploadQueue::resetForTests() {
    VHMutexLock lock(gInstanceMutex);
    VHUploadQueue* queue = gInstance.exchange(nullptr);
    if (!queue) return;
    queue->stopThread();
    delete queue;
}

VHUploadQueue::VHUploadQueue() : thread_(std::make_unique<QThread>()) {
    qRegisterMetaType<VHFile>();
    pool_.setMaxThreadCount(kMaxOperations);
    thread_->setObjectName("upload");
    context_ = new QObject;
    poller_ = new QTimer(context_);
    poller_->setInterval(kPollMilliseconds);
    context_->moveToThread(thread_.get());
    connect(thread_.get(), &QThread::started, context_, [this] {
        checkUploads();
        poller_->start();
    });
    connect(poller_, &QTimer::timeout, context_, [this] {
        if (VHDatabase::database().terminating()) {
            endThread();
            return;
        }
        checkUploads();
    });
}

VHUploadQueue::~VHUploadQueue() {
    stopThread();
    delete context_;  // its thread has ended (or never ran)
}

void VHUploadQueue::runThread() {
    std::call_once(started_, [this] {
        VHStoreHooks::setUploads(this);
        thread_->start();
    });
}

void VHUploadQueue::stopThread() {
    {
        VHMutexLock lock(mutex_);
        stopped_ = true;
    }
    if (&VHStoreHooks::uploads() == this) VHStoreHooks::setUploads(nullptr);
    cancelAllUploads();
    pool_.waitForDone();
    if (thread_->isRunning()) {
        QMetaObject::invokeMethod(
            context_, [this] { endThread(); }, Qt::QueuedConnection);
        thread_->wait();
    }
}

void VHUploadQueue::endThread() {
    poller_->stop();
    thread_->quit();
}

void VHUploadQueue::setUploadPermission(std::function<bool(const VHFile&)> canUploadFile) {
    VHMutexLock lock(mutex_);
    canUploadFile_ = std::move(canUploadFile);
}

void VHUploadQueue::uploadsAdded() {
    QMetaObject::invokeMethod(
        context_, [this] { checkUploads(); }, Qt::QueuedConnection);
}

void VHUploadQueue::setPaused(bool paused) {
    if (paused_.exchange(paused) == paused) return;
    if (paused) {
        cancelAllUploads();
    } else {
        uploadsAdded();
    }
}

void VHUploadQueue::checkUploads() {
    VHDatabase& db = VHDatabase::database();
    if (paused_ || !db.loaded() || db.terminating()) return;
    int accepted = 0;
    for (int64_t index = 0; accepted < kMaxAcceptedPerPass; index += kPageSize) {
        std::vector<VHFile> page = db.uploadsFromIndex(index, kPageSize);
        for (const VHFile& file : page) {
            if (accepted >= kMaxAcceptedPerPass) break;
            Taken taken = take(file);
            if (taken == Taken::Accepted) {
                ++accepted;
            } else if (taken == Taken::Refused) {
                printToConsole(VHFormat("upload refused for file %@", file.publicName));
            }
        }
        if (page.size() < static_cast<size_t>(kPageSize)) break;
    }
    logSummary();
}

bool VHUploadQueue::upload(const VHFile& queued) {
    if (paused_) return false;  // stays pending until resumed
    return take(queued) == Taken::Accepted;
}

VHUploadQueue::Taken VHUploadQueue::take(const VHFile& queued) {
    VHFile file = queued;
    VHDatabase& db = VHDatabase::database();
    // The service is told of a deletion whatever name hid the item last
    // (a file deleted while open goes under a ".fuse_hidden" name).
    bool deletesKnownItem = file.deleted && db.fileWithId(file.internalName, true);
    if (VHIsPathIgnored(file.publicName) && !deletesKnownItem) return Taken::Refused;
    if (!shouldProcessUpload(file)) return Taken::Refused;
    VHUploadOrder::Verdict verdict = order_.verdict(file);
    if (verdict.kind == VHUploadOrder::Kind::Wait) return Taken::Waiting;
    if (!db.shareWithId(file.shareId)) {
        if (!file.parentShareId.empty()) {
            db.updateFileWithId(file.internalName, file.parentShareId, "");
            file.shareId = file.parentShareId;
            file.parentShareId.clear();
        } else {
            printToConsole("no share found!");
        }
    }
    VHMutexLock lock(mutex_);
    if (stopped_) return Taken::Refused;
    printToConsole(VHFormat("^^^^^ UPLOAD id = %@, name = %@, shareId = %@, parentId = %@",
                            file.internalName, file.publicName, file.shareId, file.parentId));
    Operation last;
    for (const Entry& entry : operations_) {
        const VHFile& other = entry.operation->file();
        if (other.internalName != file.internalName) continue;
        // After an interim rename the order is judged again.
        if (!entry.operation->interimName().empty()) return Taken::Accepted;
        if (other.publicName == file.publicName && other.parentId == file.parentId) {
            return Taken::Accepted;
        }
        last = entry.operation;
    }
    if (verdict.kind == VHUploadOrder::Kind::Interim && !last) {
        addToQueue(file, nullptr, true, verdict.interimName);
        return Taken::Accepted;
    }
    if (!last) {
        addToQueue(file, nullptr, false);
        return Taken::Accepted;
    }
    // Renamed or moved while an upload of it runs: the rename follows it.
    file.status = kStatusChanged;
    addToQueue(file, last, true);
    return Taken::Accepted;
}

bool VHUploadQueue::shouldProcessUpload(const VHFile& file) {
    if (file.shareId == kTempShareId || sameAsUnconfirmed(file)) return false;
    VHDatabase& db = VHDatabase::database();
    if (file.isFile && file.status == kStatusChanged && !file.deleted) {
        std::optional<VHFile> shadow = db.fileWithId(file.internalName, true);
        if (shadow && shadow->publicName == file.publicName && shadow->parentId == file.parentId &&
            shadow->isLocked == file.isLocked) {
            return false;
        }
    }
    std::optional<ManagedShare> share = db.shareWithId(file.shareId);
    bool topLevel = file.parentId == file.shareId || (share && file.parentId == share->shareId());
    if (!topLevel && !db.fileWithId(file.parentId)) {
        std::string text = VHFormat("Warning! Cannot find parent with id %@ for file upload: %@",
                                    file.parentId, file.publicName);
        VHLog(kLogMain, "%@", text);
        printToConsole(text);
        return false;
    }
    if (file.isFile && !file.deleted) {
        std::function<bool(const VHFile&)> canUpload;
        {
            VHMutexLock lock(mutex_);
            canUpload = canUploadFile_;
        }
        if (canUpload && !canUpload(file)) return false;
    }
    return true;
}

int64_t VHUploadQueue::queueBytes() {
    return VHDatabase::database().uploadsSize();
}

int64_t VHUploadQueue::queueLen() {
    return VHDatabase::database().uploadsNumber();
}

bool VHUploadQueue::hasUploads() {
    return queueLen() > 0;
}

bool VHUploadQueue::pathHasUploads(const std::string& path) {
    VHDatabase& db = VHDatabase::database();
    for (const std::string& folderId : db.foldersWithUploads()) {
        std::string folderPath;
        if (std::optional<VHFile> folder = db.fileWithId(folderId)) {
            folderPath = db.fullFilePath(*folder);
        } else if (std::optional<ManagedShare> share = db.shareWithId(folderId)) {
            folderPath = "/" + share->displayName();
        }
        if (folderPath.empty()) continue;
        if (folderPath == path || folderPath.rfind(path + "/", 0) == 0) return true;
    }
    return false;
}

void VHUploadQueue::logSummary() {
    if (operationCount() == 0) return;
    int64_t now = steadySeconds();
    if (now - lastSummary_.load() < kSummaryEverySeconds) return;
    lastSummary_ = now;
    std::string line =
        VHFormat("Uploads pending: %ld files, %ld bytes, last speed %ld bytes/s", queueLen(),
                 queueBytes(), static_cast<int64_t>(VHTransferSpeeds::lastUploadSpeed.load()));
    VHLog(kLogMain, "%@", line);
    printToConsole(line);
}

}  // namespace vh
