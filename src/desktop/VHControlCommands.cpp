#include "desktop/VHControlCommands.h"

#include <map>
#include <string_view>

#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHControlStatus.h"
#include "desktop/VHLockToggle.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"

namespace vh {

namespace {

constexpr std::string_view kPrefix = "ctl-";

using Command = void (*)(const std::string& drivePath, const VHControlCommands::Reply& reply);

// The drive path of an absolute path; empty (after the error reply) when it
// is not on the drive.
std::string drivePathOrError(const std::string& path, const VHControlCommands::Reply& reply) {
    std::string drivePath = VHFuseUtils::fullPathToRelative(path);
    if (drivePath.empty())
        reply("error", path + " is not on the drive at " + VHFuseUtils::mountPath());
    return drivePath;
}

std::optional<VHFile> fileOrError(const std::string& drivePath,
                                  const VHControlCommands::Reply& reply) {
    std::optional<VHFile> file = VHDatabase::database().fileWithPath(drivePath);
    if (!file || !file->isFile) reply("error", "no file at " + drivePath + " on the drive");
    return file && file->isFile ? file : std::nullopt;
}

void link(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    auto file = fileOrError(drivePath, reply);
    if (!file) return;
    VHApplicationDelegate::delegate().putFileLinkToClipboard(
        *file, [reply](const std::string& link) { reply("ok", link); },
        [reply](const std::string& why) { reply("error", why); });
}

void emailLink(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    auto file = fileOrError(drivePath, reply);
    if (!file) return;
    VHApplicationDelegate::delegate().emailFileLink(
        *file, [reply](const std::string& mailto) { reply("ok", mailto); },
        [reply](const std::string& why) { reply("error", why); });
}

void changeLock(const std::string& drivePath, bool lock, const VHControlCommands::Reply& reply) {
    switch (VHLockToggle::setLocked(drivePath, lock)) {
        case VHLockToggle::Result::Changed:
            reply("ok", lock ? "locked" : "unlocked");
            return;
        case VHLockToggle::Result::AlreadyThere:
            reply("ok", lock ? "already locked" : "not locked");
            return;
        case VHLockToggle::Result::NoFile:
            reply("error", "no file at " + drivePath + " on the drive");
            return;
        case VHLockToggle::Result::Pending:
            reply("error",
                  "the service has not yet confirmed the file's last change: try again "
                  "in a few seconds");
            return;
        case VHLockToggle::Result::NotAllowed:
            reply("error", "locked by another user: only they or the share's owner can unlock it");
            return;
    }
}

void lock(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    changeLock(drivePath, true, reply);
}

void unlock(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    changeLock(drivePath, false, reply);
}

// Without a path the start page; "/" + a share's name that share.
void web(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    auto opened = [reply](const std::optional<std::string>& url) {
        if (url) {
            reply("ok", "the web client was opened in the browser");
        } else {
            reply("error", "the web client could not be opened; the log says why");
        }
    };
    VHConnector& connector = VHConnector::defaultConnector();
    if (drivePath.empty() || drivePath == "/") {
        connector.openWebClient(opened);
    } else if (auto share = VHDatabase::database().shareWithPath(drivePath)) {
        connector.openShareInWebClient(share, opened);
    } else {
        reply("error", drivePath + " is not a share: give the folder of a share, or no path");
    }
}

void newShare(const std::string&, const VHControlCommands::Reply& reply) {
    VHConnector::defaultConnector().openShareInWebClient(
        std::nullopt, [reply](const std::optional<std::string>& url) {
            reply(url ? "ok" : "error",
                  url ? "the web client was opened in the browser"
                      : "the web client could not be opened; the log says why");
        });
}

void status(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    auto item = [reply](const std::string& text) { reply("item", text); };
    if (drivePath.empty()) {
        VHControlStatus::clientState(item);
        reply("ok", "");
    } else if (VHControlStatus::itemStates(drivePath, item)) {
        reply("ok", "");
    } else {
        reply("error", "nothing at " + drivePath + " on the drive");
    }
}

// Keeps a folder or share on this computer (`offline`) or not.
void keepOffline(const std::string& drivePath, bool offline,
                 const VHControlCommands::Reply& reply) {
    VHDatabase& db = VHDatabase::database();
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    if (VHFuseUtils::isSharePath(drivePath)) {
        auto share = driveShareWithPath(drivePath);
        if (!share) return reply("error", "no share at " + drivePath);
        if (db.shareSynchronized(share->shareId()) != offline) {
            downloads.changeSycStatus(share->shareId(), offline);
            downloads.refreshShareSyncStatus(*share);
        }
    } else {
        auto folder = driveFileWithPath(drivePath);
        if (!folder || folder->deleted || folder->isFile)
            return reply("error", "no folder or share at " + drivePath + " on the drive");
        if (db.itemSynchronized(folder->internalName, false) != offline) {
            downloads.changeSycStatus(folder->internalName, offline);
            downloads.refreshSyncStatus(*folder);
        }
    }
    reply("ok", offline ? "kept on this computer" : "online only");
}

void keepOfflineOn(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    keepOffline(drivePath, true, reply);
}

void keepOfflineOff(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    keepOffline(drivePath, false, reply);
}

void download(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    if (VHFuseUtils::isSharePath(drivePath)) {
        auto share = driveShareWithPath(drivePath);
        if (!share) return reply("error", "no share at " + drivePath);
        downloads.downloadShare(*share);
    } else {
        auto item = driveFileWithPath(drivePath);
        if (!item || item->deleted)
            return reply("error", "nothing at " + drivePath + " on the drive");
        item->isFile ? downloads.downloadFileViaMenu(*item) : downloads.downloadFolder(*item);
    }
    reply("ok", "queued for download");
}

void refresh(const std::string& drivePath, const VHControlCommands::Reply& reply) {
    VHConnector& connector = VHConnector::defaultConnector();
    if (drivePath.empty() || drivePath == "/") {
        connector.loginToGlobal();
        return reply("ok", "signing in again and reading every share");
    }
    auto share = driveShareWithPath(drivePath);
    if (!share || !VHFuseUtils::isSharePath(drivePath))
        return reply("error",
                     drivePath + " is not a share: give the folder of a share, or no path");
    connector.catchUp(*share);
    reply("ok", "reading the share's changes");
}

struct Entry {
    Command run;
    bool needsPath;
};

const std::map<std::string_view, Entry>& table() {
    static const std::map<std::string_view, Entry> commands = {
        {"link", {link, true}},
        {"emaillink", {emailLink, true}},
        {"lock", {lock, true}},
        {"unlock", {unlock, true}},
        {"web", {web, false}},
        {"newshare", {newShare, false}},
        {"status", {status, false}},
        {"keepoffline", {keepOfflineOn, true}},
        {"onlineonly", {keepOfflineOff, true}},
        {"download", {download, true}},
        {"refresh", {refresh, false}},
    };
    return commands;
}

}  // namespace

bool VHControlCommands::handles(const std::string& command) {
    return VHStartsWith(command, kPrefix);
}

void VHControlCommands::run(const VHFinderMessage& message, Reply reply) {
    auto entry = table().find(std::string_view(message.messageType).substr(kPrefix.size()));
    if (entry == table().end()) {
        reply("error", "unknown command " + message.messageType);
        return;
    }
    std::string drivePath;
    if (entry->second.needsPath || !message.parameter.empty()) {
        drivePath = drivePathOrError(message.parameter, reply);
        if (drivePath.empty()) return;
    }
    entry->second.run(drivePath, reply);
}

}  // namespace vh
