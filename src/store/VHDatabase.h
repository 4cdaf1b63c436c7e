// The process-wide metadata database (files.db): every file and folder of
// every share as the client last knew it from the server, plus the local
// changes the server has not confirmed yet.
//
// Threads: every public method may be called from any thread. Each statement
// runs on the one database thread, which alone owns the SQLite connection;
// the caller blocks until it is done. Writers also hold the recursive writer
// lock, which a batch of server changes keeps from its first statement to its
// commit, so a read-modify-write of one method is never interleaved with
// another writer. Readers do not take that lock.
//
// Failures are logged and become false, nothing or an empty list. A lookup
// that finds no row returns nothing.
//
// Hooks of VHStoreHooks are called on the caller's thread with no lock of the
// store held, so a hook may call back into the store.
//
// Lock order: writer lock, then VHMetadataStorage's lock, then a path cache's
// lock. None of them is held while calling a hook.
#pragma once

#include <atomic>
#include <functional>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib/VHDate.h"
#include "store/VHCatchUpResponse.h"
#include "store/VHFile.h"
#include "store/VHLoginRecords.h"
#include "store/VHMetadataStorage.h"
#include "store/VHPathCache.h"
#include "store/VHShutdownBlock.h"
#include "store/VHStringMap.h"
#include "store/VHVirtualFile.h"

namespace vh {

class VHDatabaseThread;
class VHFilesTable;
class VHSqlite;

// The schema version this build creates and upgrades to.
inline constexpr const char* cCurrentDBVersion = "1.3";

class VHDatabase {
  public:
    // The one instance, made on first use (thread-safe); never destroyed.
    static VHDatabase& database();

    // A new item identity: a lower-case GUID without dashes.
    static std::string generateFileInternalName();
    // A new upload object name: "U" followed by two GUIDs.
    static std::string generateFileUploadName();

    // files.db in the metadata folder, computed when first needed and kept
    // until unload(). Makes the folder; ends the process with status 100 when
    // something else stands there or it cannot be made.
    std::string databasePath();

    // ---- Life cycle ------------------------------------------------------

    // Creates or opens and upgrades files.db (ending the process with status
    // 10 when that fails), deletes the temporary share's rows and loads the
    // stored shares. Logs and does nothing when already loaded.
    void load();
    // Closes the connection and saves the stored shares.
    void unload();
    // Unloads and removes files.db and the stored shares; the next load
    // creates both afresh.
    void clear();
    bool loaded() const { return loaded_; }
    // Whether no share was stored at the last load.
    bool isEmpty() const { return isEmpty_; }

    // Batches of server changes in progress hold the shutdown.
    VHShutdownBlock& shutdown() { return shutdown_; }
    // Also ends delayed saving of the share list: it saves at once from now.
    void beginTermination();
    bool terminating() const { return shutdown_.terminating(); }
    bool shutdownBlocked() const { return shutdown_.shutdownBlocked(); }

    // ---- Shares (the stored share list) ----------------------------------

    VHMetadataStorage& metadataStorage() { return storage_; }
    std::vector<ManagedShare> shares() const { return storage_.shares(); }
    std::optional<ManagedShare> shareWithId(const std::string& shareId) const;
    // "/" + a share's display name; nothing for any other path.
    std::optional<ManagedShare> shareWithPath(const std::string& path) const;
    // The share the item's row names.
    std::optional<ManagedShare> shareForFile(const VHFile& file) const;
    // The item's share and, for a subfolder share, the enclosing share.
    std::vector<ManagedShare> sharesForFile(const VHFile& file) const;
    // The subfolder share that holds the item (same as getSubshareForFile).
    std::optional<ManagedShare> subShareForFile(const VHFile& file);
    // The share whose folder is `folderId` (its InternalName).
    std::optional<ManagedShare> shareForFolder(const std::string& folderId) const;
    // The subfolder shares whose enclosing share is `shareId`.
    std::vector<ManagedShare> subfolderSharesForShareId(const std::string& shareId) const;
    // The share's AssociationType; nothing for an unknown share.
    std::optional<int32_t> associationTypeForShare(const std::string& shareId) const;
    // Forwarded to the stored share list; each also drops the cached paths.
    void updateShares(const ClientLoginResponse& response, const UserDomain& domain);
    bool renameShare(const std::string& shareId, const std::string& newName);
    void deleteShareData(const std::string& shareId);
    void deleteDomainShares(const GlobalLoginResponce& response);
    std::string globalLoginResponce() const { return storage_.globalLoginResponce(); }
    // Stores the text and saves the share list at once.
    void setGlobalLoginResponce(const std::string& text);

    // ---- Lookups ---------------------------------------------------------

    // The live row (status other than 5), or with `shadow` the shadow row.
    std::optional<VHFile> fileWithId(const std::string& id, bool shadow = false);
    // Any synchronized row of the id, or any shadow row of any item (the
    // statement's AND binds before its OR, and that is relied upon as it is).
    std::optional<VHFile> serversideFileWithId(const std::string& id);
    std::optional<VHFile> fileWithParentId(const std::string& parentId, const std::string& name,
                                           bool shadow = false);
    // The id of the live row; with `shadow`, of the shadow when there is
    // one, else of the live row.
    std::optional<std::string> idOfFileNamed(const std::string& name, const std::string& parentId,
                                             bool shadow = false);
    // The first live, not deleted row of that name anywhere.
    std::optional<VHFile> fileWithName(const std::string& name);
    // The parent id of the live row.
    std::optional<std::string> allParents(const std::string& id);
    std::vector<VHFile> filesWithShareID(const std::string& shareId, const std::string& id);
    // Locked on the service by another device than this one.
    bool isFileLockedRemotely(const VHFile& file);

    // ---- Listings (live, not deleted rows) -------------------------------

    std::vector<VHFile> filesInFolder(const std::string& parentId, bool includeFolders);
    // The files (not folders) of a folder.
    std::vector<VHFile> filesWithParent(const std::string& parentId);
    std::vector<VHFile> allShareSiblings(const std::string& shareId, bool includeFolders);
    // Everything below a folder, at any depth.
    std::vector<VHFile> allFolderSiblings(const std::string& folderId, bool includeFolders);
    std::vector<VHFile> allFiles(bool includeFolders, int64_t offset, int64_t count);
    std::vector<std::string> fileIdsWithParent(const std::string& parentId);
    std::vector<std::string> subfolderIdsWithParent(const std::string& parentId);
    // The given folders and every folder below them.
    std::vector<std::string> allSubfolderIds(const std::vector<std::string>& folderIds);
    // The distinct names of a folder's children for the drive's listing:
    // ".fuse_hidden" names are left out and a duplicate row is removed.
    std::vector<std::string> fileNamesListWithParent(const std::string& parentId);
    bool folderIsEmpty(const std::string& folderId, bool includeDeleted);
    // Parents of created or modified items.
    std::vector<std::string> foldersWithUploads();
    // Sum of the sizes of all live rows.
    int64_t totalFileSize();

    // ---- Uploads and downloads -------------------------------------------

    // Created or modified items (statuses 1 and 2): count and total size.
    int64_t uploadsNumber();
    int64_t uploadsSize();
    // Pending work (statuses 1, 2, 3): deletions first, then changed,
    // modified and created items.
    std::vector<VHFile> uploadsFromIndex(int64_t offset, int64_t count);
    bool markFileUploaded(const VHFile& file);
    std::optional<VHFileUploadStatus> uploadStatusForFile(const VHFile& file);
    bool updateUploadStatus(const VHFileUploadStatus& status);
    bool deleteUploadStatusForFile(const VHFile& file);
    bool markFileDownloaded(const VHFile& file);
    bool deleteFileDownload(const VHFile& file);
    // Drops downloads finished before `cutOff`; the cached content of items
    // outside synchronized folders is deleted.
    void deleteDownloadsOlderThen(VHDate cutOff);

    // ---- Synchronized folders --------------------------------------------

    bool markItemSynchronized(const std::string& itemId, bool synced);
    bool shareSynchronized(const std::string& shareId);
    std::vector<std::string> syncedFolders();
    // Marked itself or, with `recurse`, through any ancestor.
    bool itemSynchronized(const std::string& itemId, bool recurse);

    // ---- Row changes -----------------------------------------------------

    bool addFile(const VHFile& file, uint64_t status);
    bool updateFileAttributes(const VHFile& file);
    // A lock change made locally: a synchronized row keeps its shadow and
    // becomes changed (3); other rows keep their status.
    bool updateFileLockStatus(const VHFile& file);
    bool updateFileLockStatusAndStatusUnChanged(const VHFile& file);
    bool updateParentShareId(const VHFile& file);
    bool updateFileWithId(const std::string& id, const std::string& newShareId,
                          const std::string& newParentShareId);
    bool updateFileWithId(const std::string& id, const std::string& newShareId, uint64_t status);
    // Removes every row of the id.
    bool deleteFileRecord(const std::string& id);
    bool deleteFile(const VHFile& file) { return deleteFileRecord(file.internalName); }
    bool deleteFile(const VHFile& file, uint64_t tick);
    bool deleteFileShadow(const std::string& id);
    // Kept for callers of old; its statement is refused by SQLite, so it
    // always logs and returns false.
    bool deleteFileWithParentId(const std::string& parentId, const std::string& name);
    bool deleteAllTempFiles();
    // The new item takes over the old one's identity (see createFileItem).
    bool exchangeOldFile(const VHFile& oldFile, const VHFile& newFile);
    // Writes back the service's record of an upload it accepted (ticks,
    // upload name and hash); the status stays until the journal confirms.
    bool updateFileNew(const VHVirtualFile& item);

    // ---- Paths -----------------------------------------------------------

    // The row of a drive path ("/Share/a/b"); nothing for the root, a share
    // path or a path that resolves to no row.
    std::optional<VHFile> fileWithPath(const std::string& path, bool shadow = false);
    std::optional<VHFile> shadowWithPath(const std::string& path) {
        return fileWithPath(path, true);
    }
    std::optional<std::string> cachedItemWithPath(const std::string& path, bool shadow);
    void cacheItem(const std::string& id, const std::string& path, bool shadow);
    // Drops one path.
    void clearCacheForPathSingle(const std::string& path);
    // Drops a path and every path below it.
    void clearCacheForPath(const std::string& path);
    // Drops every path that leads to the item and every path below them.
    void clearCacheForId(const std::string& id);
    void clearAllPathCaches();

    // "/<share display name>/<names from the share down>"; empty when the
    // item or its share is unknown. An item of a subfolder share is named in
    // its enclosing share.
    std::string fullFilePath(const VHFile& file);
    // The item's path inside the innermost subfolder share holding it; empty
    // when none does.
    std::string fullFilePathFromSubShare(const VHFile& file);
    // The item's path in every share that shows it.
    std::vector<std::string> fullFilePathsForFile(const VHFile& file);
    // The item's path inside every subfolder share holding it, innermost first.
    std::vector<std::string> allFilePathsFromSubshare(const VHFile& file);
    // The subfolder share whose folder is the item or one of its ancestors.
    std::optional<ManagedShare> getSubshareForFile(const VHFile& file);

    // ---- Local changes made on the drive ---------------------------------

    // A new item in `parentId` of the share; nothing when the share is
    // unknown. Saving a new file or folder under the name of one that has a
    // pending change keeps the old identity and returns the old item's row.
    std::optional<VHFile> createFile(const std::string& name, const std::string& shareId,
                                     const std::string& parentId);
    std::optional<VHFile> createFolder(const std::string& name, const std::string& shareId,
                                       const std::string& parentId);
    std::optional<VHFile> createFileItem(const std::string& name, const std::string& shareId,
                                         const std::string& parentId, bool isDir);
    // Renames within the parent, or moves when `newParentId` is not empty.
    // Returns the live row as now stored (the taken-over item's row after a
    // save-by-rename); nothing when the row is gone.
    std::optional<VHFile> renameFile(const VHFile& file, const std::string& newName,
                                     const std::string& newParentId = "");
    // Records new contents (size, modify time, deleted flag of `file`); a
    // synchronized row keeps its shadow. Returns the live row as now stored.
    std::optional<VHFile> markFileUpdated(const VHFile& file);
    // Deletes the item: a never uploaded one (or any, when forced) loses its
    // rows, others become deleted and changed with a shadow. False when a
    // statement failed.
    bool removeFile(const VHFile& file, bool andCache, bool forceDelete = false);
    // Removes a folder's contents, at any depth, and then the folder.
    bool removeFolderRecursive(const VHFile& folder);
    // Drops the item's cached paths and refreshes it in the file manager.
    void refreshFile(const VHFile& file);
    // Moves a folder and everything below it into another share as new items.
    void changeFilesShareIdInFolderRecursive(const VHFile& folder, const std::string& newShareId);

    // ---- Server changes --------------------------------------------------

    // A catch-up page for `share`: applies the items and records the page's
    // LargestTick as the share's journal position.
    void updateFiles(const OSXCatchUpResponse& update, const ManagedShare& share);
    // The same without blocking the caller: the page is applied on the
    // database thread as one transaction, and only when it commits does its
    // LargestTick become the share's journal position. `done(applied)` runs
    // afterwards on the database thread with no lock of the store held; it
    // must not block (post the follow-up elsewhere). A page that failed
    // leaves the position where it was.
    void applyCatchUpPage(OSXCatchUpResponse page, ManagedShare share,
                          std::function<void(bool applied)> done);
    // One item of a realtime event; its ShareTick becomes the position.
    void updateFile(const VHVirtualFile& item, const ManagedShare& share);
    // Applies items of the server's journal to the rows, keeping local
    // changes that are not uploaded yet; an item without a share id takes
    // `share`'s. A batch of 3 or more items runs as one exclusive transaction.
    void updateFiles(const std::vector<VHVirtualFile>& items, const ManagedShare& share);

    // ---- The drive's bookkeeping (memory only) ---------------------------
    // archiveMap: temp key of a path -> its place in the temp area;
    // deleteMap: drive path -> the hidden path it was renamed to;
    // renamingMap: ".fuse_hidden" name -> the path before the rename;
    // blockMap: item id -> "block" while its share changes.

    VHStringMap& archiveMap() { return archiveMap_; }
    VHStringMap& deleteMap() { return deleteMap_; }
    VHStringMap& renamingMap() { return renamingMap_; }
    VHStringMap& blockMap() { return blockMap_; }
    bool shouldAddToRenamingMap() const { return shouldAddToRenamingMap_; }
    void setShouldAddToRenamingMap(bool value) { shouldAddToRenamingMap_ = value; }

  private:
    struct Chain;
    struct ItemChange;
    struct ServerItem;
    struct ServerEffects;

    VHDatabase();
    ~VHDatabase();

    // Run `body(VHFilesTable&)` on the database thread; `write` also holds the
    // writer lock around it. A body may use read-only lookups of this class
    // but never `write`, a hook or a public change.
    template <typename Body>
    auto read(Body&& body);
    template <typename Body>
    auto write(Body&& body);
    // The open connection, opened on first use; null when not loaded or it
    // cannot be opened. Database thread only.
    VHSqlite* connection();

    Chain chainOf(const VHFile& file);
    std::optional<VHFile> resolvePath(const std::string& startId,
                                      const std::vector<std::string>& components, bool shadow);
    std::vector<std::string> drivePathsOfFolders(const std::set<std::string>& folderIds);

    ItemChange insertOrTakeOver(VHFilesTable& t, const VHFile& file);
    std::optional<ItemChange> takeOverByRename(VHFilesTable& t, VHFile renamed);
    void afterExchange(const VHFile& oldFile, const VHFile& newFile);

    void applyJournal(std::vector<VHVirtualFile> items, const ManagedShare& share, int64_t tick);
    void prepareSubfolderShareItems(std::vector<VHVirtualFile>& items, const ManagedShare& share);
    void applyServerItem(VHFilesTable& t, ServerItem& entry, ServerEffects& effects);
    void insertServerItem(VHFilesTable& t, const VHFile& server, ServerEffects& effects);
    void applyServerUpdate(VHFilesTable& t, ServerItem& entry, VHFile local,
                           ServerEffects& effects);
    void applyServerDeletion(VHFilesTable& t, const VHFile& server,
                             const std::optional<VHFile>& local, ServerEffects& effects);
    void replaceRow(VHFilesTable& t, const VHFile& file);
    void announceServerEffects(const ServerEffects& effects);

    std::unique_ptr<VHDatabaseThread> thread_;
    std::unique_ptr<VHSqlite> connection_;  // database thread only
    std::recursive_mutex writerMutex_;
    std::mutex pathMutex_;
    std::string databasePath_;  // guarded by pathMutex_
    std::atomic<bool> loaded_{false};
    std::atomic<bool> isEmpty_{false};
    VHShutdownBlock shutdown_;
    VHMetadataStorage storage_;
    VHPathCache liveCache_;
    VHPathCache shadowCache_;
    VHStringMap archiveMap_;
    VHStringMap deleteMap_;
    VHStringMap renamingMap_;
    VHStringMap blockMap_;
    std::atomic<bool> shouldAddToRenamingMap_{false};
};

}  // namespace vh
