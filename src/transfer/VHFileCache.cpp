#include "transfer/VHFileCache.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTimer>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <initializer_list>

#include "lib/VHFatalError.h"
#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "lib/VHPaths.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

constexpr int kSweepIntervalMs = 5000;
constexpr double kExpirySeconds = 5.0;
constexpr const char* kAttrsSuffix = ".attrs";

// Serialises making and dropping the instance; fileCache() reads gInstance
// without it once the instance exists.
VHMutex gInstanceMutex;
std::atomic<VHFileCache*> gInstance{nullptr};

// Stops the sweep thread and closes descriptors at process exit.
struct InstanceReaper {
    ~InstanceReaper() { delete gInstance.exchange(nullptr); }
} gReaper;

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

bool isFolder(const std::string& path) {
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The root or one of its folders must be a private folder; false (logged)
// when it is not and cannot be made one.
bool ensureCacheFolder(const std::string& path) {
    struct stat st;
    if (stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) {
        VHLog(kLogMain, "Error! Unknown file exists at cache directory location : %@", path);
        return false;
    }
    if (!VHPaths::makePrivateDir(path)) {
        VHLog(kLogMain, "Error! Cannot create cache directory at path : %@, error : %@", path,
              std::strerror(errno));
        return false;
    }
    return true;
}

// Reads until `length` bytes or the end of the file; -1 on error (errno set).
ssize_t preadAll(int fd, char* buffer, size_t length, off_t offset) {
    size_t done = 0;
    while (done < length) {
        ssize_t got = pread(fd, buffer + done, length - done, offset + done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        done += got;
    }
    return static_cast<ssize_t>(done);
}

// Writes all of `data`; 0 or the errno of the failure. `written` counts the
// bytes that reached the file either way.
int pwriteAll(int fd, std::string_view data, off_t offset, size_t& written) {
    written = 0;
    while (written < data.size()) {
        ssize_t put = pwrite(fd, data.data() + written, data.size() - written, offset + written);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return put < 0 ? errno : EIO;
        written += put;
    }
    return 0;
}

// An empty file at `path`; a folder in the way logs `inTheWay`, a failure `failed`.
void createEmptyFile(const std::string& path, std::string_view inTheWay, std::string_view failed,
                     const std::string& name) {
    if (isFolder(path)) {
        VHLog(kLogMain, inTheWay, name);
        return;
    }
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        VHLog(kLogMain, failed, name);
        return;
    }
    close(fd);
}

// An empty file at `path` unless something is there already.
void createIfMissing(const std::string& path) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd >= 0) close(fd);
}

// Server-supplied names become path components only when safe; logs the
// first one that is not.
bool safeNames(std::initializer_list<std::string_view> names) {
    for (std::string_view name : names) {
        if (VHIsSafePathComponent(name)) continue;
        VHLog(kLogMain, "Warning! Refusing a cache path for the unsafe name \"%@\"", name);
        return false;
    }
    return true;
}

// Removes `path` if it exists; false with errno set when that fails.
bool removeIfExists(const std::string& path) {
    return unlink(path.c_str()) == 0 || errno == ENOENT;
}

}  // namespace

VHFileCache& VHFileCache::fileCache() {
    if (VHFileCache* cache = gInstance.load(std::memory_order_acquire)) return *cache;
    VHFileCache* made = nullptr;
    {
        VHMutexLock lock(gInstanceMutex);
        if (!gInstance.load(std::memory_order_relaxed)) {
            made = new VHFileCache(VHPaths::dataRoot());
            gInstance.store(made, std::memory_order_release);
        }
    }
    // Reported without the lock: the handler may ask the cache for its folders.
    if (made && !made->ready_) VHReportFatalError(kExitDataFolderFailure);
    return made ? *made : *gInstance.load(std::memory_order_acquire);
}

void VHFileCache::resetForTests() {
    VHMutexLock lock(gInstanceMutex);
    delete gInstance.exchange(nullptr);
}

std::string VHFileCache::filesCachePath() {
    return fileCache().files_;
}
std::string VHFileCache::uploadsCachePath() {
    return fileCache().uploads_;
}
std::string VHFileCache::downloadsCachePath() {
    return fileCache().downloads_;
}
std::string VHFileCache::logsPath() {
    return fileCache().logs_;
}
std::string VHFileCache::metadataPath() {
    return fileCache().root_;
}
std::string VHFileCache::rootCachePath() {
    return fileCache().root_;
}

VHFileCache::VHFileCache(const std::string& root) {
    initCachePathes(root);
    startExpirySweep();
    VHStoreHooks::setCache(this);
}

VHFileCache::~VHFileCache() {
    if (&VHStoreHooks::cache() == this) VHStoreHooks::setCache(nullptr);
    sweepThread_->quit();
    VHWaitForThread(*sweepThread_);
    delete sweepTimer_;
    // Under the lock, so that the sweep's last run visibly comes first.
    VHMutexLock lock(mutex_);
    cacheItems_.clear();
}

void VHFileCache::initCachePathes(const std::string& root) {
    root_ = root;
    files_ = VHPaths::join(root, "Files");
    uploads_ = VHPaths::join(root, "Uploads");
    downloads_ = VHPaths::join(root, "Downloads");
    logs_ = VHPaths::join(root, "Logs");
    for (const std::string* path : {&root_, &files_, &uploads_, &downloads_, &logs_}) {
        if (!ensureCacheFolder(*path)) return;
    }
    ready_ = true;
}

void VHFileCache::startExpirySweep() {
    sweepThread_ = std::make_unique<QThread>();
    sweepThread_->setObjectName("VHFileCacheSweep");
    auto* timer = new QTimer;
    sweepTimer_ = timer;
    timer->setInterval(kSweepIntervalMs);
    timer->moveToThread(sweepThread_.get());
    QObject::connect(timer, &QTimer::timeout, timer, [this] { checkExpiredCaches(); });
    QObject::connect(sweepThread_.get(), &QThread::started, timer, [timer] { timer->start(); });
    // Stopped on its own thread as it ends; deleted by the destructor.
    QObject::connect(
        sweepThread_.get(), &QThread::finished, sweepThread_.get(), [timer] { timer->stop(); },
        Qt::DirectConnection);
    VHStartThread(*sweepThread_);
}

void VHFileCache::checkExpiredCaches() {
    VHDate cutoff = VHDate::now().addingSeconds(-kExpirySeconds);
    VHMutexLock lock(mutex_);
    std::erase_if(cacheItems_, [&](const auto& entry) { return entry.second->lastRead < cutoff; });
}

std::string VHFileCache::pathForFileDownload(const VHFile& file) const {
    if (!ready_ || !VHIsSafePathComponent(file.internalName)) return "";
    return VHPaths::join(downloads_, file.internalName);
}

std::string VHFileCache::pathForFileCache(const std::string& shareId,
                                          const std::string& internalName) const {
    std::string shareFolder = pathForShareCache(shareId);
    if (shareFolder.empty() || !VHIsSafePathComponent(internalName)) return "";
    if (!exists(shareFolder)) {
        // A share's attributes live beside its folder and come with it.
        VHPaths::makePrivateDir(shareFolder);
        createIfMissing(shareFolder + kAttrsSuffix);
    }
    return VHPaths::join(shareFolder, internalName);
}

std::string VHFileCache::pathForFileCache(const VHFile& file) const {
    return pathForFileCache(file.shareId, file.internalName);
}

std::string VHFileCache::pathForFileExtAttrs(const std::string& shareId,
                                             const std::string& internalName) const {
    std::string path = pathForFileCache(shareId, internalName);
    return path.empty() ? "" : path + kAttrsSuffix;
}

std::string VHFileCache::pathForFileExtAttrs(const VHFile& file) const {
    return pathForFileExtAttrs(file.shareId, file.internalName);
}

std::string VHFileCache::pathForShareCache(const std::string& shareId) const {
    if (!ready_ || !VHIsSafePathComponent(shareId)) return "";
    return VHPaths::join(files_, shareId);
}

std::string VHFileCache::pathForShareExtAttrs(const std::string& shareId) const {
    std::string path = pathForShareCache(shareId);
    return path.empty() ? "" : path + kAttrsSuffix;
}

VHFileCacheItem& VHFileCache::cacheItemForFile(const VHFile& file) {
    auto& slot = cacheItems_[file.internalName];
    if (!slot) {
        slot = std::make_unique<VHFileCacheItem>(file);
        openCacheForItem(*slot);
    }
    return *slot;
}

void VHFileCache::openCacheForItem(VHFileCacheItem& item) {
    const VHFile& file = item.file;
    std::string complete = pathForFileCache(file);
    if (exists(complete)) {
        item.fd = open(complete.c_str(), O_RDONLY | O_CLOEXEC);
        if (item.fd < 0) {
            VHLog(kLogMain, "Warning! Cannot open existing download cache for file %@. Error %d",
                  file.publicName, errno);
        }
        // The record, not the disk, says how long a complete file is.
        item.downloaded = true;
        item.availableData = file.fileSize;
        return;
    }
    item.fd = open(pathForFileDownload(file).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    struct stat st;
    if (item.fd < 0 || fstat(item.fd, &st) != 0) {
        VHLog(kLogMain, "Warning! Cannot open or create download cache for file %@. Error %d",
              file.publicName, errno);
        return;
    }
    item.availableData = static_cast<uint64_t>(st.st_size);
}

std::optional<std::string> VHFileCache::getChunk(int64_t offset, uint64_t length,
                                                 const VHFile& file) {
    if (!safeNames({file.shareId, file.internalName})) return std::nullopt;
    VHMutexLock lock(mutex_);
    VHFileCacheItem& item = cacheItemForFile(file);
    if (item.fd < 0) return std::nullopt;
    uint64_t available = item.availableData;
    if (offset < 0 || static_cast<uint64_t>(offset) > available ||
        length > available - static_cast<uint64_t>(offset)) {
        return std::nullopt;
    }
    item.lastRead = VHDate::now();
    std::string buffer(length, '\0');
    ssize_t got = preadAll(item.fd, buffer.data(), length, offset);
    if (got < 0) {
        VHLog(kLogMain, "Warning! Seek in cache file %@ failed: error %d", file.internalName,
              errno);
        return std::nullopt;
    }
    buffer.resize(static_cast<size_t>(got));
    return buffer;
}

uint64_t VHFileCache::availableDataForFile(const VHFile& file) {
    if (!safeNames({file.shareId, file.internalName})) return 0;
    VHMutexLock lock(mutex_);
    return cacheItemForFile(file).availableData;
}

void VHFileCache::addChunk(std::string_view data, uint64_t location, const VHFile& file) {
    if (!safeNames({file.shareId, file.internalName})) return;
    bool completed = false;
    {
        VHMutexLock lock(mutex_);
        completed = writeChunk(cacheItemForFile(file), data, location, file);
    }
    if (!completed) return;
    // The downloads table lists what is complete here, for the expiry of old downloads.
    if (VHDatabase::database().loaded()) VHDatabase::database().markFileDownloaded(file);
    VHStoreHooks::app().refreshFileInFinder(file);
}

VHFileCache::PrefixWrite VHFileCache::writeIntoPrefix(std::string_view data, uint64_t offset,
                                                      const VHFile& file, int& error) {
    if (!safeNames({file.shareId, file.internalName})) return PrefixWrite::kNotPresent;
    VHMutexLock lock(mutex_);
    VHFileCacheItem& item = cacheItemForFile(file);
    if (item.downloaded || item.fd < 0 || offset > item.availableData ||
        data.size() > item.availableData - offset) {
        return PrefixWrite::kNotPresent;
    }
    size_t written = 0;
    error = pwriteAll(item.fd, data, static_cast<off_t>(offset), written);
    if (error) {
        VHLog(kLogMain,
              "Warning! Failed to write (%ld, %ld) into the partial cache of file %@. "
              "Error %d",
              offset, data.size(), file.internalName, error);
        return PrefixWrite::kFailed;
    }
    item.lastRead = VHDate::now();
    return PrefixWrite::kWritten;
}

bool VHFileCache::writeChunk(VHFileCacheItem& item, std::string_view data, uint64_t location,
                             const VHFile& file) {
    uint64_t available = item.availableData;
    if (location > available || data.size() <= available - location || available >= file.fileSize) {
        return false;
    }
    std::string_view tail = data.substr(available - location);
    // A server that sends more than the record's size must not keep the file
    // from completing.
    tail = tail.substr(0, std::min<uint64_t>(tail.size(), file.fileSize - available));
    size_t written = 0;
    int error = pwriteAll(item.fd, tail, static_cast<off_t>(available), written);
    item.availableData += written;
    if (error) {
        VHLog(kLogMain,
              "Warning! Failed to write chunk (%ld, %ld) to the cache of file %@. Cached size is "
              "%ld. Error %d",
              location, data.size(), file.internalName, available, error);
        return false;
    }
    item.lastRead = VHDate::now();
    return item.availableData == file.fileSize && completeDownload(item, file);
}

bool VHFileCache::completeDownload(VHFileCacheItem& item, const VHFile& file) {
    item.closeDescriptor();
    item.file = file;
    if (rename(pathForFileDownload(file).c_str(), pathForFileCache(file).c_str()) != 0) {
        VHLog(kLogMain, "Warning! Failed to rename fully downloaded cache file %@. Error %d",
              file.internalName, errno);
        return false;
    }
    openCacheForItem(item);
    return true;
}

void VHFileCache::createCacheFile(const VHFile& file) {
    if (!file.isFile || !safeNames({file.shareId, file.internalName})) return;
    createEmptyFile(pathForFileCache(file),
                    "Warning! Cannot create cache file for file %@ : file with the same name "
                    "already exists there.",
                    "Warning! Cannot create cache file for file %@.", file.publicName);
}

void VHFileCache::createExAttrsForFile(const VHFile& file) {
    if (!safeNames({file.shareId, file.internalName})) return;
    createEmptyFile(pathForFileExtAttrs(file),
                    "Warning! Cannot create ext attrs file for file %@ : file with the same name "
                    "already exists there.",
                    "Warning! Cannot create ext attrs file for file %@.", file.publicName);
}

void VHFileCache::createExAttrsForShare(const ManagedShare& share) {
    if (!safeNames({share.shareId()})) return;
    createEmptyFile(pathForShareExtAttrs(share.shareId()),
                    "Warning! Cannot create ext attrs file for share %@ : file with the same name "
                    "already exists there.",
                    "Warning! Cannot create ext attrs file for share %@.", share.displayName());
}

void VHFileCache::createMissingExAttrsForShare(const ManagedShare& share) {
    std::string path = pathForShareExtAttrs(share.shareId());
    if (!path.empty() && !exists(path)) createExAttrsForShare(share);
}

void VHFileCache::deleteExAttrsForShare(const std::string& shareId) {
    if (!safeNames({shareId})) return;
    unlink(pathForShareExtAttrs(shareId).c_str());
}

void VHFileCache::deleteFileDownload(const VHFile& file) {
    if (!safeNames({file.shareId, file.internalName})) return;
    if (!removeIfExists(pathForFileDownload(file))) {
        VHLog(kLogMain, "Warning! Cannot delete file download data for file %@. Error %@",
              file.publicName, std::strerror(errno));
    }
}

void VHFileCache::deleteFileCache(const VHFile& file) {
    if (!safeNames({file.shareId, file.internalName})) return;
    if (!removeIfExists(pathForFileCache(file))) {
        VHLog(kLogMain, "Warning! Cannot delete file cache data for file %@. Error %@",
              file.publicName, std::strerror(errno));
    }
    unlink(pathForFileExtAttrs(file).c_str());
}

bool VHFileCache::hasCompleteCache(const VHFile& file) {
    return safeNames({file.shareId, file.internalName}) && exists(pathForFileCache(file));
}

std::string VHFileCache::shareCachePath(const std::string& shareId) {
    return pathForShareCache(shareId);
}

bool VHFileCache::exchangeFileContents(const std::string& path, const std::string& otherPath) {
    // Beside the first file: a rename cannot cross file systems.
    std::string temp =
        VHAppendingPathComponent(VHDeletingLastPathComponent(path),
                                 "." + VHLastPathComponent(path) + ".exchange-" + VHGenerateGUID());
    bool failed = rename(path.c_str(), temp.c_str()) != 0;
    failed |= rename(otherPath.c_str(), path.c_str()) != 0;
    failed |= rename(temp.c_str(), otherPath.c_str()) != 0;
    if (failed) VHLog(kLogMain, "Warning! exchange contents failed");
    return !failed;
}

void VHFileCache::exchangeFileCaches(const VHFile& oldFile, const VHFile& newFile) {
    if (!safeNames({oldFile.shareId, oldFile.internalName}) ||
        !safeNames({newFile.shareId, newFile.internalName})) {
        return;
    }
    swapOrMove(pathForFileCache(oldFile), pathForFileCache(newFile));
    swapOrMove(pathForFileExtAttrs(oldFile), pathForFileExtAttrs(newFile));
}

// The two files trade places; when only one exists it moves to the other's.
void VHFileCache::swapOrMove(const std::string& path, const std::string& otherPath) {
    bool here = exists(path), there = exists(otherPath);
    if (here && there) {
        exchangeFileContents(path, otherPath);
    } else if (here) {
        rename(path.c_str(), otherPath.c_str());
    } else if (there) {
        rename(otherPath.c_str(), path.c_str());
    }
}

void VHFileCache::moveFileCache(const std::string& internalName, const std::string& newInternalName,
                                const std::string& fromShareId, const std::string& toShareId) {
    if (!safeNames({fromShareId, internalName}) || !safeNames({toShareId, newInternalName})) return;
    rename(pathForFileCache(fromShareId, internalName).c_str(),
           pathForFileCache(toShareId, newInternalName).c_str());
    rename(pathForFileExtAttrs(fromShareId, internalName).c_str(),
           pathForFileExtAttrs(toShareId, newInternalName).c_str());
}

void VHFileCache::moveFileCache(const std::string& internalName, const std::string& fromShareId,
                                const std::string& toShareId) {
    moveFileCache(internalName, internalName, fromShareId, toShareId);
}

}  // namespace vh
