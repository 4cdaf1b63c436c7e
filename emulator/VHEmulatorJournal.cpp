#include "VHEmulatorJournal.h"

#include "VHEmulatorDates.h"
#include "VHEmulatorDefaults.h"
#include "VHEmulatorIds.h"
#include "VHEmulatorNames.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

bool lockedByOther(const VHEmulatorItem& item, const VHChangeOrigin& origin) {
    return item.locked && !VHSameAsciiText(item.lockedBy, origin.user);
}

VHEmulatorFailure lockFailure(const VHEmulatorItem& item) {
    VHEmulatorFailure failure = VHFail(423, kCodeLocked, "Locked by " + item.lockedBy);
    failure.lockedItem = item;
    return failure;
}

VHEmulatorFailure unknownItem(const std::string& internalName) {
    return VHFail(400, kCodeItemUnknown, "No such item: " + internalName);
}

void applyFields(VHEmulatorItem& item, const VHItemFields& fields, double now) {
    item.createTime = fields.createTime.value_or(item.createTime > 0 ? item.createTime : now);
    item.accessTime = fields.accessTime.value_or(now);
    item.writeTime = fields.writeTime.value_or(now);
    if (fields.attributes) item.attributes = *fields.attributes;
    if (fields.permissions) item.permissions = fields.permissions;
}

}  // namespace

VHEmulatorResult<std::string> VHEmulatorJournal::resolveParent(const VHShareView& view,
                                                               const std::string& parentId) {
    if (parentId.empty() || parentId == view.rootId || parentId == view.share.shareId) {
        return view.rootId;
    }
    auto parent = liveItemInView(view, parentId);
    if (!parent || parent->isFile) {
        return VHFail(400, kCodeItemUnknown, "No such folder: " + parentId);
    }
    return parent->internalName;
}

std::optional<VHEmulatorFailure> VHEmulatorJournal::checkPlacement(const VHShareView& view,
                                                                   const std::string& parentId,
                                                                   const std::string& name,
                                                                   const std::string& self) {
    if (!VHIsAcceptableItemName(name)) return VHFail(400, kCodeBadRequest, "Bad name: " + name);
    auto other = childNamed(view.storeShareId, parentId, name);
    if (other && other->internalName != self) {
        return VHFail(409, kCodeNameExists, "An item named " + name + " exists");
    }
    return std::nullopt;
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::commit(const VHShareView& view,
                                                           VHEmulatorItem item, int eventType,
                                                           const VHChangeOrigin& origin) {
    auto before = this->item(item.internalName);
    auto tick = accounts_.nextTick(view.storeShareId);
    if (!tick) return VHFail(500, kCodeBadRequest, "The share is gone");
    item.tick = *tick;
    if (eventType == kEventCreate) item.createTick = *tick;
    if (eventType == kEventCreate || eventType == kEventUpdate) item.updateTick = *tick;
    item.user = origin.user;
    if (!store(item) || !events_.record(view.share.domainId, kMessageBroadcast, origin.user,
                                        VHBroadcastEventRecord(item, eventType, origin, *tick))) {
        return VHFail(500, kCodeBadRequest, db_.lastError());
    }
    if (before && !before->deleted && before->parentId != item.parentId &&
        !crossSubfolderShares(view, before->parentId, item, origin)) {
        return VHFail(500, kCodeBadRequest, db_.lastError());
    }
    return item;
}

bool VHEmulatorJournal::crossSubfolderShares(const VHShareView& view, const std::string& oldParent,
                                             const VHEmulatorItem& moved,
                                             const VHChangeOrigin& origin) {
    std::vector<std::pair<std::string, bool>> crossed;  // share id, left it
    for (const std::string& shareId : accounts_.subfolderShares(view.storeShareId)) {
        auto folder = accounts_.share(shareId);
        if (!folder) continue;
        bool wasIn = isBelow(oldParent, folder->rootFolder);
        if (wasIn != isBelow(moved.parentId, folder->rootFolder))
            crossed.emplace_back(shareId, wasIn);
    }
    if (crossed.empty()) return true;
    if (!recordCrossing(crossed, moved.internalName, moved.tick)) return false;
    if (moved.isFile) return true;
    // What is below a folder comes and goes with it, one tick each, so that
    // a page of catch-up never holds two records of one tick.
    for (VHEmulatorItem& inside : liveDescendants(moved)) {
        auto tick = accounts_.nextTick(view.storeShareId);
        if (!tick) return false;
        inside.tick = *tick;
        if (!store(inside) ||
            !events_.record(view.share.domainId, kMessageBroadcast, origin.user,
                            VHBroadcastEventRecord(inside, kEventMove, origin, *tick)) ||
            !recordCrossing(crossed, inside.internalName, *tick)) {
            return false;
        }
    }
    return true;
}

bool VHEmulatorJournal::recordCrossing(const std::vector<std::pair<std::string, bool>>& crossed,
                                       const std::string& internalName, int64_t tick) {
    for (const auto& [shareId, left] : crossed) {
        bool done = left ? db_.run(
                               "INSERT OR REPLACE INTO departures (shareId, internalName, "
                               "tick) VALUES (?, ?, ?)",
                               {shareId, internalName, tick})
                         : db_.run("DELETE FROM departures WHERE shareId = ? AND internalName = ?",
                                   {shareId, internalName});
        if (!done) return false;
    }
    return true;
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::createFolder(const VHShareView& view,
                                                                 VHItemFields fields,
                                                                 const VHChangeOrigin& origin) {
    if (fields.internalName.empty()) fields.internalName = VHNewInternalName();
    if (!VHIsPlainId(fields.internalName)) return VHFail(400, kCodeBadRequest, "Bad id");
    auto existing = item(fields.internalName);
    if (existing && !existing->deleted) {
        // A create sent again: after a lost answer, or with a new place.
        if (existing->isFile || !isInView(view, *existing)) {
            return VHFail(409, kCodeNameExists, "The id is taken: " + fields.internalName);
        }
        VHEmulatorItem moved = *existing;
        if (auto refused = relocate(view, moved, fields.parentId, fields.name, origin)) {
            return *refused;
        }
        if (moved.parentId == existing->parentId && moved.name == existing->name) return moved;
        return commit(view, moved, kEventMove, origin);
    }
    if (existing && existing->shareId != view.storeShareId) {
        return VHFail(409, kCodeNameExists, "The id is taken: " + fields.internalName);
    }
    auto folder = newItem(view, fields, false);
    if (!folder) return folder.failure();
    return commit(view, *folder, kEventCreate, origin);
}

VHEmulatorResult<VHPlannedWrite> VHEmulatorJournal::planWrite(const VHShareView& view,
                                                              VHItemFields fields,
                                                              const VHChangeOrigin& origin,
                                                              bool mustExist) {
    if (fields.internalName.empty()) fields.internalName = VHNewInternalName();
    if (!VHIsPlainId(fields.internalName)) return VHFail(400, kCodeBadRequest, "Bad id");
    auto existing = item(fields.internalName);
    if (existing && (existing->shareId != view.storeShareId || !existing->isFile)) {
        return VHFail(409, kCodeNameExists, "The id is taken: " + fields.internalName);
    }
    bool live = existing && !existing->deleted && isInView(view, *existing);
    if (mustExist && !live) return unknownItem(fields.internalName);
    if (existing && !existing->deleted && !live) {
        return VHFail(409, kCodeNameExists, "The id is taken: " + fields.internalName);
    }
    if (live) {
        if (auto refused = relocate(view, *existing, fields.parentId, fields.name, origin)) {
            return *refused;
        }
        applyFields(*existing, fields, VHNowSeconds());
        return VHPlannedWrite{*existing, kEventUpdate};
    }
    auto file = newItem(view, fields, true);
    if (!file) return file.failure();
    return VHPlannedWrite{*file, kEventCreate};
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::newItem(const VHShareView& view,
                                                            const VHItemFields& fields,
                                                            bool isFile) {
    auto parent = resolveParent(view, fields.parentId);
    if (!parent) return parent.failure();
    if (auto refused = checkPlacement(view, *parent, fields.name, fields.internalName)) {
        return *refused;
    }
    VHEmulatorItem item;
    item.internalName = fields.internalName;
    item.shareId = view.storeShareId;
    item.parentId = *parent;
    item.name = fields.name;
    item.isFile = isFile;
    item.attributes = isFile ? 128 : 16;
    applyFields(item, fields, VHNowSeconds());
    return item;
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::writeContent(const VHShareView& view,
                                                                 VHItemFields fields,
                                                                 const VHContentVersion& content,
                                                                 const VHChangeOrigin& origin,
                                                                 bool mustExist) {
    auto plan = planWrite(view, std::move(fields), origin, mustExist);
    if (!plan) return plan.failure();
    VHEmulatorItem& file = plan->item;
    blobs_.discardAfterCommit(file.blobId);
    file.blobId = content.blobId;
    file.size = content.size;
    file.hash = content.hash;
    file.uploadName = content.uploadName.empty() ? VHNewUploadName() : content.uploadName;
    return commit(view, file, plan->eventType, origin);
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::move(const VHShareView& view,
                                                         const std::string& internalName,
                                                         const std::string& parentId,
                                                         const std::string& name,
                                                         const VHChangeOrigin& origin) {
    auto moving = liveItemInView(view, internalName);
    if (!moving) return unknownItem(internalName);
    if (auto refused = relocate(view, *moving, parentId, name, origin)) return *refused;
    return commit(view, *moving, kEventMove, origin);
}

std::optional<VHEmulatorFailure> VHEmulatorJournal::relocate(const VHShareView& view,
                                                             VHEmulatorItem& item,
                                                             const std::string& parentId,
                                                             const std::string& name,
                                                             const VHChangeOrigin& origin) {
    if (lockedByOther(item, origin)) return lockFailure(item);
    auto parent = resolveParent(view, parentId.empty() ? item.parentId : parentId);
    if (!parent) return parent.failure();
    std::string above = *parent;
    for (int depth = 0; depth < kMaxDepth && above != view.storeShareId; ++depth) {
        if (above == item.internalName) {
            return VHFail(400, kCodeBadRequest, "A folder cannot move into itself");
        }
        auto next = this->item(above);
        if (!next) break;
        above = next->parentId;
    }
    std::string newName = name.empty() ? item.name : name;
    if (auto refused = checkPlacement(view, *parent, newName, item.internalName)) return *refused;
    item.parentId = *parent;
    item.name = newName;
    return std::nullopt;
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::remove(const VHShareView& view,
                                                           const std::string& internalName,
                                                           const VHChangeOrigin& origin) {
    auto target = liveItemInView(view, internalName);
    if (!target) return unknownItem(internalName);
    std::vector<VHEmulatorItem> doomed;
    if (!target->isFile) doomed = liveDescendants(*target);
    doomed.push_back(*target);
    for (const VHEmulatorItem& each : doomed) {
        if (lockedByOther(each, origin)) return lockFailure(each);
    }
    std::optional<VHEmulatorResult<VHEmulatorItem>> last;
    for (VHEmulatorItem& each : doomed) {
        blobs_.discardAfterCommit(each.blobId);
        each.blobId.clear();
        each.deleted = true;
        each.locked = false;
        each.lockDeviceId.clear();
        each.lockedBy.clear();
        each.lockTime = 0;
        last = commit(view, each, kEventDelete, origin);
        if (!*last) return *last;
    }
    return *last;
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::setLock(const VHShareView& view,
                                                            const std::string& internalName,
                                                            bool locked,
                                                            const VHChangeOrigin& origin) {
    auto target = liveItemInView(view, internalName);
    if (!target) return unknownItem(internalName);
    if (lockedByOther(*target, origin)) return lockFailure(*target);
    target->locked = locked;
    target->lockDeviceId = locked ? origin.deviceId : "";
    target->lockedBy = locked ? origin.user : "";
    target->lockTime = locked ? static_cast<int64_t>(VHNowSeconds()) : 0;
    return commit(view, *target, locked ? kEventLock : kEventUnlock, origin);
}

bool VHEmulatorJournal::purge(const std::string& storeShareId) {
    db_.query(
        "SELECT blobId FROM items WHERE shareId = ?", {storeShareId},
        [&](const VHEmulatorDatabase::Row& row) { blobs_.discardAfterCommit(row.columnText(0)); });
    return db_.run("DELETE FROM items WHERE shareId = ?", {storeShareId});
}

bool VHEmulatorJournal::forgetDepartures(const std::string& shareId) {
    return db_.run("DELETE FROM departures WHERE shareId = ?", {shareId});
}

}  // namespace vh::emulator
