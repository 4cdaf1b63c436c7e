// Changes made on the drive: creating, renaming, writing, removing and moving
// items. Each change reads and writes its rows in one job on the database
// thread; the hooks run on the caller's thread, before or after the job.
#include <algorithm>
#include <set>

#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHStrings.h"
#include "store/VHDatabaseAccess.h"
#include "store/VHStoreHooks.h"

namespace vh {

namespace {

// Never uploaded: a temporary name, or an application's save in progress.
bool isTemporaryName(const std::string& name) {
    return VHIsPathIgnored(name) || VHContains(name, kDocumentBeingSaved);
}

// Never uploaded, and so neither is anything inside it (a ".git" folder).
bool isLocalOnly(const VHFile& folder) {
    return isTemporaryName(folder.publicName) || folder.status == kStatusTemporary;
}

uint64_t statusAfterRename(uint64_t status, const std::string& newName) {
    switch (status) {
        case kStatusCreated:
            return VHIsPathIgnored(newName) ? kStatusTemporary : kStatusCreated;
        case kStatusTemporary:
            return VHIsPathIgnored(newName) ? kStatusTemporary : kStatusCreated;
        case kStatusSynchronized:
        case kStatusUploaded:
            return kStatusChanged;
        default:
            return status;
    }
}

// An editor's backup of a file: "name~" or ".name".
bool isBackupOf(const std::string& newName, const std::string& oldName) {
    return newName == oldName + "~" || newName == "." + oldName;
}

// Stores the row's current state as its shadow, unless it has one.
bool keepShadow(VHFilesTable& t, const VHFile& row) {
    return t.fileWithId(row.internalName, true) || t.addFile(row, kStatusShadow);
}

// The item becomes new to the server in the other share; a folder also
// leaves any enclosing share.
bool moveIntoShare(VHFilesTable& t, const std::string& id, const std::string& newShareId,
                   bool isFolder) {
    bool ok = !isFolder ||
              t.update("UPDATE files SET shareId = ?, parentShareId = ? WHERE internalName = ?",
                       {newShareId, std::string(), id});
    return t.update("UPDATE files SET shareId = ?, status = ? WHERE internalName = ?",
                    {newShareId, uint64_t{kStatusCreated}, id}) &&
           ok;
}

}  // namespace

// What a change did, for the hooks that follow it.
struct VHDatabase::ItemChange {
    std::optional<VHFile> result;
    // Set when an item took over another's identity: the old item's row
    // and the new item's row as they were before.
    std::optional<std::pair<VHFile, VHFile>> exchanged;
};

void VHDatabase::afterExchange(const VHFile& oldFile, const VHFile& newFile) {
    VHStoreHooks::openFiles().fileWasModified(newFile);
    VHStoreHooks::openFiles().fileWasModified(oldFile);
    if (oldFile.isFile || newFile.isFile)
        VHStoreHooks::cache().exchangeFileCaches(oldFile, newFile);
    VHStoreHooks::openFiles().exchangeFileId(oldFile.internalName, newFile.internalName);
    clearCacheForId(oldFile.internalName);
    clearCacheForId(newFile.internalName);
}

bool VHDatabase::exchangeOldFile(const VHFile& oldFile, const VHFile& newFile) {
    bool done = write([&](VHFilesTable& t) { return t.exchange(oldFile, newFile).has_value(); });
    if (done && (oldFile.isFile || newFile.isFile)) {
        VHStoreHooks::cache().exchangeFileCaches(oldFile, newFile);
    }
    return done;
}

// ---- Creating -----------------------------------------------------------------------

std::optional<VHFile> VHDatabase::createFile(const std::string& name, const std::string& shareId,
                                             const std::string& parentId) {
    return createFileItem(name, shareId, parentId, false);
}

std::optional<VHFile> VHDatabase::createFolder(const std::string& name, const std::string& shareId,
                                               const std::string& parentId) {
    return createFileItem(name, shareId, parentId, true);
}

std::optional<VHFile> VHDatabase::createFileItem(const std::string& name,
                                                 const std::string& shareId,
                                                 const std::string& parentId, bool isDir) {
    std::optional<ManagedShare> share = storage_.shareWithId(shareId);
    if (!share) {
        VHLog(kLogDatabase,
              "Warning! Got request to create new file/folder but no share with id %@ is found.",
              shareId);
        return std::nullopt;
    }
    VHFile file;
    file.publicName = name;
    file.shareId = shareId;
    file.parentId = parentId;
    file.internalName = generateFileInternalName();
    file.parentShareId = share->ParentShareId.value_or("");
    file.user = VHStoreHooks::app().username();
    file.shareTick = file.updateTick = file.createTick =
        static_cast<uint64_t>(share->LastApplyedJournalTick);
    file.attributes = isDir ? 16 : 128;
    file.isFile = !isDir;
    file.permissions = isDir ? kFolderPermissions : kFilePermissions;
    if (file.isFile) VHStoreHooks::cache().createCacheFile(file);

    ItemChange change = write([&](VHFilesTable& t) {
        std::optional<VHFile> parent = t.fileWithId(parentId, false);
        bool temporary = isTemporaryName(name) || (parent && isLocalOnly(*parent));
        file.status = temporary ? kStatusTemporary : kStatusCreated;
        return insertOrTakeOver(t, file);
    });
    if (change.exchanged) {
        afterExchange(change.exchanged->first, change.exchanged->second);
    } else if (change.result) {
        VHStoreHooks::openFiles().fileWasModified(file);
        refreshFile(file);
    }
    return change.result;
}

VHDatabase::ItemChange VHDatabase::insertOrTakeOver(VHFilesTable& t, const VHFile& file) {
    if (!VHContains(file.publicName, kDocumentBeingSaved)) {
        if (auto previd = t.idOfFileNamed(file.publicName, file.parentId, true)) {
            std::optional<VHFile> live = t.fileWithId(*previd, false);
            std::optional<VHFile> shadow = t.fileWithId(*previd, true);
            if (!live) {
                VHLog(kLogDatabase, "Warning! Found previd %@, but there is no file with this id.",
                      *previd);
            } else if (!shadow) {
                VHLog(kLogDatabase,
                      "Warning! Found previd %@, but there is no shadow with this id.", *previd);
            } else if (live->isFile && file.isFile && !live->deleted && t.exchange(*live, file)) {
                return {t.fileWithId(live->internalName, false), std::pair{*live, file}};
            }
        }
    }
    if (!t.addFile(file, file.status)) return {};
    return {file, std::nullopt};
}

// ---- Renaming -----------------------------------------------------------------------

std::optional<VHFile> VHDatabase::renameFile(const VHFile& file, const std::string& newName,
                                             const std::string& newParentId) {
    clearCacheForId(file.internalName);
    std::string parentId = newParentId.empty() ? file.parentId : newParentId;
    if (newName == file.publicName && parentId == file.parentId) return file;
    ItemChange change = write([&](VHFilesTable& t) -> ItemChange {
        std::optional<VHFile> current = t.fileWithId(file.internalName, false);
        if (!current) return {};
        VHFile renamed = *current;
        renamed.shareId = file.shareId;
        renamed.publicName = newName;
        renamed.parentId = parentId;
        if (auto change = takeOverByRename(t, renamed)) return *change;
        if (current->status != kStatusCreated && current->status != kStatusTemporary) {
            serverPlaces_.noteLeaving(current->internalName,
                                      {current->parentId, current->publicName});
        }
        uint64_t status = statusAfterRename(current->status, newName);
        std::optional<VHFile> newParent = t.fileWithId(parentId, false);
        if (newParent && isLocalOnly(*newParent) && status == kStatusCreated) {
            status = kStatusTemporary;
        }
        bool known = current->status == kStatusSynchronized || current->status == kStatusUploaded;
        // Only a rename that hides the item, or moves it aside as an editor's
        // backup, keeps the server's state: a new file under the old name
        // then takes the item over.
        if (known && (VHIsSafeSaveName(newName) || VHIsHiddenFuseName(newName) ||
                      isBackupOf(newName, current->publicName))) {
            keepShadow(t, *current);
        }
        if (status == current->status) {
            t.update(
                "UPDATE files SET publicName = ?, parentId = ?, shareId = ? WHERE internalName = ? "
                "AND status = ?",
                {newName, parentId, file.shareId, file.internalName, current->status});
        } else {
            t.update(
                "UPDATE files SET publicName = ?, parentId = ?, shareId = ?, status = ? WHERE "
                "internalName = ? AND status = ?",
                {newName, parentId, file.shareId, status, file.internalName, current->status});
        }
        return {t.fileWithId(file.internalName, false), std::nullopt};
    });
    if (change.exchanged) {
        afterExchange(change.exchanged->first, change.exchanged->second);
    } else if (change.result) {
        VHStoreHooks::openFiles().fileWasModified(*change.result);
    }
    if (change.result) refreshFile(*change.result);
    clearCacheForId(file.internalName);
    return change.result;
}

// An item of the new name whose change is pending (it has a shadow) hands
// its identity to the renamed item: a document saved by writing a copy and
// renaming it over the original stays the same item.
std::optional<VHDatabase::ItemChange> VHDatabase::takeOverByRename(VHFilesTable& t,
                                                                   VHFile renamed) {
    std::optional<VHFile> target = t.fileWithParentId(renamed.parentId, renamed.publicName, true);
    if (!target || target->internalName == renamed.internalName) return std::nullopt;
    std::optional<VHFile> existing = t.fileWithId(target->internalName, false);
    // A folder's children would stay with the identity it gives up, and a
    // deleted item's name is free: both are plain renames.
    if (!existing || !existing->isFile || !renamed.isFile || existing->deleted) {
        return std::nullopt;
    }
    if (renamed.status == kStatusTemporary) renamed.status = kStatusCreated;
    if (!t.exchange(*existing, renamed)) return ItemChange{};
    return ItemChange{t.fileWithId(existing->internalName, false), std::pair{*existing, renamed}};
}

// ---- Writing ------------------------------------------------------------------------

std::optional<VHFile> VHDatabase::markFileUpdated(const VHFile& file) {
    bool becameModified = false;
    std::optional<VHFile> updated = write([&](VHFilesTable& t) -> std::optional<VHFile> {
        std::optional<VHFile> row = t.fileWithId(file.internalName, false);
        if (!row) return std::nullopt;
        std::vector<VHSqlValue> values{file.fileSize, VHSqlDate(file.modifyTime),
                                       VHSqlFlag(file.deleted), file.internalName, row->status};
        bool toModified = row->status == kStatusSynchronized || row->status == kStatusChanged ||
                          row->status == kStatusUploaded;
        if (row->status == kStatusSynchronized && !keepShadow(t, *row)) return std::nullopt;
        t.update(toModified ? "UPDATE files SET fileSize = ?, modifyTime = ?, deleted = ?, status "
                              "= 2 WHERE internalName = ? AND status = ?"
                            : "UPDATE files SET fileSize = ?, modifyTime = ?, deleted = ? WHERE "
                              "internalName = ? AND status = ?",
                 values);
        becameModified = toModified;
        return t.fileWithId(file.internalName, false);
    });
    // Only the change of state is told: this runs for every write.
    if (updated && becameModified) VHStoreHooks::app().fileSyncStateChanged(*updated);
    return updated;
}

// ---- Removing -----------------------------------------------------------------------

bool VHDatabase::removeFile(const VHFile& file, bool andCache, bool forceDelete) {
    beforeRemoval(file);
    bool done = write([&](VHFilesTable& t) { return removeRows(t, file, forceDelete); });
    afterRemoval(file, andCache);
    VHStoreHooks::uploads().uploadsAdded();
    return done;
}

bool VHDatabase::removeFolderRecursive(const VHFile& folder) {
    // Children before their folders, the folder itself last.
    std::vector<VHFile> doomed = allFolderSiblings(folder.internalName, true);
    std::reverse(doomed.begin(), doomed.end());
    doomed.push_back(folder);
    for (const VHFile& item : doomed) beforeRemoval(item);
    bool done = write([&](VHFilesTable& t) {
        bool all = true;
        for (const VHFile& item : doomed) all = removeRows(t, item, false) && all;
        return all;
    });
    for (const VHFile& item : doomed) afterRemoval(item, true);
    VHStoreHooks::uploads().uploadsAdded();
    return done;
}

void VHDatabase::beforeRemoval(const VHFile& file) {
    clearCacheForId(file.internalName);
    VHStoreHooks::uploads().cancelUpload(file);
    VHStoreHooks::openFiles().fileWasModified(file);
}

bool VHDatabase::removeRows(VHFilesTable& t, const VHFile& file, bool forceDelete) {
    std::optional<VHFile> row = t.fileWithId(file.internalName, false);
    uint64_t status = row ? row->status : file.status;
    bool ok;
    if (status != kStatusCreated && status != kStatusTemporary && !forceDelete) {
        ok = (!row || keepShadow(t, *row)) &&
             t.update(
                 "UPDATE files SET deleted = 1, status = 3 WHERE internalName = ? AND status "
                 "!= 5",
                 {file.internalName});
    } else {
        ok = t.deleteFile(file.internalName);
        VHLog(kLogDatabase,
              "^^^^^ REMOVE FROM DATABASE id = %@, name = %@, shareId = %@, parentId = %@",
              file.internalName, file.publicName, file.shareId, file.parentId);
    }
    return (!file.isFile || t.deleteFileDownload(file.internalName)) && ok;
}

void VHDatabase::afterRemoval(const VHFile& file, bool andCache) {
    // A folder has no contents here, but it may have attributes.
    if (andCache) VHStoreHooks::cache().deleteFileCache(file);
    VHFile removed = file;
    removed.deleted = true;
    refreshFile(removed);
}

void VHDatabase::refreshFile(const VHFile& file) {
    clearCacheForId(file.internalName);
    VHStoreHooks::app().refreshFileInFinder(file);
}

// ---- Moving into another share ----------------------------------------------------------

bool VHDatabase::changeFilesShareIdInFolderRecursive(const VHFile& folder,
                                                     const std::string& newShareId) {
    struct Moved {
        std::vector<VHFile> folders;  // as now stored, to be uploaded
        std::vector<VHFile> items;    // as before, whose cache and attribute files move
        bool ok = true;
    };
    Moved moved = write([&](VHFilesTable& t) {
        Moved found;
        std::vector<std::string> pending{folder.internalName};
        std::set<std::string> visited;
        while (!pending.empty()) {
            std::string id = pending.back();
            pending.pop_back();
            if (!visited.insert(id).second) continue;
            blockMap_.set(id, "block");
            found.ok = moveIntoShare(t, id, newShareId, true) && found.ok;
            if (std::optional<VHFile> row = t.fileWithId(id, false)) found.folders.push_back(*row);
            for (VHFile& child : t.filesInFolder(id, true).value_or(std::vector<VHFile>{})) {
                if (!child.isFile) {
                    pending.push_back(child.internalName);
                } else {
                    found.ok = moveIntoShare(t, child.internalName, newShareId, false) && found.ok;
                }
                found.items.push_back(std::move(child));
            }
        }
        return found;
    });
    for (const VHFile& movedFolder : moved.folders) VHStoreHooks::uploads().upload(movedFolder);
    for (const VHFile& child : moved.items) {
        VHStoreHooks::cache().moveFileCache(child.internalName, child.internalName, child.shareId,
                                            newShareId);
    }
    clearCacheForId(folder.internalName);
    return moved.ok;
}

}  // namespace vh
