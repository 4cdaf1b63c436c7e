// What each plug-in command does; the table is in VHFinderConnector.cpp.
#include <QLocalSocket>

#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHDesktopServices.h"
#include "desktop/VHFinderConnector.h"
#include "desktop/VHLockToggle.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHLog.h"
#include "lib/VHPathUtils.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"

namespace vh {

namespace {

std::string drivePathOf(const std::string& absolutePath) {
    return VHFuseUtils::fullPathToRelative(absolutePath);
}

std::optional<VHFile> fileOrWarning(const VHFinderMessage& message) {
    std::optional<VHFile> file =
        VHDatabase::database().fileWithPath(drivePathOf(message.parameter));
    if (!file) {
        VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain file for path %@",
              message.parameter);
    }
    return file;
}

std::optional<ManagedShare> shareOrWarning(const VHFinderMessage& message) {
    auto share = VHDatabase::database().shareWithPath(drivePathOf(message.parameter));
    if (!share) {
        VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain share for path %@",
              message.parameter);
    }
    return share;
}

}  // namespace

void VHFinderConnector::hello(const VHFinderMessage& message, QLocalSocket* from) {
    VHLog(kLogMain, "Received Finder plugin connection with id %@", message.instanceId);
    deleteConnectionWithId(message.instanceId);
    auto connection = std::make_unique<VHFinderConnection>(message.instanceId, from);
    connect(
        connection.get(), &VHFinderConnection::sendTimedOut, this, [from] { from->abort(); },
        Qt::QueuedConnection);
    VHFinderConnection* added = connection.get();
    connections_[message.instanceId] = std::move(connection);
    added->send("hej", VHFuseUtils::mountPath());
    added->send("lang", interfaceLanguage());
    if (VHConnector::defaultConnector().configuration().disableSignalR)
        added->send("option", "showrefresh");
}

void VHFinderConnector::createLink(const VHFinderMessage& message, QLocalSocket*) {
    if (auto file = fileOrWarning(message))
        VHApplicationDelegate::delegate().putFileLinkToClipboard(*file);
}

void VHFinderConnector::emailLink(const VHFinderMessage& message, QLocalSocket*) {
    if (auto file = fileOrWarning(message)) VHApplicationDelegate::delegate().emailFileLink(*file);
}

void VHFinderConnector::newShare(const VHFinderMessage&, QLocalSocket*) {
    VHConnector::defaultConnector().openShareInWebClient(std::nullopt);
}

void VHFinderConnector::shareAShare(const VHFinderMessage& message, QLocalSocket*) {
    if (auto share = shareOrWarning(message))
        VHConnector::defaultConnector().openShareInWebClient(share);
}

void VHFinderConnector::toggleLock(const VHFinderMessage& message, QLocalSocket*) {
    switch (VHLockToggle::toggleLock(drivePathOf(message.parameter))) {
        case VHLockToggle::Result::NoFile:
            VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain file for path %@",
                  message.parameter);
            break;
        case VHLockToggle::Result::Pending:
            VHDesktopServices::showAlert(
                "Lock failed",
                "Please wait until the file is uploaded on server and then try again.");
            break;
        case VHLockToggle::Result::Changed:
            updateOverlayIcon(message.parameter);
            break;
        default:
            break;
    }
}

void VHFinderConnector::toggleSync(const VHFinderMessage& message, QLocalSocket*) {
    VHDatabase& db = VHDatabase::database();
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    std::string drivePath = drivePathOf(message.parameter);
    if (VHFuseUtils::isSharePath(drivePath)) {
        if (auto share = shareOrWarning(message)) {
            downloads.changeSycStatus(share->shareId(), !db.shareSynchronized(share->shareId()));
            downloads.refreshShareSyncStatus(*share);
        }
    } else if (auto item = fileOrWarning(message)) {
        downloads.changeSycStatus(item->internalName,
                                  !db.itemSynchronized(item->internalName, false));
        downloads.refreshSyncStatus(*item);
    }
    updateOverlayIcon(message.parameter);
}

void VHFinderConnector::downloadFolder(const VHFinderMessage& message, QLocalSocket*) {
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    std::string drivePath = drivePathOf(message.parameter);
    std::optional<VHFile> file = VHDatabase::database().fileWithPath(drivePath);
    if (!file) {
        if (auto share = VHDatabase::database().shareWithPath(drivePath)) {
            downloads.downloadShare(*share);
        } else {
            VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain file or share for path %@",
                  message.parameter);
        }
    } else if (file->isFile) {
        VHLog(kLogMain,
              "parseRemoteCommand: Warning! Wrong parameter for downloadfolder command "
              "- it is a file.");
    } else {
        downloads.downloadFolder(*file);
    }
}

void VHFinderConnector::downloadFile(const VHFinderMessage& message, QLocalSocket*) {
    std::optional<VHFile> file = fileOrWarning(message);
    if (!file) return;
    if (!file->isFile) {
        VHLog(kLogMain,
              "parseRemoteCommand: Warning! Wrong parameter for downloadfile command - "
              "it is folder.");
        return;
    }
    VHDownloadQueue::downloadQueue().downloadFileViaMenu(*file);
}

void VHFinderConnector::openRoot(const VHFinderMessage&, QLocalSocket*) {
    VHApplicationDelegate::delegate().openRootFolder();
}

void VHFinderConnector::openShare(const VHFinderMessage& message, QLocalSocket*) {
    std::string name = VHLastPathComponent(message.parameter);
    for (const ManagedShare& share : VHDatabase::database().shares()) {
        if (share.displayName() == name) VHApplicationDelegate::delegate().openShareFolder(share);
    }
}

void VHFinderConnector::observe(const VHFinderMessage& message, QLocalSocket*) {
    if (VHFinderConnection* connection = connectionWithId(message.instanceId))
        connection->observedPaths().insert(message.parameter);
}

void VHFinderConnector::unobserve(const VHFinderMessage& message, QLocalSocket*) {
    VHFinderConnection* connection = connectionWithId(message.instanceId);
    if (!connection) return;
    std::set<std::string>& observed = connection->observedPaths();
    observed.erase(message.parameter);
    std::erase_if(connection->badges(), [&observed](const std::string& badge) {
        return std::none_of(observed.begin(), observed.end(), [&badge](const std::string& folder) {
            return badge.starts_with(folder);
        });
    });
}

void VHFinderConnector::badge(const VHFinderMessage& message, QLocalSocket*) {
    VHFinderConnection* connection = connectionWithId(message.instanceId);
    if (!connection) return;
    VHLog(kLogDrive, "Finder plugin %@ asks for the badge of %@", message.instanceId,
          message.parameter);
    connection->badges().insert(message.parameter);
    updateOverlayIcon(message.parameter, connection);
}

void VHFinderConnector::refresh(const VHFinderMessage& message, QLocalSocket*) {
    VHConnector& connector = VHConnector::defaultConnector();
    if (message.parameter.size() <= 1) {
        connector.loginToGlobal();
    } else if (auto share = shareOrWarning(message)) {
        connector.catchUp(*share);
    }
}

}  // namespace vh
