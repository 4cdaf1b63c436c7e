// Server changes: catch-up pages and realtime events applied to the rows.
//
// A batch runs in three steps so that no lock is held while a hook runs: the
// upload queue is asked about every item first, then the rows are changed
// (under the writer lock, in one exclusive transaction from 3 items on), and
// last the queue, the content cache and the file manager hear what happened.
#include <cmath>
#include <set>

#include "lib/VHLog.h"
#include "store/VHDatabaseAccess.h"
#include "store/VHStoreHooks.h"

namespace vh {

namespace {

constexpr size_t kTransactionThreshold = 3;
// Items per hand-over inside a transaction: readers get the thread between.
constexpr size_t kItemsPerHandOver = 256;

bool sameWholeSecond(VHDate a, VHDate b) {
    return std::floor(a.seconds) == std::floor(b.seconds);
}

bool lockDiffers(const VHFile& a, const VHFile& b) {
    return a.isLocked != b.isLocked || a.lockDeviceId != b.lockDeviceId ||
           a.lockTick != b.lockTick || a.lockedBy != b.lockedBy;
}

}  // namespace

struct VHDatabase::ServerItem {
    VHFile server;
    bool busy = false;         // an upload operation works on it
    bool unconfirmed = false;  // sent, not yet confirmed
};

struct VHDatabase::ServerEffects {
    std::set<std::string> touched;
    std::set<std::string> folders;
    std::set<std::string> deletedFolders;
    std::vector<VHFile> confirmed;
    std::vector<std::pair<VHFile, uint64_t>> outdated;  // local row, server tick
    std::vector<VHFile> deleted;
};

void VHDatabase::updateFiles(const OSXCatchUpResponse& update, const ManagedShare& share) {
    applyJournal(update.VhVirtualFiles.value_or(std::vector<VHVirtualFile>{}), share,
                 update.LargestTick);
}

void VHDatabase::applyCatchUpPage(OSXCatchUpResponse page, ManagedShare share,
                                  std::function<void(bool applied)> done) {
    updateFiles(page, share);
    done(true);
}

void VHDatabase::updateFile(const VHVirtualFile& item, const ManagedShare& share) {
    applyJournal({item}, share, static_cast<int64_t>(item.ShareTick));
}

void VHDatabase::applyJournal(std::vector<VHVirtualFile> items, const ManagedShare& share,
                              int64_t tick) {
    ManagedShare current = storage_.shareWithId(share.shareId()).value_or(share);
    VHLog(kLogDatabase, "Updating share %@ from tick %d to tick %d. Files in update %d.",
          current.shareId(), current.LastApplyedJournalTick, tick, items.size());
    if (current.isSubfolderShare()) prepareSubfolderShareItems(items, current);
    updateFiles(items, current);
    storage_.setShareJournalTick(current.shareId(), tick, VHDate::now());
    storage_.saveDelayed();
}

void VHDatabase::prepareSubfolderShareItems(std::vector<VHVirtualFile>& items,
                                            const ManagedShare& share) {
    VHLog(kLogDatabase, ">>>>>>>>>>>> found subfolder share: %@ virtualFiles: %li", share.shareId(),
          items.size());
    for (VHVirtualFile& item : items) {
        item.ParentShareId = share.ParentShareId;
        VHLog(kLogDatabase, ">>>>>>>>>>>> adding parentShareId: %@ to: %@",
              share.ParentShareId.value_or(""), item.PublicName.value_or(""));
        // Top items keep the shared folder's id as their parent: the drive lists a
        // subfolder share's root by its InternalName.
        item.ShareId = share.ShareId;
    }
}

void VHDatabase::updateFiles(const std::vector<VHVirtualFile>& items, const ManagedShare& share) {
    std::vector<ServerItem> batch;
    batch.reserve(items.size());
    for (const VHVirtualFile& item : items) {
        ServerItem entry{VHFile::fromVirtualFile(item)};
        if (entry.server.shareId.empty()) entry.server.shareId = share.shareId();
        entry.busy = VHStoreHooks::uploads().existsOperationOnFileWithInternalName(
            entry.server.internalName);
        entry.unconfirmed = !entry.busy && VHStoreHooks::uploads().uploadUnconfirmed(entry.server);
        batch.push_back(std::move(entry));
    }
    VHShutdownBlocker block(shutdown_);
    ServerEffects effects;
    if (batch.size() >= kTransactionThreshold) {
        std::lock_guard lock(writerMutex_);
        read([](VHFilesTable& t) { return t.update("BEGIN EXCLUSIVE TRANSACTION"); });
        for (size_t first = 0; first < batch.size(); first += kItemsPerHandOver) {
            size_t last = std::min(batch.size(), first + kItemsPerHandOver);
            read([&](VHFilesTable& t) {
                for (size_t i = first; i < last; ++i) applyServerItem(t, batch[i], effects);
            });
        }
        read([](VHFilesTable& t) { return t.update("COMMIT TRANSACTION"); });
    } else {
        for (ServerItem& entry : batch) {
            write([&](VHFilesTable& t) { applyServerItem(t, entry, effects); });
        }
    }
    announceServerEffects(effects);
}

// Runs on the database thread; it may use read-only lookups but no hook.
void VHDatabase::applyServerItem(VHFilesTable& t, ServerItem& entry, ServerEffects& effects) {
    VHFile& server = entry.server;
    if (entry.busy) return;  // a later catch-up brings it again
    if (server.internalName.empty() || server.parentId.empty()) {
        VHLog(kLogDatabase,
              "Warning! No internal name or parent id for the file %@ (%@, %@). Ignoring it.",
              server.publicName, server.internalName, server.parentId);
        return;
    }
    effects.touched.insert(server.internalName);
    std::optional<VHFile> local = t.fileWithId(server.internalName, false);
    if (server.deleted) {
        applyServerDeletion(t, server, local, effects);
    } else if (!local) {
        insertServerItem(t, server, effects);
    } else {
        applyServerUpdate(t, entry, *local, effects);
    }
}

void VHDatabase::insertServerItem(VHFilesTable& t, const VHFile& server, ServerEffects& effects) {
    t.addFile(server, kStatusSynchronized);
    if (t.fileWithId(server.internalName, true)) {
        t.deleteFileShadow(server.internalName);
    } else if (auto older = t.fileWithId(server.internalName, false);
               older && older->tick < server.tick) {
        t.deleteFileWithTick(server.internalName, older->tick);
    }
    effects.folders.insert(server.parentId);
}

void VHDatabase::applyServerUpdate(VHFilesTable& t, ServerItem& entry, VHFile local,
                                   ServerEffects& effects) {
    VHFile& server = entry.server;
    if (std::optional<ManagedShare> sub = getSubshareForFile(local)) {
        server.shareId = sub->shareId();
        server.parentShareId = sub->ParentShareId.value_or("");
    }
    if (local.parentShareId != server.parentShareId) {
        t.updateParentShareId(local.internalName, server.parentShareId);
    }
    if (lockDiffers(local, server)) {
        local.isLocked = server.isLocked;
        local.lockDeviceId = server.lockDeviceId;
        local.lockTick = server.lockTick;
        local.lockedBy = server.lockedBy;
        t.updateLockStatus(local, false);
    }
    bool sameTime = sameWholeSecond(local.modifyTime, server.modifyTime);
    bool sameName = local.publicName == server.publicName;
    if (entry.unconfirmed) {
        if (sameTime && sameName) effects.confirmed.push_back(server);
    } else if ((local.status == kStatusModified || local.status == kStatusChanged) &&
               !(sameTime && sameName)) {
        VHLog(kLogDatabase,
              "File %@ was modified locally, but also updated remotely. Will leave our copy until "
              "upload.",
              local.publicName);
        return;
    }
    if (std::optional<VHFile> shadow = t.fileWithId(local.internalName, true)) {
        t.deleteFileShadow(local.internalName);
        if (shadow->publicName != local.publicName) replaceRow(t, local);
    }
    if (server.isFile && !sameTime) {
        server.permissions = local.permissions;
        effects.outdated.emplace_back(local, server.tick);
    }
    replaceRow(t, server);
    if (!sameName || local.parentId != server.parentId) {
        effects.folders.insert(local.parentId);
        effects.folders.insert(server.parentId);
    }
}

void VHDatabase::applyServerDeletion(VHFilesTable& t, const VHFile& server,
                                     const std::optional<VHFile>& local, ServerEffects& effects) {
    effects.folders.insert(server.parentId);
    if (!server.isFile) effects.deletedFolders.insert(server.internalName);
    if (!local) {
        t.deleteFile(server.internalName);
        return;
    }
    if (local->isFile && (local->status == kStatusModified || local->status == kStatusChanged) &&
        !local->deleted) {
        VHLog(kLogDatabase,
              "File %@ was deleted remotely, but was not uploaded yet. Will leave our copy until "
              "upload.",
              local->publicName);
        return;
    }
    VHLog(kLogDatabase, "updateFile: deleting %@", local->publicName);
    if (local->isFile) {
        t.deleteFileDownload(local->internalName);
        effects.deleted.push_back(*local);
    }
    t.deleteFile(local->internalName);
}

void VHDatabase::replaceRow(VHFilesTable& t, const VHFile& file) {
    t.deleteFile(file.internalName);
    t.addFile(file, kStatusSynchronized);
}

void VHDatabase::announceServerEffects(const ServerEffects& effects) {
    for (const std::string& id : effects.touched) clearCacheForId(id);
    for (const VHFile& file : effects.confirmed) VHStoreHooks::uploads().confirmUpload(file);
    for (const auto& [file, serverTick] : effects.outdated) {
        if (VHStoreHooks::cache().hasCompleteCache(file)) {
            VHLog(kLogDatabase,
                  "Deleting file %@ download since it was updated remotely from tick %d to tick "
                  "%d.",
                  file.publicName, file.tick, serverTick);
        }
        VHStoreHooks::cache().deleteFileCache(file);
        VHStoreHooks::cache().deleteFileDownload(file);
    }
    for (const VHFile& file : effects.deleted) {
        VHStoreHooks::cache().deleteFileCache(file);
        VHStoreHooks::cache().deleteFileDownload(file);
    }
    std::set<std::string> folders;
    for (const std::string& id : effects.folders) {
        if (!effects.deletedFolders.count(id)) folders.insert(id);
    }
    if (!folders.empty()) VHStoreHooks::app().refreshFinderFolders(drivePathsOfFolders(folders));
}

}  // namespace vh
