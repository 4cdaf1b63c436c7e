#include "store/VHFile.h"

#include <algorithm>

#include "lib/VHFormat.h"
#include "lib/VHSqlite.h"

namespace vh {

namespace {

enum Column {
    kPublicName,
    kShareId,
    kUploadName,
    kInternalName,
    kParentId,
    kUser,
    kHash,
    kTick,
    kShareTick,
    kUpdateTick,
    kCreateTick,
    kFileSize,
    kCreateTime,
    kAccessTime,
    kModifyTime,
    kAttributes,
    kPermissions,
    kDeleted,
    kIsFile,
    kStatus,
    kIsLocked,
    kLockDeviceId,
    kLockTick,
    kLockedBy,
    kParentShareId,
};

VHDate dateColumn(const VHSqliteStatement& row, int index) {
    return VHDate{row.columnDouble(index)};
}

}  // namespace

VHFile::VHFile() {
    VHDate now = VHDate::now();
    createTime = accessTime = modifyTime = now;
}

VHFile VHFile::fromRow(const VHSqliteStatement& row) {
    VHFile file;
    file.publicName = row.columnText(kPublicName);
    file.shareId = row.columnText(kShareId);
    file.uploadName = row.columnText(kUploadName);
    file.internalName = row.columnText(kInternalName);
    file.parentId = row.columnText(kParentId);
    file.user = row.columnText(kUser);
    file.fileHash = row.columnText(kHash);
    file.tick = row.columnUInt64(kTick);
    file.shareTick = row.columnUInt64(kShareTick);
    file.updateTick = row.columnUInt64(kUpdateTick);
    file.createTick = row.columnUInt64(kCreateTick);
    file.fileSize = row.columnUInt64(kFileSize);
    file.createTime = dateColumn(row, kCreateTime);
    file.accessTime = dateColumn(row, kAccessTime);
    file.modifyTime = dateColumn(row, kModifyTime);
    file.attributes = static_cast<uint32_t>(row.columnInt64(kAttributes));
    file.permissions = row.columnUInt64(kPermissions);
    file.deleted = row.columnInt64(kDeleted) != 0;
    file.isFile = row.columnInt64(kIsFile) != 0;
    file.status = static_cast<uint32_t>(row.columnInt64(kStatus));
    file.isLocked = row.columnInt64(kIsLocked) != 0;
    file.lockDeviceId = row.columnText(kLockDeviceId);
    file.lockTick = row.columnUInt64(kLockTick);
    file.lockedBy = row.columnText(kLockedBy);
    file.parentShareId = row.columnText(kParentShareId);
    return file;
}

VHFile VHFile::fromVirtualFile(const VHVirtualFile& item) {
    VHFile file;
    // A name is bytes: two spellings of one text are two items.
    file.publicName = item.PublicName.value_or("");
    file.shareId = item.ShareId.value_or("");
    file.uploadName = item.UploadName.value_or("");
    file.internalName = item.InternalName.value_or("");
    file.parentId = item.ParrentId.value_or("");
    file.user = item.User.value_or("");
    file.fileHash = item.FilehHash.value_or("");
    file.tick = item.Tick;
    file.shareTick = item.ShareTick;
    file.updateTick = item.UpdateTick;
    file.createTick = item.CreateTick;
    file.fileSize = std::max(item.EndOfFile.value_or(0), item.AllocationSize.value_or(0));
    file.createTime = item.CreationTime.value_or(VHDate::distantPast());
    file.accessTime = item.LastAccessTime.value_or(VHDate::distantPast());
    file.modifyTime = item.LastWriteTime.value_or(VHDate::distantPast());
    file.attributes = item.Attributes.value_or(0);
    file.deleted = item.Deleted;
    file.isFile = item.IsFile;
    file.permissions =
        item.POSIXPermissions.value_or(item.IsFile ? kFilePermissions : kFolderPermissions);
    file.status = kStatusSynchronized;
    if (item.FileLock) {
        file.isLocked = item.FileLock->IsLocked.value_or(false);
        file.lockDeviceId = item.FileLock->DeviceId.value_or("");
        // A negative time has no unsigned value; it counts as none.
        file.lockTick = static_cast<uint64_t>(std::max(0.0, item.FileLock->LockTime.value_or(0)));
        file.lockedBy = item.FileLock->LockedBy.value_or("");
    }
    file.parentShareId = item.ParentShareId.value_or("");
    return file;
}

VHVirtualFile VHFile::virtualFile() const {
    VHVirtualFile item;
    item.PublicName = publicName;
    item.ShareId = shareId;
    item.UploadName = uploadName;
    item.InternalName = internalName;
    item.ParrentId = parentId;
    item.ParentShareId = parentShareId;
    item.User = user;
    item.FilehHash = fileHash;
    item.Tick = tick;
    item.ShareTick = shareTick;
    item.UpdateTick = updateTick;
    item.CreateTick = createTick;
    item.EndOfFile = fileSize;
    item.AllocationSize = fileSize;
    item.Attributes = attributes;
    item.POSIXPermissions = permissions;
    item.CreationTime = createTime;
    item.LastAccessTime = accessTime;
    item.LastWriteTime = modifyTime;
    item.Deleted = deleted;
    item.IsFile = isFile;
    ::vh::FileLock lock;
    lock.IsLocked = isLocked;
    lock.DeviceId = lockDeviceId;
    lock.LockTime = static_cast<double>(lockTick);
    lock.LockedBy = lockedBy;
    item.FileLock = lock;
    return item;
}

std::string VHDescription(const VHFile& file) {
    return VHFormat(
        "Name: %@\n isFile: %d\n size: %ld\n status: %d\n internalName: %@\n parentId: %@\n share: "
        "%@\n",
        file.publicName, file.isFile, file.fileSize, file.status, file.internalName, file.parentId,
        file.shareId);
}

VHFileUploadStatus VHFileUploadStatus::fromRow(const VHSqliteStatement& row) {
    VHFileUploadStatus status;
    status.internalName = row.columnText(0);
    status.tick = static_cast<int32_t>(row.columnInt64(1));
    status.startTime = dateColumn(row, 2);
    status.finishTime = dateColumn(row, 3);
    status.progress = row.columnInt64(4);
    status.fileHash = row.columnText(5);
    status.uploadName = row.columnText(6);
    status.token = row.columnText(7);
    return status;
}

}  // namespace vh
