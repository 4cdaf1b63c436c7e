// Watches one folder for new files (QFileSystemWatcher) and reports each once
// its size and modification time have stayed the same over one check, so
// that a file still being written is never taken. Files present when the
// watch begins are remembered and never reported; hidden names (a program's
// partial saves) are ignored. A name that goes away may be reported again
// when it comes back. Main thread.
#pragma once

#include <QDateTime>
#include <QFileSystemWatcher>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <map>
#include <set>

namespace vh {

class VHScreenshotWatcher : public QObject {
    Q_OBJECT
  public:
    static constexpr int kSettleCheckMs = 400;

    VHScreenshotWatcher();

    // Watches `folder` from now on (an empty one: nothing). With
    // `ignorePresent` the files there now are never reported; without it
    // (a folder that has just appeared) every file in it is new.
    void watch(const QString& folder, bool ignorePresent = true);
    const QString& folder() const { return folder_; }

  signals:
    // New files that have settled, full paths, in one batch.
    void filesArrived(const QStringList& paths);
    // The folder's own listing changed (also when a file was added).
    void folderChanged();

  private:
    struct Seen {
        qint64 size = -1;
        QDateTime modified;
    };

    QStringList visibleFiles() const;
    void scan();
    void checkPending();

    QFileSystemWatcher watcher_;
    QString folder_;
    std::set<QString> known_;          // names present or already reported
    std::map<QString, Seen> pending_;  // new names, as the last check saw them
    QTimer settleTimer_;
};

}  // namespace vh
