#include "drive/VHFuseFileIO.h"

#include <fcntl.h>

#include <cerrno>

#include "drive/VHFuseAttributes.h"
#include "drive/VHFuseFileData.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

bool isSpecialName(const std::string& path) {
    return path == kFuseLockPath || VHLastPathComponent(path) == kFinderRefresh;
}

bool wantsToWrite(int flags) {
    return (flags & (O_WRONLY | O_RDWR | O_CREAT)) != 0;
}

int open(const std::string& path, struct fuse_file_info* fi) {
    VHLog(kLogDrive, "%s:%@ mode: (%d)", "varnholt_open", path, fi->flags);
    fi->fh = 0;
    if (isSpecialName(path)) return 0;
    VHDatabase& db = VHDatabase::database();
    if (!VHFuseUtils::isPathIgnored(path, false) && wantsToWrite(fi->flags)) {
        auto share = db.metadataStorage().shareWithFilePath(path);
        if (share && share->isReadonlyShare()) return -EACCES;
    }
    auto file = db.fileWithPath(path);
    if (!file) {
        VHLog(kLogDrive, "error --> %s:%@ mode: (%d)", "varnholt_open", path, fi->flags);
        return -ENOENT;
    }
    struct fuse_context* context = fuse_get_context();
    auto* handle = new VHFuseFileData(fi->flags, -1, context ? context->pid : -1);
    handle->setFileId(file->internalName);
    VHStoreHooks::setOpenFiles(&VHFuseFileData::hooks());
    handle->storeIn(fi);
    return 0;
}

int release(const char* rawPath, struct fuse_file_info* fi) {
    VHLog(kLogDrive, "%s:%s", "varnholt_release", rawPath ? rawPath : "");
    auto* handle = dynamic_cast<VHFuseFileData*>(VHFuseHandle::from(fi));
    if (!handle) {
        if (fi->fh == 0) return 0;  // the special names keep no handle
        VHLog(kLogDrive, "%s:%s : empty userData.", "varnholt_release", rawPath ? rawPath : "");
        return 0;
    }
    fi->fh = 0;
    std::string id = handle->fileId();
    bool modified = handle->modified();
    VHDatabase& db = VHDatabase::database();
    auto file = id.empty() ? std::nullopt : db.fileWithId(id);
    delete handle;  // closes it
    if (file && modified && file->status != kStatusSynchronized) {
        VHFuseFileData::fileWasModified(*file);
        db.markFileUpdated(*file);
    }
    VHLog(kLogDrive, "%s:%s : userData released.", "varnholt_release", rawPath ? rawPath : "");
    return 0;
}

}  // namespace

int varnholt_open(const char* path, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] { return open(finalPath(path ? path : "/"), fi); });
}

int varnholt_read(const char*, char*, size_t, off_t, struct fuse_file_info*) {
    return -ENOSYS;
}

int varnholt_write(const char*, const char*, size_t, off_t, struct fuse_file_info*) {
    return -ENOSYS;
}

int varnholt_release(const char* path, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] { return release(path, fi); });
}

int varnholt_fsync(const char* path, int, struct fuse_file_info*) {
    VHLog(kLogDrive, "%s:%s", "varnholt_fsync", path ? path : "");
    return 0;
}

int varnholt_fallocate(const char*, int, off_t, off_t, struct fuse_file_info*) {
    return -ENOSYS;
}

}  // namespace vh
