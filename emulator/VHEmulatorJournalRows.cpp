#include "VHEmulatorJournal.h"

#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

using Row = VHEmulatorDatabase::Row;

const char* kItemColumns =
    "internalName, shareId, parentId, name, isFile, size, uploadName, blobId, hash, user, tick, "
    "updateTick, createTick, createTime, accessTime, writeTime, attributes, permissions, "
    "deleted, locked, lockDeviceId, lockedBy, lockTime";
constexpr int kItemColumnCount = 23;

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

// The item columns, each prefixed with "items.".
std::string qualifiedItemColumns() {
    std::string columns = std::string("items.") + kItemColumns;
    for (size_t at = columns.find(", "); at != std::string::npos; at = columns.find(", ", at + 2)) {
        columns.insert(at + 2, "items.");
    }
    return columns;
}

// The internal names below a view's root folder, for WITH RECURSIVE.
const char* kBelowRoot =
    "below(id) AS (SELECT internalName FROM items WHERE shareId = ?1 AND parentId = ?2 "
    "UNION SELECT items.internalName FROM items JOIN below ON items.parentId = below.id)";

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
    return view.rootId == view.storeShareId || isBelow(item.parentId, view.rootId);
}

bool VHEmulatorJournal::isBelow(const std::string& parentId, const std::string& folderId) {
    std::string parent = parentId;
    for (int depth = 0; depth < kMaxDepth; ++depth) {
        if (parent == folderId) return true;
        auto above = db_.text("SELECT parentId FROM items WHERE internalName = ?", {parent});
        if (!above) return false;
        parent = *above;
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
    // What lies below the folder now, and what left it: the record of an
    // item that left shows it deleted at the tick it left.
    std::vector<VHEmulatorItem> result;
    db_.query(std::string("WITH RECURSIVE ") + kBelowRoot + " SELECT " + kItemColumns +
                  ", tick AS at, 0 FROM items WHERE internalName IN below AND tick > ?3 "
                  "UNION ALL SELECT " +
                  qualifiedItemColumns() +
                  ", departures.tick AS at, 1 FROM departures JOIN items USING (internalName) "
                  "WHERE departures.shareId = ?5 AND departures.tick > ?3 AND "
                  "departures.internalName NOT IN below ORDER BY at LIMIT ?4",
              {view.storeShareId, view.rootId, tick, take, view.share.shareId},
              [&](const Row& row) {
                  VHEmulatorItem item = itemFromRow(row);
                  if (row.columnInt64(kItemColumnCount + 1) != 0) {
                      item.deleted = true;
                      item.tick = row.columnInt64(kItemColumnCount);
                  }
                  result.push_back(std::move(item));
              });
    return result;
}

std::vector<VHEmulatorItem> VHEmulatorJournal::itemsInView(const VHShareView& view,
                                                           bool includeDeleted) {
    std::string deleted = includeDeleted ? "" : " AND deleted = 0";
    if (view.rootId == view.storeShareId) {
        return selectItems("WHERE shareId = ?" + deleted, {view.storeShareId});
    }
    std::vector<VHEmulatorItem> result;
    db_.query(std::string("WITH RECURSIVE ") + kBelowRoot + " SELECT " + kItemColumns +
                  " FROM items WHERE internalName IN below" + deleted,
              {view.storeShareId, view.rootId},
              [&](const Row& row) { result.push_back(itemFromRow(row)); });
    return result;
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

}  // namespace vh::emulator
