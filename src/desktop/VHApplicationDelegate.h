// The process's conductor: the start-up sequence, the drive's life (mount on
// sign-in, re-mount after an eject, unmount on logout and quit), the orderly
// termination that waits for the drive's loop and the metadata database, and
// the clean-shutdown record that decides whether the next launch needs a
// full refresh.
//
// One instance (delegate()), created and used on the main thread. It also
// serves the store's application hooks (user name, stored login, file
// manager refreshes), which may be called from any thread, and takes fatal
// failures of the lower layers from any thread (installFatalErrorHandler).
#pragma once

#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QTimer>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "desktop/VHDriveController.h"
#include "desktop/VHInstanceLock.h"
#include "desktop/VHScreenshotUploader.h"
#include "desktop/VHUploadCatchUp.h"
#include "desktop/VHUploadProgressLog.h"
#include "store/VHStoreHooks.h"

namespace vh {

// Launch settings, read once in applicationWillFinishLaunching.
struct VHLaunchSwitches {
    bool excessiveLogging = false;  // "VHExcessiveLogging" exists
    bool disableSignalR = false;    // "VHDisableSignalR" exists
    bool disableRootMount = false;  // "VHDisableRootMount" exists
    bool isDataIsland = false;      // "VHDataIsland" / VARNHOLT_DATA_ISLAND
    std::string globalAddress;      // "VHGlobalAddress" / VARNHOLT_GLOBAL_ADDRESS
};

class VHApplicationDelegate : public QObject, public VHAppHooks {
    Q_OBJECT
  public:
    // Exit statuses of the process besides the store's 10 and 100.
    static constexpr int kExitNoCredentials = 2;
    static constexpr int kExitAnotherInstance = 3;
    static constexpr int kExitMountFailed = 4;
    static constexpr int kExitSignInRefused = 5;
    static constexpr int kExitUnconfirmedChanges = 6;

    static VHApplicationDelegate& delegate();

    // From now on a fatal failure reported on any thread (VHReportFatalError)
    // queues the orderly termination, with the failure's status, to the main
    // thread. Called first thing at start-up.
    void installFatalErrorHandler();
    // The status of the first fatal failure reported; 0 when none. Any thread.
    int fatalStatus() const { return fatalStatus_; }

    // Start-up: switches, data folders, logging, the start-up line. Stops
    // early when a fatal failure was reported (see fatalStatus()).
    void applicationWillFinishLaunching();
    // Credentials given on the command line for this start: tried at
    // start-up and stored only once the service accepts them. A refusal is
    // printed on standard error and ends the process with kExitSignInRefused.
    void setSignInCredentials(const std::string& user, const std::string& password);
    // Start-up, second part: single-instance check, migration, store,
    // credentials, mount and sign-in. With `headless` and no credentials it
    // prints how to give them and ends the process with kExitNoCredentials.
    void applicationDidFinishLaunching(bool headless);
    // The orderly termination: unmount, save, wait for the drive's loop and
    // while the database holds the shutdown, record the clean shutdown, quit
    // the event loop. A request during start-up waits for its end.
    void applicationShouldTerminate();

    const VHLaunchSwitches& switches() const { return switches_; }
    bool isMounted() const { return isMounted_; }
    bool initializationFinished() const { return initializationFinished_; }
    // Whether the drive's loop still runs (the process should then end
    // without waiting for it).
    bool driveRunning() const { return drive_.running(); }
    // "<title>.<key>"
    static std::string prependAppTitle(const std::string& key);

    // Mount and unmount (main thread).
    void initializeFuse();
    void stopFuse();
    // Empties the store and the content cache and reloads the store; the
    // logs go too unless `keepLogs`. The folders are emptied in the
    // background; termination waits for that.
    void clearCaches(bool keepLogs = false);
    // Blocks until the caches are cleared (before the event loop runs).
    void waitForClearedCaches() { cacheClearing_.waitForDone(); }
    // Forgets the per-user settings of this application.
    void resetUserDefaults();
    // Signs out: the connector logs out; the drive is unmounted and the caches cleared.
    void logout();
    // Signing out from the windows: asks first (telling of changes not yet
    // confirmed by the service), then signs out and asks for a new sign-in.
    // Whether the user agreed.
    bool logoutAfterConfirmation();
    // A sign-in from the window (GUI runs): the credentials are stored only
    // once the service accepts them; a refusal comes back by loginRequested.
    void signIn(const std::string& user, const std::string& password);
    // Takes the single-instance lock of the metadata folder; false (after
    // telling the user) when another instance holds it.
    bool checkForRunningInstances();
    // Gives the single-instance lock back (at the end of the process).
    void releaseInstanceLock() { instanceLock_.reset(); }

    // The screenshot uploader, made at the first sign-in (the preferences
    // tell it of changed settings); null before and after a logout.
    VHScreenshotUploader* screenshotUploader() { return screenshots_.get(); }

    // ---- Links (VHApplicationDelegateLinks.cpp; main thread) ----
    using LinkDone = std::function<void(const std::string& result)>;
    // Creates a public link to the file and puts it on the clipboard (with a
    // notification); headless, where there is none, it is logged and
    // notified. `done` gets the link, `failed` the reason otherwise.
    void putFileLinkToClipboard(const VHFile& file, LinkDone done = {}, LinkDone failed = {});
    // Creates a public link and opens an e-mail with it ("mailto:");
    // `done` gets the address opened.
    void emailFileLink(const VHFile& file, LinkDone done = {}, LinkDone failed = {});
    // The e-mail address that carries `link` in its body.
    static std::string mailtoAddress(const std::string& link);
    // Opens the drive's folder, or a share's, in the file manager (xdg-open).
    void openRootFolder();
    void openShareFolder(const ManagedShare& share);

    // VHAppHooks
    std::string username() override;
    std::string deviceId() override;
    void globalLoginResponceLoaded(const GlobalLoginResponce& response) override;
    void refreshFinderFolders(const std::vector<std::string>& drivePaths) override;
    void driveItemsChanged(const std::vector<std::string>& drivePaths) override;
    void refreshFinderRootFolder() override;
    void refreshFileInFinder(const VHFile& file) override;
    void fileSyncStateChanged(const VHFile& file) override;

  signals:
    // GUI runs: no credentials, or the service refused them (`refusal` says
    // why, empty when there were none): the sign-in window must show.
    void loginRequested(const QString& refusal);

  private:
    VHApplicationDelegate();

    void finishApplicationInitialization(bool headless);
    // Pushes the file's state to the file managers that show it (main thread).
    void updateOverlayIconOfFile(const VHFile& file);
    void subscribeToNotifications();
    void readCleanShutdown();
    // Headless: prints why and how to sign in, then ends the process; with a
    // GUI: emits loginRequested.
    void askForLogin(bool headless, const QString& refusal = QString());
    std::string mountOptions();
    void setCleanShutdown();
    void stopAfterFatalError(int status);
    void checkForTermination();
    // Whether termination may go on: the drive's loop has ended, or it
    // still runs (files held open after a forced unmount) and the wait is over.
    bool driveLoopDone();
    void finishTermination();

    void didMount();
    void mountDidFailed(int code);
    void didUnmount();
    void driveLoopEnded(int result);
    void didLoggedIn();
    void didDomainsLogin();
    void didLoginFailed(const QString& reason);
    void didGlobalConnectionFailed(const QString& error);
    void didLoggedOut();
    void startScreenshotUploader();

    VHLaunchSwitches switches_;
    std::unique_ptr<VHInstanceLock> instanceLock_;
    VHDriveController drive_;
    VHUploadProgressLog uploadProgressLog_;
    VHUploadCatchUp uploadCatchUp_;
    std::unique_ptr<VHScreenshotUploader> screenshots_;
    std::atomic<bool> isMounted_{false};
    std::atomic<int> fatalStatus_{0};
    bool unmountRequested_ = false;
    bool remountWanted_ = false;      // an eject is answered once the loop ended
    bool mountedSinceStart_ = false;  // the current loop reached the kernel handshake
    int loginFailures_ = 0;
    bool headless_ = true;
    bool signInPending_ = false;  // command-line credentials not yet accepted
    bool toldUnreachable_ = false;
    std::string signInUser_, signInPassword_;
    bool startingUp_ = false;
    bool terminationPending_ = false;
    bool initializationFinished_ = false;
    bool terminating_ = false;
    bool toldShutdownBlocked_ = false;
    bool terminationFinished_ = false;
    QTimer terminationTimer_;
    QThreadPool cacheClearing_;
    std::chrono::steady_clock::time_point terminationStarted_;
    int exitCode_ = 0;
};

}  // namespace vh
