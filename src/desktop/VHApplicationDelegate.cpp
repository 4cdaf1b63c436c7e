#include "desktop/VHApplicationDelegate.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QThreadPool>
#include <QTimer>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "desktop/VHDesktopServices.h"
#include "desktop/VHFinderConnector.h"
#include "desktop/VHLocalization.h"
#include "desktop/VHLogging.h"
#include "desktop/VHSignOut.h"
#include "desktop/VHStartupMigration.h"
#include "drive/VHDriveEvents.h"
#include "drive/VHFuseFileData.h"
#include "drive/VHFuseMount.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHAppInfo.h"
#include "lib/VHFatalError.h"
#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHPathUtils.h"
#include "lib/VHPaths.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "store/VHMigration.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

namespace fs = std::filesystem;

constexpr const char* kInstanceLockName = "instance.lock";
constexpr int kTerminationPollMs = 1000;
// How long termination waits for a loop that still serves files held open
// after a forced unmount; the end of the process then closes them.
constexpr auto kDriveStopWait = std::chrono::seconds(10);

bool truthy(const std::string& value) {
    return value == "1" || value == "true" || value == "yes" || value == "on";
}

// The user may let root into the drive: a member of an administrators' group,
// where FUSE allows other users at all.
bool mayAllowRoot() {
    struct passwd* user = getpwuid(getuid());
    if (!user) return false;
    bool admin = false;
    for (const char* group : {"sudo", "wheel", "admin"}) {
        struct group* entry = getgrnam(group);
        for (char** member = entry ? entry->gr_mem : nullptr; member && *member; ++member) {
            admin = admin || std::string(*member) == user->pw_name;
        }
    }
    if (!admin) return false;
    if (getuid() == 0) return true;
    std::ifstream config("/etc/fuse.conf");
    for (std::string line; std::getline(config, line);) {
        if (line.rfind("user_allow_other", 0) == 0) return true;
    }
    return false;
}

}  // namespace

VHApplicationDelegate& VHApplicationDelegate::delegate() {
    static VHApplicationDelegate* instance = new VHApplicationDelegate;  // lives until exit
    return *instance;
}

VHApplicationDelegate::VHApplicationDelegate() {
    cacheClearing_.setMaxThreadCount(1);
    connect(&drive_, &VHDriveController::stopped, this, &VHApplicationDelegate::driveLoopEnded);
    terminationTimer_.setSingleShot(true);
    connect(&terminationTimer_, &QTimer::timeout, this,
            &VHApplicationDelegate::checkForTermination);
}

std::string VHApplicationDelegate::prependAppTitle(const std::string& key) {
    return VHSettings::prependAppTitle(key);
}

void VHApplicationDelegate::installFatalErrorHandler() {
    VHSetFatalErrorHandler([this](int status) {
        int none = 0;
        fatalStatus_.compare_exchange_strong(none, status);
        // The reporting thread may be the database's or a FUSE thread: the
        // drive is unmounted and the process ended from the main thread.
        QMetaObject::invokeMethod(
            this, [this, status] { stopAfterFatalError(status); }, Qt::QueuedConnection);
    });
}

void VHApplicationDelegate::stopAfterFatalError(int status) {
    exitCode_ = status;
    applicationShouldTerminate();
}

void VHApplicationDelegate::applicationWillFinishLaunching() {
    installFatalErrorHandler();
    switches_.excessiveLogging = VHSettings::contains("VHExcessiveLogging");
    switches_.disableSignalR = VHSettings::contains("VHDisableSignalR");
    switches_.disableRootMount = VHSettings::contains("VHDisableRootMount");
    VHFuseUtils::setExcessiveLogging(switches_.excessiveLogging);
    VHFileCache::fileCache();  // makes the data folders
    if (fatalStatus_) return;
    VHSetLogDir(VHFileCache::logsPath());
    VHInitLogs();
    VHLocalization::setup();
    VHLog(kLogMain,
          "\n\n----------------------------------------------------\n\nStarting up %@ version %@",
          kAppTitle, VHConnector::defaultConnector().appVersion());
    switches_.isDataIsland =
        truthy(VHSettings::overridable("VARNHOLT_DATA_ISLAND", "VHDataIsland"));
    switches_.globalAddress = VHSettings::overridable("VARNHOLT_GLOBAL_ADDRESS", "VHGlobalAddress",
                                                      kDefaultGlobalAddress);
    VHStoreHooks::setApp(this);
    VHConnector::defaultConnector().setConfiguration(
        {switches_.globalAddress, switches_.isDataIsland, switches_.disableSignalR});
}

void VHApplicationDelegate::setSignInCredentials(const std::string& user,
                                                 const std::string& password) {
    signInPending_ = true;
    signInUser_ = user;
    signInPassword_ = password;
}

void VHApplicationDelegate::applicationDidFinishLaunching(bool headless) {
    headless_ = headless;
    if (terminating_) return;
    // The instance check comes first: a second instance must not migrate the
    // credentials of the running one, nor record its shutdown.
    bool alone = checkForRunningInstances();
    if (!alone && !fatalStatus_) {
        QCoreApplication::exit(kExitAnotherInstance);
        return;
    }
    if (alone) {
        // Termination requests wait for the end of start-up, which runs local
        // event loops (the Secret Service) where they could otherwise cut in.
        startingUp_ = true;
        VHStartupMigration::migrate();
        VHFinderConnector::defaultConnector().start();
        if (access("/dev/fuse", R_OK | W_OK) != 0) {
            VHDesktopServices::showAlert("FUSE is not available",
                                         "Varnholt needs FUSE: install the package fuse3.");
        }
        if (!fatalStatus_) finishApplicationInitialization(headless);
        startingUp_ = false;
    }
    if (terminationPending_ || fatalStatus_) applicationShouldTerminate();
}

bool VHApplicationDelegate::checkForRunningInstances() {
    std::string dir = VHDeletingLastPathComponent(VHDatabase::database().databasePath());
    if (fatalStatus_) return false;
    VHMigration::keepMetadataEntry(kInstanceLockName);
    instanceLock_ = std::make_unique<VHInstanceLock>(dir + "/" + kInstanceLockName);
    long long pid = 0;
    if (instanceLock_->tryLock(pid)) return true;
    std::string title = kAppTitle;
    VHDesktopServices::showAlert(
        VHFormat("Cannot start %@", title),
        VHFormat("Another instance of %@ is already running. Startup path : %@, pid = %d", title,
                 QCoreApplication::applicationFilePath(), pid));
    std::fprintf(stderr, "Another instance of %s is already running (pid %lld).\n", kAppTitle, pid);
    instanceLock_.reset();
    return false;
}

void VHApplicationDelegate::finishApplicationInitialization(bool headless) {
    isMounted_ = false;
    loginFailures_ = 0;
    subscribeToNotifications();
    readCleanShutdown();
    VHDatabase& db = VHDatabase::database();
    db.load();
    if (fatalStatus_) return;
    VHConnector& connector = VHConnector::defaultConnector();
    connector.loadCredentials();
    if (signInPending_) {
        connector.setUsername(signInUser_);
        connector.setPassword(signInPassword_);
        signInPassword_.clear();
    }
    VHUploadQueue::uploadQueue().setUploadPermission(&VHFuseFileData::canUploadFile);
    connector.startup();
    initializationFinished_ = true;
    if (connector.credentialsAvailable()) {
        if (!db.globalLoginResponce().empty()) {
            initializeFuse();
            connector.setupRefreshTimers();
        }
        connector.loginToGlobalFirstTime();
    } else {
        askForLogin(headless);
    }
    VHDesktopServices::postDistributedNotification("com.varnholt.clouddrive-started");
}

void VHApplicationDelegate::subscribeToNotifications() {
    VHDriveEvents& drive = VHDriveEvents::instance();
    connect(&drive, &VHDriveEvents::fuseDidMount, this, &VHApplicationDelegate::didMount,
            Qt::QueuedConnection);
    connect(&drive, &VHDriveEvents::fuseMountFailed, this, &VHApplicationDelegate::mountDidFailed,
            Qt::QueuedConnection);
    connect(&drive, &VHDriveEvents::fuseDidUnmount, this, &VHApplicationDelegate::didUnmount,
            Qt::QueuedConnection);
    // A second later, so that the refused call has returned to its program.
    connect(
        &drive, &VHDriveEvents::driveAlert, this,
        [](const QString& title, const QString& message) {
            QTimer::singleShot(1000, [title, message] {
                VHDesktopServices::showAlert(title.toStdString(), message.toStdString());
            });
        },
        Qt::QueuedConnection);
    // Transfers change the badges of file managers.
    VHUploadQueue& uploads = VHUploadQueue::uploadQueue();
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    auto badge = [this](const VHFile& file) { updateOverlayIconOfFile(file); };
    connect(&uploads, &VHUploadQueue::fileUploadStarted, this, badge, Qt::QueuedConnection);
    connect(&uploads, &VHUploadQueue::fileUploadFinished, this, badge, Qt::QueuedConnection);
    connect(&downloads, &VHDownloadQueue::fileDownloadStarted, this, badge, Qt::QueuedConnection);
    connect(&downloads, &VHDownloadQueue::fileDownloadFinished, this, badge, Qt::QueuedConnection);
    connect(&VHUploadQueue::uploadQueue(), &VHUploadQueue::lockAlert, this,
            [](const QString& message) {
                VHDesktopServices::showAlert("Lock failed", message.toStdString());
            });
    VHConnector& connector = VHConnector::defaultConnector();
    connector.setURLOpener([](const std::string& url) { VHDesktopServices::openURL(url); });
    connect(&connector, &VHConnector::globalLoggedIn, this, &VHApplicationDelegate::didLoggedIn);
    connect(&connector, &VHConnector::domainsLoggedIn, this,
            &VHApplicationDelegate::didDomainsLogin);
    connect(&connector, &VHConnector::globalLoginFailed, this,
            &VHApplicationDelegate::didLoginFailed);
    connect(&connector, &VHConnector::globalConnectionFailed, this,
            &VHApplicationDelegate::didGlobalConnectionFailed);
    connect(&connector, &VHConnector::globalLoggedOut, this, &VHApplicationDelegate::didLoggedOut);
    connect(&VHLocalization::instance(), &VHLocalization::languageChanged, this,
            [] { VHFinderConnector::defaultConnector().notifyOnLanguageChange(); });
}

void VHApplicationDelegate::readCleanShutdown() {
    if (VHSettings::contains("cleanShutdown")) {
        VHSettings::remove("cleanShutdown");
    } else {
        // The last run did not end cleanly: every share is read again from tick 0.
        VHConnector::defaultConnector().setNeedsFullRefresh(true);
        VHSettings::setValue("needsFullRefresh", true);
    }
    VHSettings::sync();
}

void VHApplicationDelegate::askForLogin(bool headless, const QString& refusal) {
    if (!headless) {
        emit loginRequested(refusal);
        return;
    }
    if (refusal.isEmpty()) {
        std::fprintf(stderr,
                     "%s has no credentials. Sign in with:\n"
                     "  echo PASSWORD | varnholt --user EMAIL --password-stdin [--headless]\n",
                     kAppTitle);
    } else {
        std::fprintf(stderr,
                     "%s: sign-in refused: %s.\n"
                     "Sign in again with:\n"
                     "  echo PASSWORD | varnholt --user EMAIL --password-stdin [--headless]\n",
                     kAppTitle, refusal.toStdString().c_str());
    }
    exitCode_ = refusal.isEmpty() ? kExitNoCredentials : kExitSignInRefused;
    applicationShouldTerminate();
}

void VHApplicationDelegate::signIn(const std::string& user, const std::string& password) {
    VHConnector& connector = VHConnector::defaultConnector();
    signInPending_ = true;
    loginFailures_ = 0;
    connector.setUserDomain("");  // another user may live on another domain
    connector.setUsername(user);
    connector.setPassword(password);
    connector.loginToGlobalFirstTime();
}

bool VHApplicationDelegate::logoutAfterConfirmation() {
    QString message = VHLocalizedString(
                          "Do you really want to sign out of %1? The drive goes and "
                          "its downloaded files are deleted from this computer.")
                          .arg(kAppTitle);
    int64_t unconfirmed = VHSignOut::unconfirmedChanges();
    if (unconfirmed > 0) {
        message += "\n\n" + VHLocalizedString(
                                "Changes not yet confirmed by the service: %1. "
                                "They will be lost.")
                                .arg(unconfirmed);
    }
    bool agreed = VHDesktopServices::askQuestion(
        VHLocalizedString("Sign out of %1?").arg(kAppTitle).toStdString(), message.toStdString(),
        VHLocalizedString("Sign Out").toStdString(), VHLocalizedString("Cancel").toStdString(),
        false);
    if (!agreed) return false;
    logout();
    askForLogin(headless_);
    return true;
}

std::string VHApplicationDelegate::mountOptions() {
    std::string options =
        std::string("fsname=") + kAppTitle + ",subtype=" + VHLowercase(kAppTitle) + ",auto_cache";
    if (!switches_.disableRootMount && mayAllowRoot()) {
        options += ",allow_root";
    } else {
        VHLog(
            kLogMain,
            "User is not in admin group - disabling access to the drive from root user. Spotlight "
            "will not be able to index drive contents.");
    }
    return options;
}

void VHApplicationDelegate::initializeFuse() {
    if (drive_.running()) return;  // mounting, mounted, or its loop is still ending
    VHLog(kLogMain, "About to mount fuse, checking whether user is in admin group...");
    std::string options = mountOptions();
    unmountRequested_ = false;
    drive_.start(VHFuseUtils::mountPath(), options);
}

void VHApplicationDelegate::stopFuse() {
    if (!drive_.running()) return;
    unmountRequested_ = true;
    remountWanted_ = false;
    drive_.unmount();
    isMounted_ = false;
}

void VHApplicationDelegate::didMount() {
    VHLog(kLogMain, "didMount: drive was mounted.");
    if (unmountRequested_ || terminating_) {
        // The unmount came while the mount was still being made.
        drive_.unmount(true);
        return;
    }
    isMounted_ = true;
    mountedSinceStart_ = true;
    // No lock file is held open inside the drive: a call of this process on
    // its own mount would hang it for good if it were killed meanwhile.
    VHDesktopServices::postDistributedNotification("com.varnholt.drive-mounted");
}

void VHApplicationDelegate::mountDidFailed(int code) {
    if (terminating_) return;
    VHDesktopServices::showAlert(
        "Unable to mount drive",
        VHFormat("%@ (%@)", "Error : mounting of the file system failed.", code));
    exitCode_ = kExitMountFailed;
    applicationShouldTerminate();
}

void VHApplicationDelegate::didUnmount() {
    VHDesktopServices::postDistributedNotification("com.varnholt.drive-unmounted");
    isMounted_ = false;
    if (unmountRequested_ || terminating_) return;
    VHLog(kLogMain, "User unmounted the volume. Trying to re-mount. Notification %@",
          "kFuseDidUnmountNotification");
    // Mounted again once the old loop has ended.
    remountWanted_ = true;
    if (!drive_.running()) driveLoopEnded(0);
}

void VHApplicationDelegate::driveLoopEnded(int result) {
    bool everMounted = mountedSinceStart_;
    mountedSinceStart_ = false;
    isMounted_ = false;
    if (terminating_) {
        checkForTermination();
    } else if (remountWanted_) {
        remountWanted_ = false;
        initializeFuse();
    } else if (!everMounted && !unmountRequested_) {
        mountDidFailed(result);
    }
}

void VHApplicationDelegate::didLoggedIn() {
    loginFailures_ = 0;
    VHConnector& connector = VHConnector::defaultConnector();
    if (signInPending_) {
        // Stored only now: a password the service refused is never kept.
        signInPending_ = false;
        connector.saveCredentials();
    }
    connector.domainLogin();
}

void VHApplicationDelegate::didDomainsLogin() {
    startScreenshotUploader();
    if (drive_.running()) return;
    initializeFuse();
    VHConnector::defaultConnector().setupRefreshTimers();
}

void VHApplicationDelegate::didLoginFailed(const QString& reason) {
    if (signInPending_) {
        askForLogin(headless_, reason);
        return;
    }
    int earlier = loginFailures_++;
    if (earlier < 2) {
        QTimer::singleShot(3000 * loginFailures_, this,
                           [] { VHConnector::defaultConnector().loginToGlobal(); });
        return;
    }
    askForLogin(headless_, reason);
}

void VHApplicationDelegate::didGlobalConnectionFailed(const QString& error) {
    if (signInPending_ && !toldUnreachable_) {
        toldUnreachable_ = true;
        if (error.isEmpty()) {
            std::fprintf(stderr, "%s: the service at %s did not complete the sign-in; ", kAppTitle,
                         switches_.globalAddress.c_str());
        } else {
            std::fprintf(stderr, "%s: cannot reach the service at %s (%s); ", kAppTitle,
                         switches_.globalAddress.c_str(), error.toStdString().c_str());
        }
        std::fprintf(stderr, "still trying, every 60 s.\n");
    }
    // Only a stored view is worth showing; a first sign-in mounts once it succeeds.
    if (!drive_.running() && !VHDatabase::database().globalLoginResponce().empty()) {
        initializeFuse();
        VHConnector::defaultConnector().setupRefreshTimers();
    }
    QTimer::singleShot(60000, this, [] { VHConnector::defaultConnector().loginToGlobal(); });
}

void VHApplicationDelegate::startScreenshotUploader() {
    if (screenshots_) return;
    screenshots_ = std::make_unique<VHScreenshotUploader>();
    screenshots_->settingsChanged();
}

void VHApplicationDelegate::didLoggedOut() {
    screenshots_.reset();
    stopFuse();
    clearCaches();
    resetUserDefaults();
}

void VHApplicationDelegate::logout() {
    VHConnector::defaultConnector().logout();
}

void VHApplicationDelegate::clearCaches(bool keepLogs) {
    VHDatabase::database().clear();
    cacheClearing_.start([keepLogs] {
        VHClose();
        std::error_code ignored;
        std::vector<std::string> folders = {VHFileCache::filesCachePath(),
                                            VHFileCache::downloadsCachePath()};
        if (!keepLogs && std::string(kAppTitle) != "VarnholtBeta") {
            folders.push_back(VHFileCache::logsPath());
        }
        for (const std::string& folder : folders) {
            fs::remove_all(folder, ignored);
            VHPaths::makePrivateDir(folder);
        }
        VHOpenLogs();
        VHDatabase::database().load();
    });
}

void VHApplicationDelegate::resetUserDefaults() {
    for (const char* key : {"userDomain", "deviceId"}) VHSettings::remove(prependAppTitle(key));
    VHSettings::remove("needsFullRefresh");
    VHSettings::sync();
}

void VHApplicationDelegate::setCleanShutdown() {
    VHSettings::setValue("cleanShutdown", true);
    VHSettings::sync();
}

void VHApplicationDelegate::applicationShouldTerminate() {
    if (fatalStatus_) exitCode_ = fatalStatus_;
    if (startingUp_) {
        terminationPending_ = true;
        return;
    }
    if (terminating_) return;
    if (cacheClearing_.activeThreadCount() > 0) {
        // It reloads the store at its end: the store is saved after that.
        QTimer::singleShot(100, this, &VHApplicationDelegate::applicationShouldTerminate);
        return;
    }
    terminating_ = true;
    VHLog(kLogMain, "%s", "applicationShouldTerminate:");
    if (!initializationFinished_) {
        VHLog(kLogMain, "Terminating application : right now, no initialization finished.");
        setCleanShutdown();
        QCoreApplication::exit(exitCode_);
        return;
    }
    if (screenshots_) screenshots_->stop();
    VHDatabase& db = VHDatabase::database();
    db.beginTermination();
    // Sent bytes are not lost: a large file resumes at the next start.
    VHUploadQueue::uploadQueue().cancelAllUploads();
    stopFuse();
    // The drive's notifications stay: termination waits for its loop to end.
    disconnect(&VHConnector::defaultConnector(), nullptr, this, nullptr);
    // Whether there is anything to save is decided now, not at load: a first
    // run that learnt its shares must keep them.
    if (db.metadataStorage().storageEmpty()) {
        VHLog(kLogMain, "Terminating application : do not save database.");
    } else {
        db.unload();
        VHLog(kLogMain, "Terminating application : saved database.");
    }
    terminationStarted_ = std::chrono::steady_clock::now();
    checkForTermination();
}

void VHApplicationDelegate::checkForTermination() {
    if (terminationFinished_) return;
    if (!driveLoopDone()) {
        terminationTimer_.start(kTerminationPollMs);
        return;
    }
    if (VHDatabase::database().shutdownBlocked()) {
        if (!toldShutdownBlocked_) {
            VHLog(kLogMain, "Terminating application : shutdown is blocked, waiting.");
            toldShutdownBlocked_ = true;
        }
        terminationTimer_.start(kTerminationPollMs);
        return;
    }
    VHLog(kLogMain, toldShutdownBlocked_
                        ? "Terminating application : shutdown no longer blocked, exiting."
                        : "Terminating application : now.");
    finishTermination();
}

bool VHApplicationDelegate::driveLoopDone() {
    if (!drive_.running()) return true;
    // Again, quietly: a mount still being made at the first attempt is there now.
    drive_.unmount(true);
    if (std::chrono::steady_clock::now() - terminationStarted_ < kDriveStopWait) return false;
    VHLog(kLogMain, "Terminating application : the drive still serves open files, leaving it.");
    return true;
}

void VHApplicationDelegate::finishTermination() {
    terminationFinished_ = true;
    terminationTimer_.stop();
    VHLog(kLogMain, "Recording clean shutdown.");
    setCleanShutdown();
    QCoreApplication::exit(exitCode_);
}

std::string VHApplicationDelegate::username() {
    return VHConnector::defaultConnector().username();
}

std::string VHApplicationDelegate::deviceId() {
    return VHConnector::defaultConnector().deviceId();
}

void VHApplicationDelegate::globalLoginResponceLoaded(const GlobalLoginResponce& response) {
    VHConnector::defaultConnector().setGlobalLoginResponce(response);
}

void VHApplicationDelegate::refreshFinderFolders(const std::vector<std::string>& drivePaths) {
    QMetaObject::invokeMethod(this, [drivePaths] {
        VHInvalidateDrivePaths(drivePaths);
        for (const std::string& path : drivePaths)
            VHFinderConnector::defaultConnector().updateOverlayIconsBelow(path);
    });
}

void VHApplicationDelegate::driveItemsChanged(const std::vector<std::string>& drivePaths) {
    // On the store's effects thread: the main thread may not wait on the kernel.
    VHInvalidateDrivePaths(drivePaths);
    QMetaObject::invokeMethod(this, [drivePaths] {
        for (const std::string& path : drivePaths)
            VHFinderConnector::defaultConnector().updateOverlayIcon(
                VHFuseUtils::relativePathToFull(path));
    });
}

void VHApplicationDelegate::refreshFinderRootFolder() {
    refreshFinderFolders({"/"});
}

void VHApplicationDelegate::refreshFileInFinder(const VHFile& file) {
    QMetaObject::invokeMethod(this, [file] {
        std::string path = VHDatabase::database().fullFilePath(file);
        if (path.empty()) return;
        VHInvalidateDrivePaths({path});
        VHFinderConnector::defaultConnector().updateOverlayIcon(
            VHFuseUtils::relativePathToFull(path));
    });
}

void VHApplicationDelegate::fileSyncStateChanged(const VHFile& file) {
    QMetaObject::invokeMethod(this, [this, file] { updateOverlayIconOfFile(file); });
}

void VHApplicationDelegate::updateOverlayIconOfFile(const VHFile& file) {
    std::string path = VHDatabase::database().fullFilePath(file);
    if (!path.empty())
        VHFinderConnector::defaultConnector().updateOverlayIcon(
            VHFuseUtils::relativePathToFull(path));
}

}  // namespace vh
