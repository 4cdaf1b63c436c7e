// The process-wide metadata database (files.db): every file and folder of
// every share as the client last knew it from the server, plus the local
// changes the server has not confirmed yet.
//
// Writers. The database thread is the only writer. Every public change is one
// job queued to it and run over the one read-write connection, one job after
// another in the order they were queued; the jobs queued while the thread was
// busy run together in one transaction, so one commit serves them all. The
// caller blocks until its job has committed and gets its status or result
// (an empty one when the commit failed). A batch of server changes is one
// transaction applied in slices; jobs queued meanwhile run between two slices
// and join that transaction (see "Server changes").
//
// Readers. A read runs on the caller's thread over that thread's own
// read-only connection (files.db is in write-ahead-log mode), so it costs no
// hand-over and never waits for a batch. From the moment a job has joined an
// open batch until the batch ends, reads go through the database thread
// instead (waiting for one slice at most), where they see that job's writes.
// Either way a thread sees its own change in its next read.
//
// On the database thread itself (inside a job, or in a hook called there)
// every method runs at once over the write connection.
//
// Failures are logged and become false, nothing or an empty list. A lookup
// that finds no row returns nothing.
//
// Hooks of VHStoreHooks run before or after the job, on the caller's thread,
// with no lock of the store held, so a hook may call back into the store. A
// batch of server changes asks the upload queue on the database thread and
// announces its effects on the effects thread (VHStoreHooks.h says what that
// means).
//
// Locks: each lock of the store (the database path's here, the write
// queue's, the reader connections', VHMetadataStorage's, the path caches',
// the string maps') is held only for its own bookkeeping: none is held while
// a job is waited for or a hook runs, and none is taken while another is held
// (except inside VHMetadataStorage, which takes its save lock first).
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib/VHDate.h"
#include "lib/VHThreadSafety.h"
#include "store/VHCatchUpResponse.h"
#include "store/VHFile.h"
#include "store/VHLoginRecords.h"
#include "store/VHMetadataStorage.h"
#include "store/VHPathCache.h"
#include "store/VHReaderConnections.h"
#include "store/VHRecordCache.h"
#include "store/VHServerPlaces.h"
#include "store/VHShutdownBlock.h"
#include "store/VHStringMap.h"
#include "store/VHVirtualFile.h"

class QThreadPool;

namespace vh {

class VHDatabaseThread;
class VHFilesTable;
class VHWriteConnection;
class VHWriteQueue;

// The schema version this build creates and upgrades to.
inline constexpr const char* cCurrentDBVersion = "1.3";

class VHDatabase {
  public:
    // The one instance, made on first use (thread-safe); never destroyed.
    static VHDatabase& database();

    // ---- Life cycle (VHDatabase.cpp) -----------------------------------
    // Any thread; load, unload and clear block for one job.

    // A new item identity: a lower-case GUID without dashes.
    static std::string generateFileInternalName();
    // A new upload object name: "U" followed by two GUIDs.
    static std::string generateFileUploadName();

    // files.db in the metadata folder (made private, 0700), computed when
    // first needed and kept until unload(). Empty, after reporting the fatal
    // failure 100, when something else stands there or it cannot be made.
    std::string databasePath();
    // Creates or opens and upgrades files.db, deletes the temporary share's
    // rows and loads the stored shares. When files.db cannot be created or
    // opened the fatal failure 10 is reported and the result is false. Logs
    // and does nothing more when already loaded.
    bool load();
    // Rolls back a batch still open (local changes made meanwhile are kept)
    // and fails the queued ones, closes every connection and saves the
    // stored shares.
    void unload();
    // Unloads and removes files.db and the stored shares; the next load
    // creates both afresh.
    void clear();
    bool loaded() const { return loaded_; }
    // Whether no share was stored at the last load.
    bool isEmpty() const { return isEmpty_; }

    // Batches of server changes hold the shutdown from being queued until
    // their effects have run.
    VHShutdownBlock& shutdown() { return shutdown_; }
    // Also ends delayed saving of the share list: it saves at once from now.
    void beginTermination();
    bool terminating() const { return shutdown_.terminating(); }
    bool shutdownBlocked() const { return shutdown_.shutdownBlocked(); }

    // ---- Shares: the stored share list (VHDatabase.cpp) -----------------
    // Any thread; memory only, never waits for the database thread.

    VHMetadataStorage& metadataStorage() { return storage_; }
    std::vector<ManagedShare> shares() const { return storage_.shares(); }
    std::optional<ManagedShare> shareWithId(const std::string& shareId) const;
    // "/" + a share's display name; nothing for any other path.
    std::optional<ManagedShare> shareWithPath(const std::string& path) const;
    // The share the item's row names.
    std::optional<ManagedShare> shareForFile(const VHFile& file) const;
    // The item's share and, for a subfolder share, the enclosing share.
    std::vector<ManagedShare> sharesForFile(const VHFile& file) const;
    // The subfolder share that holds the item (same as getSubshareForFile;
    // reads rows).
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

    // ---- Lookups: one row of files (VHDatabaseLookups.cpp) ---------------
    // Any thread; reads (see Readers above).

    // By internalName: the live row (status != 5), or with `shadow` the
    // shadow row (status = 5).
    std::optional<VHFile> fileWithId(const std::string& id, bool shadow = false);
    // By internalName and status 0, or any shadow row of any item (the
    // statement's AND binds before its OR, and that is relied upon as it is).
    std::optional<VHFile> serversideFileWithId(const std::string& id);
    // By parentId and publicName (bytes: names differing only in Unicode
    // composition are different names).
    std::optional<VHFile> fileWithParentId(const std::string& parentId, const std::string& name,
                                           bool shadow = false);
    // The internalName by parentId and publicName: of the live row; with
    // `shadow`, of the shadow when there is one, else of the live row.
    std::optional<std::string> idOfFileNamed(const std::string& name, const std::string& parentId,
                                             bool shadow = false);
    // By publicName alone: the first live, not deleted row anywhere.
    std::optional<VHFile> fileWithName(const std::string& name);
    // The parentId of the live row.
    std::optional<std::string> allParents(const std::string& id);
    // By shareId and internalName, live and not deleted.
    std::vector<VHFile> filesWithShareID(const std::string& shareId, const std::string& id);
    // Locked on the service by another device than this one (no statement).
    bool isFileLockedRemotely(const VHFile& file);

    // ---- Listings: rows of files by parentId or shareId -------------------
    // (VHDatabaseLookups.cpp) Any thread; live, not deleted rows.

    std::vector<VHFile> filesInFolder(const std::string& parentId, bool includeFolders);
    // The files (not folders) of a folder.
    std::vector<VHFile> filesWithParent(const std::string& parentId);
    std::vector<VHFile> allShareSiblings(const std::string& shareId, bool includeFolders);
    // Everything below a folder, at any depth.
    std::vector<VHFile> allFolderSiblings(const std::string& folderId, bool includeFolders);
    // Every row, paged by LIMIT offset, count.
    std::vector<VHFile> allFiles(bool includeFolders, int64_t offset, int64_t count);
    std::vector<std::string> fileIdsWithParent(const std::string& parentId);
    std::vector<std::string> subfolderIdsWithParent(const std::string& parentId);
    // The given folders and every folder below them.
    std::vector<std::string> allSubfolderIds(const std::vector<std::string>& folderIds);
    // The distinct names of a folder's children for the drive's listing:
    // ".fuse_hidden" names are left out and a duplicate row is removed (one
    // blocking job when there is one).
    std::vector<std::string> fileNamesListWithParent(const std::string& parentId);
    // The rows behind those names, in the same order.
    std::vector<VHFile> listingWithParent(const std::string& parentId);
    // COUNT(*) of the children (with `includeDeleted` also deleted ones) is 0.
    bool folderIsEmpty(const std::string& folderId, bool includeDeleted);
    // DISTINCT parentId of created or modified items.
    std::vector<std::string> foldersWithUploads();
    // SUM(fileSize) of all live rows.
    int64_t totalFileSize();

    // ---- Uploads and downloads bookkeeping (VHDatabaseTransfers.cpp) ------
    // Any thread; the reads do not wait, each change is one blocking job.

    // Created or modified items (status 1 or 2 in files): count and total size.
    int64_t uploadsNumber();
    int64_t uploadsSize();
    // Pending work (status 1, 2, 3): deletions first, then changed,
    // modified and created items.
    std::vector<VHFile> uploadsFromIndex(int64_t offset, int64_t count);
    // files: status 4 for a live row that has a pending change.
    bool markFileUploaded(const VHFile& file);
    // Every row named `name` in the folder, shadows and deleted rows too.
    std::vector<VHFile> rowsNamed(const std::string& parentId, const std::string& name);
    // An item in the folder (by its live row or its shadow) has a change the
    // service lacks.
    bool hasPendingChildren(const std::string& folderId);
    // The service took a rename of the item to `name` in `parentId` that is
    // not its last one: its shadow, if any, and its noted place follow.
    bool movedOnService(const std::string& id, const std::string& name,
                        const std::string& parentId);
    // Where the service has renamed items whose rename it has not taken.
    const VHServerPlaces& serverPlaces() const { return serverPlaces_; }
    // The uploads table's row of the item.
    std::optional<VHFileUploadStatus> uploadStatusForFile(const VHFile& file);
    bool updateUploadStatus(const VHFileUploadStatus& status);
    bool deleteUploadStatusForFile(const VHFile& file);
    // The downloads table's row of the item: written now, or deleted.
    bool markFileDownloaded(const VHFile& file);
    bool deleteFileDownload(const VHFile& file);
    // Drops downloads finished before `cutOff` (one job); afterwards the
    // cached content of those outside synchronized folders is deleted.
    bool deleteDownloadsOlderThen(VHDate cutOff);

    // ---- Synchronized folders: the syncedfolders table ---------------------
    // (VHDatabaseTransfers.cpp) Any thread; reads, and one job to mark.

    bool markItemSynchronized(const std::string& itemId, bool synced);
    bool shareSynchronized(const std::string& shareId);
    std::vector<std::string> syncedFolders();
    // Marked itself or, with `recurse`, through any ancestor.
    bool itemSynchronized(const std::string& itemId, bool recurse);

    // ---- Row changes: one INSERT, UPDATE or DELETE of files ---------------
    // (VHDatabaseRows.cpp) Any thread; each is one blocking job.

    bool addFile(const VHFile& file, uint64_t status);
    // permissions and the modify and access times of the live row.
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
    // Removes the rows of the id with that tick.
    bool deleteFile(const VHFile& file, uint64_t tick);
    bool deleteFileShadow(const std::string& id);
    // Kept for callers of old; its statement is refused by SQLite, so it
    // always logs and returns false.
    bool deleteFileWithParentId(const std::string& parentId, const std::string& name);
    // The rows of the temporary share.
    bool deleteAllTempFiles();
    // The new item takes over the old one's identity (see createFileItem).
    bool exchangeOldFile(const VHFile& oldFile, const VHFile& newFile);
    // Writes back the service's record of an upload it accepted (ticks,
    // upload name and hash); the status stays until the journal confirms.
    bool updateFileNew(const VHVirtualFile& item);

    // ---- Paths (VHDatabasePaths.cpp) ------------------------------------
    // Any thread; reads through the path caches (memory, thread-safe).

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

    // ---- Local changes made on the drive (VHDatabaseItems.cpp) -----------
    // Any thread; each change is one blocking job, its hooks run afterwards
    // on the caller's thread.

    // A new item in `parentId` of the share; nothing when the share is
    // unknown. Saving a new file under the name of a file that has a pending
    // change keeps the old identity and returns the old item's row (a folder
    // never takes another's identity: its children would not follow).
    std::optional<VHFile> createFile(const std::string& name, const std::string& shareId,
                                     const std::string& parentId);
    std::optional<VHFile> createFolder(const std::string& name, const std::string& shareId,
                                       const std::string& parentId);
    std::optional<VHFile> createFileItem(const std::string& name, const std::string& shareId,
                                         const std::string& parentId, bool isDir);
    // Renames within the parent, or moves when `newParentId` is not empty.
    // Returns the live row as now stored (the taken-over item's row after a
    // save-by-rename, of files only and never of a deleted file); nothing
    // when the row is gone.
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
    // Moves a folder and everything below it into another share as new
    // items (one job); their uploads are queued afterwards.
    bool changeFilesShareIdInFolderRecursive(const VHFile& folder, const std::string& newShareId);

    // ---- Server changes: catch-up pages and realtime events ---------------
    // (VHDatabaseServerChanges.cpp for one item's rules, VHDatabasePages.cpp
    // for the batches.) Any thread.
    //
    // Every batch, whatever its size, is one transaction ("BEGIN EXCLUSIVE
    // TRANSACTION" ... "COMMIT TRANSACTION") on the database thread, applied
    // in slices of about a millisecond; jobs queued meanwhile run between two
    // slices. Batches run one at a time in the order they were queued. The
    // upload queue is asked about each item as it is applied. When any
    // statement fails while the batch is open, or the commit fails, it is
    // rolled back, the jobs that joined it are applied again, and the share's
    // journal position stays where it was, so the page is fetched again;
    // applying a page again is harmless. When it commits, the cached paths of
    // its items go and the position moves to the batch's tick (saved with a
    // delay); then, on the store's effects thread (one thread, batches in
    // commit order), upload confirmations, cache deletions and file-manager
    // refreshes are announced and `done` runs. Called on the database thread
    // itself a batch runs to its end at once, effects included (and fails
    // when another is open).

    // Queues a catch-up page for `share` and returns at once; its LargestTick
    // becomes the share's journal position when it commits. `done(applied)`
    // runs afterwards on the effects thread with no lock of the store held;
    // it must not block (post the follow-up elsewhere). A page that failed
    // leaves the position where it was. Once termination has begun a page is
    // refused at once: `done(false)` runs on the caller's thread.
    void applyCatchUpPage(OSXCatchUpResponse page, ManagedShare share,
                          std::function<void(bool applied)> done);
    // The same, blocking until it is over; whether it was applied.
    bool updateFiles(const OSXCatchUpResponse& update, const ManagedShare& share);
    // One item of a realtime event, blocking; its ShareTick becomes the
    // position.
    bool updateFile(const VHVirtualFile& item, const ManagedShare& share);
    // Items of the server's journal, blocking, without moving the position;
    // an item without a share id takes `share`'s.
    bool updateFiles(const std::vector<VHVirtualFile>& items, const ManagedShare& share);

    // ---- The drive's bookkeeping (memory only, any thread) ----------------
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

    // ---- Testing only (VHDatabasePages.cpp) --------------------------------
    // Each blocks for one job; pass an empty function to remove the hook.

    // Every update over the write connection asks `fault` first; when it
    // returns true the statement fails as if SQLite had refused it.
    void setStatementFaultForTesting(std::function<bool(const std::string& sql)> fault);
    // Between two slices of a batch, `gate(resume)` is called on the database
    // thread instead of queueing the next slice; the batch goes on (its
    // transaction open meanwhile, other jobs running) once `resume` is called,
    // from any thread.
    void setSliceGateForTesting(std::function<void(std::function<void()> resume)> gate);
    // Threads that hold a reading connection.
    size_t readerThreadCountForTesting() const { return readers_.slotCount(); }

  private:
    struct Chain;
    struct ItemChange;
    struct ServerEffects;
    struct PageRun;

    VHDatabase();
    ~VHDatabase();

    // Reads run `body(VHFilesTable&)` where the Readers rule above says;
    // writes run it as one job on the database thread (VHDatabaseAccess.h).
    template <typename Body>
    auto read(Body&& body);
    template <typename Body>
    auto write(Body&& body);

    // Database thread: opens the write connection and upgrades the schema.
    bool openWriter(const std::string& path);

    // Paths.
    Chain chainOf(const VHFile& file);
    // A path in `share`: from the share's id, else from its folder's.
    std::optional<VHFile> resolveInShare(const ManagedShare& share,
                                         const std::vector<std::string>& components, bool shadow);
    std::optional<VHFile> resolvePath(const std::string& startId,
                                      const std::vector<std::string>& components, bool shadow);
    std::vector<std::string> drivePathsOfFolders(const std::set<std::string>& folderIds);

    // Local changes.
    ItemChange insertOrTakeOver(VHFilesTable& t, const VHFile& file);
    std::optional<ItemChange> takeOverByRename(VHFilesTable& t, VHFile renamed);
    void afterExchange(const VHFile& oldFile, const VHFile& newFile);
    void beforeRemoval(const VHFile& file);
    bool removeRows(VHFilesTable& t, const VHFile& file, bool forceDelete);
    void afterRemoval(const VHFile& file, bool andCache);

    // Server changes: one item, on the database thread.
    void applyServerItem(VHFilesTable& t, const VHVirtualFile& item, const std::string& shareId,
                         ServerEffects& effects);
    void insertServerItem(VHFilesTable& t, const VHFile& server, ServerEffects& effects);
    void applyServerUpdate(VHFilesTable& t, VHFile server, bool unconfirmed, VHFile local,
                           ServerEffects& effects);
    void applyServerDeletion(VHFilesTable& t, const VHFile& server,
                             const std::optional<VHFile>& local, ServerEffects& effects);
    void replaceRow(VHFilesTable& t, const VHFile& file);
    // A folder's child as the record cache knows it (loading the folder when
    // it is asked for often): nothing when the cache cannot tell.
    std::optional<std::optional<VHFile>> cachedChild(const std::string& parentId,
                                                     const std::string& name);
    void dropCachedPaths(const std::set<std::string>& ids);
    // The hooks that follow a committed batch; on the effects thread.
    // The drive paths of the folders and the items (by their old names) that
    // a batch touched.
    std::vector<std::string> touchedDrivePaths(const ServerEffects& effects);
    void announceServerEffects(const ServerEffects& effects);

    // Batches.
    bool applyBatch(std::vector<VHVirtualFile> items, const ManagedShare& share,
                    std::optional<int64_t> tick);
    bool applyBatchHere(std::vector<VHVirtualFile> items, const ManagedShare& share,
                        std::optional<int64_t> tick);
    std::shared_ptr<PageRun> newPage(std::vector<VHVirtualFile> items, const ManagedShare& share,
                                     std::optional<int64_t> tick, std::function<void(bool)> done);
    // Database thread only, from here on.
    void queuePage(std::shared_ptr<PageRun> page);
    void startNextPage();
    bool beginPage(PageRun& page);
    void runSlice(const std::shared_ptr<PageRun>& page);
    bool applySlice(PageRun& page);
    void afterSlice(const std::shared_ptr<PageRun>& page);
    void finishPage(const std::shared_ptr<PageRun>& page, bool applied);
    void failAllPages();
    void prepareSubfolderShareItems(std::vector<VHVirtualFile>& items, const ManagedShare& share);

    std::unique_ptr<VHDatabaseThread> thread_;
    std::unique_ptr<VHWriteConnection> writer_;  // database thread only
    std::unique_ptr<VHWriteQueue> writes_;
    // One thread: the effects of committed batches, in commit order.
    std::unique_ptr<QThreadPool> effects_;
    VHReaderConnections readers_;
    std::deque<std::shared_ptr<PageRun>> pendingPages_;     // database thread only
    std::shared_ptr<PageRun> openPage_;                     // database thread only
    std::function<void(std::function<void()>)> sliceGate_;  // database thread only
    VHMutex pathMutex_;
    std::string databasePath_ VH_GUARDED_BY(pathMutex_);
    std::atomic<bool> loaded_{false};
    std::atomic<bool> isEmpty_{false};
    VHShutdownBlock shutdown_;
    VHMetadataStorage storage_;
    VHPathCache liveCache_;
    VHPathCache shadowCache_;
    VHRecordCache records_;
    VHServerPlaces serverPlaces_;
    VHStringMap archiveMap_;
    VHStringMap deleteMap_;
    VHStringMap renamingMap_;
    VHStringMap blockMap_;
    std::atomic<bool> shouldAddToRenamingMap_{false};
};

}  // namespace vh
