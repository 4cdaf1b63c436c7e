#include "VHUiTestSupport.h"

#include "VHXvfb.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>
#include <cstdlib>

#include "desktop/VHApplicationDelegate.h"
#include "emulator/support/VHEmulatorProcess.h"
#include "ui/VHSignInWindow.h"
#include "ui/VHStatusMenu.h"
#include "ui/VHUserInterface.h"

namespace vh::test {

namespace {

std::string gSkipReason;

}  // namespace

const std::string& VHUiSkipReason() {
    return gSkipReason;
}

void VHUseDisplay(bool wanted) {
    // Never the user's keyring or desktop: credentials go to the 0600 file.
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    unsetenv("WAYLAND_DISPLAY");
    static VHXvfb* xvfb = new VHXvfb;  // lives until the process ends
    if (wanted && xvfb->start(gSkipReason)) {
        setenv("DISPLAY", xvfb->display().c_str(), 1);
        setenv("QT_QPA_PLATFORM", "xcb", 1);
    } else {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }
}

bool VHWaitUntil(const std::function<bool()>& condition, int ms) {
    return QTest::qWaitFor(condition, ms);
}

std::shared_ptr<QString> VHAnswerNextDialog(const QString& button) {
    auto seen = std::make_shared<QString>();
    auto* poll = new QTimer(qApp);
    QObject::connect(poll, &QTimer::timeout, [poll, seen, button] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box) return;
        *seen = box->windowTitle() + "\n" + box->text();
        for (QAbstractButton* candidate : box->buttons()) {
            if (candidate->text() == button) candidate->click();
        }
        poll->stop();
        poll->deleteLater();
    });
    poll->start(50);
    return seen;
}

QAction* VHMenuItem(QMenu* menu, const QString& name) {
    for (QAction* action : menu->actions()) {
        if (action->objectName() == name && action->isVisible()) return action;
    }
    return nullptr;
}

std::vector<std::pair<std::string, QString>> VHShownTexts(QWidget* window) {
    std::vector<std::pair<std::string, QString>> texts = {{"title", window->windowTitle()}};
    auto key = [](QObject* object, const char* part, int index) {
        return std::to_string(reinterpret_cast<uintptr_t>(object)) + part + std::to_string(index);
    };
    for (QLabel* label : window->findChildren<QLabel*>())
        texts.push_back({key(label, "label", 0), label->text()});
    for (QAbstractButton* button : window->findChildren<QAbstractButton*>())
        texts.push_back({key(button, "button", 0), button->text()});
    for (QTabWidget* tabs : window->findChildren<QTabWidget*>()) {
        for (int i = 0; i < tabs->count(); ++i)
            texts.push_back({key(tabs, "tab", i), tabs->tabText(i)});
    }
    for (QComboBox* box : window->findChildren<QComboBox*>()) {
        for (int i = 0; i < box->count(); ++i)
            texts.push_back({key(box, "item", i), box->itemText(i)});
    }
    for (QTreeWidget* tree : window->findChildren<QTreeWidget*>()) {
        QTreeWidgetItem* header = tree->headerItem();
        for (int i = 0; i < header->columnCount(); ++i)
            texts.push_back({key(tree, "header", i), header->text(i)});
    }
    return texts;
}

VHUiClient::VHUiClient(const VHEmulatorProcess& emulator) {
    setenv("VARNHOLT_CONNECT_TO", emulator.connectTo().c_str(), 1);
    setenv("VARNHOLT_CA_FILE", emulator.caFile().c_str(), 1);
    setenv("VARNHOLT_GLOBAL_ADDRESS", "global.varnholt.test", 1);
    // The order of main(): the windows come after the data folders and the
    // log, before the start-up that may ask for a sign-in.
    VHApplicationDelegate& delegate = VHApplicationDelegate::delegate();
    delegate.applicationWillFinishLaunching();
    ui_ = std::make_unique<VHUserInterface>();
    delegate.applicationDidFinishLaunching(false);
}

VHUiClient::~VHUiClient() {
    // The drive goes with the test's HOME; the process ends without waiting.
    VHApplicationDelegate::delegate().stopFuse();
}

void VHUiClient::typeCredentials(const QString& email, const QString& password) {
    VHSignInWindow* window = ui_->signInWindow();
    window->emailField()->clear();
    QTest::keyClicks(window->emailField(), email);
    window->passwordField()->clear();
    QTest::keyClicks(window->passwordField(), password);
    QTest::mouseClick(window->signInButton(), Qt::LeftButton);
}

bool VHUiClient::signIn() {
    if (!ui_->signInWindow() || !ui_->signInWindow()->isVisible()) return false;
    typeCredentials("demo@varnholt.test", "demo");
    return VHWaitUntil(
        [this] { return VHMenuItem(ui_->statusMenu().menu(), "share:team-documents"); });
}

}  // namespace vh::test
