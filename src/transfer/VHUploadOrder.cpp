// The dependencies between pending changes, read from the store.
#include "transfer/VHUploadOrder.h"

#include <algorithm>
#include <cctype>

#include "store/VHDatabase.h"

namespace vh {

namespace {

// Long enough for any cycle a person makes; bounds a walk over a broken store.
constexpr int kMaxCycleLength = 32;

bool hasPendingStatus(const VHFile& row) {
    return row.status == kStatusCreated || row.status == kStatusModified ||
           row.status == kStatusChanged;
}

}  // namespace

VHUploadOrder::VHUploadOrder(std::function<bool(const std::string&)> hasOperation)
    : hasOperation_(std::move(hasOperation)) {}

std::string VHUploadOrder::interimName(const VHFile& file) {
    std::string tag;
    for (char c : file.internalName) {
        if (std::isalnum(static_cast<unsigned char>(c)) && tag.size() < 24) tag += c;
    }
    return ".vh-interim-" + tag;
}

VHUploadOrder::Verdict VHUploadOrder::verdict(const VHFile& file) const {
    VHDatabase& db = VHDatabase::database();
    if (file.deleted) {
        bool waits = !file.isFile && db.hasPendingChildren(file.internalName);
        return {waits ? Kind::Wait : Kind::Go, {}};
    }
    if (parentIsNotOnService(file)) return {Kind::Wait, {}};
    Place target{file.parentId, file.publicName};
    if (serverPlace(file.internalName) == target) return {};
    std::optional<std::string> holder = holderOf(target, file.internalName);
    if (!holder || !isPending(*holder)) return {};  // a real conflict is the service's to judge
    std::optional<bool> leads = cycleLedBy(file, *holder);
    if (leads && *leads) return {Kind::Interim, interimName(file)};
    return {Kind::Wait, {}};
}

bool VHUploadOrder::isPending(const std::string& id) const {
    if (hasOperation_(id)) return true;
    std::optional<VHFile> live = VHDatabase::database().fileWithId(id);
    return live && hasPendingStatus(*live);
}

bool VHUploadOrder::parentIsNotOnService(const VHFile& file) const {
    if (file.parentId == file.shareId) return false;
    std::optional<VHFile> parent = VHDatabase::database().fileWithId(file.parentId);
    return parent && (parent->status == kStatusCreated || hasOperation_(parent->internalName));
}

std::optional<VHUploadOrder::Place> VHUploadOrder::serverPlace(const std::string& id) const {
    VHDatabase& db = VHDatabase::database();
    std::optional<VHFile> live = db.fileWithId(id);
    if (!live) return std::nullopt;
    switch (live->status) {
        case kStatusModified:
        case kStatusChanged: {
            // Not sent yet: what the service has is the shadow, or the place
            // noted at a rename, or else the row.
            if (std::optional<VHFile> shadow = db.fileWithId(id, true)) {
                return Place{shadow->parentId, shadow->publicName};
            }
            return db.serverPlaces().find(id).value_or(Place{live->parentId, live->publicName});
        }
        case kStatusSynchronized:
        case kStatusUploaded:
            if (live->deleted) return std::nullopt;
            return Place{live->parentId, live->publicName};
        default:
            return std::nullopt;
    }
}

std::optional<std::string> VHUploadOrder::holderOf(const Place& place,
                                                   const std::string& except) const {
    VHDatabase& db = VHDatabase::database();
    for (const VHFile& row : db.rowsNamed(place.first, place.second)) {
        const std::string& id = row.internalName;
        if (id == except) continue;
        if (serverPlace(id) == place) return id;
        // An operation of it may be moving it there right now.
        if (row.status != kStatusShadow && hasOperation_(id)) return id;
    }
    for (const std::string& id : db.serverPlaces().itemsAt(place)) {
        if (id != except && serverPlace(id) == place) return id;
    }
    return std::nullopt;
}

std::optional<bool> VHUploadOrder::cycleLedBy(const VHFile& file, std::string holder) const {
    VHDatabase& db = VHDatabase::database();
    std::string least = file.internalName;
    for (int step = 0; step < kMaxCycleLength; ++step) {
        std::optional<VHFile> live = db.fileWithId(holder);
        if (!live || live->deleted) return std::nullopt;
        Place wanted{live->parentId, live->publicName};
        if (serverPlace(holder) == wanted) return std::nullopt;  // waits for nobody
        least = std::min(least, holder);
        std::optional<std::string> next = holderOf(wanted, holder);
        if (!next) return std::nullopt;
        if (*next == file.internalName) return least == file.internalName;
        if (!isPending(*next)) return std::nullopt;
        holder = *next;
    }
    return std::nullopt;
}

}  // namespace vh
