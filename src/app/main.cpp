#include <QCoreApplication>
#include <QThreadPool>
#include <cstdio>
#include <iostream>
#include <string>

#include "app/VHCommandLine.h"
#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHUnixSignals.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHAppInfo.h"
#include "lib/VHHttp.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"

namespace {

// Stores the credentials given on the command line before anything starts.
bool storeCredentials(const vh::VHCommandLine& line) {
    std::string password;
    if (!std::getline(std::cin, password) || password.empty()) {
        std::fprintf(stderr, "varnholt: no password on standard input\n");
        return false;
    }
    vh::VHConnector& connector = vh::VHConnector::defaultConnector();
    connector.setUsername(line.user);
    connector.setPassword(password);
    connector.saveCredentials();
    return true;
}

int logoutAndExit() {
    if (!vh::VHApplicationDelegate::delegate().checkForRunningInstances()) {
        return vh::VHApplicationDelegate::kExitAnotherInstance;
    }
    vh::VHDatabase::database().load();
    vh::VHConnector& connector = vh::VHConnector::defaultConnector();
    connector.loadCredentials();
    connector.logout();
    vh::VHApplicationDelegate::delegate().clearCaches();
    vh::VHApplicationDelegate::delegate().resetUserDefaults();
    QThreadPool::globalInstance()->waitForDone();
    vh::VHApplicationDelegate::delegate().releaseInstanceLock();
    std::printf("Signed out; credentials and caches removed.\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    std::string error;
    auto line = vh::VHCommandLine::parse(argc, argv, error);
    if (!line) {
        std::fprintf(stderr, "varnholt: %s\n\n%s", error.c_str(), vh::VHCommandLine::helpText());
        return 64;
    }
    if (line->help) {
        std::printf("%s", vh::VHCommandLine::helpText());
        return 0;
    }
    if (line->version) {
        std::printf("%s %s (%s)\n", vh::kAppTitle, vh::kShortVersion, vh::kBuildNumber);
        return 0;
    }
    // The windows come later: until then every run is a headless one.
    QCoreApplication app(argc, argv);
    if (!line->mountPath.empty()) vh::VHFuseUtils::setMountPath(line->mountPath);
    vh::VHApplicationDelegate& delegate = vh::VHApplicationDelegate::delegate();
    delegate.applicationWillFinishLaunching();
    if (!line->user.empty() && !storeCredentials(*line)) return 64;
    if (line->logout) return logoutAndExit();

    vh::VHUnixSignals unixSignals;
    QObject::connect(&unixSignals, &vh::VHUnixSignals::terminationRequested, &app,
                     [&delegate] { delegate.applicationShouldTerminate(); });
    QMetaObject::invokeMethod(
        &app, [&] { delegate.applicationDidFinishLaunching(true); }, Qt::QueuedConnection);
    int code = app.exec();
    delegate.releaseInstanceLock();
    vh::VHDownloadQueue::downloadQueue().stopThread();
    vh::VHHttp::shutdown();
    return code;
}
