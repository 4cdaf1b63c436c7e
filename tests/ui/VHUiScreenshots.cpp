// Pictures of the windows for people to look at: the sign-in window, the
// tray menu during a download, every page of the preferences and the log
// window, in English and in German, as PNG files in the folder given as the
// only argument. Runs the client in process against the emulator on a
// private Xvfb display, like the window tests; prints each file it wrote.
// Exit status 0, 1 when something did not show, 77 when Xvfb is missing.
#include <unistd.h>

#include <QApplication>
#include <QDir>
#include <QMenu>
#include <QPixmap>
#include <QTabWidget>
#include <cstdio>
#include <cstdlib>

#include "VHUiTestSupport.h"
#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHLocalization.h"
#include "emulator/support/VHEmulatorProcess.h"
#include "store/VHDatabase.h"
#include "support/VHTestHome.h"
#include "transfer/VHDownloadQueue.h"
#include "ui/VHLogWindow.h"
#include "ui/VHPreferencesWindow.h"
#include "ui/VHSignInWindow.h"
#include "ui/VHStatusMenu.h"
#include "ui/VHUserInterface.h"

namespace vh::test {
namespace {

QString gFolder;
VHTestHome* gHome = nullptr;

// Ends the process without exit handlers (the client's threads still run),
// leaving no mount and no temporary folder behind.
[[noreturn]] void finish(int status) {
    VHApplicationDelegate::delegate().stopFuse();
    if (gHome) {
        VHDetachMountsBelow(gHome->root());
        VHRemoveTree(gHome->root());
    }
    std::fflush(nullptr);
    _exit(status);
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "screenshots: %s\n", what);
    finish(1);
}

void save(QWidget& widget, const QString& name) {
    VHWaitUntil([] { return false; }, 300);  // layouts and fonts settle
    QString path = QDir(gFolder).absoluteFilePath(name + ".png");
    if (!widget.grab().save(path)) fail("cannot write a picture");
    std::printf("%s\n", path.toStdString().c_str());
}

void shootMenu(VHUserInterface& ui, const QString& language) {
    QMenu* menu = ui.statusMenu().menu();
    // No tray host under Xvfb: the menu opens where a panel would put it.
    menu->popup(QPoint(40, 40));
    save(*menu, "tray-menu-" + language);
    menu->hide();
}

void shootWindows(VHUserInterface& ui, const QString& language) {
    shootMenu(ui, language);
    VHPreferencesWindow& preferences = ui.showPreferences();
    const char* tabs[] = {"account", "general", "cache", "screenshots"};
    for (int tab = 0; tab < preferences.tabs()->count(); ++tab) {
        preferences.showTab(static_cast<VHPreferencesWindow::Tab>(tab));
        save(preferences, QString("preferences-%1-%2").arg(tabs[tab], language));
    }
    save(ui.showLog(), "log-" + language);
}

void run() {
    VHEmulatorProcess emulator;
    if (!emulator.start()) fail("the emulator did not start");
    VHUiClient client(emulator);
    VHUserInterface& ui = client.ui();
    VHSignInWindow* signIn = ui.signInWindow();
    if (!signIn) fail("no sign-in window");
    for (const char* language : {"en", "de"}) {
        VHLocalization::setLanguage(language);
        save(*signIn, QString("sign-in-") + language);
    }
    VHLocalization::setLanguage("en");
    if (!client.signIn()) fail("the sign-in did not complete");
    // A download the service holds back, so that the menu shows it.
    const std::string video = "/Team Documents/Media/video.bin";
    if (!VHWaitUntil([&] { return VHDatabase::database().fileWithPath(video).has_value(); }))
        fail("the share's files did not arrive");
    emulator.addFault({{"method", "GET"}, {"host", "^filecache"}, {"delayMs", 120000}});
    VHDownloadQueue::downloadQueue().downloadFileManually(
        *VHDatabase::database().fileWithPath(video));
    if (!VHWaitUntil([&] { return VHMenuItem(ui.statusMenu().menu(), "downloads"); }))
        fail("the download did not show in the menu");
    for (const char* language : {"en", "de"}) {
        VHLocalization::setLanguage(language);
        shootWindows(ui, language);
    }
    emulator.clearFaults();
}

}  // namespace
}  // namespace vh::test

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 64;
    }
    vh::test::gFolder = QString::fromLocal8Bit(argv[1]);
    QDir().mkpath(vh::test::gFolder);
    setenv("LANGUAGE", "en", 1);
    vh::test::VHUseDisplay(true);
    if (!vh::test::VHUiSkipReason().empty()) {
        std::fprintf(stderr, "skipped: %s\n", vh::test::VHUiSkipReason().c_str());
        return 77;
    }
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    vh::test::gHome = new vh::test::VHTestHome;
    vh::test::run();
    vh::test::finish(0);
}
