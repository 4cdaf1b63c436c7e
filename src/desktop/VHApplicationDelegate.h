// The process's conductor: the start-up sequence, the drive's life (mount on
// sign-in, re-mount after an eject, unmount on logout and quit), the orderly
// termination that waits for the metadata database, and the clean-shutdown
// record that decides whether the next launch needs a full refresh.
//
// One instance (delegate()), created and used on the main thread. It also
// serves the store's application hooks (user name, stored login, file
// manager refreshes), which may be called from any thread.
#pragma once

#include <QLockFile>
#include <QObject>
#include <atomic>
#include <memory>
#include <string>
#include <thread>

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

    static VHApplicationDelegate& delegate();

    // Start-up: switches, data folders, logging, the start-up line.
    void applicationWillFinishLaunching();
    // Start-up, second part: migration, single-instance check, store,
    // credentials, mount and sign-in. With `headless` and no credentials it
    // prints how to give them and ends the process with kExitNoCredentials.
    void applicationDidFinishLaunching(bool headless);
    // The orderly termination: unmount, save, wait while the database holds
    // the shutdown, record the clean shutdown, quit the event loop.
    void applicationShouldTerminate();

    const VHLaunchSwitches& switches() const { return switches_; }
    bool isMounted() const { return isMounted_; }
    bool initializationFinished() const { return initializationFinished_; }
    // "<title>.<key>"
    static std::string prependAppTitle(const std::string& key);

    // Mount and unmount (main thread).
    void initializeFuse();
    void stopFuse();
    // Empties the store and the content cache and reloads the store.
    void clearCaches();
    // Forgets the per-user settings of this application.
    void resetUserDefaults();
    // Signs out: the connector logs out; the drive is unmounted and the caches cleared.
    void logout();
    // Takes the single-instance lock of the metadata folder; false (after
    // telling the user) when another instance holds it.
    bool checkForRunningInstances();
    // Gives the single-instance lock back (at the end of the process).
    void releaseInstanceLock() { instanceLock_.reset(); }

    // VHAppHooks
    std::string username() override;
    std::string deviceId() override;
    void globalLoginResponceLoaded(const GlobalLoginResponce& response) override;
    void refreshFinderFolders(const std::vector<std::string>& drivePaths) override;
    void refreshFinderRootFolder() override;
    void refreshFileInFinder(const VHFile& file) override;

  private:
    VHApplicationDelegate();

    void finishApplicationInitialization(bool headless);
    void subscribeToNotifications();
    void readCleanShutdown();
    void askForLogin(bool headless);
    std::string mountOptions();
    void joinMountThread();
    void setCleanShutdown();
    void checkForTermination();
    void finishTermination();

    void didMount();
    void mountDidFailed(int code);
    void didUnmount();
    void didLoggedIn();
    void didDomainsLogin();
    void didLoginFailed();
    void didGlobalConnectionFailed();
    void didLoggedOut();

    VHLaunchSwitches switches_;
    std::unique_ptr<QLockFile> instanceLock_;
    std::thread mountThread_;
    std::atomic<bool> isMounted_{false};
    bool unmountRequested_ = false;
    int loginFailures_ = 0;
    bool initializationFinished_ = false;
    bool terminating_ = false;
    int exitCode_ = 0;
};

}  // namespace vh
