#include "desktop/VHControlStatus.h"

#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseStatusAttributes.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHFormat.h"
#include "lib/VHPathUtils.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

const char* syncStateName(char state, bool folder) {
    switch (state) {
        case kSyncComplete:
            return "downloaded";
        case kSyncNotDownloaded:
            return "online only";
        case kSyncTransferring:
            return "syncing";
        case kSyncFolderSynced:
            return "kept offline";
        case kSyncFolderPending:
            return "kept offline, syncing";
        default:
            return folder ? "folder" : "-";
    }
}

std::string bytes(int64_t count) {
    if (count < 1024 * 1024) return VHFormat("%d KiB", (count + 1023) / 1024);
    return VHFormat("%.1f MiB", static_cast<double>(count) / (1024.0 * 1024.0));
}

}  // namespace

std::string VHControlStatus::describe(const std::string& drivePath, const std::string& name) {
    std::optional<VHFile> file = driveFileWithPath(drivePath);
    bool folder = !file || !file->isFile;
    auto value = [&](VHStatusAttribute attribute) {
        return VHStatusAttributeValue(attribute, drivePath, file);
    };
    std::string text = syncStateName(value(VHStatusAttribute::OverlayIcon).value_or(0), folder);
    if (auto lock = value(VHStatusAttribute::LockStatus)) {
        if (*lock == kLockOwn) text += ", locked by you";
        if (*lock == kLockOther) text += ", locked by " + file->lockedBy;
    }
    if (value(VHStatusAttribute::WriteAccess) == '0') text += ", read-only";
    if (value(VHStatusAttribute::FileStatus) == 0) text += ", stays on this computer";
    return text + "\t" + name + (folder ? "/" : "");
}

bool VHControlStatus::itemStates(const std::string& drivePath, const Line& line) {
    if (VHFuseUtils::isRootPath(drivePath)) {
        for (const ManagedShare& share : VHDatabase::database().shares())
            line(describe("/" + share.displayName(), share.displayName()));
        return true;
    }
    std::optional<VHFile> file = driveFileWithPath(drivePath);
    if (file && file->isFile) {
        line(describe(drivePath, file->publicName));
        return true;
    }
    std::string parentId = driveParentIdOfChildren(drivePath);
    if (parentId.empty()) return false;
    for (const VHFile& child : VHDatabase::database().listingWithParent(parentId)) {
        // As the drive's listing shows them.
        if (VHFuseUtils::isPathIgnored(child.publicName, false)) continue;
        line(describe(VHAppendingPathComponent(drivePath, child.publicName), child.publicName));
    }
    return true;
}

void VHControlStatus::clientState(const Line& line) {
    VHConnector& connector = VHConnector::defaultConnector();
    std::string user = connector.username();
    line(user.empty() ? "not signed in"
                      : "signed in as " + user + (connector.loggedIn() ? "" : " (not connected)"));
    line("drive at " + VHFuseUtils::mountPath());
    for (const ManagedShare& share : VHDatabase::database().shares())
        line("share " + share.displayName() + (share.isReadonlyShare() ? " (read-only)" : ""));
    VHUploadQueue& uploads = VHUploadQueue::uploadQueue();
    line(
        VHFormat("uploads pending: %d files, %@", uploads.queueLen(), bytes(uploads.queueBytes())));
    line(VHFormat("last speeds: up %@/s, down %@/s",
                  bytes(static_cast<int64_t>(connector.lastUploadSpeed())),
                  bytes(static_cast<int64_t>(connector.lastDownloadSpeed()))));
}

}  // namespace vh
