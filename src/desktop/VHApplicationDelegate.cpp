#include "desktop/VHApplicationDelegate.h"

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QThreadPool>
#include <QTimer>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "desktop/VHDesktopServices.h"
#include "desktop/VHLogging.h"
#include "desktop/VHStartupMigration.h"
#include "drive/VHDriveEvents.h"
#include "drive/VHFuseMount.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHAppInfo.h"
#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHPathUtils.h"
#include "lib/VHPaths.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "store/VHMigration.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

namespace fs = std::filesystem;

constexpr const char* kInstanceLockName = "instance.lock";

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

VHApplicationDelegate::VHApplicationDelegate() = default;

std::string VHApplicationDelegate::prependAppTitle(const std::string& key) {
    return VHSettings::prependAppTitle(key);
}

void VHApplicationDelegate::applicationWillFinishLaunching() {
    switches_.excessiveLogging = VHSettings::contains("VHExcessiveLogging");
    switches_.disableSignalR = VHSettings::contains("VHDisableSignalR");
    switches_.disableRootMount = VHSettings::contains("VHDisableRootMount");
    VHFuseUtils::setExcessiveLogging(switches_.excessiveLogging);
    VHFileCache::fileCache();  // makes the data folders, or ends the process
    VHSetLogDir(VHFileCache::logsPath());
    VHInitLogs();
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

void VHApplicationDelegate::applicationDidFinishLaunching(bool headless) {
    // The instance check comes first: a second instance must not migrate the
    // credentials of the running one.
    if (!checkForRunningInstances()) {
        QCoreApplication::exit(kExitAnotherInstance);
        return;
    }
    VHStartupMigration::migrate();
    if (access("/dev/fuse", R_OK | W_OK) != 0) {
        VHDesktopServices::showAlert("FUSE is not available",
                                     "Varnholt needs FUSE: install the package fuse3.");
    }
    finishApplicationInitialization(headless);
}

bool VHApplicationDelegate::checkForRunningInstances() {
    // Makes the metadata folder, or ends the process (status 100) when it cannot.
    std::string dir = VHDeletingLastPathComponent(VHDatabase::database().databasePath());
    VHMigration::keepMetadataEntry(kInstanceLockName);
    instanceLock_ =
        std::make_unique<QLockFile>(QString::fromStdString(dir + "/" + kInstanceLockName));
    instanceLock_->setStaleLockTime(0);
    if (instanceLock_->tryLock(0)) return true;
    qint64 pid = 0;
    QString host, application;
    instanceLock_->getLockInfo(&pid, &host, &application);
    std::string title = kAppTitle;
    VHDesktopServices::showAlert(
        VHFormat("Cannot start %@", title),
        VHFormat("Another instance of %@ is already running. Startup path : %@, pid = %d", title,
                 QCoreApplication::applicationFilePath(), pid));
    std::fprintf(stderr, "Another instance of %s is already running (pid %lld).\n", kAppTitle,
                 static_cast<long long>(pid));
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
    VHConnector& connector = VHConnector::defaultConnector();
    connector.loadCredentials();
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
    VHConnector& connector = VHConnector::defaultConnector();
    connect(&connector, &VHConnector::globalLoggedIn, this, &VHApplicationDelegate::didLoggedIn);
    connect(&connector, &VHConnector::domainsLoggedIn, this,
            &VHApplicationDelegate::didDomainsLogin);
    connect(&connector, &VHConnector::globalLoginFailed, this,
            &VHApplicationDelegate::didLoginFailed);
    connect(&connector, &VHConnector::globalConnectionFailed, this,
            &VHApplicationDelegate::didGlobalConnectionFailed);
    connect(&connector, &VHConnector::globalLoggedOut, this, &VHApplicationDelegate::didLoggedOut);
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

void VHApplicationDelegate::askForLogin(bool headless) {
    if (!headless) VHDesktopServices::showAlert(kAppTitle, "Please sign in.");
    std::fprintf(stderr,
                 "%s has no credentials. Sign in with:\n"
                 "  echo PASSWORD | varnholt --user EMAIL --password-stdin [--headless]\n",
                 kAppTitle);
    if (VHConnector::defaultConnector().username().empty() || headless) {
        setCleanShutdown();
        QCoreApplication::exit(kExitNoCredentials);
    }
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
    if (mountThread_.joinable()) return;  // mounting or mounted already
    VHLog(kLogMain, "About to mount fuse, checking whether user is in admin group...");
    std::string options = mountOptions();
    std::string path = VHFuseUtils::mountPath();
    if (VHIsDeadMount(path)) {
        VHLog(kLogMain,
              "Warning! Found dead filesystem on mountpoint %@. Unmounted using our force.", path);
        if (VHUnmountDrive(path, true) != 0) {
            VHLog(kLogMain, "Error! Our force was not enough to unmount dead filesystem. Sad.");
        }
    }
    mkdir(path.c_str(), 0700);
    unmountRequested_ = false;
    mountThread_ = std::thread([path, options] {
        std::vector<std::string> args = {kAppTitle, path, "-f", "-o", options};
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(arg.data());
        mount_varnholt(static_cast<int>(argv.size()), argv.data());
    });
}

void VHApplicationDelegate::joinMountThread() {
    if (mountThread_.joinable()) mountThread_.join();
}

void VHApplicationDelegate::stopFuse() {
    if (!mountThread_.joinable()) return;
    unmountRequested_ = true;
    const std::string& path = VHFuseUtils::mountPath();
    int error = VHUnmountDrive(path, false);
    if (error) {
        VHLog(kLogMain, "Failed to unmount drive : error %d", error);
        if (error == EBUSY) {
            error = VHUnmountDrive(path, true);
            if (error) VHLog(kLogMain, "Failed even forced unmount : error %d", error);
        }
    }
    isMounted_ = false;
    // A drive still mounted keeps its FUSE loop running: waiting for it would
    // never end, so it is left to end with the process.
    if (error) {
        mountThread_.detach();
    } else {
        joinMountThread();
    }
}

void VHApplicationDelegate::didMount() {
    VHLog(kLogMain, "didMount: drive was mounted.");
    isMounted_ = true;
    // The lock file is opened to show the drive answers, but not kept open: on
    // Linux an open file makes every eject fail with EBUSY, and an eject is
    // what the re-mount below exists to answer.
    std::string lockPath = VHFuseUtils::mountPath() + "/.fuselock";
    int lock = open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0700);
    if (lock < 0) VHLog(kLogMain, "Warning! Cannot open fuse lock file: error %d", errno);
    if (lock >= 0) close(lock);
    VHDesktopServices::postDistributedNotification("com.varnholt.drive-mounted");
}

void VHApplicationDelegate::mountDidFailed(int code) {
    joinMountThread();
    VHDesktopServices::showAlert(
        "Unable to mount drive",
        VHFormat("%@ (%@)", "Error : mounting of the file system failed.", code));
    exitCode_ = kExitMountFailed;
    applicationShouldTerminate();
}

void VHApplicationDelegate::didUnmount() {
    VHDesktopServices::postDistributedNotification("com.varnholt.drive-unmounted");
    isMounted_ = false;
    joinMountThread();
    if (!unmountRequested_ && !terminating_) {
        VHLog(kLogMain, "User unmounted the volume. Trying to re-mount. Notification %@",
              "kFuseDidUnmountNotification");
        initializeFuse();
    }
}

void VHApplicationDelegate::didLoggedIn() {
    loginFailures_ = 0;
    VHConnector::defaultConnector().domainLogin();
}

void VHApplicationDelegate::didDomainsLogin() {
    if (mountThread_.joinable()) return;
    initializeFuse();
    VHConnector::defaultConnector().setupRefreshTimers();
}

void VHApplicationDelegate::didLoginFailed() {
    int earlier = loginFailures_++;
    if (earlier < 2) {
        QTimer::singleShot(3000 * loginFailures_, this,
                           [] { VHConnector::defaultConnector().loginToGlobal(); });
        return;
    }
    VHDesktopServices::showAlert(
        kAppTitle, "Sign-in failed. Check the user name and password, then sign in again.");
}

void VHApplicationDelegate::didGlobalConnectionFailed() {
    if (!mountThread_.joinable()) {
        initializeFuse();
        VHConnector::defaultConnector().setupRefreshTimers();
    }
    QTimer::singleShot(60000, this, [] { VHConnector::defaultConnector().loginToGlobal(); });
}

void VHApplicationDelegate::didLoggedOut() {
    stopFuse();
    clearCaches();
    resetUserDefaults();
}

void VHApplicationDelegate::logout() {
    VHConnector::defaultConnector().logout();
}

void VHApplicationDelegate::clearCaches() {
    VHDatabase::database().clear();
    QThreadPool::globalInstance()->start([] {
        VHClose();
        std::error_code ignored;
        std::vector<std::string> folders = {VHFileCache::filesCachePath(),
                                            VHFileCache::downloadsCachePath()};
        if (std::string(kAppTitle) != "VarnholtBeta") folders.push_back(VHFileCache::logsPath());
        for (const std::string& folder : folders) {
            fs::remove_all(folder, ignored);
            fs::create_directories(folder, ignored);
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
    if (terminating_) return;
    terminating_ = true;
    VHLog(kLogMain, "%s", "applicationShouldTerminate:");
    if (!initializationFinished_) {
        VHLog(kLogMain, "Terminating application : right now, no initialization finished.");
        setCleanShutdown();
        QCoreApplication::exit(exitCode_);
        return;
    }
    VHDatabase& db = VHDatabase::database();
    db.beginTermination();
    stopFuse();
    disconnect(&VHDriveEvents::instance(), nullptr, this, nullptr);
    disconnect(&VHConnector::defaultConnector(), nullptr, this, nullptr);
    // Whether there is anything to save is decided now, not at load: a first
    // run that learnt its shares must keep them.
    if (db.metadataStorage().storageEmpty()) {
        VHLog(kLogMain, "Terminating application : do not save database.");
    } else {
        db.unload();
        VHLog(kLogMain, "Terminating application : saved database.");
    }
    if (db.shutdownBlocked()) {
        VHLog(kLogMain, "Terminating application : shutdown is blocked, waiting.");
        QTimer::singleShot(1000, this, &VHApplicationDelegate::checkForTermination);
        return;
    }
    VHLog(kLogMain, "Terminating application : now.");
    finishTermination();
}

void VHApplicationDelegate::checkForTermination() {
    if (VHDatabase::database().shutdownBlocked()) {
        QTimer::singleShot(1000, this, &VHApplicationDelegate::checkForTermination);
        return;
    }
    VHLog(kLogMain, "Terminating application : shutdown no longer blocked, exiting.");
    finishTermination();
}

void VHApplicationDelegate::finishTermination() {
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
    QMetaObject::invokeMethod(this, [drivePaths] { VHInvalidateDrivePaths(drivePaths); });
}

void VHApplicationDelegate::refreshFinderRootFolder() {
    refreshFinderFolders({"/"});
}

void VHApplicationDelegate::refreshFileInFinder(const VHFile& file) {
    QMetaObject::invokeMethod(this, [file] {
        std::string path = VHDatabase::database().fullFilePath(file);
        if (!path.empty()) VHInvalidateDrivePaths({path});
    });
}

}  // namespace vh
