#include "drive/VHFuseCreate.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "drive/VHFuseFileData.h"
#include "drive/VHFuseFileIO.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseMount.h"
#include "drive/VHFuseNamespace.h"
#include "drive/VHFusePathMapping.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabase.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

// A folder made again inside the temp area replaces what was there.
void forgetTempFolder(const std::string& rawPath) {
    VHDatabase& db = VHDatabase::database();
    db.archiveMap().remove(keyFromPath(rawPath));
    auto existing = driveFileWithPath(rawPath);
    if (existing && !existing->isFile) db.removeFolderRecursive(*existing);
}

// An application's temporary save folder is made in the temp area instead.
std::string redirectTempFolder(const std::string& path) {
    if (!VHIsTempFolder(path)) return path;
    std::string key = keyFromPath(path);
    std::string redirected = std::string("/") + kTempFolder + "/" + key;
    VHDatabase::database().archiveMap().set(key, redirected);
    return redirected;
}

int mkdir(const std::string& rawPath, mode_t mode) {
    VHLog(kLogDrive, "%s:%@", "varnholt_mkdir", rawPath);
    if (VHNewNameIsInvalid(rawPath)) return -EIO;
    if (VHIsInTempArea(rawPath)) forgetTempFolder(rawPath);
    std::string path = finalPath(rawPath);
    if (VHIsReadOnlyPath(path)) return -EACCES;
    VHConsoleLog("^^^^^ CREATE DIR OLD PATH = %@", path);
    path = redirectTempFolder(path);
    VHConsoleLog("^^^^^ CREATE DIR NEW PATH = %@", path);
    auto place = VHPlaceForNewItem(path);
    if (const int* error = std::get_if<int>(&place)) return *error;
    if (VHLiveRecordClearingDeleted(path)) return -EEXIST;
    const VHItemPlace& at = std::get<VHItemPlace>(place);
    VHDatabase& db = VHDatabase::database();
    auto folder = db.createFolder(VHLastPathComponent(path), at.shareId, at.parentId);
    if (!folder) return -EIO;
    folder->permissions = mode & 0xFFF;
    db.updateFileAttributes(*folder);
    return 0;
}

// The new record's empty cache copy, open for the creating handle. The copy
// is private to the client whatever mode the file asks for: the record holds that.
int openNewCopy(const VHFile& file) {
    std::string cachePath = VHFileCache::fileCache().pathForFileCache(file);
    VHConsoleLog("^^^^^ CREATE CACHE file = %@, path = %@", file.publicName, cachePath);
    int fd = ::open(cachePath.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) {
        VHLog(kLogDrive, "%s : Warning! Cannot create file in path %@ : error %d",
              "varnholt_create", cachePath, errno);
    }
    return fd;
}

int createRecord(const std::string& path, mode_t mode, struct fuse_file_info* fi) {
    auto place = VHPlaceForNewItem(path);
    if (const int* error = std::get_if<int>(&place)) return *error;
    const VHItemPlace& at = std::get<VHItemPlace>(place);
    VHDatabase& db = VHDatabase::database();
    auto file = db.createFile(VHLastPathComponent(path), at.shareId, at.parentId);
    if (!file) return -EIO;
    int fd = openNewCopy(*file);
    file->fileSize = 0;
    file->deleted = false;
    file->permissions = mode & 0xFFF;
    db.updateFileAttributes(*file);
    auto handle =
        std::make_unique<VHFuseFileData>(O_RDWR | O_CREAT | O_TRUNC, fd, VHFuseCallerPid());
    handle->setFileId(file->internalName);
    // Until the creating handle is released the file is still being written.
    handle->markWritten();
    VHStoreHooks::setOpenFiles(&VHFuseFileData::hooks());
    db.markFileUpdated(*file);
    VHFuseFileData::fileWasModified(*file);
    handle.release()->storeIn(fi);
    return 0;
}

int create(const std::string& rawPath, mode_t mode, struct fuse_file_info* fi) {
    VHConsoleLog("<<<<<<<<<< create %s", rawPath);
    VHLog(kLogDrive, "%s:%@", "varnholt_create", rawPath);
    std::string path = finalPath(rawPath);
    VHConsoleLog("^^^^^ CREATE FILE OLD PATH = %@", rawPath);
    VHConsoleLog("^^^^^ CREATE FILE NEW PATH = %@", path);
    if (VHNewNameIsInvalid(path)) return -EIO;
    if (VHIsReadOnlyPath(path)) {
        VHLog(kLogMain, "is read only share");
        return -EACCES;
    }
    if (auto existing = VHLiveRecordClearingDeleted(path)) {
        if (!existing->isFile) {
            VHLog(kLogMain, "%s: Warning! Trying to create file in place of directory : %@",
                  "varnholt_create", path);
            return -EISDIR;
        }
        // Another open made it first: this one opens what is there.
        return varnholt_open(rawPath.c_str(), fi);
    }
    return createRecord(path, mode, fi);
}

}  // namespace

int varnholt_create(const char* path, mode_t mode, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] { return create(path ? path : "/", mode, fi); });
}

int varnholt_mkdir(const char* path, mode_t mode) {
    return VHFuseGuard(__func__, [&] { return mkdir(path ? path : "/", mode); });
}

}  // namespace vh
