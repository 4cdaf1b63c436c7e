#include "drive/VHFuseNamespace.h"

#include <QCoreApplication>
#include <QThreadPool>
#include <QTimer>
#include <cerrno>

#include "drive/VHDriveEvents.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabase.h"

namespace vh {

void VHPostDriveAlert(VHDriveAlert alert) {
    const char* title = "";
    const char* message = "";
    switch (alert) {
        case VHDriveAlert::InvalidName:
            title = "Please choose a different name";
            message = "File Name cannot contain any of these characters \\/:*?\"<>|";
            break;
        case VHDriveAlert::ReadOnlyShare:
            message = "You do not have permissions to alter items in read only share.";
            break;
        case VHDriveAlert::BetweenShares:
            message = "You can't move files between shares.";
            break;
        case VHDriveAlert::NotYetUploaded:
            title = "Cannot rename/move the file.";
            message = "Please wait until the file is uploaded on server and then try again.";
            break;
    }
    emit VHDriveEvents::instance().driveAlert(QString::fromUtf8(title), QString::fromUtf8(message));
}

void VHRunLater(int delayMs, std::function<void()> work) {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) return;
    QMetaObject::invokeMethod(app, VHHandOff([delayMs, work = std::move(work)] {
                                  QTimer::singleShot(delayMs, QCoreApplication::instance(), [work] {
                                      QThreadPool::globalInstance()->start(VHHandOff(work));
                                  });
                              }));
}

bool VHNewNameIsInvalid(const std::string& path) {
    return VHFuseUtils::containsInvalidCharacters(VHLastPathComponent(path));
}

int VHRefuseInvalidName() {
    VHPostDriveAlert(VHDriveAlert::InvalidName);
    return -EIO;
}

bool VHIsReadOnlyPath(const std::string& path) {
    if (VHFuseUtils::isPathIgnored(path, false)) return false;
    auto share = driveShareWithPath(path);
    return share && share->isReadonlyShare();
}

bool VHIsLockedByAnotherUser(const VHFile& file) {
    return file.isFile && file.isLocked && VHDatabase::database().isFileLockedRemotely(file);
}

namespace {

std::variant<VHItemPlace, int> placeInShare(const std::string& sharePath) {
    auto share = driveShareWithPath(sharePath);
    if (!share || !share->ShareId) {
        VHLog(kLogDrive, "%s: failed.", "VHPlaceForNewItem");
        return -EIO;
    }
    std::string parentId = *share->ShareId;
    if (share->isSubfolderShare() && share->InternalName) parentId = *share->InternalName;
    return VHItemPlace{*share, *share->ShareId, parentId};
}

std::variant<VHItemPlace, int> placeInFolder(const std::string& folderPath) {
    auto parent = driveFileWithPath(folderPath);
    if (!parent || parent->isFile || parent->deleted) return -ENOENT;
    VHDatabase& db = VHDatabase::database();
    auto share = db.getSubshareForFile(*parent);
    if (!share) share = driveShareWithPath(folderPath);
    if (!share || !share->ShareId) return -ENOENT;
    return VHItemPlace{*share, *share->ShareId, parent->internalName};
}

}  // namespace

std::variant<VHItemPlace, int> VHPlaceForNewItem(const std::string& path) {
    std::string parentPath = VHDeletingLastPathComponent(path);
    if (VHFuseUtils::isRootPath(parentPath)) return -EIO;
    if (VHFuseUtils::isSharePath(parentPath)) return placeInShare(parentPath);
    return placeInFolder(parentPath);
}

std::optional<VHFile> VHLiveRecordClearingDeleted(const std::string& path) {
    auto existing = driveFileWithPath(path);
    if (!existing || !existing->deleted) return existing;
    VHDatabase::database().removeFile(*existing, true, true);
    return std::nullopt;
}

}  // namespace vh
