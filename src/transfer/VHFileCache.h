// The local contents of the service's files and the layout of the data root.
//
// Data root (VHPaths::dataRoot()): shares.db and friends in the root itself,
// "Files" (complete files, Files/<shareId>/<internalName>, and the ".attrs"
// side files of files and shares), "Uploads", "Downloads" (partial files,
// Downloads/<internalName>) and "Logs".
//
// What is present of a file is always one prefix starting at byte 0; bytes
// that do not extend it are dropped, so ranges must arrive in ascending order.
// When the prefix reaches the record's fileSize the partial file moves to
// Files and all later reads find it there.
//
// One process-wide instance (fileCache()). Every method may be called from
// any thread. A share id or internal name that is not a safe path component
// never becomes a path: path methods return "" for it and operations log one
// line and do nothing (reads give nothing, queries false or 0). The same holds
// for every file when the data folders could not be set up.
//
// The data root and every folder the cache makes are private (0700).
#pragma once

#include <QThread>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

class QTimer;

#include "lib/VHThreadSafety.h"
#include "store/VHFile.h"
#include "store/VHLoginRecords.h"
#include "store/VHStoreHooks.h"
#include "transfer/VHFileCacheItem.h"

namespace vh {

class VHFileCache final : public VHCacheFiles {
  public:
    // Made on first use: creates the five folders, registers with
    // VHStoreHooks and starts the expiry sweep. A folder that cannot be made,
    // or a plain file in its place, is logged and reported as fatal (status
    // 100, VHReportFatalError); the instance is still made, and every file
    // operation on it fails. A log sink must not call back into fileCache()
    // while it is being made.
    static VHFileCache& fileCache();
    // Test-only: drops the instance (unregistering it) so that the next
    // fileCache() makes a fresh one for the current HOME. No other thread may
    // be using the cache.
    static void resetForTests();

    // The folders of the shared instance (making it if needed).
    static std::string filesCachePath();
    static std::string uploadsCachePath();
    static std::string downloadsCachePath();
    static std::string logsPath();
    static std::string metadataPath();   // the root
    static std::string rootCachePath();  // the root

    ~VHFileCache() override;
    VHFileCache(const VHFileCache&) = delete;
    VHFileCache& operator=(const VHFileCache&) = delete;

    // Downloads/<internalName>.
    std::string pathForFileDownload(const VHFile& file) const;
    // Files/<shareId>/<internalName>; creates the share's folder (and the
    // share's side file) when missing.
    std::string pathForFileCache(const std::string& shareId, const std::string& internalName) const;
    std::string pathForFileCache(const VHFile& file) const;
    // Files/<shareId>/<internalName>.attrs; creates the share's folder when missing.
    std::string pathForFileExtAttrs(const std::string& shareId,
                                    const std::string& internalName) const;
    std::string pathForFileExtAttrs(const VHFile& file) const;
    // Files/<shareId>, not created here.
    std::string pathForShareCache(const std::string& shareId) const;
    // Files/<shareId>.attrs, beside the share's folder.
    std::string pathForShareExtAttrs(const std::string& shareId) const;

    // The bytes [offset, offset + length) when all of them lie in the present
    // prefix; nothing when they do not (the caller downloads first) or the
    // read fails. Fewer bytes only when a complete file is shorter on disk
    // than its record says.
    std::optional<std::string> getChunk(int64_t offset, uint64_t length, const VHFile& file);
    // Length of the present prefix (opening the file in the cache if needed).
    uint64_t availableDataForFile(const VHFile& file);
    // Stores the part of `data` (received for byte `location` on) that
    // extends the prefix; bytes past file.fileSize are dropped. The chunk that
    // completes the file moves it to Files, records it in the downloads table
    // and asks the application to refresh the file's overlay.
    void addChunk(std::string_view data, uint64_t location, const VHFile& file);

    // What writeIntoPrefix did.
    enum class PrefixWrite { kWritten, kNotPresent, kFailed };
    // Writes `data` at `offset` into the partial copy of a file still being
    // downloaded, when every byte of the range lies in the present prefix:
    // later downloaded bytes only extend the prefix, so the change stays.
    // kNotPresent when the range is not all there or the copy is complete
    // (the caller writes the complete file then); kFailed (logged, `error`
    // set) when the write failed.
    PrefixWrite writeIntoPrefix(std::string_view data, uint64_t offset, const VHFile& file,
                                int& error);
    // Empty side files; an existing plain file is emptied, a folder in the
    // way is logged and left. createCacheFile does nothing for a folder record.
    void createCacheFile(const VHFile& file) override;
    void createExAttrsForFile(const VHFile& file);
    void createExAttrsForShare(const ManagedShare& share);
    // The share's side file when it is missing; one that exists keeps its
    // attributes. The store calls it as it makes the share's folder.
    void createMissingExAttrsForShare(const ManagedShare& share) override;
    void deleteExAttrsForShare(const std::string& shareId) override;

    // Neither touches a file open in the cache: its descriptor lives on until
    // the expiry sweep.
    void deleteFileDownload(const VHFile& file) override;
    // Removes the complete file and, always, its attribute side file (all a
    // folder record has).
    void deleteFileCache(const VHFile& file) override;
    bool hasCompleteCache(const VHFile& file) override;
    std::string shareCachePath(const std::string& shareId) override;

    // Swaps the two files through a temporary name in the first one's folder;
    // false (and a log line) when any of the three renames failed.
    static bool exchangeFileContents(const std::string& path, const std::string& otherPath);
    // The two files' caches and attributes trade places (one that exists
    // alone moves to the other's name); errors ignored.
    void exchangeFileCaches(const VHFile& oldFile, const VHFile& newFile) override;
    // Moves the cache and attribute files to another share's folder, possibly
    // under a new internal name; errors ignored.
    void moveFileCache(const std::string& internalName, const std::string& newInternalName,
                       const std::string& fromShareId, const std::string& toShareId) override;
    void moveFileCache(const std::string& internalName, const std::string& fromShareId,
                       const std::string& toShareId);

  private:
    explicit VHFileCache(const std::string& root);
    static void swapOrMove(const std::string& path, const std::string& otherPath);
    void initCachePathes(const std::string& root);
    void startExpirySweep();
    void checkExpiredCaches();

    // The item of `file`, made and opened when absent.
    VHFileCacheItem& cacheItemForFile(const VHFile& file) VH_REQUIRES(mutex_);
    void openCacheForItem(VHFileCacheItem& item) VH_REQUIRES(mutex_);
    // True when the chunk completed the file.
    bool writeChunk(VHFileCacheItem& item, std::string_view data, uint64_t location,
                    const VHFile& file) VH_REQUIRES(mutex_);
    bool completeDownload(VHFileCacheItem& item, const VHFile& file) VH_REQUIRES(mutex_);

    // Set once by the constructor, then read-only.
    std::string root_, files_, uploads_, downloads_, logs_;
    bool ready_ = false;  // all five folders are in place

    // Guards cacheItems_ and every item in it, so that reads, writes and the
    // sweep never interleave. Path, create, delete and move operations do not
    // take it. A leaf lock: never held while a hook runs or another lock is taken.
    VHMutex mutex_;
    std::unordered_map<std::string, std::unique_ptr<VHFileCacheItem>> cacheItems_
        VH_GUARDED_BY(mutex_);  // by internalName

    // Runs the 5-second expiry timer; stopped by the destructor.
    std::unique_ptr<QThread> sweepThread_;
    // Lives on the sweep thread; deleted after it has ended.
    QTimer* sweepTimer_ = nullptr;
};

}  // namespace vh
