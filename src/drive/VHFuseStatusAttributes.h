// The four read-only status attributes of drive items, which tell a file
// manager how to badge an item: its sync state, whether it may be written,
// whether it takes part in synchronisation, and its lock state. Each value is
// one byte computed from the store and the transfer queues; none is stored.
// Any thread (the calls ask the store and the queues, which may block briefly).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "store/VHFile.h"

namespace vh {

enum class VHStatusAttribute { OverlayIcon, WriteAccess, FileStatus, LockStatus };

// Codes of OverlayIcon (a binary byte).
enum VHSyncState : char {
    kSyncNothing = 0,        // nothing to show
    kSyncComplete = 1,       // a file complete here with nothing to upload
    kSyncNotDownloaded = 2,  // a file not here and not queued
    kSyncTransferring = 3,   // a transfer queued or running, in the item or below it
    kSyncFolderSynced = 4,   // a synchronized folder with nothing pending
    kSyncFolderPending = 5,  // a synchronized folder with transfers pending below it
};

// Codes of LockStatus (a binary byte).
enum VHLockState : char {
    kLockNone = 0,
    kLockOwn = 1,    // locked by this user, or by anyone in a share this user owns
    kLockOther = 2,  // locked by another user
    kLockUnavailable = 10,
};

// The attribute called `name` on the drive ("user.com.varnholt.clouddrive-osx.
// overlayicon", "...writeaccess", "...filestatus", "...lockstatus"); nothing
// for any other name.
std::optional<VHStatusAttribute> VHStatusAttributeNamed(std::string_view name);

// The value for the item at `path` (a share or item path after finalPath,
// never the root) whose live record is `file`, nothing for a share. Nothing
// when the item has no such attribute: LockStatus exists for files only.
// WriteAccess is the character '1' or '0', the others binary codes.
std::optional<char> VHStatusAttributeValue(VHStatusAttribute attribute, const std::string& path,
                                           const std::optional<VHFile>& file);

}  // namespace vh
