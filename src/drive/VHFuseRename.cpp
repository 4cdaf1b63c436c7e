#include "drive/VHFuseRename.h"

#include <linux/fs.h>

#include <cerrno>

#include "drive/VHFuseAttributes.h"
#include "drive/VHFuseExchange.h"
#include "drive/VHFuseFileData.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseNamespace.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"
#include "store/VHStoreHooks.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

constexpr int kHiddenDeleteDelayMs = 50;
constexpr int kSettleMs = 5000;

// libfuse hides a file deleted while open behind a ".fuse_hidden" name. The
// old name must be gone at once (programs check that an unlink took); the
// record goes a moment later, unless the file comes back under its name, or
// when it is still open, with its last release (libfuse then unlinks the
// hidden name), so that fstat keeps working meanwhile.
int hideDeletedFile(const std::string& from, const std::string& to) {
    VHDatabase& db = VHDatabase::database();
    auto file = driveFileWithPath(from);
    if (!file || file->deleted) return -ENOENT;
    db.deleteMap().set(from, to);
    VHConsoleLog("<<DELETE>> add in queue = %@", from);
    if (!db.renameFile(*file, VHLastPathComponent(to))) return -ENOENT;
    VHRunLater(kHiddenDeleteDelayMs, [from, id = file->internalName] {
        VHDatabase& db = VHDatabase::database();
        if (!db.deleteMap().take(from)) return;
        VHConsoleLog("<<DELETE>> delete file = %@", from);
        auto current = db.fileWithId(id);
        if (current && !current->deleted && !VHFuseFileData::isOpen(id)) {
            db.removeFile(*current, true);
        }
    });
    return 0;
}

// A spreadsheet application saves into a temporary name: it gets a record
// of its own in the destination's folder.
int createSpreadsheetCopy(const std::string& to) {
    auto place = VHPlaceForNewItem(to);
    if (const int* error = std::get_if<int>(&place)) return *error;
    const VHItemPlace& at = std::get<VHItemPlace>(place);
    auto file = VHDatabase::database().createFile(VHLastPathComponent(to), at.shareId, at.parentId);
    if (!file) return -EIO;
    VHConsoleLog("<<EXCEL>> RENAME TMP FILE name = %@, id = %@, parent = %@", file->publicName,
                 file->internalName, file->parentId);
    return 0;
}

// Refusals that the user is shown: a read-only destination, or two shares.
int checkShares(const std::string& from, const std::string& to) {
    auto toShare = driveShareWithPath(to);
    if (toShare && toShare->isReadonlyShare() && !VHFuseUtils::isPathIgnored(to, false)) {
        VHPostDriveAlert(VHDriveAlert::ReadOnlyShare);
        VHLog(kLogDrive, "%s failed since share is read-only", "varnholt_rename");
        return -EIO;
    }
    auto fromShare = driveShareWithPath(from);
    if (toShare && fromShare && toShare->ShareId != fromShare->ShareId && !VHIsInTempArea(from) &&
        !VHIsInTempArea(to)) {
        VHPostDriveAlert(VHDriveAlert::BetweenShares);
        VHLog(kLogDrive, "%s failed to move files between shares", "varnholt_rename");
        return -EIO;
    }
    return 0;
}

int renameShare(const std::string& from, const std::string& to) {
    auto share = driveShareWithPath(from);
    if (!share || !share->ShareId) return -ENOENT;
    if (!VHFuseUtils::isSharePath(to)) return 0;
    return VHDatabase::database().renameShare(*share->ShareId, VHLastPathComponent(to)) ? 0
                                                                                        : -EACCES;
}

// A folder takes the place of an empty folder only.
int replaceFolder(const VHFile& source, const VHFile& target) {
    if (source.isFile) return -EISDIR;
    if (target.isFile) return -ENOTDIR;
    VHDatabase& db = VHDatabase::database();
    if (!db.folderIsEmpty(target.internalName, false)) return -ENOTEMPTY;
    db.removeFile(target, false);
    return 0;
}

// Where the moved item goes: its share and parent id.
std::variant<VHItemPlace, int> destinationPlace(const std::string& to) {
    std::string parentPath = VHDeletingLastPathComponent(to);
    if (VHFuseUtils::isRootPath(parentPath)) return -EIO;
    if (!VHFuseUtils::isSharePath(parentPath)) {
        auto parent = driveFileWithPath(parentPath);
        if (!parent || parent->deleted) return -ENOENT;
        if (parent->isFile) return -ENOTDIR;
    }
    auto place = VHPlaceForNewItem(to);
    if (const int* error = std::get_if<int>(&place); error && *error == -EIO) return -ENOENT;
    return place;
}

// Items coming out of the temp area settle for a while before remote changes
// (or an rmdir) touch them.
void block(const std::string& id) {
    VHDatabase::database().blockMap().set(id, "block");
    VHRunLater(kSettleMs, [id] { VHDatabase::database().blockMap().remove(id); });
}

void blockArrivedFromTempArea(const VHFile& moved, const std::string& newShareId) {
    VHDatabase& db = VHDatabase::database();
    if (moved.isFile) {
        block(moved.parentId);
        VHConsoleLog("^^^^^ LOCK id = %@, name = %@, parentId = %@", moved.internalName,
                     moved.publicName, moved.parentId);
        VHConsoleLog("^^^^^ <<< LOCK 1 parent ID = %@ >>>", moved.parentId);
        return;
    }
    block(moved.internalName);
    db.changeFilesShareIdInFolderRecursive(moved, newShareId);
    VHConsoleLog("^^^^^ LOCK folder id = %@, name = %@, parentId = %@", moved.internalName,
                 moved.publicName, moved.parentId);
    VHConsoleLog("^^^^^ <<< LOCK 2 parent ID = %@ >>>", moved.internalName);
}

int moveItem(VHFile file, const std::string& from, const std::string& to) {
    auto place = destinationPlace(to);
    if (const int* error = std::get_if<int>(&place)) return *error;
    const VHItemPlace& at = std::get<VHItemPlace>(place);
    VHDatabase& db = VHDatabase::database();
    // A folder has no contents here, but it may have attributes.
    if (file.shareId != at.shareId) {
        VHFileCache::fileCache().moveFileCache(file.internalName, file.shareId, at.shareId);
    }
    db.cacheItem(file.internalName, to, false);
    file.shareId = at.shareId;
    auto renamed = db.renameFile(file, VHLastPathComponent(to), at.parentId);
    if (!renamed) return -ENOENT;
    VHStoreHooks::uploads().upload(*renamed);
    if (VHIsInTempArea(from)) blockArrivedFromTempArea(*renamed, at.shareId);
    return 0;
}

int renameItem(const std::string& from, const std::string& to) {
    VHDatabase& db = VHDatabase::database();
    auto source = driveFileWithPath(from);
    if (!source || source->deleted) return -ENOENT;
    if (VHStoreHooks::uploads().uploadUnconfirmed(*source)) {
        VHPostDriveAlert(VHDriveAlert::NotYetUploaded);
        VHLog(kLogDrive, "%s: %@ is not yet confirmed by the server", "varnholt_rename", from);
        return -EIO;
    }
    VHFuseFileData::fileWasModified(*source);
    auto target = driveFileWithPath(to);
    if (target && target->deleted) {
        db.removeFile(*target, true, true);
        target.reset();
    }
    if (target) {
        if (target->internalName == source->internalName) return 0;
        VHFuseFileData::fileWasModified(*target);
        if (VHCanReplaceContents(*source, *target)) return VHReplaceFile(*source, *target);
        if (source->isFile && target->isFile) {
            // Without the source's bytes at hand the target goes and the source takes its name.
            db.removeFile(*target, true);
        } else if (int error = replaceFolder(*source, *target)) {
            return error;
        }
    }
    return moveItem(*source, from, to);
}

bool isBackupName(const std::string& from, const std::string& to) {
    return VHLastPathComponent(to) == "." + VHLastPathComponent(from);
}

// The steps for two item paths, once the save patterns are handled.
int renamePaths(const std::string& from, const std::string& to) {
    VHLog(kLogDrive, "%s:%@ toPath:%@", "varnholt_rename", from, to);
    if (VHLastPathComponent(from) == kFinderRefresh) return 0;
    if (isBackupName(from, to)) VHDatabase::database().setShouldAddToRenamingMap(true);
    if (int error = checkShares(from, to)) return error;
    if (VHFuseUtils::isRootPath(from) || VHFuseUtils::isRootPath(to)) return -EIO;
    if (VHFuseUtils::isSharePath(from)) return renameShare(from, to);
    if (VHFuseUtils::isSharePath(to)) return driveShareWithPath(to) ? -EIO : -ENOENT;
    return renameItem(from, to);
}

int rename(const std::string& rawFrom, const std::string& rawTo) {
    std::string from = finalPath(rawFrom), to = finalPath(rawTo);
    VHConsoleLog("^^^^^ RENAME OLD SOURCE = %@, OLD DESTINATION = %@", rawFrom, rawTo);
    VHConsoleLog("^^^^^ RENAME NEW SOURCE = %@, NEW DESTINATION = %@", from, to);
    if (VHNewNameIsInvalid(to)) return VHRefuseInvalidName();
    std::string newName = VHLastPathComponent(to);
    if (VHStartsWith(newName, ".fuse_hidden")) return hideDeletedFile(from, to);
    if (VHDatabase::database().deleteMap().take(to)) {
        VHConsoleLog("<<DELETE>> remove from queue = %@", to);
    }
    if (VHContains(to, ".xlsx.sb-")) return createSpreadsheetCopy(to);
    if (VHContains(to, ".sb-")) return 0;
    return renamePaths(from, to);
}

}  // namespace

int varnholt_rename(const char* from, const char* to, unsigned int flags) {
    return VHFuseGuard(__func__, [&]() -> int {
        if (!from || !to) return -EINVAL;
        if (flags & RENAME_EXCHANGE) return varnholt_exchange(from, to);
        if (flags & ~static_cast<unsigned int>(RENAME_NOREPLACE)) return -EINVAL;
        if (flags & RENAME_NOREPLACE) {
            auto target = driveFileWithPath(finalPath(to));
            if (target && !target->deleted) return -EEXIST;
        }
        return rename(from, to);
    });
}

}  // namespace vh
