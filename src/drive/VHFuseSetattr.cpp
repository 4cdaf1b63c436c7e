#include "drive/VHFuseSetattr.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "drive/VHFuseFileData.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseHandle.h"
#include "drive/VHFuseNamespace.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

// What one call asks to change, and its valid-bits word for the log.
struct Request {
    std::optional<mode_t> mode;
    std::optional<off_t> size;
    std::optional<VHDate> accessTime, modifyTime;
    bool owner = false;

    int validBits() const {
        return (mode ? 1 : 0) | (owner ? 6 : 0) | (size ? 8 : 0) | (accessTime ? 16 : 0) |
               (modifyTime ? 32 : 0);
    }
};

std::optional<VHDate> requestedTime(const struct timespec& time) {
    if (time.tv_nsec == UTIME_OMIT) return std::nullopt;
    if (time.tv_nsec == UTIME_NOW) return VHDate::now();
    return VHDate{static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9};
}

// The record the call is about, by its open handle or by its path; -errno
// when there is none or it must not change.
std::variant<VHFile, int> targetRecord(const char* rawPath, struct fuse_file_info* fi,
                                       VHFuseFileData*& handle) {
    VHDatabase& db = VHDatabase::database();
    handle = fi ? dynamic_cast<VHFuseFileData*>(VHFuseHandle::from(fi)) : nullptr;
    if (handle) {
        auto file = db.fileWithId(handle->fileId());
        if (!file || file->deleted) return -ENOENT;
        auto share = db.shareForFile(*file);
        if (share && share->isReadonlyShare()) return -EACCES;
        if (VHIsLockedByAnotherUser(*file)) return -EACCES;
        return *file;
    }
    if (!rawPath) return -ENOENT;
    std::string path = finalPath(rawPath);
    if (VHFuseUtils::isRootPath(path) || VHFuseUtils::isSharePath(path)) return -EACCES;
    if (VHIsReadOnlyPath(path)) return -EACCES;
    auto file = driveFileWithPath(path);
    if (!file || file->deleted) return -ENOENT;
    if (VHIsLockedByAnotherUser(*file)) return -EACCES;
    return *file;
}

// Cuts or extends the cache copy; 0 or -errno.
int resizeCopy(const VHFile& file, VHFuseFileData* handle, off_t size) {
    int fd = handle ? handle->fileDescriptor() : -1;
    if (fd != -1) return ftruncate(fd, size) == 0 ? 0 : -errno;
    std::string cachePath = VHFileCache::fileCache().pathForFileCache(file);
    // Emptying a file needs none of its old bytes, so no copy is needed first.
    int flags = O_WRONLY | O_CLOEXEC | (size == 0 ? O_CREAT : 0);
    int copy = ::open(cachePath.c_str(), flags, 0600);
    if (copy < 0) return -errno;
    int result = ftruncate(copy, size) == 0 ? 0 : -errno;
    ::close(copy);
    return result;
}

int resize(VHFile& file, VHFuseFileData* handle, off_t size, const char* path) {
    if (!file.isFile) return -EISDIR;
    if (size > 0 && !VHDownloadQueue::downloadQueue().isFileDownloaded(file)) {
        VHLog(kLogDrive, "%s : Warning! Attempt to truncate file %@, which is not yet downloaded.",
              "varnholt_setattr", path);
        return -EFBIG;
    }
    if (static_cast<uint64_t>(size) == file.fileSize) return 0;
    VHUploadQueue::uploadQueue().noteContentChanged(file.internalName);
    if (int error = resizeCopy(file, handle, size); error && error != -ENOENT) {
        VHLog(kLogDrive, "%s : failed to truncate file %@, error %d", "varnholt_setattr", path,
              -error);
        return error;
    }
    file.fileSize = static_cast<uint64_t>(size);
    file.modifyTime = VHDate::now();
    if (handle) handle->markWritten();
    VHFuseFileData::fileWasModified(file);
    if (auto updated = VHDatabase::database().markFileUpdated(file)) {
        updated->permissions = file.permissions;
        updated->accessTime = file.accessTime;
        file = *updated;
    }
    return 0;
}

int setattr(const char* rawPath, struct fuse_file_info* fi, const Request& request) {
    const char* path = rawPath ? rawPath : "";
    VHLog(kLogDrive, "%s: ofItemAtPath: %s. flags %d", "varnholt_setattr", path,
          request.validBits());
    VHFuseFileData* handle = nullptr;
    auto target = targetRecord(rawPath, fi, handle);
    if (const int* error = std::get_if<int>(&target)) return *error;
    VHFile& file = std::get<VHFile>(target);
    if (request.mode) file.permissions = *request.mode & 0xFFF;
    if (request.modifyTime) file.modifyTime = *request.modifyTime;
    if (request.accessTime) file.accessTime = *request.accessTime;
    if (request.size) {
        if (int error = resize(file, handle, *request.size, path)) return error;
    }
    if (request.mode || request.modifyTime || request.accessTime) {
        if (!VHDatabase::database().updateFileAttributes(file)) return -EIO;
    }
    return 0;
}

}  // namespace

int varnholt_chmod(const char* path, mode_t mode, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] {
        Request request;
        request.mode = mode;
        return setattr(path, fi, request);
    });
}

int varnholt_chown(const char* path, uid_t, gid_t, struct fuse_file_info* fi) {
    // Accepted so that copies keeping owners succeed; the service has no owners.
    return VHFuseGuard(__func__, [&] {
        Request request;
        request.owner = true;
        return setattr(path, fi, request);
    });
}

int varnholt_truncate(const char* path, off_t size, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] {
        Request request;
        request.size = size;
        return setattr(path, fi, request);
    });
}

int varnholt_utimens(const char* path, const struct timespec times[2], struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] {
        Request request;
        if (times) {
            request.accessTime = requestedTime(times[0]);
            request.modifyTime = requestedTime(times[1]);
        } else {
            request.accessTime = request.modifyTime = VHDate::now();
        }
        return setattr(path, fi, request);
    });
}

}  // namespace vh
