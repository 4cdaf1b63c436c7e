#include "desktop/VHLockToggle.h"

#include "drive/VHFuseUtils.h"
#include "lib/VHLog.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

std::optional<ManagedShare> shareOf(const VHFile& file, const std::string& drivePath) {
    VHDatabase& db = VHDatabase::database();
    if (auto share = db.shareWithId(file.shareId)) return share;
    std::string parent = drivePath.substr(0, drivePath.rfind('/'));
    return db.shareWithPath(parent);
}

// Only the lock's owner, the share's owner, or an owner association may unlock.
bool mayUnlock(const VHFile& record, const std::optional<ManagedShare>& share,
               const std::string& user) {
    if (share && (share->isShareOwner() || share->AssociationType == 2)) return true;
    return record.lockedBy == user;
}

}  // namespace

VHLockToggle::Result VHLockToggle::toggleLock(const std::string& drivePath) {
    VHDatabase& db = VHDatabase::database();
    std::optional<VHFile> file = db.fileWithPath(drivePath);
    if (!file || !file->isFile) return Result::NoFile;
    if (file->status == kStatusCreated || file->status == kStatusModified ||
        file->status == kStatusUploaded) {
        VHLog(kLogMain, "Warning! Lock of %@ left as it is: a change is not yet confirmed.",
              file->publicName);
        return Result::Pending;
    }
    std::optional<ManagedShare> share = shareOf(*file, drivePath);
    VHConnector& connector = VHConnector::defaultConnector();
    const std::string user = connector.username();
    const std::string device = connector.deviceId();
    Result result = Result::NotAllowed;
    for (VHFile record :
         db.filesWithShareID(share ? share->shareId() : file->shareId, file->internalName)) {
        if (record.isLocked && !mayUnlock(record, share, user)) {
            VHLog(kLogMain,
                  "Warning! Attempt to unlock file which we should not be able to unlock: "
                  "username %@, deviceid %@",
                  record.lockedBy, record.lockDeviceId);
            continue;
        }
        record.isLocked = !record.isLocked;
        record.lockDeviceId = device;
        record.lockTick = 0;
        record.lockedBy = user;
        if (db.updateFileLockStatus(record)) result = Result::Changed;
    }
    VHUploadQueue::uploadQueue().uploadsAdded();
    return result;
}

VHLockToggle::Result VHLockToggle::setLocked(const std::string& drivePath, bool lock) {
    std::optional<VHFile> file = VHDatabase::database().fileWithPath(drivePath);
    if (!file || !file->isFile) return Result::NoFile;
    if (file->isLocked == lock) return Result::AlreadyThere;
    return toggleLock(drivePath);
}

}  // namespace vh
