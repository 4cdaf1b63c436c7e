#include <unistd.h>

#include <QApplication>
#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "app/VHCommandLine.h"
#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHIntegrationInstaller.h"
#include "desktop/VHSignOut.h"
#include "desktop/VHUnixSignals.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHAppInfo.h"
#include "lib/VHHttp.h"
#include "lib/VHSettings.h"
#include "service/VHConnector.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHUploadQueue.h"
#include "ui/VHUserInterface.h"

namespace {

// The password of --user, one line of standard input; empty when none came.
std::string readPassword() {
    std::string password;
    if (!std::getline(std::cin, password)) return "";
    return password;
}

// Ends the process once everything is saved. Exit handlers would run the
// libraries' clean-ups (OpenSSL's, Qt's globals) while pool threads are still
// ending, which now and then crashed the client after an orderly stop.
[[noreturn]] void endProcess(int code) {
    vh::VHSettings::sync();
    std::fflush(nullptr);
    _exit(code);
}

// Windows need a display; without one every run is headless.
bool wantsGui(const vh::VHCommandLine& line) {
    if (line.headless) return false;
    auto set = [](const char* name) { return std::getenv(name) && *std::getenv(name); };
    return set("DISPLAY") || set("WAYLAND_DISPLAY");
}

int runClient(QCoreApplication& app, vh::VHApplicationDelegate& delegate, bool gui) {
    vh::VHUnixSignals unixSignals;
    QObject::connect(&unixSignals, &vh::VHUnixSignals::terminationRequested, &app,
                     [&delegate] { delegate.applicationShouldTerminate(); });
    // Made before start-up, which may ask for a sign-in.
    std::unique_ptr<vh::VHUserInterface> ui;
    if (gui) ui = std::make_unique<vh::VHUserInterface>();
    QMetaObject::invokeMethod(
        &app, [&] { delegate.applicationDidFinishLaunching(!gui); }, Qt::QueuedConnection);
    int code = app.exec();
    // A loop that still serves files held open after a forced unmount ends
    // with the process, which closes them.
    if (delegate.driveRunning()) endProcess(code);
    delegate.releaseInstanceLock();
    vh::VHConnector::defaultConnector().waitForOperations();
    vh::VHConnector::defaultConnector().stopRealtime();
    vh::VHUploadQueue::uploadQueue().stopThread();
    vh::VHDownloadQueue::downloadQueue().stopThread();
    vh::VHHttp::shutdown();
    return code;
}

// Writes the desktop integration for this program and says what it wrote.
int installIntegration() {
    std::error_code error;
    std::filesystem::path binary = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        std::fprintf(stderr, "varnholt: cannot tell the program's path: %s\n",
                     error.message().c_str());
        return 1;
    }
    vh::VHIntegrationInstaller::Result result =
        vh::VHIntegrationInstaller::install(binary.string());
    for (const std::string& path : result.written) std::printf("Installed %s\n", path.c_str());
    if (!result.error.empty()) {
        std::fprintf(stderr, "varnholt: %s\n", result.error.c_str());
        return 1;
    }
    std::printf(
        "GNOME Files loads the extension when it starts again (nautilus -q ends it).\n"
        "The client starts with the next desktop session; without one:\n"
        "  systemctl --user enable --now varnholt.service\n");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // First: a SIGTERM during start-up must still end the process in order.
    vh::VHUnixSignals::install();
    std::string error;
    auto line = vh::VHCommandLine::parse(argc, argv, error);
    if (!line) {
        std::fprintf(stderr, "varnholt: %s\n\n%s", error.c_str(), vh::VHCommandLine::helpText());
        return vh::VHCommandLine::kExitUsage;
    }
    if (line->help) {
        std::printf("%s", vh::VHCommandLine::helpText());
        return 0;
    }
    if (line->version) {
        std::printf("%s %s (%s)\n", vh::kAppTitle, vh::kShortVersion, vh::kBuildNumber);
        return 0;
    }
    if (line->installIntegration) return installIntegration();
    std::string password;
    if (!line->user.empty()) {
        password = readPassword();
        if (password.empty()) {
            std::fprintf(stderr, "varnholt: no password on standard input\n");
            return vh::VHCommandLine::kExitUsage;
        }
    }
    bool gui = wantsGui(*line) && !line->logout;
    std::unique_ptr<QCoreApplication> app;
    if (gui) {
        app = std::make_unique<QApplication>(argc, argv);
        // Closing a window leaves the client running in the tray.
        QApplication::setQuitOnLastWindowClosed(false);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    if (!line->mountPath.empty()) vh::VHFuseUtils::setMountPath(line->mountPath);
    vh::VHApplicationDelegate& delegate = vh::VHApplicationDelegate::delegate();
    delegate.applicationWillFinishLaunching();
    if (delegate.fatalStatus()) return delegate.fatalStatus();
    if (line->logout) {
        int code = vh::VHSignOut::run(line->force);
        vh::VHHttp::shutdown();
        endProcess(code);
    }
    if (!line->user.empty()) delegate.setSignInCredentials(line->user, password);
    endProcess(runClient(*app, delegate, gui));
}
