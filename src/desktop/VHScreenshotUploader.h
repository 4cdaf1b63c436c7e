// Uploads new screenshots: each file that appears in the screenshot folder is
// copied into the chosen folder of the drive and, when asked for, its public
// link goes to the clipboard once the service holds the file.
//
// Settings (re-read for every batch of new files; settingsChanged() applies a
// new switch or folder at once):
//   "Varnholt.getUploadScreenshots"      whether to watch at all
//   "Varnholt.getUploadScreenshotsPath"  the target: a share id, "/", the
//                                        path in the share ("team-documents/Screenshots")
//   "Varnholt.getCreateScreenshotLink"   whether to make a public link
//   "Varnholt.screenshotFolder"          the watched folder; by default
//                                        $XDG_PICTURES_DIR/Screenshots when it
//                                        exists, else $XDG_PICTURES_DIR
//
// Files are copied through the drive's own operations, in-process, on one
// background thread (VHDriveImport.h). Main thread.
#pragma once

#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <optional>
#include <set>
#include <string>

#include "desktop/VHScreenshotWatcher.h"
#include "store/VHFile.h"

namespace vh {

class VHScreenshotUploader : public QObject {
    Q_OBJECT
  public:
    VHScreenshotUploader();
    ~VHScreenshotUploader() override;  // waits for a copy in progress

    // The folder to watch as the settings say now (it may not exist).
    static QString screenshotFolder();
    // The drive path of the target folder ("/Team Documents/Screenshots");
    // nothing when the setting is missing or names no known share.
    static std::optional<std::string> targetFolder();

    // Stops watching and waits for a copy in progress (before the store goes).
    void stop();

  public slots:
    // Re-reads the settings: starts or stops watching, or follows a new folder.
    void settingsChanged();

  private:
    void watch(const QString& folder, bool ignorePresent);
    void folderChanged();
    void filesArrived(const QStringList& paths);
    void uploadFinished(const VHFile& file, bool error);

    VHScreenshotWatcher watcher_;
    QThreadPool copying_;
    std::set<std::string> awaitingLink_;  // ids of copies whose link is wanted
};

}  // namespace vh
