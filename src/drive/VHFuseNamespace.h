// What the callbacks that change the drive's name space share: the refusals
// the user is told of, the share checks, and where a new item goes.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>

#include "store/VHFile.h"
#include "store/VHLoginRecords.h"

namespace vh {

enum class VHDriveAlert { InvalidName, ReadOnlyShare, BetweenShares, NotYetUploaded };

// Emits the alert's title and text (VHDriveEvents::driveAlert).
void VHPostDriveAlert(VHDriveAlert alert);

// `work` runs on a pool thread after `delayMs`, timed by the main thread's
// event loop; nothing runs when there is no application object.
void VHRunLater(int delayMs, std::function<void()> work);

// The last component of `path` holds one of the characters no name may hold.
bool VHNewNameIsInvalid(const std::string& path);
// Raises the invalid-name alert; -EIO.
int VHRefuseInvalidName();
// `path` lies in a share the user may only read, and is not an ignored name
// (those never reach the service).
bool VHIsReadOnlyPath(const std::string& path);
// A file that another user holds locked: shown without write bits, and
// neither its contents nor its attributes may change here.
bool VHIsLockedByAnotherUser(const VHFile& file);

// The share and parent id under which a new item at `path` is made.
struct VHItemPlace {
    ManagedShare share;
    std::string shareId;
    std::string parentId;
};
// For a path directly in a share, parent id is the subfolder share's folder
// id or the share id; -EIO when the share is unknown. Deeper, the parent
// must be a live folder and its share known, else -ENOENT.
std::variant<VHItemPlace, int> VHPlaceForNewItem(const std::string& path);

// The live or deleted record at `path`; a deleted one is removed for good
// first (nothing is returned for it), so that a new item can take the name.
std::optional<VHFile> VHLiveRecordClearingDeleted(const std::string& path);

}  // namespace vh
