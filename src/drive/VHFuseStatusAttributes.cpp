#include "drive/VHFuseStatusAttributes.h"

#include <array>
#include <utility>

#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabase.h"
#include "store/VHStoreHooks.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

// Linux keeps an unprivileged attribute only in the "user." namespace.
constexpr std::array<std::pair<std::string_view, VHStatusAttribute>, 4> kNames{{
    {"user.com.varnholt.clouddrive-osx.overlayicon", VHStatusAttribute::OverlayIcon},
    {"user.com.varnholt.clouddrive-osx.writeaccess", VHStatusAttribute::WriteAccess},
    {"user.com.varnholt.clouddrive-osx.filestatus", VHStatusAttribute::FileStatus},
    {"user.com.varnholt.clouddrive-osx.lockstatus", VHStatusAttribute::LockStatus},
}};

char fileSyncState(const VHFile& file) {
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    bool complete = file.fileSize == 0 || downloads.isFileDownloaded(file);
    if (VHUploadQueue::uploadQueue().isFileInUploadQueue(file)) return kSyncTransferring;
    if (complete) return kSyncComplete;
    return downloads.isFileInQueue(file) ? kSyncTransferring : kSyncNotDownloaded;
}

char folderSyncState(const std::string& path) {
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    bool pending =
        VHUploadQueue::uploadQueue().pathHasUploads(path) || downloads.pathHasDownloads(path);
    if (!downloads.pathIsSynchronized(path)) return pending ? kSyncTransferring : kSyncNothing;
    if (pending) return kSyncFolderPending;
    return VHDatabase::database().syncedFolders().empty() ? kSyncNothing : kSyncFolderSynced;
}

char writeAccess(const std::string& path) {
    auto share = driveShareWithPath(VHDeletingLastPathComponent(path));
    return share && share->isReadonlyShare() ? '0' : '1';
}

char lockState(const VHFile& file, const std::string& path) {
    // Every share offers locking, so kLockUnavailable is never the answer.
    if (!file.isLocked) return kLockNone;
    VHDatabase& db = VHDatabase::database();
    if (!db.isFileLockedRemotely(file)) return kLockOwn;
    if (file.lockedBy == VHStoreHooks::app().username()) return kLockOwn;
    auto share = db.shareWithId(file.shareId);
    if (!share) share = driveShareWithPath(VHDeletingLastPathComponent(path));
    if (share && (share->AssociationType == 2 || share->isShareOwner())) return kLockOwn;
    return kLockOther;
}

}  // namespace

std::optional<VHStatusAttribute> VHStatusAttributeNamed(std::string_view name) {
    for (const auto& [known, attribute] : kNames) {
        if (name == known) return attribute;
    }
    return std::nullopt;
}

std::optional<char> VHStatusAttributeValue(VHStatusAttribute attribute, const std::string& path,
                                           const std::optional<VHFile>& file) {
    bool isFile = file && file->isFile;
    switch (attribute) {
        case VHStatusAttribute::OverlayIcon:
            return isFile ? fileSyncState(*file) : folderSyncState(path);
        case VHStatusAttribute::WriteAccess:
            return writeAccess(path);
        case VHStatusAttribute::FileStatus:
            return VHFuseUtils::isPathIgnored(path, file && !file->isFile) ? char{0} : char{1};
        case VHStatusAttribute::LockStatus:
            if (!isFile) return std::nullopt;
            return lockState(*file, path);
    }
    return std::nullopt;
}

}  // namespace vh
