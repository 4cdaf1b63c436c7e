// The in-memory record of one row of the files table: an item of a share as
// the client last knew it from the server plus the local changes not yet
// confirmed. A plain value: copy it freely; it is never shared between
// threads by reference.
#pragma once

#include <cstdint>
#include <string>

#include "lib/VHDate.h"
#include "store/VHVirtualFile.h"

namespace vh {

class VHSqliteStatement;

// Local state of a row (column `status`).
enum VHFileStatus : uint64_t {
    kStatusSynchronized = 0,  // exactly the server's state
    kStatusCreated = 1,       // created locally (or moved into another share), never uploaded
    kStatusModified = 2,      // contents changed locally
    kStatusChanged = 3,       // deleted, lock changed or folder replaced locally
    kStatusUploaded = 4,      // sent, awaiting the journal's confirmation
    kStatusShadow = 5,        // the server's last state of an item with a pending change
    kStatusTemporary = 6,     // local only, never uploaded
};

// A tick with all bits set: the server has not assigned one yet.
inline constexpr uint64_t kNoTick = UINT64_MAX;
// Permissions of items that the server gives none for.
inline constexpr uint64_t kFilePermissions = 0600;
inline constexpr uint64_t kFolderPermissions = 0700;

struct VHFile {
    std::string publicName;
    std::string shareId;
    std::string uploadName;
    std::string internalName;
    std::string parentId;
    std::string parentShareId;
    std::string user;
    std::string fileHash;
    uint64_t tick = kNoTick;
    uint64_t shareTick = kNoTick;
    uint64_t updateTick = kNoTick;
    uint64_t createTick = kNoTick;
    uint64_t fileSize = 0;
    VHDate createTime;
    VHDate accessTime;
    VHDate modifyTime;
    uint64_t attributes = 0;
    uint64_t permissions = 0;
    bool deleted = false;
    bool isFile = true;
    uint64_t status = kStatusCreated;
    bool isLocked = false;
    std::string lockDeviceId;
    uint64_t lockTick = 0;
    std::string lockedBy;

    // A new local record: empty strings, no ticks, size 0, the three times
    // now, not deleted, a file, status "created", not locked.
    VHFile();

    // From a row of "SELECT * FROM files", by column position (publicName at
    // 0 to parentShareId at 24). Times may be stored as integers or reals.
    static VHFile fromRow(const VHSqliteStatement& row);

    // From the service's record: the name byte for byte (never normalised);
    // missing texts empty; size = the larger of EndOfFile and AllocationSize; missing times
    // the distant past; permissions 0600/0700 when not given; status
    // "synchronized"; lock fields from FileLock when present.
    static VHFile fromVirtualFile(const VHVirtualFile& item);

    // To the service's record, with AllocationSize = EndOfFile = fileSize and
    // a FileLock always attached.
    VHVirtualFile virtualFile() const;

    bool operator==(const VHFile&) const = default;
};

// "Name: %@\n isFile: %d\n size: %ld\n status: %d\n internalName: %@\n parentId: %@\n share: %@\n"
std::string VHDescription(const VHFile& file);

// One row of the uploads table: a file whose upload is in progress.
struct VHFileUploadStatus {
    std::string internalName;
    int32_t tick = 0;
    VHDate startTime;
    VHDate finishTime = VHDate::distantFuture();
    int64_t progress = 0;
    std::string fileHash;
    std::string uploadName;
    std::string token;  // the upload URL the service returned

    // From a row of "SELECT * FROM uploads", by column position.
    static VHFileUploadStatus fromRow(const VHSqliteStatement& row);
    bool operator==(const VHFileUploadStatus&) const = default;
};

}  // namespace vh
