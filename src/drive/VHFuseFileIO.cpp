#include "drive/VHFuseFileIO.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "drive/VHFuseAttributes.h"
#include "drive/VHFuseDownloadingWrite.h"
#include "drive/VHFuseFileData.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseMount.h"
#include "drive/VHFuseNamespace.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

bool isSpecialName(const std::string& path) {
    return path == kFuseLockPath || VHLastPathComponent(path) == kFinderRefresh;
}

bool wantsToWrite(int flags) {
    return (flags & (O_WRONLY | O_RDWR | O_CREAT)) != 0;
}

// The cache copy is opened with the file's own access mode; creation and
// truncation are the drive's decisions, never the kernel's flags'.
int cacheOpenFlags(int flags) {
    return (flags & ~(O_CREAT | O_EXCL | O_TRUNC | O_NOCTTY)) | O_CLOEXEC;
}

// Bytes reached the cache copy. The upload queue hears of it before the store
// records the new size and time, so an upload still sending the old contents
// is never confirmed as the new ones.
void recordWrite(VHFuseFileData& handle, VHFile& file, std::optional<uint64_t> newSize) {
    handle.markWritten();
    file.modifyTime = VHDate::now();
    if (newSize) file.fileSize = *newSize;
    VHUploadQueue::uploadQueue().noteContentChanged(file.internalName);
    VHFuseFileData::fileWasModified(file);
    VHDatabase::database().markFileUpdated(file);
}

// The kernel leaves O_TRUNC to the open: the cache copy (made when missing)
// and the record become empty, as after a write of nothing. 0 or -errno.
int truncateOnOpen(VHFuseFileData& handle, VHFile& file) {
    VHMutexLock io(handle.ioMutex());
    int fd = handle.cacheDescriptor([&] {
        std::string cachePath = VHFileCache::fileCache().pathForFileCache(file);
        int opened = ::open(cachePath.c_str(), cacheOpenFlags(handle.openFlags()) | O_CREAT, 0600);
        return opened < 0 ? -errno : opened;
    });
    if (fd < 0) return fd;
    if (ftruncate(fd, 0) != 0) return -errno;
    recordWrite(handle, file, 0);
    return 0;
}

// The handle's descriptor on the complete cache copy; -errno when it cannot be opened.
int completeCopyDescriptor(VHFuseFileData& handle, const VHFile& file) {
    VHMutexLock io(handle.ioMutex());
    return handle.cacheDescriptor([&] {
        std::string cachePath = VHFileCache::fileCache().pathForFileCache(file);
        int fd = ::open(cachePath.c_str(), cacheOpenFlags(handle.openFlags()), 0600);
        return fd < 0 ? -errno : fd;
    });
}

int open(const std::string& path, struct fuse_file_info* fi) {
    VHLog(kLogDrive, "%s:%@ mode: (%d)", "varnholt_open", path, fi->flags);
    fi->fh = 0;
    if (isSpecialName(path)) {
        (new VHFuseSpecialHandle)->storeIn(fi);
        return 0;
    }
    if (!VHFuseUtils::isPathIgnored(path, false) && wantsToWrite(fi->flags)) {
        auto share = driveShareWithPath(path);
        if (share && share->isReadonlyShare()) return -EACCES;
    }
    auto file = driveFileWithPath(path);
    if (!file) {
        VHLog(kLogDrive, "error --> %s:%@ mode: (%d)", "varnholt_open", path, fi->flags);
        return -ENOENT;
    }
    if (wantsToWrite(fi->flags) && VHIsLockedByAnotherUser(*file)) return -EACCES;
    auto handle = std::make_unique<VHFuseFileData>(fi->flags, -1, VHFuseCallerPid());
    handle->setFileId(file->internalName);
    VHStoreHooks::setOpenFiles(&VHFuseFileData::hooks());
    bool truncates = (fi->flags & O_TRUNC) && (fi->flags & O_ACCMODE) != O_RDONLY;
    if (truncates && file->isFile && file->fileSize > 0) {
        if (int error = truncateOnOpen(*handle, *file)) return error;
    } else if (file->isFile && VHDownloadQueue::downloadQueue().isFileDownloaded(*file)) {
        // Held from the start, the copy stays readable through this handle
        // even when the file is deleted while open.
        completeCopyDescriptor(*handle, *file);
    }
    fi->keep_cache = VHFuseFileData::keepsKernelPages(*file);
    handle.release()->storeIn(fi);
    return 0;
}

int preadOrError(int fd, char* buffer, size_t size, off_t offset, const char* path) {
    ssize_t count = pread(fd, buffer, size, offset);
    if (count < 0) {
        VHLog(kLogDrive, "%s:%@ failed : pread error %d", "varnholt_read", path, errno);
        return -errno;
    }
    return static_cast<int>(count);
}

int read(const char* path, char* buffer, size_t size, off_t offset, struct fuse_file_info* fi) {
    VHLog(kLogDrive, "%s:%s", "varnholt_read", path);
    VHFuseHandle* opened = VHFuseHandle::from(fi);
    if (dynamic_cast<VHFuseSpecialHandle*>(opened)) return 0;
    auto* handle = dynamic_cast<VHFuseFileData*>(opened);
    if (!handle) {
        VHLog(kLogDrive, "%s:%s failed : userData is nil", "varnholt_read", path);
        return -EBADF;
    }
    // Once the handle holds the complete copy, a stream of reads costs one pread each.
    if (int fd = handle->fileDescriptor(); fd != -1)
        return preadOrError(fd, buffer, size, offset, path);
    auto file = VHDatabase::database().fileWithId(handle->fileId());
    if (!file || !file->isFile) {
        VHLog(kLogDrive, "%s:%@ failed : EINVAL", "varnholt_read", path);
        return -EINVAL;
    }
    if (VHDownloadQueue::downloadQueue().isFileDownloaded(*file)) {
        if (file->fileSize == 0 && !VHFileCache::fileCache().hasCompleteCache(*file)) return 0;
        int fd = completeCopyDescriptor(*handle, *file);
        return fd < 0 ? fd : preadOrError(fd, buffer, size, offset, path);
    }
    if (handle->takeFailedRead(offset, size)) return -EIO;
    auto bytes = VHDownloadQueue::downloadQueue().downloadChunk(offset, size, *file, path);
    if (!bytes) {
        handle->noteFailedRead(offset, size);
        return -EIO;
    }
    std::memcpy(buffer, bytes->data(), bytes->size());
    return static_cast<int>(bytes->size());
}

struct fuse_bufvec* newBufferVector(size_t size) {
    auto* vector = static_cast<struct fuse_bufvec*>(std::malloc(sizeof(struct fuse_bufvec)));
    if (vector) *vector = FUSE_BUFVEC_INIT(size);
    return vector;
}

int readBuf(const char* path, struct fuse_bufvec** out, size_t size, off_t offset,
            struct fuse_file_info* fi) {
    auto* handle = dynamic_cast<VHFuseFileData*>(VHFuseHandle::from(fi));
    if (int fd = handle ? handle->fileDescriptor() : -1; fd != -1) {
        VHLog(kLogDrive, "%s:%s", "varnholt_read", path);
        *out = newBufferVector(size);
        if (!*out) return -ENOMEM;
        (*out)->buf[0].flags = static_cast<fuse_buf_flags>(FUSE_BUF_IS_FD | FUSE_BUF_FD_SEEK);
        (*out)->buf[0].fd = fd;
        (*out)->buf[0].pos = offset;
        return 0;
    }
    *out = newBufferVector(size);
    void* memory = *out ? std::malloc(size > 0 ? size : 1) : nullptr;
    if (!memory) return -ENOMEM;  // libfuse frees the vector
    (*out)->buf[0].mem = memory;
    int count = read(path, static_cast<char*>(memory), size, offset, fi);
    (*out)->buf[0].size = count > 0 ? static_cast<size_t>(count) : 0;
    return count < 0 ? count : 0;
}

// Opens the cache copy for writing: a write at offset 0 may create it,
// anything else needs it to exist. -errno on failure (logged).
int openCopyForWriting(const VHFuseFileData& handle, const VHFile& file, off_t offset) {
    std::string cachePath = VHFileCache::fileCache().pathForFileCache(file);
    int flags = cacheOpenFlags(handle.openFlags());
    int fd = ::open(cachePath.c_str(), flags, 0600);
    if (fd < 0 && errno == ENOENT && offset == 0)
        fd = ::open(cachePath.c_str(), flags | O_CREAT, 0600);
    if (fd >= 0) return fd;
    int error = errno;
    if (error == ENOENT && file.status == kStatusSynchronized) {
        VHLog(kLogDrive, "%s: attempt to write to middle of non-downloaded file, failing",
              "varnholt_write");
    } else {
        VHLog(kLogDrive, "%s: %@ open failed: error %d", "varnholt_write", file.publicName, error);
    }
    return -error;
}

int cacheDescriptorForWriting(VHFuseFileData& handle, const VHFile& file, off_t offset)
    VH_REQUIRES(handle.ioMutex()) {
    return handle.cacheDescriptor([&] { return openCopyForWriting(handle, file, offset); });
}

int write(const char* path, const char* buffer, size_t size, off_t offset,
          struct fuse_file_info* fi) {
    VHConsoleLog("---> WRITE %@", path);
    VHLog(kLogDrive, "%s:%@ size:%zd offset:%lld", "varnholt_write", path, size, offset);
    VHFuseHandle* opened = VHFuseHandle::from(fi);
    // Nothing is ever stored for a special name.
    if (dynamic_cast<VHFuseSpecialHandle*>(opened)) return -EACCES;
    auto* handle = dynamic_cast<VHFuseFileData*>(opened);
    if (!handle) {
        VHLog(kLogDrive, "%s:%@ no userData!", "varnholt_write", path);
        return -ENOENT;
    }
    auto file = VHDatabase::database().fileWithId(handle->fileId());
    // A lock taken elsewhere while the file was open stops its writes too.
    if (!file || VHIsLockedByAnotherUser(*file)) return -EACCES;
    // A handle that holds the complete copy open needs no download.
    if (handle->fileDescriptor() == -1) {
        if (auto result = VHWriteWhileDownloading(*file, buffer, size, offset, path)) {
            if (*result > 0) recordWrite(*handle, *file, std::nullopt);
            return *result;
        }
    }
    VHMutexLock io(handle->ioMutex());
    int fd = cacheDescriptorForWriting(*handle, *file, offset);
    if (fd < 0) return fd;
    ssize_t written = pwrite(fd, buffer, size, offset);
    if (written < 0) {
        VHLog(kLogDrive, "%s:%@ pwrite failed: error %d", "varnholt_write", path, errno);
        return -errno;
    }
    off_t end = lseek(fd, 0, SEEK_END);
    recordWrite(*handle, *file,
                end >= 0 ? std::optional(static_cast<uint64_t>(end)) : std::nullopt);
    return static_cast<int>(written);
}

int fallocate(const char* path, int mode, off_t offset, off_t length, struct fuse_file_info* fi) {
    VHConsoleLog("---> ALLOCATE %s", path);
    if (mode & ~FALLOC_FL_KEEP_SIZE) return -EOPNOTSUPP;
    auto* handle = dynamic_cast<VHFuseFileData*>(VHFuseHandle::from(fi));
    if (!handle) return -EBADF;
    auto file = VHDatabase::database().fileWithId(handle->fileId());
    if (!file || VHIsLockedByAnotherUser(*file)) return -EACCES;
    VHMutexLock io(handle->ioMutex());
    int fd = cacheDescriptorForWriting(*handle, *file, offset);
    if (fd < 0) return fd;
    return ::fallocate(fd, mode, offset, length) == 0 ? 0 : -errno;
}

// Closes the handle and, when it changed the file, marks the file for upload.
void closeFileData(VHFuseFileData* handle) {
    std::string id = handle->fileId();
    bool modified = handle->modified();
    VHDatabase& db = VHDatabase::database();
    auto file = id.empty() ? std::nullopt : db.fileWithId(id);
    delete handle;  // closes it
    if (file && modified && file->status != kStatusSynchronized) {
        VHFuseFileData::fileWasModified(*file);
        db.markFileUpdated(*file);
    }
}

int release(const char* rawPath, struct fuse_file_info* fi) {
    VHLog(kLogDrive, "%s:%s", "varnholt_release", rawPath ? rawPath : "");
    VHFuseHandle* opened = VHFuseHandle::from(fi);
    fi->fh = 0;
    if (dynamic_cast<VHFuseSpecialHandle*>(opened)) {
        delete opened;
        return 0;
    }
    auto* handle = dynamic_cast<VHFuseFileData*>(opened);
    if (!handle) {
        VHLog(kLogDrive, "%s:%s : empty userData.", "varnholt_release", rawPath ? rawPath : "");
        return 0;
    }
    closeFileData(handle);
    VHLog(kLogDrive, "%s:%s : userData released.", "varnholt_release", rawPath ? rawPath : "");
    return 0;
}

}  // namespace

int varnholt_open(const char* path, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] { return open(finalPath(path ? path : "/"), fi); });
}

int varnholt_read(const char* path, char* buffer, size_t size, off_t offset,
                  struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] { return read(path ? path : "", buffer, size, offset, fi); });
}

int varnholt_read_buf(const char* path, struct fuse_bufvec** out, size_t size, off_t offset,
                      struct fuse_file_info* fi) {
    *out = nullptr;
    return VHFuseGuard(__func__, [&] { return readBuf(path ? path : "", out, size, offset, fi); });
}

int varnholt_write(const char* path, const char* buffer, size_t size, off_t offset,
                   struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] { return write(path ? path : "", buffer, size, offset, fi); });
}

int varnholt_release(const char* path, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] { return release(path, fi); });
}

int varnholt_fsync(const char* path, int, struct fuse_file_info*) {
    VHLog(kLogDrive, "%s:%s", "varnholt_fsync", path ? path : "");
    return 0;
}

int varnholt_fallocate(const char* path, int mode, off_t offset, off_t length,
                       struct fuse_file_info* fi) {
    return VHFuseGuard(__func__,
                       [&] { return fallocate(path ? path : "", mode, offset, length, fi); });
}

}  // namespace vh
