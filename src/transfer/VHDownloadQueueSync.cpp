// Synchronized folders, automatic downloads and the expiry of old downloads.
#include <QThreadPool>
#include <QTimer>

#include "lib/VHHandOff.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"

namespace vh {

namespace {

constexpr int kExpiryPeriodMs = 3600 * 1000;
constexpr int64_t kHoursForZeroDays = 4;

}  // namespace

void VHDownloadQueue::checkAutomaticDownloads() {
    updateSyncedPathes();
    QThreadPool::globalInstance()->start(VHHandOff([this] {
        VHDatabase& db = VHDatabase::database();
        std::vector<std::string> folders;
        for (const std::string& id : db.syncedFolders()) {
            // A share's top items need not name the share as their parent.
            if (db.shareWithId(id)) {
                queueNotDownloaded(db.allShareSiblings(id, false));
            } else {
                folders.push_back(id);
            }
        }
        for (const std::string& folder : db.allSubfolderIds(folders)) {
            queueNotDownloaded(db.filesWithParent(folder));
        }
    }));
}

void VHDownloadQueue::queueNotDownloaded(const std::vector<VHFile>& items) {
    for (const VHFile& item : items) {
        if (item.isFile && !isFileDownloaded(item)) downloadFileAutomatically(item);
    }
}

bool VHDownloadQueue::pathIsSynchronized(const std::string& path) {
    VHMutexLock lock(syncedMutex_);
    return syncedFolders_.contains(path);
}

void VHDownloadQueue::refreshSyncStatus(const VHFile& folder) {
    if (folder.isFile) return;
    VHDatabase& db = VHDatabase::database();
    refreshSiblings(db.itemSynchronized(folder.internalName, true),
                    db.allFolderSiblings(folder.internalName, true));
}

void VHDownloadQueue::refreshShareSyncStatus(const ManagedShare& share) {
    VHDatabase& db = VHDatabase::database();
    refreshSiblings(db.shareSynchronized(share.shareId()),
                    db.allShareSiblings(share.shareId(), true));
}

void VHDownloadQueue::refreshSiblings(bool synchronized, const std::vector<VHFile>& items) {
    if (synchronized) {
        queueNotDownloaded(items);
        return;
    }
    for (const VHFile& item : items) {
        if (item.isFile) {
            cancelFileDownload(item);
        } else {
            VHDatabase::database().markItemSynchronized(item.internalName, false);
        }
    }
    updateSyncedPathes();
}

void VHDownloadQueue::changeSycStatus(const std::string& itemId, bool synced) {
    VHDatabase::database().markItemSynchronized(itemId, synced);
    updateSyncedPathes();
}

void VHDownloadQueue::updateSyncedPathes() {
    VHDatabase& db = VHDatabase::database();
    std::set<std::string> paths;
    for (const std::string& id : db.syncedFolders()) {
        if (std::optional<ManagedShare> share = db.shareWithId(id)) {
            paths.insert("/" + share->displayName());
        } else if (std::optional<VHFile> folder = db.fileWithId(id);
                   folder && !folder->isFile && !folder->deleted) {
            std::string path = db.fullFilePath(*folder);
            if (!path.empty()) paths.insert(path);
        }
    }
    VHMutexLock lock(syncedMutex_);
    syncedFolders_ = std::move(paths);
}

bool VHDownloadQueue::pathHasDownloads(const std::string& path) {
    std::vector<VHFile> queued;
    {
        VHMutexLock lock(downloadMutex_);
        for (const auto& [name, task] : allFileDownloads_) queued.push_back(task->file);
    }
    std::string prefix = path;
    while (!prefix.empty() && prefix.back() == '/') prefix.pop_back();
    prefix += "/";
    VHDatabase& db = VHDatabase::database();
    return std::any_of(queued.begin(), queued.end(), [&](const VHFile& file) {
        return VHStartsWith(db.fullFilePath(file), prefix);
    });
}

void VHDownloadQueue::performCheckDownloadsToDelete() {
    QThreadPool::globalInstance()->start(VHHandOff([this] { checkDownloadsToDelete(-1); }));
    QTimer::singleShot(kExpiryPeriodMs, context_, [this] { performCheckDownloadsToDelete(); });
}

void VHDownloadQueue::checkDownloadsToDelete(int64_t hours) {
    if (hours == -1) {
        int64_t days =
            VHSettings::value(VHSettings::prependAppTitle("storeDownloadedFiles"), -1).toLongLong();
        if (days < 0) return;  // kept for ever
        hours = days == 0 ? kHoursForZeroDays : days * 24;
    }
    VHDatabase::database().deleteDownloadsOlderThen(VHDate::now().addingSeconds(-3600.0 * hours));
}

}  // namespace vh
