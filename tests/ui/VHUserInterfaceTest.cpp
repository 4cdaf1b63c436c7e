// The windows and the tray menu of the client, driven like a user would, in
// process against the real emulator under Xvfb, with the drive mounted.
#include <gtest/gtest.h>

#include <QLocalSocket>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTreeWidget>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "VHUiTestSupport.h"
#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHFinderConnector.h"
#include "desktop/VHIntegrationInstaller.h"
#include "desktop/VHLocalization.h"
#include "emulator/support/VHEmulatorProcess.h"
#include "lib/VHSettings.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"
#include "ui/VHAccountPage.h"
#include "ui/VHCachePage.h"
#include "ui/VHFolderPicker.h"
#include "ui/VHGeneralPage.h"
#include "ui/VHLogWindow.h"
#include "ui/VHPreferencesWindow.h"
#include "ui/VHProgressWindow.h"
#include "ui/VHScreenshotPage.h"
#include "ui/VHSignInWindow.h"
#include "ui/VHStatusMenu.h"
#include "ui/VHUserInterface.h"

namespace vh::test {
namespace {

class UserInterface : public testing::Test {
  protected:
    void SetUp() override {
        if (!VHUiSkipReason().empty()) GTEST_SKIP() << "skipped: " << VHUiSkipReason();
        ASSERT_TRUE(emulator_.start());
        client_ = std::make_unique<VHUiClient>(emulator_);
    }

    VHUserInterface& ui() { return client_->ui(); }
    QMenu* menu() { return ui().statusMenu().menu(); }
    QString menuText(const char* name) {
        QAction* action = VHMenuItem(menu(), name);
        return action ? action->text() : QString();
    }
    static std::optional<VHFile> file(const std::string& path) {
        return VHDatabase::database().fileWithPath(path);
    }
    static bool knows(const std::string& path) { return file(path).has_value(); }

    VHEmulatorProcess emulator_;
    std::unique_ptr<VHUiClient> client_;
};

TEST_F(UserInterface, SignInThroughTheWindowThenTheTrayMenuShowsSharesAndTransfers) {
    VHSignInWindow* window = ui().signInWindow();
    ASSERT_NE(window, nullptr) << "no credentials: the sign-in window must show";
    ASSERT_TRUE(window->isVisible());
    EXPECT_EQ(menuText("account"), "Not signed in");

    // A refused password is told in words, and not stored.
    client_->typeCredentials("demo@varnholt.test", "wrong");
    ASSERT_TRUE(VHWaitUntil([&] { return window->messageLabel()->text().contains("U101"); }))
        << window->messageLabel()->text().toStdString();
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(window->signInButton()->isEnabled() == false);  // the password field was emptied
    EXPECT_EQ(VHSettings::string(VHSettings::prependAppTitle("username")), "");

    ASSERT_TRUE(client_->signIn());
    EXPECT_FALSE(window->isVisible());
    EXPECT_EQ(menuText("account"), "Signed in as demo@varnholt.test");
    std::set<QString> shares;
    for (QAction* action : menu()->actions()) {
        if (action->objectName().startsWith("share:")) shares.insert(action->text());
    }
    EXPECT_EQ(shares, (std::set<QString>{"Company Handbook", "My Files", "Second Domain",
                                         "Shared with demo", "Team Documents"}));
    EXPECT_EQ(ui().statusMenu().state(), VHStatusMenu::State::Idle);

    // The cache page: a downloaded file counts, the limit is stored, and
    // clearing empties the cache.
    ASSERT_TRUE(VHWaitUntil([] { return knows("/Team Documents/readme.txt"); }));
    VHFile readme = *file("/Team Documents/readme.txt");
    VHDownloadQueue::downloadQueue().downloadFileManually(readme);
    ASSERT_TRUE(VHWaitUntil([&] { return VHFileCache::fileCache().hasCompleteCache(readme); }));
    QTest::qWait(1100);  // clearing takes what was downloaded before the current second
    VHPreferencesWindow& preferences = ui().showPreferences();
    preferences.showTab(VHPreferencesWindow::kCache);
    VHCachePage* cache = preferences.cachePage();
    cache->measure();
    ASSERT_TRUE(VHWaitUntil([&] { return cache->measuredBytes() > 0; }));
    EXPECT_TRUE(cache->findChild<QLabel*>("usage")->text().startsWith("Downloaded files use "));
    QTest::keyClick(cache->keepBox(), Qt::Key_Down);
    EXPECT_EQ(VHCachePage::keepDays(), 0);  // 4 hours
    EXPECT_EQ(cache->keepBox()->currentText(), "For 4 hours");
    ASSERT_TRUE(VHWaitUntil([&] { return cache->clearButton()->isEnabled(); }));
    std::shared_ptr<QString> question = VHAnswerNextDialog("Clear Cache");
    QTest::mouseClick(cache->clearButton(), Qt::LeftButton);
    EXPECT_TRUE(question->startsWith("Clear the cache?"));
    ASSERT_TRUE(VHWaitUntil([&] { return cache->measuredBytes() == 0; }));
    EXPECT_FALSE(VHFileCache::fileCache().hasCompleteCache(readme));

    // A whole-file download held up by the service shows in the menu and in
    // the progress window while it waits; pausing says so.
    ASSERT_TRUE(VHWaitUntil([] { return knows("/Team Documents/Media/video.bin"); }));
    ASSERT_TRUE(emulator_.addFault({{"method", "GET"}, {"host", "^filecache"}, {"delayMs", 20000}})
                    .has_value());
    VHDownloadQueue::downloadQueue().downloadFileManually(*file("/Team Documents/Media/video.bin"));
    ASSERT_TRUE(VHWaitUntil([&] {
        return menuText("downloads").startsWith("Files to download: 1");
    })) << menuText("downloads").toStdString();
    EXPECT_TRUE(menuText("downloads").contains("50.0 MB left"))
        << menuText("downloads").toStdString();
    EXPECT_EQ(ui().statusMenu().state(), VHStatusMenu::State::Syncing);
    VHProgressWindow& progress = ui().showProgress();
    ASSERT_EQ(progress.list()->topLevelItemCount(), 1);
    EXPECT_EQ(progress.list()->topLevelItem(0)->text(0), "video.bin");
    VHMenuItem(menu(), "pause")->trigger();
    EXPECT_EQ(menuText("paused"), "Transfers paused");
    EXPECT_TRUE(VHMenuItem(menu(), "pause")->isChecked());
    EXPECT_EQ(ui().statusMenu().state(), VHStatusMenu::State::Idle);
    VHMenuItem(menu(), "pause")->trigger();
    EXPECT_EQ(menuText("paused"), "");
    VHDownloadQueue::downloadQueue().cancelFileDownload(*file("/Team Documents/Media/video.bin"));
    emulator_.clearFaults();
}

TEST_F(UserInterface, EveryOpenWindowFollowsTheLanguageAndSignOutAsksForANewSignIn) {
    ASSERT_TRUE(client_->signIn());
    VHPreferencesWindow& preferences = ui().showPreferences();
    VHLogWindow& log = ui().showLog();
    VHProgressWindow& progress = ui().showProgress();
    VHSignInWindow& signIn = *ui().signInWindow();
    std::vector<QWidget*> windows = {&preferences, &log, &progress, &signIn};
    std::map<std::string, QString> english;
    for (QWidget* window : windows) {
        for (const auto& [key, text] : VHShownTexts(window)) english[key] = text;
    }
    QString englishMenu = menuText("preferences");
    // A file-manager plug-in hears of the change too.
    QLocalSocket plugin;
    plugin.connectToServer(QString::fromStdString(VHFinderConnector::socketPath()));
    ASSERT_TRUE(VHWaitUntil([&] { return plugin.state() == QLocalSocket::ConnectedState; }));
    plugin.write("files:hello:\n");
    auto heard = [&](const QByteArray& line) {
        return VHWaitUntil([&] {
            while (plugin.canReadLine()) {
                if (plugin.readLine().trimmed() == line) return true;
            }
            return false;
        });
    };
    ASSERT_TRUE(heard("lang:en"));

    // German, chosen in the preferences: every window is re-labelled at once.
    preferences.showTab(VHPreferencesWindow::kGeneral);
    QTest::keyClick(preferences.generalPage()->languageBox(), Qt::Key_Down);
    EXPECT_EQ(VHLocalization::language(), "de");
    EXPECT_EQ(VHSettings::string("Varnholt_language"), "de");
    EXPECT_EQ(VHFinderConnector::interfaceLanguage(), "de");
    EXPECT_TRUE(heard("lang:de"));
    // Texts that read the same in both languages, and values.
    const std::set<QString> same = {"",        "Cache",   "Name",     "OK",
                                    "English", "Deutsch", "Français", "demo@varnholt.test"};
    for (QWidget* window : windows) {
        for (const auto& [key, text] : VHShownTexts(window)) {
            if (same.count(text) || !english.count(key)) continue;
            EXPECT_NE(text, english[key])
                << "still in English in " << window->objectName().toStdString();
        }
    }
    EXPECT_EQ(preferences.tabs()->tabText(VHPreferencesWindow::kAccount), "Konto");
    EXPECT_EQ(signIn.signInButton()->text(), "Anmelden");
    EXPECT_EQ(log.windowTitle(), "Varnholt-Protokoll");
    EXPECT_NE(menuText("preferences"), englishMenu);
    EXPECT_EQ(menuText("preferences"), "Einstellungen …");

    // Start at login writes the autostart entry; off removes it.
    QCheckBox* startAtLogin = preferences.generalPage()->startAtLoginBox();
    QTest::mouseClick(startAtLogin, Qt::LeftButton);
    EXPECT_TRUE(VHIntegrationInstaller::autostartInstalled());
    QTest::mouseClick(startAtLogin, Qt::LeftButton);
    EXPECT_FALSE(VHIntegrationInstaller::autostartInstalled());

    // Screenshots: a read-only share is refused with the alert; a folder of a
    // writable share is stored as share id and path.
    preferences.showTab(VHPreferencesWindow::kScreenshots);
    VHScreenshotPage* page = preferences.screenshotPage();
    QTest::mouseClick(page->uploadBox(), Qt::LeftButton);
    EXPECT_TRUE(VHSettings::boolean("Varnholt.getUploadScreenshots"));
    QTest::mouseClick(page->linkBox(), Qt::LeftButton);
    EXPECT_TRUE(VHSettings::boolean("Varnholt.getCreateScreenshotLink"));
    ASSERT_TRUE(VHWaitUntil([] { return knows("/Team Documents/Projects"); }));
    auto choose = [&](const QString& path) {
        QTest::mouseClick(page->chooseButton(), Qt::LeftButton);
        VHFolderPicker* picker = page->picker();
        if (!picker) return false;
        QTreeWidgetItem* item = picker->itemWithPath(path);
        if (!item) return false;
        picker->tree()->setCurrentItem(item);
        QTest::mouseClick(picker->chooseButton(), Qt::LeftButton);
        return true;
    };
    std::shared_ptr<QString> alert = VHAnswerNextDialog("OK");
    ASSERT_TRUE(choose("Company Handbook"));
    EXPECT_TRUE(alert->startsWith("Ungültiger Pfad\n")) << alert->toStdString();
    EXPECT_FALSE(VHSettings::contains("Varnholt.getUploadScreenshotsPath"));
    ASSERT_TRUE(choose("Team Documents/Projects"));
    EXPECT_EQ(VHSettings::string("Varnholt.getUploadScreenshotsPath"), "team-documents/Projects");
    EXPECT_EQ(page->folderLabel()->text(), "Team Documents/Projects");

    // Signing out asks, forgets the password, removes the drive and shows
    // the sign-in window again.
    preferences.showTab(VHPreferencesWindow::kAccount);
    std::shared_ptr<QString> confirmation = VHAnswerNextDialog("Abmelden");
    QTest::mouseClick(preferences.accountPage()->signOutButton(), Qt::LeftButton);
    EXPECT_TRUE(confirmation->startsWith("Von Varnholt abmelden?")) << confirmation->toStdString();
    EXPECT_FALSE(VHConnector::defaultConnector().credentialsAvailable());
    EXPECT_TRUE(signIn.isVisible());
    EXPECT_EQ(menuText("account"), "Nicht angemeldet");
    EXPECT_TRUE(VHWaitUntil([] { return !VHApplicationDelegate::delegate().driveRunning(); }));
}

}  // namespace
}  // namespace vh::test
