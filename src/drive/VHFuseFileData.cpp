#include "drive/VHFuseFileData.h"

#include <unistd.h>

#include <QThreadPool>
#include <algorithm>
#include <map>
#include <unordered_map>

#include "drive/VHFuseMount.h"
#include "drive/VHFuseNamespace.h"
#include "lib/VHFormat.h"
#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

// The class lock and what it guards.
VHMutex gTableMutex;
// Never destroyed: handles that the kernel did not release before the loop
// ended (libfuse cancels callbacks in progress, which may still hold them)
// stay reachable until the process exits.
std::vector<VHFuseFileData*>& gOpenedFiles VH_GUARDED_BY(gTableMutex) =
    *new std::vector<VHFuseFileData*>;
std::map<std::string, VHDate> gFileModifications VH_GUARDED_BY(gTableMutex);
bool gUpdateCheckScheduled VH_GUARDED_BY(gTableMutex) = false;
// The contents each file had at its last open (keepsKernelPages).
std::unordered_map<std::string, std::string> gPageVersions VH_GUARDED_BY(gTableMutex);
constexpr size_t kMostPageVersions = 100000;
// Drive paths of open files changed elsewhere, invalidated at the last close.
std::map<std::string, std::vector<std::string>> gStaleWhileOpen VH_GUARDED_BY(gTableMutex);

bool isOpenLocked(const std::string& fileId) VH_REQUIRES(gTableMutex) {
    return std::any_of(gOpenedFiles.begin(), gOpenedFiles.end(),
                       [&](VHFuseFileData* open) { return open->fileId() == fileId; });
}

// Off the FUSE thread that closed the file: the kernel may wait on other requests.
void invalidateLater(std::vector<std::string> drivePaths) {
    if (drivePaths.empty()) return;
    QThreadPool::globalInstance()->start(
        VHHandOff([paths = std::move(drivePaths)] { VHInvalidateDrivePaths(paths); }));
}

bool settled(VHDate when) {
    return VHDate::now().seconds - when.seconds > VHFuseFileData::kQuietSeconds;
}

class OpenFilesHooks final : public VHOpenFilesHooks {
    void fileWasModified(const VHFile& file) override { VHFuseFileData::fileWasModified(file); }
    void exchangeFileId(const std::string& a, const std::string& b) override {
        VHFuseFileData::exchangeFileId(a, b);
    }
    bool invalidateWhenClosed(const std::string& id, const std::string& drivePath) override {
        return VHFuseFileData::invalidateWhenClosed(id, drivePath);
    }
};

}  // namespace

VHFuseFileData::VHFuseFileData(int openFlags, int fileDescriptor, pid_t openProcess)
    : openFlags_(openFlags), openProcess_(openProcess), fileDescriptor_(fileDescriptor) {
    VHMutexLock lock(gTableMutex);
    gOpenedFiles.push_back(this);
}

VHFuseFileData::~VHFuseFileData() {
    close();
}

void VHFuseFileData::close() {
    // Never while a read or write through this handle opens the descriptor.
    VHMutexLock io(ioMutex_);
    std::string id;
    bool wasModified = false;
    {
        VHMutexLock lock(mutex_);
        id = fileId_;
        wasModified = modified_;
    }
    std::vector<std::string> stale;
    {
        VHMutexLock lock(gTableMutex);
        auto it = std::find(gOpenedFiles.begin(), gOpenedFiles.end(), this);
        if (it != gOpenedFiles.end()) gOpenedFiles.erase(it);
        if (wasModified && !id.empty()) gFileModifications[id] = VHDate::now();
        if (auto node = gStaleWhileOpen.find(id);
            node != gStaleWhileOpen.end() && !isOpenLocked(id)) {
            stale = std::move(node->second);
            gStaleWhileOpen.erase(node);
        }
    }
    invalidateLater(std::move(stale));
    VHMutexLock lock(mutex_);
    if (fileDescriptor_ != -1) ::close(fileDescriptor_);
    fileDescriptor_ = -1;
    fileId_.clear();
    lastWrite_ = VHDate::distantPast();
    modified_ = false;
}

std::string VHFuseFileData::fileId() const {
    VHMutexLock lock(mutex_);
    return fileId_;
}

void VHFuseFileData::setFileId(const std::string& id) {
    VHMutexLock lock(mutex_);
    fileId_ = id;
}

bool VHFuseFileData::modified() const {
    VHMutexLock lock(mutex_);
    return modified_;
}

VHDate VHFuseFileData::lastWrite() const {
    VHMutexLock lock(mutex_);
    return lastWrite_;
}

void VHFuseFileData::markWritten() {
    VHMutexLock lock(mutex_);
    modified_ = true;
    lastWrite_ = VHDate::now();
}

bool VHFuseFileData::needsUpdate() const {
    VHMutexLock lock(mutex_);
    return needsUpdate_;
}

void VHFuseFileData::setNeedsUpdate(bool needsUpdate) {
    VHMutexLock lock(mutex_);
    needsUpdate_ = needsUpdate;
}

int VHFuseFileData::fileDescriptor() const {
    VHMutexLock lock(mutex_);
    return fileDescriptor_;
}

int VHFuseFileData::cacheDescriptor(const std::function<int()>& open) {
    if (int fd = fileDescriptor(); fd != -1) return fd;
    int fd = open();
    if (fd >= 0) {
        VHMutexLock lock(mutex_);
        fileDescriptor_ = fd;
    }
    return fd;
}

void VHFuseFileData::noteFailedRead(off_t offset, size_t size) {
    VHMutexLock lock(mutex_);
    failedReadStart_ = offset;
    failedReadEnd_ = offset + static_cast<off_t>(size);
}

bool VHFuseFileData::takeFailedRead(off_t offset, size_t size) {
    VHMutexLock lock(mutex_);
    bool inside = offset >= failedReadStart_ &&
                  offset + static_cast<off_t>(size) <= failedReadEnd_ &&
                  failedReadStart_ < failedReadEnd_;
    if (inside) failedReadStart_ = failedReadEnd_ = 0;
    return inside;
}

std::string VHFuseFileData::description() const {
    VHMutexLock lock(mutex_);
    return VHFormat("file: %@, fd: %d, modified: %d, lastWrite: %@", fileId_, fileDescriptor_,
                    modified_, VHDateToJsonText(lastWrite_));
}

std::vector<VHFuseFileData*> VHFuseFileData::openedFiles() {
    VHMutexLock lock(gTableMutex);
    return gOpenedFiles;
}

bool VHFuseFileData::isOpen(const std::string& fileId) {
    VHMutexLock lock(gTableMutex);
    return isOpenLocked(fileId);
}

bool VHFuseFileData::keepsKernelPages(const VHFile& file) {
    std::string version = file.uploadName + "|" + std::to_string(file.fileSize) + "|" +
                          std::to_string(file.modifyTime.seconds) + "|" +
                          std::to_string(file.status);
    VHMutexLock lock(gTableMutex);
    if (gPageVersions.size() >= kMostPageVersions) gPageVersions.clear();
    auto [it, added] = gPageVersions.try_emplace(file.internalName, version);
    if (added || it->second == version) return !added;
    it->second = std::move(version);
    return false;
}

bool VHFuseFileData::invalidateWhenClosed(const std::string& fileId, const std::string& drivePath) {
    VHMutexLock lock(gTableMutex);
    if (!isOpenLocked(fileId)) return false;
    gStaleWhileOpen[fileId].push_back(drivePath);
    return true;
}

std::vector<pid_t> VHFuseFileData::openProcesses() {
    std::vector<pid_t> processes;
    VHMutexLock lock(gTableMutex);
    for (VHFuseFileData* open : gOpenedFiles) processes.push_back(open->openProcess_);
    return processes;
}

bool VHFuseFileData::canUploadFile(const VHFile& file) {
    {
        VHMutexLock lock(gTableMutex);
        VHConsoleLog(">>>>>> can upload %@, openedFiles:%d fileModifications:%d", file.publicName,
                     gOpenedFiles.size(), gFileModifications.size());
        auto modification = gFileModifications.find(file.internalName);
        if (modification != gFileModifications.end()) {
            if (!settled(modification->second)) return false;
            gFileModifications.erase(modification);
        }
        // A handle that wrote keeps the file until it is released: its
        // program may not be done, and half a save must never be uploaded.
        for (VHFuseFileData* open : gOpenedFiles) {
            if (open->fileId() == file.internalName && open->modified()) return false;
        }
    }
    // Contents written into a copy still being downloaded wait for the rest.
    bool sendsContents = file.status == kStatusModified || file.status == kStatusCreated;
    return !sendsContents || file.fileSize == 0 || VHFileCache::fileCache().hasCompleteCache(file);
}

void VHFuseFileData::touchModification(const std::string& fileId, VHDate when) {
    VHMutexLock lock(gTableMutex);
    gFileModifications[fileId] = when;
}

void VHFuseFileData::fileWasModified(const VHFile& file) {
    touchModification(file.internalName, VHDate::now());
    scheduleUpdateChecks();
}

void VHFuseFileData::writerFinished(const std::string& fileId) {
    {
        VHMutexLock lock(gTableMutex);
        gFileModifications.erase(fileId);
    }
    VHStoreHooks::uploads().uploadsAdded();
}

void VHFuseFileData::scheduleUpdateChecks() {
    {
        VHMutexLock lock(gTableMutex);
        if (gUpdateCheckScheduled) return;
        gUpdateCheckScheduled = true;
    }
    VHRunLater(kUpdateCheckDelayMs, [] { checkUpdatedFiles(); });
}

void VHFuseFileData::checkUpdatedFiles() {
    bool uploadsDue = false, checkAgain = false;
    {
        VHMutexLock lock(gTableMutex);
        gUpdateCheckScheduled = false;
        for (VHFuseFileData* open : gOpenedFiles) {
            if (!open->needsUpdate()) continue;
            (settled(open->lastWrite()) ? uploadsDue : checkAgain) = true;
        }
        for (auto it = gFileModifications.begin(); it != gFileModifications.end(); ++it) {
            if (!settled(it->second)) {
                checkAgain = true;
            } else {
                gFileModifications.erase(it);  // one settled entry per check
                uploadsDue = true;
                break;
            }
        }
    }
    if (checkAgain) scheduleUpdateChecks();
    if (uploadsDue) VHStoreHooks::uploads().uploadsAdded();
}

void VHFuseFileData::exchangeFileId(const std::string& a, const std::string& b) {
    VHMutexLock lock(gTableMutex);
    bool doneA = false, doneB = false;
    for (VHFuseFileData* open : gOpenedFiles) {
        if (doneA && doneB) break;
        std::string id = open->fileId();
        if (!doneA && id == a) {
            open->setFileId(b);
            doneA = true;
        } else if (!doneB && id == b) {
            open->setFileId(a);
            doneB = true;
        }
    }
    auto dateA = gFileModifications.extract(a);
    auto dateB = gFileModifications.extract(b);
    if (!dateA.empty()) gFileModifications[b] = dateA.mapped();
    if (!dateB.empty()) gFileModifications[a] = dateB.mapped();
}

VHOpenFilesHooks& VHFuseFileData::hooks() {
    static OpenFilesHooks instance;
    return instance;
}

}  // namespace vh
