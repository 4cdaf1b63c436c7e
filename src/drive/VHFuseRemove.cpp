#include "drive/VHFuseRemove.h"

#include <cerrno>

#include "drive/VHFuseAttributes.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseNamespace.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

// A share is never removed from the drive.
int refuseShare(const std::string& path) {
    return driveShareWithPath(path) ? -EACCES : -ENOENT;
}

// The hidden name of a backup-style rename stands for the path it hid.
std::string unhiddenPath(const std::string& path) {
    VHDatabase& db = VHDatabase::database();
    std::string name = VHLastPathComponent(path);
    if (!VHStartsWith(name, ".fuse_hidden")) return path;
    auto before = db.renamingMap().take(name);
    if (!before) return path;
    db.setShouldAddToRenamingMap(false);
    return *before;
}

// A safe-save copy goes: the document it was saved from is found again by
// its own path.
void repointSavedDocument(const std::string& path, const VHFile& copy) {
    size_t marker = path.find(".sb-");
    if (marker == std::string::npos) return;
    VHDatabase& db = VHDatabase::database();
    std::string documentPath = path.substr(0, marker);
    auto document = db.fileWithParentId(copy.parentId, VHLastPathComponent(documentPath));
    if (!document) return;
    db.cacheItem(document->internalName, documentPath, false);
    if (auto parent = db.fileWithId(copy.parentId)) {
        db.cacheItem(document->internalName, db.fullFilePath(*parent) + "/" + document->publicName,
                     false);
    }
}

int removeFolder(const VHFile& folder) {
    VHDatabase& db = VHDatabase::database();
    if (!db.folderIsEmpty(folder.internalName, false)) return -ENOTEMPTY;
    db.removeFile(folder, true);
    return 0;
}

int unlink(const std::string& rawPath) {
    VHLog(kLogDrive, "%s:%@", "varnholt_unlink", rawPath);
    std::string path = finalPath(rawPath);
    if (VHIsReadOnlyPath(path)) return -EACCES;
    if (VHLastPathComponent(path) == kFinderRefresh) return 0;
    if (VHFuseUtils::isRootPath(path) || VHFuseUtils::isSharePath(path)) return refuseShare(path);
    path = unhiddenPath(path);
    VHDatabase& db = VHDatabase::database();
    auto file = driveFileWithPath(path);
    VHConsoleLog("<<<<<<<<< unlink file %@ %@ deleted:%i", path, file ? file->internalName : "",
                 file && file->deleted);
    if (!file || file->deleted || db.isFileLockedRemotely(*file)) return -ENOENT;
    if (!file->isFile) return removeFolder(*file);
    if (VHFuseUtils::isPathIgnored(path, false)) repointSavedDocument(path, *file);
    VHConsoleLog("<<<<<<<<< unlink removeFile %@", path);
    VHConsoleLog("^^^^^ REMOVE progress FILE path = %@, id = %@, shareId = %@, parentId = %@", path,
                 file->internalName, file->shareId, file->parentId);
    if (VHIsInTempArea(path) && db.blockMap().contains(file->parentId)) return 0;
    VHConsoleLog("^^^^^ REMOVE SUCCESS");
    db.removeFile(*file, true);
    return 0;
}

// The temp-area folder that a redirected save folder really is, taken out of
// the archive map; else the mapped path.
std::pair<std::string, bool> folderToRemove(const std::string& rawPath) {
    std::string key = keyFromPath(rawPath);
    if (auto redirected = VHDatabase::database().archiveMap().take(key)) return {*redirected, true};
    return {finalPath(rawPath), false};
}

// Hidden leftovers (names the listing never shows) do not keep a folder.
bool hasListedChildren(const VHFile& folder) {
    for (const std::string& name :
         VHDatabase::database().fileNamesListWithParent(folder.internalName)) {
        if (!VHFuseUtils::isPathIgnored(name, false)) return true;
    }
    return false;
}

int rmdirFolder(const std::string& path, bool redirected) {
    VHDatabase& db = VHDatabase::database();
    auto folder = driveFileWithPath(path);
    if (!folder || folder->deleted) return -ENOENT;
    if (folder->isFile) return -ENOTDIR;
    if (hasListedChildren(*folder)) return -ENOTEMPTY;
    if (redirected) db.updateFileWithId(folder->internalName, folder->shareId, kStatusTemporary);
    if (db.blockMap().contains(folder->internalName)) {
        VHConsoleLog("^^^^^ REMOVE DIR progress ID = %@", folder->internalName);
        return -EBUSY;
    }
    VHConsoleLog("^^^^^ REMOVE DIR SUCCESS ID");
    return db.removeFolderRecursive(*folder) ? 0 : -EIO;
}

int rmdir(const std::string& rawPath) {
    VHLog(kLogDrive, "%s:%@", "varnholt_rmdir", rawPath);
    auto [path, redirected] = folderToRemove(rawPath);
    VHConsoleLog("^^^^^ REMOVE DIR OLD PATH = %@", rawPath);
    VHConsoleLog("^^^^^ REMOVE DIR NEW PATH = %@", path);
    int result = 0;
    if (VHIsReadOnlyPath(path)) {
        result = -EACCES;
    } else if (VHFuseUtils::isRootPath(path) || VHFuseUtils::isSharePath(path)) {
        result = refuseShare(path);
    } else {
        result = rmdirFolder(path, redirected);
    }
    VHLog(kLogDrive, "%s:%s, return code %d", "varnholt_rmdir", rawPath, result);
    return result;
}

}  // namespace

int varnholt_unlink(const char* path) {
    return VHFuseGuard(__func__, [&] { return unlink(path ? path : "/"); });
}

int varnholt_rmdir(const char* path) {
    return VHFuseGuard(__func__, [&] { return rmdir(path ? path : "/"); });
}

}  // namespace vh
