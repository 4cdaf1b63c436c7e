// One local change of one item sent to the service's file-cache API: a new
// folder, a deletion, a rename or move, a lock change, or a file's contents
// (an event, then the bytes in chunks to the upload URL it returns).
//
// run() does the whole job on the calling thread, a thread of the upload
// queue's pool: the HTTP calls are synchronous on that thread's own libcurl
// handle, and a failed attempt waits there for its next try (5 s to 30 min,
// see VHFailedUploadInfo) unless cancelled. cancel() may be called from any
// thread. The delegate is told the end exactly once (finished, failed, or
// ended without result when cancelled or when the application terminates).
//
// Locks: waitMutex_ is a leaf, held only to wait or to cancel.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "lib/VHHttp.h"
#include "lib/VHThreadSafety.h"
#include "store/VHFile.h"
#include "store/VHLoginRecords.h"
#include "transfer/VHFailedUploadInfo.h"
#include "transfer/VHNewAPIRecords.h"

namespace vh {

class VHUploadOperation;

// What an operation reports. Called on the operation's thread with no lock
// of the operation held.
class VHUploadOperationDelegate {
  public:
    virtual ~VHUploadOperationDelegate() = default;
    // The three progress notices of a file's contents.
    virtual void noteUploadStarted(const VHFile& file) = 0;
    virtual void noteUploadProgress(const VHFile& file, int64_t progress) = 0;
    virtual void noteUploadFinished(const VHFile& file, bool error) = 0;
    // The service refused a lock change because somebody else holds the lock.
    virtual void lockRefused(const std::string& message) = 0;
    // The content generation of the item now (see VHUploadQueue).
    virtual uint64_t contentGeneration(const std::string& internalName) = 0;
    // The service took the change; `journal` is the event it recorded, if
    // it returned one.
    virtual void uploadFinished(VHUploadOperation& operation,
                                const std::optional<VHNewAPIRecordedEvent>& journal) = 0;
    // Every try failed.
    virtual void uploadFailed(VHUploadOperation& operation) = 0;
};

// Request time-outs of a chunk PUT: the first, the raise after each
// time-out, and the ceiling of the raises.
struct VHChunkTimeouts {
    double initial = 60;
    double raise = 30;
    double ceiling = 150;
};

class VHUploadOperation {
  public:
    static constexpr int64_t kFirstChunkSize = 262144;
    static constexpr int64_t kMinChunkSize = 131072;
    static constexpr int64_t kMaxChunkSize = 2097152;
    // Files above this size keep their upload status across restarts.
    static constexpr int64_t kResumableSize = 524288;
    static constexpr int kMaxRetransmits = 19;

    enum class Outcome { Finished, Failed, Cancelled, Interrupted };

    // `file` is the item as queued; `forceMetadataChange` sends a rename or
    // lock change whatever the item's stored status (a rename that arrived
    // while an earlier operation of the item ran). The delegate must outlive
    // the operation.
    VHUploadOperation(VHFile file, VHUploadOperationDelegate* delegate,
                      bool forceMetadataChange = false);

    // Runs every try; returns how it ended (Failed: given up).
    Outcome run();
    // Any thread. The running try stops at its next step; a waiting one
    // wakes. The item's "finished" notice then carries an error.
    void cancel() VH_EXCLUDES(waitMutex_);
    bool isCancelled() const { return cancelled_.load(); }

    // The item as queued (never changes).
    const VHFile& file() const { return file_; }
    // The item as the current try sends it; its content generation at the
    // start of that try. Set on the operation's thread before the delegate
    // is told anything.
    const VHFile& sentFile() const { return sent_; }
    uint64_t generation() const { return generation_; }
    bool sentContents() const { return sentContents_; }

    void setChunkTimeouts(VHChunkTimeouts timeouts) { timeouts_ = timeouts; }
    // Sends only a rename, to `name` in the item's folder: a stopgap that
    // frees the item's old name on the service for another item.
    void setInterimName(std::string name) { interimName_ = std::move(name); }
    const std::string& interimName() const { return interimName_; }

  private:
    struct Result {
        Outcome outcome = Outcome::Failed;
        std::optional<VHNewAPIRecordedEvent> journal;
    };
    struct ChunkLoop;

    // One try: chooses the work from the item's stored state.
    Result upload();
    Result newFileApiCreateFolder(const ManagedShare& share);
    Result newFileApiDelete(const ManagedShare& share);
    Result newFileApiRename(const ManagedShare& share);
    Result newFileApiLock(const ManagedShare& share);
    Result newFileApiUpload(const ManagedShare& share);
    // Sends an event without contents and finishes with the recorded event.
    Result sendItemEvent(const ManagedShare& share, int32_t type, const char* failureText);

    std::optional<VHNewAPIJournalEvent> createNewAPIEventForFile(int32_t type);
    // Posts the event and judges the status by type; the parsed answer
    // whenever it could be parsed.
    std::optional<VHNewAPIResponce> sendNewFileApiRequest(const VHNewAPIJournalEvent& event,
                                                          const ManagedShare& share);
    void judgeStatus(int32_t type, const VHHttpResponse& response, const VHNewAPIResponce& parsed);

    // Contents.
    std::optional<VHFileUploadStatus> resumableStatus();
    std::optional<Result> beginUpload(const ManagedShare& share, VHFileUploadStatus& status);
    int openFileForReading();
    Result sendChunks(int fd, VHFileUploadStatus& status);
    Result contentFailure();
    Result uploadCancelled();

    // Waits until `when` or cancellation; false when cancelled.
    bool waitUntil(VHDate when) VH_EXCLUDES(waitMutex_);

    const VHFile file_;
    VHUploadOperationDelegate* const delegate_;
    const bool forceMetadataChange_;
    std::string interimName_;
    VHFile sent_;
    uint64_t generation_ = 0;
    bool sentContents_ = false;
    // The service does not know the item: the next try creates it.
    bool forceCreate_ = false;
    std::optional<VHFailedUploadInfo> failureInfo_;
    VHChunkTimeouts timeouts_;
    std::atomic<bool> cancelled_{false};
    VHMutex waitMutex_;
    std::condition_variable_any wake_;
};

// SHA-256 of a file's bytes in lower-case hex, read in blocks; empty when it
// cannot be read.
std::string VHFileSha256(const std::string& path);

}  // namespace vh
