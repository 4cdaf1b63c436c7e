// The drive's table of open files and recent modifications.
//
// One VHFuseFileData per open of a file, stored in the FUSE handle. The
// table answers the upload queue's question whether a file has settled
// (canUploadFile), runs the delayed update check that wakes the upload queue
// 3 s after a change, and lists the open files for the quit check.
//
// Locks, in this order: a handle's I/O lock (opening its cache descriptor and
// the open-and-write sequence of a write), the class lock (the open list, the
// modification times, the scheduled flag), a handle's field lock. Only the
// I/O lock is held while calling out of the drive (the store, during a write).
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "drive/VHFuseHandle.h"
#include "lib/VHDate.h"
#include "lib/VHThreadSafety.h"
#include "store/VHFile.h"
#include "store/VHStoreHooks.h"

namespace vh {

class VHFuseFileData : public VHFuseHandle {
  public:
    // A file is settled once its last change is more than this old.
    static constexpr double kQuietSeconds = 5.0;
    static constexpr int kUpdateCheckDelayMs = 3000;

    // Registers itself in the open list. `openProcess` is the requesting
    // process (-1 when unknown).
    VHFuseFileData(int openFlags, int fileDescriptor, pid_t openProcess);
    ~VHFuseFileData() override;

    // Removes the handle from the open list, records the modification time of
    // a modified file, and closes the cache descriptor.
    void close() VH_EXCLUDES(mutex_);

    int openFlags() const { return openFlags_; }
    pid_t openProcess() const { return openProcess_; }
    std::string fileId() const VH_EXCLUDES(mutex_);
    void setFileId(const std::string& id) VH_EXCLUDES(mutex_);
    bool modified() const VH_EXCLUDES(mutex_);
    VHDate lastWrite() const VH_EXCLUDES(mutex_);
    // After a successful write: modified, last write now.
    void markWritten() VH_EXCLUDES(mutex_);
    bool needsUpdate() const VH_EXCLUDES(mutex_);
    void setNeedsUpdate(bool needsUpdate) VH_EXCLUDES(mutex_);

    // The handle's I/O lock: held while the cache descriptor is opened and
    // for the whole open-and-write sequence of a write.
    VHMutex& ioMutex() VH_RETURN_CAPABILITY(ioMutex_) { return ioMutex_; }
    // The cache descriptor (-1 until the first read or write opens it).
    int fileDescriptor() const VH_EXCLUDES(mutex_);
    // The cache descriptor, made by `open` (a descriptor, or -errno) when the
    // handle has none yet and kept until close. Concurrent reads and writes
    // through one handle thus open the cache copy once.
    int cacheDescriptor(const std::function<int()>& open) VH_REQUIRES(ioMutex_) VH_EXCLUDES(mutex_);

    // A read that came back empty from the network. The kernel asks again at
    // once for the page it needed, which would wait out the download limit a
    // second time; that one repeat, inside the failed range, fails at once.
    void noteFailedRead(off_t offset, size_t size) VH_EXCLUDES(mutex_);
    // True (and forgotten) when [offset, offset + size) lies in the noted range.
    bool takeFailedRead(off_t offset, size_t size) VH_EXCLUDES(mutex_);

    // "file: %@, fd: %d, modified: %d, lastWrite: %@"
    std::string description() const VH_EXCLUDES(mutex_);

    // ---- The table (any thread) ---------------------------------------------
    // A snapshot of the open handles, in order of opening.
    static std::vector<VHFuseFileData*> openedFiles();
    // Some handle has the file open.
    static bool isOpen(const std::string& fileId);
    // Whether the kernel may keep the pages it cached of the file at an
    // earlier open: only while the contents are the ones it saw then (same
    // upload, size, time and state). A change made elsewhere while the file
    // was open, or in the same second with the same size, drops them here.
    static bool keepsKernelPages(const VHFile& file);
    // While the file is open: its drive path is invalidated in the kernel
    // when the last handle closes (true). False when it is not open.
    static bool invalidateWhenClosed(const std::string& fileId, const std::string& drivePath);
    // The processes that hold files open.
    static std::vector<pid_t> openProcesses();
    // Whether the file may be uploaded now: its last modification is older
    // than the quiet period, no open handle has written to it, and its
    // cache copy is complete.
    static bool canUploadFile(const VHFile& file);
    // Records a modification now and schedules the update check.
    static void fileWasModified(const VHFile& file);
    // The client itself wrote the file whole and closed it: no quiet period
    // is waited for, and the upload queue looks at once.
    static void writerFinished(const std::string& fileId);
    static void scheduleUpdateChecks();
    static void checkUpdatedFiles();
    // Swaps two file ids among the open handles and the modification times.
    static void exchangeFileId(const std::string& a, const std::string& b);

    // Serves the store's VHOpenFilesHooks; registered by the first open.
    static VHOpenFilesHooks& hooks();

  private:
    static void touchModification(const std::string& fileId, VHDate when);

    const int openFlags_;
    const pid_t openProcess_;
    VHMutex ioMutex_;
    mutable VHMutex mutex_ VH_ACQUIRED_AFTER(ioMutex_);
    int fileDescriptor_ VH_GUARDED_BY(mutex_);
    bool modified_ VH_GUARDED_BY(mutex_) = false;
    bool needsUpdate_ VH_GUARDED_BY(mutex_) = false;
    VHDate lastWrite_ VH_GUARDED_BY(mutex_) = VHDate::distantPast();
    std::string fileId_ VH_GUARDED_BY(mutex_);
    off_t failedReadStart_ VH_GUARDED_BY(mutex_) = 0;  // empty when equal to the end
    off_t failedReadEnd_ VH_GUARDED_BY(mutex_) = 0;
};

}  // namespace vh
