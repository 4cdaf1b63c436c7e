// The files and folders of the shares and their journal.
//
// Every change gives each item it touches the next tick of the share that
// holds it, keeps only the item's latest record (a deletion leaves a record
// with "Deleted" true), and records one broadcast event per touched item.
// A subfolder share's view shows the items below one folder of the share
// that holds them. Every method requires the database lock; the changing
// ones also a transaction (VHEmulatorDatabase::transaction).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VHEmulatorAccounts.h"
#include "VHEmulatorBlobs.h"
#include "VHEmulatorDatabase.h"
#include "VHEmulatorEvents.h"
#include "VHEmulatorTypes.h"

namespace vh::emulator {

inline constexpr int kEventCreate = 0;
inline constexpr int kEventDelete = 1;
inline constexpr int kEventMove = 2;
inline constexpr int kEventUpdate = 3;
inline constexpr int kEventLock = 13;
inline constexpr int kEventUnlock = 14;

// What a device says about an item it creates or changes.
struct VHItemFields {
    std::string internalName;  // empty: the emulator makes one
    std::string parentId;      // a folder, the view's root, the share id, or empty for the root
    std::string name;
    bool isFile = true;
    std::optional<double> createTime, accessTime, writeTime;
    std::optional<int64_t> attributes, permissions;
};

// One stored content: its blob (empty for no bytes), size, hash and name.
struct VHContentVersion {
    std::string blobId;
    uint64_t size = 0;
    std::string hash;
    std::string uploadName;
};

// A content write checked against the state: the item as it would be
// stored (without content and ticks) and whether it creates the item.
struct VHPlannedWrite {
    VHEmulatorItem item;
    int eventType = 0;
};

class VHEmulatorJournal {
  public:
    VHEmulatorJournal(VHEmulatorDatabase& db, VHEmulatorAccounts& accounts,
                      VHEmulatorEvents& events, VHEmulatorBlobs& blobs)
        : db_(db), accounts_(accounts), events_(events), blobs_(blobs) {}

    std::optional<VHEmulatorItem> item(const std::string& internalName);
    std::optional<VHEmulatorItem> itemByUploadName(const std::string& uploadName);
    // A not deleted item that lies in the view; nothing otherwise.
    std::optional<VHEmulatorItem> liveItemInView(const VHShareView& view,
                                                 const std::string& internalName);
    bool isInView(const VHShareView& view, const VHEmulatorItem& item);
    // A not deleted item by its path in the view ("/a/b.txt"; "/" is nothing).
    std::optional<VHEmulatorItem> itemAtPath(const VHShareView& view, const std::string& path);
    // "/a/b.txt" of an item in the view.
    std::string pathOf(const VHShareView& view, const VHEmulatorItem& item);

    // Records of the view with a tick above `tick`, ascending, at most `take`.
    // A subfolder share's view adds, as deleted records at the tick they
    // left, the items that left its folder.
    std::vector<VHEmulatorItem> changesAfter(const VHShareView& view, int64_t tick, int64_t take);
    // Every item now in the view (deleted ones only when asked).
    std::vector<VHEmulatorItem> itemsInView(const VHShareView& view, bool includeDeleted);

    // A folder sent again (same internal name) is renamed or moved as
    // `fields` say, like move(); unchanged, it is answered as it is.
    VHEmulatorResult<VHEmulatorItem> createFolder(const VHShareView& view, VHItemFields fields,
                                                  const VHChangeOrigin& origin);
    // Checks new contents of a file without changing anything: a create (or
    // the revival of a deleted item) unless `mustExist`, which refuses an
    // unknown or deleted item with 17. For an existing file the name and
    // parent of `fields` apply as in move().
    VHEmulatorResult<VHPlannedWrite> planWrite(const VHShareView& view, VHItemFields fields,
                                               const VHChangeOrigin& origin, bool mustExist);
    // Stores new contents as planWrite checks them.
    VHEmulatorResult<VHEmulatorItem> writeContent(const VHShareView& view, VHItemFields fields,
                                                  const VHContentVersion& content,
                                                  const VHChangeOrigin& origin, bool mustExist);
    // Rename and move; an empty name keeps the name, an empty parent the
    // parent. Refused like a create (400/1 bad name, 409/3 name taken), and
    // with 400/17 for an unknown parent, 400/1 for a folder into itself and
    // 423 for another user's lock.
    VHEmulatorResult<VHEmulatorItem> move(const VHShareView& view, const std::string& internalName,
                                          const std::string& parentId, const std::string& name,
                                          const VHChangeOrigin& origin);
    // Deletes an item and everything below it.
    VHEmulatorResult<VHEmulatorItem> remove(const VHShareView& view,
                                            const std::string& internalName,
                                            const VHChangeOrigin& origin);
    VHEmulatorResult<VHEmulatorItem> setLock(const VHShareView& view,
                                             const std::string& internalName, bool locked,
                                             const VHChangeOrigin& origin);
    // Forgets every item of a share; their blobs go after the commit.
    bool purge(const std::string& storeShareId);
    // Forgets which items left a subfolder share's folder.
    bool forgetDepartures(const std::string& shareId);

  private:
    std::vector<VHEmulatorItem> selectItems(const std::string& where,
                                            const std::vector<VHEmulatorValue>& values);
    std::optional<VHEmulatorItem> childNamed(const std::string& shareId,
                                             const std::string& parentId, const std::string& name);
    // A new file or folder below its parent, checked for a place to stand.
    VHEmulatorResult<VHEmulatorItem> newItem(const VHShareView& view, const VHItemFields& fields,
                                             bool isFile);
    // Gives `item` its new parent and name, checked as move() checks them.
    std::optional<VHEmulatorFailure> relocate(const VHShareView& view, VHEmulatorItem& item,
                                              const std::string& parentId, const std::string& name,
                                              const VHChangeOrigin& origin);
    VHEmulatorResult<std::string> resolveParent(const VHShareView& view,
                                                const std::string& parentId);
    std::optional<VHEmulatorFailure> checkPlacement(const VHShareView& view,
                                                    const std::string& parentId,
                                                    const std::string& name,
                                                    const std::string& self);
    std::vector<VHEmulatorItem> liveDescendants(const VHEmulatorItem& folder);
    bool store(const VHEmulatorItem& item);
    // Whether the chain of parents from `parentId` up reaches `folderId`.
    bool isBelow(const std::string& parentId, const std::string& folderId);
    // After `moved` changed its parent: the subfolder shares whose folder it
    // left or entered note it, and what lies below it gets a tick of its own.
    bool crossSubfolderShares(const VHShareView& view, const std::string& oldParent,
                              const VHEmulatorItem& moved, const VHChangeOrigin& origin);
    bool recordCrossing(const std::vector<std::pair<std::string, bool>>& crossed,
                        const std::string& internalName, int64_t tick);
    VHEmulatorResult<VHEmulatorItem> commit(const VHShareView& view, VHEmulatorItem item,
                                            int eventType, const VHChangeOrigin& origin);

    // Deeper trees than this are taken for a loop in the parent chain.
    static constexpr int kMaxDepth = 1000;

    VHEmulatorDatabase& db_;
    VHEmulatorAccounts& accounts_;
    VHEmulatorEvents& events_;
    VHEmulatorBlobs& blobs_;
};

}  // namespace vh::emulator
