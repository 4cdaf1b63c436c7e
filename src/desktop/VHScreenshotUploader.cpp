#include "desktop/VHScreenshotUploader.h"

#include <QFileInfo>
#include <cstring>

#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHDesktopServices.h"
#include "drive/VHDriveImport.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "drive/VHFuseXattr.h"
#include "lib/VHLog.h"
#include "lib/VHPathUtils.h"
#include "lib/VHPaths.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

constexpr const char* kWriteAccessAttribute = "user.com.varnholt.clouddrive-osx.writeaccess";

bool setting(const char* key) {
    return VHSettings::boolean(VHSettings::prependAppTitle(key));
}

// Whether `path` lies on the client's own drive, where it makes no system call.
bool onTheDrive(const std::string& path) {
    const std::string& mount = VHFuseUtils::mountPath();
    return path == mount || VHStartsWith(path, mount + "/");
}

QString defaultPicturesFolder() {
    return QString::fromStdString(VHPaths::picturesDir());
}

// A share the user may only read, or the drive's own answer for the folder,
// as a file manager would read it.
bool readOnlyTarget(const std::string& folder) {
    auto share = driveShareWithPath(folder);
    if (share && share->isReadonlyShare()) return true;
    char access = '1';
    int length = varnholt_getxattr(folder.c_str(), kWriteAccessAttribute, &access, 1);
    return length == 1 && access == '0';
}

// On the copying thread: the whole batch into `folder` of the drive.
// `whole` gets the id of each file copied.
void copyScreenshots(const QStringList& paths, const std::string& folder,
                     const std::function<void(const std::string&)>& whole) {
    if (int error = VHMakeDriveFolders(folder)) {
        VHLog(kLogMain, "Cannot create screenshot upload folder: error %@", std::strerror(error));
        return;
    }
    for (const QString& path : paths) {
        std::string source = path.toStdString();
        std::string target = VHAppendingPathComponent(folder, VHLastPathComponent(source));
        VHDriveImportResult copied = VHCopyFileToDrive(source, target, whole);
        if (copied.error) {
            VHLog(kLogMain, "Error copying screenshot %@ to %@ : %@", source, target,
                  std::strerror(copied.error));
        }
    }
}

}  // namespace

VHScreenshotUploader::VHScreenshotUploader() {
    copying_.setMaxThreadCount(1);
    connect(&watcher_, &VHScreenshotWatcher::filesArrived, this,
            &VHScreenshotUploader::filesArrived);
    connect(&watcher_, &VHScreenshotWatcher::folderChanged, this,
            &VHScreenshotUploader::folderChanged);
    connect(&VHUploadQueue::uploadQueue(), &VHUploadQueue::fileUploadFinished, this,
            &VHScreenshotUploader::uploadFinished, Qt::QueuedConnection);
}

VHScreenshotUploader::~VHScreenshotUploader() {
    stop();
}

void VHScreenshotUploader::stop() {
    watcher_.watch(QString());
    copying_.waitForDone();
}

QString VHScreenshotUploader::screenshotFolder() {
    std::string chosen = VHSettings::string(VHSettings::prependAppTitle("screenshotFolder"));
    if (!chosen.empty()) return QString::fromStdString(chosen);
    QString screenshots = defaultPicturesFolder() + "/Screenshots";
    bool exists = !onTheDrive(screenshots.toStdString()) && QFileInfo(screenshots).isDir();
    return exists ? screenshots : defaultPicturesFolder();
}

std::optional<std::string> VHScreenshotUploader::targetFolder() {
    std::string value = VHSettings::string(VHSettings::prependAppTitle("getUploadScreenshotsPath"));
    std::vector<std::string> parts;
    for (const std::string& part : VHSplit(value, '/')) {
        if (part == "..") return std::nullopt;
        if (!part.empty() && part != ".") parts.push_back(part);
    }
    if (parts.empty()) return std::nullopt;
    auto share = VHDatabase::database().shareWithId(parts.front());
    if (!share || share->displayName().empty()) return std::nullopt;
    std::string path = "/" + share->displayName();
    for (size_t i = 1; i < parts.size(); ++i) path = VHAppendingPathComponent(path, parts[i]);
    return path;
}

void VHScreenshotUploader::settingsChanged() {
    if (!setting("getUploadScreenshots")) {
        watch(QString(), true);
        return;
    }
    QString folder = screenshotFolder();
    if (folder != watcher_.folder()) watch(folder, true);
}

void VHScreenshotUploader::watch(const QString& folder, bool ignorePresent) {
    watcher_.watch(QString());
    if (folder.isEmpty()) return;
    std::string path = folder.toStdString();
    if (onTheDrive(path)) {
        VHLog(kLogMain, "Warning! Screenshots are not watched on the drive itself: %@", path);
        return;
    }
    if (!QFileInfo(folder).isDir()) {
        VHLog(kLogMain, "Warning! The screenshot folder %@ does not exist.", path);
        return;
    }
    watcher_.watch(folder, ignorePresent);
    VHLog(kLogMain, "Watching %@ for new screenshots.", path);
}

void VHScreenshotUploader::folderChanged() {
    // The desktop makes Pictures/Screenshots with the first screenshot, in it.
    if (watcher_.folder() != defaultPicturesFolder()) return;
    QString folder = screenshotFolder();
    if (folder != watcher_.folder()) watch(folder, false);
}

void VHScreenshotUploader::filesArrived(const QStringList& paths) {
    if (!setting("getUploadScreenshots")) return;
    std::optional<std::string> folder = targetFolder();
    if (!folder) {
        VHLog(kLogMain, "Detected new screenshots, but upload path is unknown. Ignoring them.");
        return;
    }
    if (readOnlyTarget(*folder)) {
        VHDesktopServices::showAlert(
            "Invalid path",
            "You cannot save screenshoots in a readonly folder. Please select another location!");
        return;
    }
    VHLog(kLogMain, "Detected new screenshots, uploading them: %@", paths.join(", "));
    bool link = setting("getCreateScreenshotLink");
    copying_.start([this, paths, folder = *folder, link] {
        copyScreenshots(paths, folder, [this, link](const std::string& fileId) {
            if (!link) return;
            // Queued before the upload can start, so handled before it ends.
            QMetaObject::invokeMethod(this, [this, fileId] { awaitingLink_.insert(fileId); });
        });
    });
}

void VHScreenshotUploader::uploadFinished(const VHFile& file, bool error) {
    if (error || !awaitingLink_.erase(file.internalName)) return;
    std::optional<VHFile> stored = VHDatabase::database().fileWithId(file.internalName);
    VHApplicationDelegate::delegate().putFileLinkToClipboard(stored ? *stored : file);
}

}  // namespace vh
