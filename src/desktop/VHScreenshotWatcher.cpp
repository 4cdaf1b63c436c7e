#include "desktop/VHScreenshotWatcher.h"

#include <QDir>
#include <QFileInfo>

namespace vh {

VHScreenshotWatcher::VHScreenshotWatcher() {
    settleTimer_.setInterval(kSettleCheckMs);
    connect(&settleTimer_, &QTimer::timeout, this, &VHScreenshotWatcher::checkPending);
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, this, [this] {
        scan();
        emit folderChanged();
    });
}

void VHScreenshotWatcher::watch(const QString& folder, bool ignorePresent) {
    if (!watcher_.directories().isEmpty()) watcher_.removePaths(watcher_.directories());
    folder_ = folder;
    known_.clear();
    pending_.clear();
    settleTimer_.stop();
    if (folder_.isEmpty()) return;
    watcher_.addPath(folder_);
    if (ignorePresent) {
        for (const QString& name : visibleFiles()) known_.insert(name);
    }
    scan();
}

QStringList VHScreenshotWatcher::visibleFiles() const {
    return QDir(folder_).entryList(QDir::Files | QDir::NoDotAndDotDot, QDir::Name);
}

void VHScreenshotWatcher::scan() {
    QStringList present = visibleFiles();
    std::set<QString> now(present.begin(), present.end());
    std::erase_if(known_, [&](const QString& name) { return !now.count(name); });
    std::erase_if(pending_, [&](const auto& entry) { return !now.count(entry.first); });
    for (const QString& name : present) {
        if (!known_.count(name)) pending_.try_emplace(name);
    }
    if (!pending_.empty() && !settleTimer_.isActive()) settleTimer_.start();
}

void VHScreenshotWatcher::checkPending() {
    QStringList settled;
    for (auto it = pending_.begin(); it != pending_.end();) {
        QFileInfo info(QDir(folder_).filePath(it->first));
        Seen now{info.exists() ? info.size() : -1, info.lastModified()};
        bool same =
            now.size > 0 && now.size == it->second.size && now.modified == it->second.modified;
        if (!same) {
            it->second = now;
            ++it;
            continue;
        }
        settled << info.filePath();
        known_.insert(it->first);
        it = pending_.erase(it);
    }
    if (pending_.empty()) settleTimer_.stop();
    if (!settled.isEmpty()) emit filesArrived(settled);
}

}  // namespace vh
