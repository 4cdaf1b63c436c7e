// How the metadata store reaches the layers above it. Each interface is
// implemented by one object of a higher layer that registers itself at
// start-up; until then (and in tools that have no such layer) the store talks
// to a do-nothing implementation. Every method may be called from any thread,
// with no lock of the store held.
//
// The database thread. A batch of server changes calls
// existsOperationOnFileWithInternalName and uploadUnconfirmed on the database
// thread, for each item as it is applied, with the batch's transaction open.
// Any other hook lands there too when an implementation called there changes
// the store. There an implementation may call the store (the call runs at
// once, inside the batch) but must never wait for another thread that may
// itself be waiting for the store: no lock that a thread holds while it calls
// the store, no blocking hand-over to such a thread; and it should be quick,
// since every change of the store waits meanwhile.
//
// The effects thread. Once a batch has committed, confirmUpload,
// hasCompleteCache, deleteFileCache, deleteFileDownload and
// refreshFinderFolders are called on the store's effects thread, one batch
// after another. There an implementation may call the store and take its own
// locks, but must not wait for the main thread (unloading the store waits for
// the effects thread) nor call the blocking updateFiles or updateFile (their
// effects would wait for this thread).
#pragma once

#include <string>
#include <vector>

#include "store/VHFile.h"
#include "store/VHLoginRecords.h"

namespace vh {

// The content cache's files (implemented by VHFileCache).
class VHCacheFiles {
  public:
    virtual ~VHCacheFiles() = default;
    // Files/<shareId>, the folder of a share's complete files.
    virtual std::string shareCachePath(const std::string& shareId) = 0;
    // Beside the share's folder, made with it: the share's attribute side
    // file, when it is missing (one that exists keeps its attributes).
    virtual void createMissingExAttrsForShare(const ManagedShare& share) = 0;
    // Removes the share's attribute side file, when the share goes.
    virtual void deleteExAttrsForShare(const std::string& shareId) = 0;
    // An empty complete-cache file for a new local file (nothing for a folder).
    virtual void createCacheFile(const VHFile& file) = 0;
    // Removes the complete-cache file and its attribute side file (a
    // folder record has only the latter).
    virtual void deleteFileCache(const VHFile& file) = 0;
    // Removes the partial download.
    virtual void deleteFileDownload(const VHFile& file) = 0;
    // Whether the complete-cache file exists.
    virtual bool hasCompleteCache(const VHFile& file) = 0;
    // The two files' caches and attributes trade places.
    virtual void exchangeFileCaches(const VHFile& oldFile, const VHFile& newFile) = 0;
    // Moves an item's cache and attribute files between share folders.
    virtual void moveFileCache(const std::string& internalName, const std::string& newInternalName,
                               const std::string& fromShareId, const std::string& toShareId) = 0;
};

// The upload queue (implemented by VHUploadQueue).
class VHUploadHooks {
  public:
    virtual ~VHUploadHooks() = default;
    virtual void cancelUpload(const VHFile& file) = 0;
    virtual void uploadsAdded() = 0;
    virtual bool upload(const VHFile& file) = 0;
    virtual bool existsOperationOnFileWithInternalName(const std::string& internalName) = 0;
    // Whether an upload of the item was sent and is not yet confirmed.
    virtual bool uploadUnconfirmed(const VHFile& file) = 0;
    virtual void confirmUpload(const VHFile& file) = 0;
};

// The drive's open-file table (implemented by the drive).
class VHOpenFilesHooks {
  public:
    virtual ~VHOpenFilesHooks() = default;
    virtual void fileWasModified(const VHFile& file) = 0;
    virtual void exchangeFileId(const std::string& a, const std::string& b) = 0;
    // When the item is open, remembers to drop the kernel's cache of
    // `drivePath` once its last handle closes, and returns true: dropping
    // the pages of an open file could wait on its own reads.
    virtual bool invalidateWhenClosed(const std::string&, const std::string&) { return false; }
};

// The application: the signed-in user, the connector's stored login and the
// file manager's views of the drive (implemented by the desktop layer).
class VHAppHooks {
  public:
    virtual ~VHAppHooks() = default;
    virtual std::string username() = 0;
    // This device's id towards the service (the one sent at login); empty
    // when unknown.
    virtual std::string deviceId() { return ""; }
    virtual void globalLoginResponceLoaded(const GlobalLoginResponce& response) = 0;
    // Drive paths ("/Share/folder") whose listings changed.
    virtual void refreshFinderFolders(const std::vector<std::string>& drivePaths) = 0;
    // Drive paths of items and folders a server change touched, old names
    // included: what the kernel may hold about them is out of date. Open
    // files are left out: dropping their pages would wait for a read in
    // flight, for ever if the process is killed meanwhile.
    virtual void driveItemsChanged(const std::vector<std::string>&) {}
    virtual void refreshFinderRootFolder() = 0;
    // A file's overlay state changed (for example its download completed).
    virtual void refreshFileInFinder(const VHFile& file) = 0;
    // A file changed here now waits for its upload, or the service has
    // confirmed every change of it; nothing else about it changed for the
    // kernel (it may be open and being written).
    virtual void fileSyncStateChanged(const VHFile&) {}
};

struct VHStoreHooks {
    static VHCacheFiles& cache();
    static VHUploadHooks& uploads();
    static VHOpenFilesHooks& openFiles();
    static VHAppHooks& app();

    // Registers an implementation (nullptr restores the do-nothing one). The
    // object must outlive its registration.
    static void setCache(VHCacheFiles* cache);
    static void setUploads(VHUploadHooks* uploads);
    static void setOpenFiles(VHOpenFilesHooks* openFiles);
    static void setApp(VHAppHooks* app);
};

}  // namespace vh
