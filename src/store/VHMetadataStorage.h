// The stored shares and the last global login response: one top-level drive
// folder per share, each with its unique local display name and journal
// position, kept in memory and in "shares.db" (an XML property list in the
// data root, written atomically).
//
// Threads: every method may be called from any thread. Shares are handed out
// as copies; a share changes only through the methods below. Hooks of
// VHStoreHooks are called with no lock of this class held.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib/VHDate.h"
#include "lib/VHThreadSafety.h"
#include "store/VHLoginRecords.h"
#include "store/VHPropertyList.h"
#include "store/VHShutdownBlock.h"

class QTimer;

namespace vh {

class VHMetadataStorage {
  public:
    // Must be destroyed on the thread that runs the QCoreApplication (the
    // process-wide instance owned by VHDatabase never is).
    VHMetadataStorage();
    ~VHMetadataStorage();
    VHMetadataStorage(const VHMetadataStorage&) = delete;
    VHMetadataStorage& operator=(const VHMetadataStorage&) = delete;

    // "shares.db" in the data root.
    static std::string storagePath();
    // The lookup key of a drive path: decomposed (NFD) and lower-cased, so
    // share lookups ignore case and composition.
    static std::string keyFromPath(const std::string& path);

    // Forgets everything in memory, reads the stored file (an unreadable or
    // id-less entry is logged and skipped) and re-creates the temporary
    // pseudo-share. A stored login response goes to VHAppHooks.
    void load();
    // Writes every share but the temporary one and the login response now.
    // False when the file cannot be written (logged).
    bool save();
    // Saves 5 s after the last request, on the main thread; at once when
    // terminating or when no QCoreApplication exists.
    void saveDelayed();
    // Forgets the login response and every share and removes each "*.db"
    // file of the data root.
    void clear();

    // Brings the shares of `domain` in line with a gateway login answer: new
    // shares get unique display names and the journal tick -1, known ones
    // keep their tick and display name (or take the remote rename), shares no
    // longer listed are deleted. Refreshes the drive's root, and the old
    // paths of the shares deleted or renamed.
    void updateShares(const ClientLoginResponse& response, const UserDomain& domain);
    // A new local display name, trimmed and made unique. False when the share
    // is unknown or the trimmed name is empty; true when nothing changed.
    bool renameShare(const std::string& shareId, const std::string& newName);
    // Forgets the share and removes its cache folder in the background.
    void deleteShareData(const std::string& shareId);
    // Deletes the shares of domains that `response` no longer lists.
    void deleteDomainShares(const GlobalLoginResponce& response);
    // Records that a share's journal was applied up to `tick` at `when` (its
    // modification date). False when the share is unknown.
    bool setShareJournalTick(const std::string& shareId, int64_t tick, VHDate when);

    // Lookups; a miss is nothing. shares() includes the temporary share.
    std::vector<ManagedShare> shares() const;
    std::optional<ManagedShare> shareWithId(const std::string& shareId) const;
    std::optional<ManagedShare> shareWithInternalName(const std::string& internalName) const;
    // A share path: "/" + display name, compared through its path key.
    std::optional<ManagedShare> shareWithPath(const std::string& path) const;
    // Any drive path inside a share ("/Share/a/b" -> the share "/Share").
    std::optional<ManagedShare> shareWithFilePath(const std::string& path) const;
    // No share besides the temporary one.
    bool storageEmpty() const;

    // The last global login response as JSON text; empty when none.
    std::string globalLoginResponce() const;
    // Stores the text and saves at once.
    void setGlobalLoginResponce(const std::string& text);

    VHShutdownBlock& shutdown() { return shutdown_; }

  private:
    void forgetAll() VH_REQUIRES(mutex_);
    void registerShare(const ManagedShare& share) VH_REQUIRES(mutex_);
    void unregisterShare(const std::string& shareId) VH_REQUIRES(mutex_);
    void addTempShare() VH_REQUIRES(mutex_);
    bool pathKeyTaken(const std::string& displayName, const std::string& exceptShareId) const
        VH_REQUIRES(mutex_);
    std::string freeNumberedName(const std::string& name, const std::string& shareId) const
        VH_REQUIRES(mutex_);
    std::string uniqueDisplayName(const std::string& shareId, const std::string& name) const
        VH_REQUIRES(mutex_);
    std::string remoteRenameName(const ManagedShare& stored, const std::string& newShareName) const
        VH_REQUIRES(mutex_);
    void applyManagedShare(ManagedShare share, const ClientLoginResponse& response,
                           const UserDomain& domain, std::set<std::string>& known,
                           std::vector<std::string>& created) VH_REQUIRES(mutex_);
    // The stored file's contents as they are now.
    VHPropertyList snapshot() const VH_REQUIRES(mutex_);
    void createFolderForShare(const std::string& shareId);
    void removeFolderOfShare(const std::string& shareId);
    // Made on first use once a QCoreApplication exists; null before.
    QTimer* saveTimer() VH_EXCLUDES(mutex_);

    // Lock order: saveMutex_, then mutex_. Neither is held while a hook or
    // anything that waits for the database thread runs; mutex_ is not held
    // while the file is written.
    VHMutex saveMutex_;  // one save writes the file at a time
    mutable VHMutex mutex_ VH_ACQUIRED_AFTER(saveMutex_);
    std::map<std::string, ManagedShare> byId_ VH_GUARDED_BY(mutex_);
    std::map<std::string, std::string> idByPathKey_ VH_GUARDED_BY(mutex_);
    std::string globalLoginResponce_ VH_GUARDED_BY(mutex_);
    VHShutdownBlock shutdown_;
    QTimer* saveTimer_ VH_GUARDED_BY(mutex_) = nullptr;  // lives on the main thread
};

}  // namespace vh
