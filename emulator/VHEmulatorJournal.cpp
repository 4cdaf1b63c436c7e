#include "VHEmulatorJournal.h"

#include <limits>

#include "VHEmulatorDates.h"
#include "VHEmulatorDefaults.h"
#include "VHEmulatorIds.h"
#include "VHEmulatorNames.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

using Row = VHEmulatorDatabase::Row;

const char* kItemColumns =
    "internalName, shareId, parentId, name, isFile, size, uploadName, blobId, hash, user, tick, "
    "updateTick, createTick, createTime, accessTime, writeTime, attributes, permissions, "
    "deleted, locked, lockDeviceId, lockedBy, lockTime";

// Deeper trees than this are taken for a loop in the parent chain.
constexpr int kMaxDepth = 1000;

VHEmulatorItem itemFromRow(const Row& row) {
    VHEmulatorItem item;
    item.internalName = row.columnText(0);
    item.shareId = row.columnText(1);
    item.parentId = row.columnText(2);
    item.name = row.columnText(3);
    item.isFile = row.columnInt64(4) != 0;
    item.size = row.columnUInt64(5);
    item.uploadName = row.columnText(6);
    item.blobId = row.columnText(7);
    item.hash = row.columnText(8);
    item.user = row.columnText(9);
    item.tick = row.columnInt64(10);
    item.updateTick = row.columnInt64(11);
    item.createTick = row.columnInt64(12);
    item.createTime = row.columnDouble(13);
    item.accessTime = row.columnDouble(14);
    item.writeTime = row.columnDouble(15);
    item.attributes = row.columnInt64(16);
    if (!row.columnIsNull(17)) item.permissions = row.columnInt64(17);
    item.deleted = row.columnInt64(18) != 0;
    item.locked = row.columnInt64(19) != 0;
    item.lockDeviceId = row.columnText(20);
    item.lockedBy = row.columnText(21);
    item.lockTime = row.columnInt64(22);
    return item;
}

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

std::vector<VHEmulatorItem> VHEmulatorJournal::selectItems(
    const std::string& where, const std::vector<VHEmulatorValue>& values) {
    std::vector<VHEmulatorItem> result;
    db_.query(std::string("SELECT ") + kItemColumns + " FROM items " + where, values,
              [&](const Row& row) { result.push_back(itemFromRow(row)); });
    return result;
}

std::optional<VHEmulatorItem> VHEmulatorJournal::item(const std::string& internalName) {
    auto found = selectItems("WHERE internalName = ?", {internalName});
    if (found.empty()) return std::nullopt;
    return found.front();
}

std::optional<VHEmulatorItem> VHEmulatorJournal::itemByUploadName(const std::string& uploadName) {
    if (uploadName.empty()) return std::nullopt;
    auto found = selectItems("WHERE uploadName = ?", {uploadName});
    if (found.empty()) return std::nullopt;
    return found.front();
}

bool VHEmulatorJournal::isInView(const VHShareView& view, const VHEmulatorItem& item) {
    if (item.shareId != view.storeShareId) return false;
    if (view.rootId == view.storeShareId) return true;
    std::string parent = item.parentId;
    for (int depth = 0; depth < kMaxDepth; ++depth) {
        if (parent == view.rootId) return true;
        auto above = this->item(parent);
        if (!above) return false;
        parent = above->parentId;
    }
    return false;
}

std::optional<VHEmulatorItem> VHEmulatorJournal::liveItemInView(const VHShareView& view,
                                                                const std::string& internalName) {
    auto found = item(internalName);
    if (!found || found->deleted || !isInView(view, *found)) return std::nullopt;
    return found;
}

std::optional<VHEmulatorItem> VHEmulatorJournal::childNamed(const std::string& shareId,
                                                            const std::string& parentId,
                                                            const std::string& name) {
    auto found = selectItems("WHERE shareId = ? AND parentId = ? AND name = ? AND deleted = 0",
                             {shareId, parentId, name});
    if (found.empty()) return std::nullopt;
    return found.front();
}

std::optional<VHEmulatorItem> VHEmulatorJournal::itemAtPath(const VHShareView& view,
                                                            const std::string& path) {
    std::string parent = view.rootId;
    std::optional<VHEmulatorItem> current;
    for (const std::string& name : VHPathComponents(path)) {
        if (current && current->isFile) return std::nullopt;
        current = childNamed(view.storeShareId, parent, name);
        if (!current) return std::nullopt;
        parent = current->internalName;
    }
    return current;
}

std::string VHEmulatorJournal::pathOf(const VHShareView& view, const VHEmulatorItem& item) {
    std::string path = "/" + item.name;
    std::string parent = item.parentId;
    for (int depth = 0; depth < kMaxDepth && parent != view.rootId; ++depth) {
        auto above = this->item(parent);
        if (!above) break;
        path = "/" + above->name + path;
        parent = above->parentId;
    }
    return path;
}

std::vector<VHEmulatorItem> VHEmulatorJournal::changesAfter(const VHShareView& view, int64_t tick,
                                                            int64_t take) {
    if (view.rootId == view.storeShareId) {
        return selectItems("WHERE shareId = ? AND tick > ? ORDER BY tick LIMIT ?",
                           {view.storeShareId, tick, take});
    }
    return selectItems(
        "WHERE internalName IN (WITH RECURSIVE below(id) AS (SELECT internalName FROM items "
        "WHERE shareId = ?1 AND parentId = ?2 UNION SELECT items.internalName FROM items JOIN "
        "below ON items.parentId = below.id) SELECT id FROM below) AND tick > ?3 "
        "ORDER BY tick LIMIT ?4",
        {view.storeShareId, view.rootId, tick, take});
}

std::vector<VHEmulatorItem> VHEmulatorJournal::itemsInView(const VHShareView& view,
                                                           bool includeDeleted) {
    auto items = changesAfter(view, -1, std::numeric_limits<int64_t>::max());
    if (!includeDeleted) std::erase_if(items, [](const VHEmulatorItem& i) { return i.deleted; });
    return items;
}

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

std::vector<VHEmulatorItem> VHEmulatorJournal::liveDescendants(const VHEmulatorItem& folder) {
    std::vector<VHEmulatorItem> result;
    std::vector<std::string> pending{folder.internalName};
    while (!pending.empty() && result.size() < 10'000'000) {
        std::string parent = pending.back();
        pending.pop_back();
        for (VHEmulatorItem& child : selectItems(
                 "WHERE shareId = ? AND parentId = ? AND deleted = 0", {folder.shareId, parent})) {
            if (!child.isFile) pending.push_back(child.internalName);
            result.push_back(std::move(child));
        }
    }
    return result;
}

bool VHEmulatorJournal::store(const VHEmulatorItem& item) {
    return db_.run(
        std::string("INSERT OR REPLACE INTO items (") + kItemColumns +
            ") VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)",
        {item.internalName,
         item.shareId,
         item.parentId,
         item.name,
         int64_t(item.isFile),
         item.size,
         item.uploadName,
         item.blobId,
         item.hash,
         item.user,
         item.tick,
         item.updateTick,
         item.createTick,
         item.createTime,
         item.accessTime,
         item.writeTime,
         item.attributes,
         item.permissions ? VHEmulatorValue(*item.permissions) : VHEmulatorValue(std::monostate{}),
         int64_t(item.deleted),
         int64_t(item.locked),
         item.lockDeviceId,
         item.lockedBy,
         item.lockTime});
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorJournal::commit(const VHShareView& view,
                                                           VHEmulatorItem item, int eventType,
                                                           const VHChangeOrigin& origin) {
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
    return item;
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
    db_.query("SELECT blobId FROM items WHERE shareId = ?", {storeShareId},
              [&](const Row& row) { blobs_.discardAfterCommit(row.columnText(0)); });
    return db_.run("DELETE FROM items WHERE shareId = ?", {storeShareId});
}

}  // namespace vh::emulator
