// Sends the local changes recorded in the metadata database to the service.
//
// The database is the queue's memory: an item keeps its pending status
// (created, modified, changed) until an upload of it is confirmed, so nothing
// here is saved; the upload thread finds the work again by polling every 3 s
// (pages of 20, at most 20 items taken per pass). Each taken item becomes a
// VHUploadOperation run on the upload pool, at most 5 at once; an operation
// for an item renamed while an earlier one of it runs waits for that one.
//
// Content generations: the drive calls noteContentChanged() for a file before
// it records new contents. An upload of contents is confirmed only while the
// generation it started with is current and the row still has the size and
// time it sent; otherwise the row stays modified and another upload follows,
// so the service always ends with the last local bytes.
//
// One process-wide instance (uploadQueue()). Every public method may be
// called from any thread; none waits for the network. Signals are emitted on
// pool threads with no lock held (VHFile is a registered metatype).
//
// Locks: mutex_ is a leaf (an operation's own wait lock is never taken under
// it); it is never held across a database call, a signal, a libcurl call or
// a wait for another thread.
#pragma once

#include <QObject>
#include <QString>
#include <QThread>
#include <QThreadPool>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "lib/VHThreadSafety.h"
#include "store/VHFile.h"
#include "store/VHStoreHooks.h"
#include "transfer/VHFileMetaType.h"
#include "transfer/VHUploadOperation.h"
#include "transfer/VHUploadOrder.h"

class QTimer;

namespace vh {

class VHUploadQueue : public QObject, public VHUploadHooks, private VHUploadOperationDelegate {
    Q_OBJECT
  public:
    static constexpr int kPageSize = 20;
    static constexpr int kMaxAcceptedPerPass = 20;
    static constexpr int kMaxOperations = 5;
    static constexpr int kPollMilliseconds = 3000;

    // Made on first use; lives until the process ends.
    static VHUploadQueue& uploadQueue();
    // Test-only: stops the thread, cancels and waits for every operation and
    // drops the instance; the next uploadQueue() makes a fresh one.
    static void resetForTests();

    // Starts the upload thread once and becomes the store's upload queue.
    // The thread polls until the database is terminating.
    void runThread();
    // Cancels every operation, waits for them and ends the thread. The
    // thread cannot be started again.
    void stopThread();

    // Whether the drive lets a file be uploaded now (false while it is open
    // for writing). Until set, every file may be uploaded.
    void setUploadPermission(std::function<bool(const VHFile&)> canUploadFile);
    // A file's contents are about to change (call before the new size and
    // time are recorded in the store).
    void noteContentChanged(const std::string& internalName) VH_EXCLUDES(mutex_);

    // ---- VHUploadHooks (the store) ----------------------------------------

    // Schedules a polling pass on the upload thread at once.
    void uploadsAdded() override;
    // Takes one item; whether it was accepted (or is already on its way).
    bool upload(const VHFile& file) override VH_EXCLUDES(mutex_);
    // Cancels every operation of the item.
    void cancelUpload(const VHFile& file) override VH_EXCLUDES(mutex_);
    bool existsOperationOnFileWithInternalName(const std::string& internalName) override
        VH_EXCLUDES(mutex_);
    bool uploadUnconfirmed(const VHFile& file) override VH_EXCLUDES(mutex_);
    void confirmUpload(const VHFile& file) override VH_EXCLUDES(mutex_);

    // ---- Questions and commands -------------------------------------------

    void cancelAllUploads() VH_EXCLUDES(mutex_);
    // While paused no item is taken; pausing cancels the running operations
    // (a large file resumes where it stopped), resuming polls at once.
    void setPaused(bool paused) VH_EXCLUDES(mutex_);
    bool paused() const { return paused_; }
    // One polling pass (normally on the upload thread).
    void checkUploads();
    // The store's uploadsSize and uploadsNumber.
    int64_t queueBytes();
    int64_t queueLen();
    bool hasUploads();
    // A file with a change not yet confirmed by the service.
    bool isFileInUploadQueue(const VHFile& file) VH_EXCLUDES(mutex_);
    // Whether the folder at drive path `path` (or one below it) holds
    // created or modified items.
    bool pathHasUploads(const std::string& path);
    // Operations queued or running.
    size_t operationCount() VH_EXCLUDES(mutex_);

    // Test-only: time-outs for the chunk PUTs of operations made from now on.
    void setChunkTimeoutsForTesting(VHChunkTimeouts timeouts) { chunkTimeouts_ = timeouts; }

  signals:
    // "VHNotificationFileUploadStarted": `total` and `queued` are the
    // store's uploadsSize and uploadsNumber.
    void fileUploadStarted(const VHFile& file, qint64 total, qint64 queued);
    // "VHNotificationFileUploadProgress": bytes the service holds.
    void fileUploadProgress(const VHFile& file, qint64 progress);
    // "VHNotificationFileUploadFinished": `error` when cancelled or failed.
    void fileUploadFinished(const VHFile& file, bool error);
    // A lock change was refused; the text to show the user.
    void lockAlert(const QString& message);

  private:
    using Operation = std::shared_ptr<VHUploadOperation>;
    struct Entry {
        Operation operation;
        Operation predecessor;  // runs first; null when none
        bool started = false;
    };

    enum class Taken { Accepted, Refused, Waiting };

    VHUploadQueue();
    ~VHUploadQueue() override;

    Taken take(const VHFile& queued) VH_EXCLUDES(mutex_);
    bool shouldProcessUpload(const VHFile& file) VH_EXCLUDES(mutex_);
    bool sameAsUnconfirmed(const VHFile& file) VH_EXCLUDES(mutex_);
    // An operation with an interim name leaves the item pending and unconfirmed.
    void addToQueue(const VHFile& file, Operation predecessor, bool forceMetadataChange,
                    const std::string& interimName = {}) VH_REQUIRES(mutex_);
    void startReady() VH_REQUIRES(mutex_);
    void runOperation(const Operation& operation);
    void operationEnded(const Operation& operation, VHUploadOperation::Outcome outcome)
        VH_EXCLUDES(mutex_);
    bool hasDependent(const VHUploadOperation& operation) VH_EXCLUDES(mutex_);
    // Whether the stored row is still what the finished operation sent.
    bool contentsStillCurrent(const VHUploadOperation& operation, bool checkPlace)
        VH_EXCLUDES(mutex_);
    void logSummary();
    void endThread();

    // VHUploadOperationDelegate (pool threads).
    void noteUploadStarted(const VHFile& file) override;
    void noteUploadProgress(const VHFile& file, int64_t progress) override;
    void noteUploadFinished(const VHFile& file, bool error) override;
    void lockRefused(const std::string& message) override;
    uint64_t contentGeneration(const std::string& internalName) override VH_EXCLUDES(mutex_);
    void uploadFinished(VHUploadOperation& operation,
                        const std::optional<VHNewAPIRecordedEvent>& journal) override;
    void uploadFailed(VHUploadOperation& operation) override VH_EXCLUDES(mutex_);

    VHMutex mutex_;
    std::vector<Entry> operations_ VH_GUARDED_BY(mutex_);
    // internalName -> the item as last handed to an operation.
    std::map<std::string, VHFile> unconfirmedUploads_ VH_GUARDED_BY(mutex_);
    std::map<std::string, uint64_t> generations_ VH_GUARDED_BY(mutex_);
    bool stopped_ VH_GUARDED_BY(mutex_) = false;
    std::function<bool(const VHFile&)> canUploadFile_ VH_GUARDED_BY(mutex_);

    QThreadPool pool_;
    std::unique_ptr<QThread> thread_;
    QObject* context_ = nullptr;  // lives on thread_
    QTimer* poller_ = nullptr;    // child of context_
    std::once_flag started_;
    VHChunkTimeouts chunkTimeouts_;
    std::atomic<int64_t> lastSummary_{0};
    std::atomic<bool> paused_{false};
    VHUploadOrder order_{
        [this](const std::string& id) { return existsOperationOnFileWithInternalName(id); }};
};

}  // namespace vh
