// The rules by which one item of the server's journal changes the rows: what
// the server says wins, except over local changes not uploaded yet. Runs on
// the database thread inside a batch (VHDatabasePages.cpp); the effects are
// announced once the batch has committed.
#include <algorithm>
#include <cmath>
#include <set>

#include "lib/VHLog.h"
#include "store/VHDatabaseAccess.h"
#include "store/VHDatabaseServerEffects.h"
#include "store/VHStoreHooks.h"

namespace vh {

namespace {

constexpr size_t kPathsDroppedOneByOne = 1000;

bool sameWholeSecond(VHDate a, VHDate b) {
    return std::floor(a.seconds) == std::floor(b.seconds);
}

bool lockDiffers(const VHFile& a, const VHFile& b) {
    return a.isLocked != b.isLocked || a.lockDeviceId != b.lockDeviceId ||
           a.lockTick != b.lockTick || a.lockedBy != b.lockedBy;
}

}  // namespace

void VHDatabase::applyServerItem(VHFilesTable& t, const VHVirtualFile& item,
                                 const std::string& shareId, ServerEffects& effects) {
    VHFile server = VHFile::fromVirtualFile(item);
    if (server.shareId.empty()) server.shareId = shareId;
    // Asked now, not when the batch was queued: an upload may have started since.
    if (VHStoreHooks::uploads().existsOperationOnFileWithInternalName(server.internalName)) {
        // A later catch-up brings it again, as the journal position stays before it.
        if (server.tick != kNoTick) {
            effects.heldBackTick =
                std::min(effects.heldBackTick.value_or(server.tick), server.tick);
        }
        return;
    }
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
        bool unconfirmed = VHStoreHooks::uploads().uploadUnconfirmed(server);
        applyServerUpdate(t, std::move(server), unconfirmed, *local, effects);
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

void VHDatabase::applyServerUpdate(VHFilesTable& t, VHFile server, bool unconfirmed, VHFile local,
                                   ServerEffects& effects) {
    if (std::optional<ManagedShare> sub = getSubshareForFile(local)) {
        server.shareId = sub->shareId();
        server.parentShareId = sub->ParentShareId.value_or("");
    }
    if (local.parentShareId != server.parentShareId) {
        t.updateParentShareId(local.internalName, server.parentShareId);
    }
    const bool lockChanged = lockDiffers(local, server);
    if (lockChanged) {
        local.isLocked = server.isLocked;
        local.lockDeviceId = server.lockDeviceId;
        local.lockTick = server.lockTick;
        local.lockedBy = server.lockedBy;
        t.updateLockStatus(local, false);
    }
    bool sameTime = sameWholeSecond(local.modifyTime, server.modifyTime);
    bool sameName = local.publicName == server.publicName;
    if (unconfirmed && sameTime && sameName) effects.confirmed.push_back(server);
    // A deletion not sent yet stays, even against an echo of the item's last upload.
    const bool changedHere = local.status == kStatusModified || local.status == kStatusChanged;
    if (local.deleted || (!unconfirmed && changedHere && !(sameTime && sameName))) {
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
    // Two versions written within one second differ in size or upload name.
    bool newContents = !sameTime || local.fileSize != server.fileSize ||
                       (!server.uploadName.empty() && server.uploadName != local.uploadName);
    if (server.isFile && newContents) {
        server.permissions = local.permissions;
        effects.outdated.emplace_back(local, server.tick);
    }
    replaceRow(t, server);
    if (local.status != kStatusSynchronized && server.isFile) effects.settled.push_back(server);
    if (!sameName || local.parentId != server.parentId || newContents || lockChanged) {
        effects.leftNames.emplace(local.parentId, local.publicName, local.internalName);
    }
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
    effects.leftNames.emplace(local->parentId, local->publicName, local->internalName);
    if (local->isFile && (local->status == kStatusModified || local->status == kStatusChanged) &&
        !local->deleted) {
        VHLog(kLogDatabase,
              "File %@ was deleted remotely, but was not uploaded yet. Will leave our copy until "
              "upload.",
              local->publicName);
        return;
    }
    VHLog(kLogDatabase, "updateFile: deleting %@", local->publicName);
    if (local->isFile) t.deleteFileDownload(local->internalName);
    // A folder's attributes go with it.
    effects.deleted.push_back(*local);
    t.deleteFile(local->internalName);
}

void VHDatabase::replaceRow(VHFilesTable& t, const VHFile& file) {
    serverPlaces_.forget(file.internalName);
    t.deleteFile(file.internalName);
    t.addFile(file, kStatusSynchronized);
}

void VHDatabase::dropCachedPaths(const std::set<std::string>& ids) {
    // Dropping paths one by one costs more than resolving them again.
    if (ids.size() > kPathsDroppedOneByOne) {
        clearAllPathCaches();
        return;
    }
    for (const std::string& id : ids) clearCacheForId(id);
}

void VHDatabase::announceServerEffects(const ServerEffects& effects) {
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
    VHStoreHooks::app().driveItemsChanged(touchedDrivePaths(effects));
    for (const VHFile& file : effects.settled) VHStoreHooks::app().fileSyncStateChanged(file);
}

std::vector<std::string> VHDatabase::touchedDrivePaths(const ServerEffects& effects) {
    std::set<std::string> parents = effects.folders;
    for (const auto& [parentId, name, id] : effects.leftNames) parents.insert(parentId);
    std::vector<std::string> paths;
    for (const std::string& parentId : parents) {
        std::vector<std::string> found = drivePathsOfFolders({parentId});
        if (found.empty()) continue;
        paths.push_back(found.front());
        for (auto it = effects.leftNames.lower_bound({parentId, "", ""});
             it != effects.leftNames.end() && std::get<0>(*it) == parentId; ++it) {
            std::string path = found.front() + "/" + std::get<1>(*it);
            if (!VHStoreHooks::openFiles().invalidateWhenClosed(std::get<2>(*it), path)) {
                paths.push_back(path);
            }
        }
    }
    return paths;
}

}  // namespace vh
