#include "drive/VHFuseExchange.h"

#include <cerrno>

#include "drive/VHFuseFileData.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseNamespace.h"
#include "drive/VHFusePathMapping.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

// New contents for a file: the upload queue hears of it before the store.
void storeNewContents(VHFile& file) {
    VHUploadQueue::uploadQueue().noteContentChanged(file.internalName);
    VHFuseFileData::fileWasModified(file);
    VHDatabase& db = VHDatabase::database();
    if (auto updated = db.markFileUpdated(file)) {
        updated->permissions = file.permissions;
        updated->accessTime = file.accessTime;
        db.updateFileAttributes(*updated);
    }
}

void takeContentsOf(VHFile& file, const VHFile& from) {
    file.fileSize = from.fileSize;
    file.modifyTime = from.modifyTime;
    file.accessTime = from.accessTime;
    file.permissions = from.permissions;
    file.deleted = false;
}

bool isDownloaded(const VHFile& file) {
    return VHDownloadQueue::downloadQueue().isFileDownloaded(file);
}

int exchange(const std::string& path1, const std::string& path2) {
    VHLog(kLogDrive, "%s:%@ withItemAtPath:%@", "varnholt_exchange", path1, path2);
    if (VHIsReadOnlyPath(path1) || VHIsReadOnlyPath(path2)) return -EACCES;
    auto first = driveFileWithPath(path1), second = driveFileWithPath(path2);
    if (!first || first->deleted || !second || second->deleted) return -ENOENT;
    if (first->internalName == second->internalName) return 0;
    if (!first->isFile || !second->isFile) return -EIO;
    if (!isDownloaded(*first)) {
        VHLog(kLogDrive, "Warning! Source of exchanging files is not downloaded.");
        return -EIO;
    }
    if (!isDownloaded(*second)) {
        VHLog(kLogDrive, "Warning! Destination of exchanging files is not downloaded.");
        return -EIO;
    }
    VHFileCache& cache = VHFileCache::fileCache();
    if (!VHFileCache::exchangeFileContents(cache.pathForFileCache(*first),
                                           cache.pathForFileCache(*second))) {
        return -EIO;
    }
    VHFile newFirst = *first, newSecond = *second;
    takeContentsOf(newFirst, *second);
    takeContentsOf(newSecond, *first);
    storeNewContents(newFirst);
    storeNewContents(newSecond);
    VHFuseFileData::exchangeFileId(first->internalName, second->internalName);
    return 0;
}

}  // namespace

int varnholt_exchange(const char* path1, const char* path2) {
    return VHFuseGuard(__func__, [&] {
        return exchange(finalPath(path1 ? path1 : "/"), finalPath(path2 ? path2 : "/"));
    });
}

bool VHCanReplaceContents(const VHFile& source, const VHFile& target) {
    return source.isFile && target.isFile && source.shareId == target.shareId &&
           isDownloaded(source);
}

int VHReplaceFile(const VHFile& source, const VHFile& target) {
    VHFileCache& cache = VHFileCache::fileCache();
    VHUploadQueue::uploadQueue().noteContentChanged(target.internalName);
    cache.deleteFileDownload(target);
    cache.moveFileCache(source.internalName, target.internalName, source.shareId, target.shareId);
    VHFuseFileData::exchangeFileId(source.internalName, target.internalName);
    VHDatabase& db = VHDatabase::database();
    db.removeFile(source, false);
    VHFile replaced = target;
    takeContentsOf(replaced, source);
    storeNewContents(replaced);
    db.refreshFile(replaced);
    return 0;
}

}  // namespace vh
