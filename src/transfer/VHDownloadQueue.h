// Fetches file contents from the service's file cache into the content cache.
//
// Two kinds of demand: reads (the drive needs a range now and blocks for at
// most 7 s) and whole-file downloads (files kept locally: asked for from the
// file manager at high priority, or in synchronized folders at normal
// priority). Every connection runs on the download thread, a QThread whose
// event loop drives one VHHttpMulti, and hands its bytes to the cache as they
// arrive. A scheduler on that thread (every 3 s, and at once when asked)
// starts at most one read connection per file and five in all, and at most
// five whole-file connections, high priority first.
//
// One process-wide instance (downloadQueue()). Every public method may be
// called from any thread but the download thread itself (downloadChunk
// blocks). Signals are emitted on the download thread with no lock held;
// VHFile is a registered metatype, so queued connections work.
//
// Locks: readMutex_ (reads) and downloadMutex_ (whole-file downloads) are
// never held together; either may be held while taking the cache's lock or a
// task's own lock, which are leaves. syncedMutex_ is a leaf. No lock of this
// class is held across a database call, a signal, a libcurl call or a wait
// for another thread.
#pragma once

#include <QObject>
#include <QThread>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lib/VHHttp.h"
#include "lib/VHThreadSafety.h"
#include "store/VHFile.h"
#include "store/VHLoginRecords.h"
#include "transfer/VHByteRange.h"
#include "transfer/VHDownloadConnection.h"
#include "transfer/VHFileDownloadStatus.h"
#include "transfer/VHFileDownloadTask.h"
#include "transfer/VHFileMetaType.h"

class QTimer;

namespace vh {

class VHDownloadQueue : public QObject {
    Q_OBJECT
  public:
    // A read at the cached prefix fetches this much; beyond it, four times as much.
    static constexpr uint64_t recommendedChunkSize = 262144;
    static constexpr uint64_t kMaxReadConnections = 5;
    // A sequential reader's bites grow to recommendedChunkSize << this (8 MiB).
    static constexpr int kReadAheadDoublings = 5;
    static constexpr uint64_t kMaxFileDownloads = 5;
    static constexpr double kReadWaitSeconds = 7.0;

    // Made on first use; lives until the process ends.
    static VHDownloadQueue& downloadQueue();
    // Test-only: stops the thread, waits for the global thread pool and drops
    // the instance; the next downloadQueue() makes a fresh one. No reader may
    // be waiting.
    static void resetForTests();

    // Starts the download thread (once). 5 s later the hourly expiry of old
    // downloads and a check of automatic downloads begin. Work queued before
    // waits for the thread. The thread ends by itself once the database is
    // terminating.
    void runThread();
    // Ends the thread now and waits for it; running connections are dropped
    // and waiting readers run into their limit. Call it before the process
    // exits. The thread cannot be started again.
    void stopThread();

    // ---- Reads (drive threads) ------------------------------------------

    // The bytes [offset, offset + size) cut to the file's end: from the cache,
    // else from the network within 7 s. A request that fails for a reason
    // that may pass (no answer, a server error, a short answer) is asked
    // again after a short pause, 0.1 s at first and doubling up to 1 s, while
    // the 7 s last. Empty at the end of the file (without a request); nothing
    // past it, on time-out or once the service refused the range. A file
    // whose share is unknown is moved to the share that `path` (its drive
    // path) lies in.
    std::optional<std::string> downloadChunk(int64_t offset, uint64_t size, const VHFile& file,
                                             const std::string& path);

    // ---- Whole-file downloads --------------------------------------------

    void downloadFileManually(const VHFile& file);       // high priority
    void downloadFileAutomatically(const VHFile& file);  // normal priority
    // downloadFileManually unless the file is downloaded already.
    void downloadFileViaMenu(const VHFile& file);
    // downloadFileViaMenu for every file below the folder / in the share.
    void downloadFolder(const VHFile& folder);
    void downloadShare(const ManagedShare& share);
    // A queued download is dropped at once; a running one stops at its next
    // bytes and ends as failed.
    void cancelFileDownload(const VHFile& file);
    // Cancels every task, reads included (logout).
    void cancelAllDownloads();
    // While paused no whole-file download starts (those running finish);
    // reads for the drive go on. Resuming schedules a check at once.
    void setPaused(bool paused);
    bool paused() const { return paused_; }

    // ---- Questions (file manager overlays, progress display) --------------

    // Empty, complete in the cache, or ignored by the name rules and never
    // uploaded (nothing to fetch).
    bool isFileDownloaded(const VHFile& file);
    // With `rightNow` false: the file has been read through the network;
    // true: a read connection for it is running. False without an uploadName.
    bool isFileDownloading(const VHFile& file, bool rightNow);
    // A whole-file download of it is queued or running.
    bool isFileInQueue(const VHFile& file);
    // Bytes of the queued whole-file downloads not yet received.
    uint64_t queueBytes();
    // Entries of the two whole-file lists.
    uint64_t queueLen();

    // ---- Synchronized folders ----------------------------------------------

    // Queues every not yet downloaded file of the synchronized folders and
    // shares (found in the background).
    void checkAutomaticDownloads();
    // Whether `path` is the drive path of a synchronized folder or share
    // (exact match).
    bool pathIsSynchronized(const std::string& path);
    // After a folder's mark changed: queue what is below it, or cancel those
    // downloads and clear the marks below it.
    void refreshSyncStatus(const VHFile& folder);
    void refreshShareSyncStatus(const ManagedShare& share);
    // Stores the mark of a folder (internalName) or share (ShareId).
    void changeSycStatus(const std::string& itemId, bool synced);
    // Rebuilds the drive paths of the marked folders and shares.
    void updateSyncedPathes();
    // A whole-file download is queued for something below `path`.
    bool pathHasDownloads(const std::string& path);

    // ---- Expiry of downloads --------------------------------------------------

    // Deletes downloads older than `hours`; -1 takes the setting
    // "storeDownloadedFiles" (days; -1, the default, keeps them; 0 is 4 hours).
    // Files in synchronized folders are kept. Blocks on the database.
    void checkDownloadsToDelete(int64_t hours);

    // Runs the scheduler on the download thread as soon as it can.
    void scheduleCheckDownloads();

  signals:
    // A whole-file connection started.
    void fileDownloadStarted(const VHFile& file);
    // 0 when the service answered 200, then every 64 KiB and 1 % received.
    void fileDownloadProgress(const VHFile& file, qint64 progress);
    // A whole-file download ended; `error` on failure or cancellation.
    void fileDownloadFinished(const VHFile& file, bool error);

  private:
    using Task = std::shared_ptr<VHFileDownloadTask>;
    using Connection = std::shared_ptr<VHDownloadConnection>;

    // What one request for a reader's range gave.
    struct ReadAttempt {
        std::optional<std::string> data;
        bool retryable = false;  // nothing, but asking again may help
    };

    VHDownloadQueue();
    ~VHDownloadQueue() override;

    // Download thread.
    void threadStarted();
    // Drops the connections and ends the thread's event loop.
    void endThread();
    void schedulerTick();
    void performCheckDownloadsToDelete();
    void checkDownloads();
    std::vector<Task> readTasksToStart() VH_EXCLUDES(readMutex_);
    std::vector<Task> fileTasksToStart(std::vector<Task>& alreadyDownloaded)
        VH_EXCLUDES(downloadMutex_);
    // Starts or skips one list's tasks.
    void takeFileTasks(std::vector<Task>& list, std::vector<Task>& toStart,
                       std::vector<Task>& alreadyDownloaded) VH_REQUIRES(downloadMutex_);
    void processDownloadTask(const Task& task);
    void processFileDownloadTask(const Task& task);
    std::optional<VHHttpRequest> downloadRequestForFile(const VHFile& file, VHByteRange range);
    void startConnection(const Connection& connection, const VHHttpRequest& request);

    // Connection callbacks (download thread).
    void connectionResponded(VHDownloadConnection& connection, long status);
    bool connectionReceived(VHDownloadConnection& connection, std::string_view bytes);
    void connectionFinished(VHDownloadConnection& connection, const VHHttpResponse& response);
    // How much a read connection starting at `location` asks for.
    uint64_t readLength(const VHFile& file, uint64_t location) VH_EXCLUDES(readMutex_);
    void deliverReads(const VHDownloadConnection& connection) VH_EXCLUDES(readMutex_);
    bool fileBytesReceived(VHDownloadConnection& connection, uint64_t length)
        VH_EXCLUDES(downloadMutex_);
    // Ends a read connection; a reader still waiting for its task wakes up
    // without bytes, told whether asking again may help.
    void readEnded(VHDownloadConnection& connection, bool mayPass) VH_EXCLUDES(readMutex_);
    static bool readFailureMayPass(const VHDownloadConnection& connection,
                                   const VHHttpResponse& response);
    void fileFinished(VHDownloadConnection& connection) VH_EXCLUDES(downloadMutex_);
    void fileFailed(VHDownloadConnection& connection, const std::string& error)
        VH_EXCLUDES(downloadMutex_);

    // Reads.
    void repairShare(VHFile& file, const std::string& path);
    // One request for the range: queues a task and waits for it until `deadline`.
    ReadAttempt fetchRange(const VHFile& file, VHByteRange range,
                           std::chrono::steady_clock::time_point deadline) VH_EXCLUDES(readMutex_);
    Task queueRead(const VHFile& file, VHByteRange range) VH_EXCLUDES(readMutex_);
    void deleteCompletedTask(const Task& task) VH_REQUIRES(readMutex_);

    // Whole-file downloads.
    void downloadFile(const VHFile& file, bool highPriority) VH_EXCLUDES(downloadMutex_);
    // Harmless when the task is gone already. `task` is a copy: the caller's
    // reference may be the very entry this removes.
    void deleteCompletedFileDownload(Task task) VH_REQUIRES(downloadMutex_);

    // Synchronized folders.
    void queueNotDownloaded(const std::vector<VHFile>& items);
    void refreshSiblings(bool synchronized, const std::vector<VHFile>& items);

    VHMutex readMutex_;
    std::vector<Task> downloadTasks_ VH_GUARDED_BY(readMutex_);
    std::unordered_map<std::string, VHFileDownloadStatus> filesStatus_ VH_GUARDED_BY(readMutex_);
    uint64_t runningTasks_ VH_GUARDED_BY(readMutex_) = 0;

    VHMutex downloadMutex_;
    std::vector<Task> fileDownloads_ VH_GUARDED_BY(downloadMutex_);
    std::vector<Task> priorityFileDownloads_ VH_GUARDED_BY(downloadMutex_);
    std::unordered_map<std::string, Task> allFileDownloads_ VH_GUARDED_BY(downloadMutex_);
    uint64_t runningFileDownloads_ VH_GUARDED_BY(downloadMutex_) = 0;
    uint64_t downloadFileBytes_ VH_GUARDED_BY(downloadMutex_) = 0;
    uint64_t partiallyDownloadedBytes_ VH_GUARDED_BY(downloadMutex_) = 0;

    VHMutex syncedMutex_;
    std::set<std::string> syncedFolders_ VH_GUARDED_BY(syncedMutex_);

    // The thread and the objects that live on it; made by the constructor.
    std::unique_ptr<QThread> thread_;
    QObject* context_ = nullptr;    // deleted when the thread ends
    VHHttpMulti* multi_ = nullptr;  // child of context_
    QTimer* scheduler_ = nullptr;   // child of context_
    std::once_flag started_;
    std::atomic<bool> checkPending_{false};
    std::atomic<bool> paused_{false};
};

}  // namespace vh
