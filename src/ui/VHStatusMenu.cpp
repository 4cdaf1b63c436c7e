#include "ui/VHStatusMenu.h"

#include <algorithm>

#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHLocalization.h"
#include "lib/VHAppInfo.h"
#include "lib/VHNameRules.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHUploadQueue.h"
#include "ui/VHTransferMonitor.h"

namespace vh {

namespace {

QAction* addInfo(QMenu& menu, const QString& text, const char* name) {
    QAction* action = menu.addAction(text);
    action->setEnabled(false);
    action->setObjectName(name);
    return action;
}

bool transfersPaused() {
    return VHUploadQueue::uploadQueue().paused();
}

}  // namespace

VHStatusMenu::VHStatusMenu(VHTransferMonitor& transfers, QObject* parent)
    : QObject(parent), transfers_(transfers), menu_(std::make_unique<QMenu>()) {
    menu_->setObjectName("statusMenu");
    connect(menu_.get(), &QMenu::aboutToShow, this, &VHStatusMenu::refresh);
    connect(&transfers_, &VHTransferMonitor::changed, this, &VHStatusMenu::refresh);
    connect(&VHLocalization::instance(), &VHLocalization::languageChanged, this,
            &VHStatusMenu::refresh);
    VHConnector& connector = VHConnector::defaultConnector();
    connect(&connector, &VHConnector::globalLoggedIn, this, [this] {
        online_ = true;
        refused_ = false;
        refresh();
    });
    connect(&connector, &VHConnector::domainsLoggedIn, this, &VHStatusMenu::refresh);
    connect(&connector, &VHConnector::globalConnectionFailed, this, [this] {
        online_ = false;
        refresh();
    });
    connect(&connector, &VHConnector::globalLoginFailed, this, [this] {
        online_ = false;
        refused_ = true;
        refresh();
    });
    connect(&connector, &VHConnector::globalLoggedOut, this, [this] {
        online_ = false;
        refresh();
    });
    tray_.setContextMenu(menu_.get());
    // Left-clicking the icon shows the same menu.
    connect(&tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason r) {
        if (r == QSystemTrayIcon::Trigger) menu_->popup(QCursor::pos());
    });
    refresh();
    tray_.show();
}

VHStatusMenu::~VHStatusMenu() = default;

QIcon VHStatusMenu::iconFor(State state) {
    switch (state) {
        case State::Idle:
            return QIcon(":/tray/varnholt-idle.svg");
        case State::Syncing:
            return QIcon(":/tray/varnholt-syncing.svg");
        case State::Offline:
            return QIcon(":/tray/varnholt-offline.svg");
        case State::Error:
            return QIcon(":/tray/varnholt-error.svg");
    }
    return QIcon();
}

void VHStatusMenu::refresh() {
    updateState();
    // An open menu keeps its items under the pointer; only texts change.
    if (menu_->isVisible()) {
        updateTransfers();
    } else {
        build();
    }
}

void VHStatusMenu::updateState() {
    State state = State::Offline;
    if (refused_) {
        state = State::Error;
    } else if (online_ && transfers_.active() && !transfersPaused()) {
        state = State::Syncing;
    } else if (online_) {
        state = State::Idle;
    }
    if (state == state_ && !tray_.icon().isNull()) return;
    state_ = state;
    tray_.setIcon(iconFor(state));
}

void VHStatusMenu::build() {
    QMenu& menu = *menu_;
    menu.clear();
    VHConnector& connector = VHConnector::defaultConnector();
    // Signing out keeps the user name for the next sign-in, not the password.
    bool signedIn = connector.credentialsAvailable();
    QString account =
        signedIn
            ? VHLocalizedString("Signed in as %1").arg(QString::fromStdString(connector.username()))
            : VHLocalizedString("Not signed in");
    if (state_ == State::Offline && signedIn) account += " " + VHLocalizedString("(offline)");
    if (state_ == State::Error)
        account = VHLocalizedString("Sign-in refused: please sign in again");
    addInfo(menu, account, "account");
    menu.addSeparator();
    addShares();
    menu.addSeparator();
    addTransfers();
    menu.addSeparator();
    addCommand(VHLocalizedString("Open Varnholt Drive"), "openDrive", &VHStatusMenu::openDrive);
    addCommand(VHLocalizedString("Open Web Client"), "openWebClient", &VHStatusMenu::openWebClient)
        ->setEnabled(online_);
    addCommand(VHLocalizedString("Transfers…"), "progress", &VHStatusMenu::showProgress);
    addCommand(VHLocalizedString("Preferences…"), "preferences", &VHStatusMenu::showPreferences);
    addCommand(VHLocalizedString("Log…"), "log", &VHStatusMenu::showLog);
    QAction* pause =
        addCommand(VHLocalizedString("Pause Transfers"), "pause", &VHStatusMenu::togglePause);
    pause->setCheckable(true);
    pause->setChecked(transfersPaused());
    menu.addSeparator();
    addCommand(VHLocalizedString("Quit Varnholt"), "quit", &VHStatusMenu::quit);
    tray_.setToolTip(QString(kAppTitle) + " — " + account);
}

void VHStatusMenu::addShares() {
    std::vector<ManagedShare> shares = VHDatabase::database().shares();
    shares.erase(std::remove_if(shares.begin(), shares.end(),
                                [](const ManagedShare& share) {
                                    return share.ShareId.value_or("") == kTempShareId;
                                }),
                 shares.end());
    std::sort(shares.begin(), shares.end(), [](const ManagedShare& a, const ManagedShare& b) {
        return QString::fromStdString(a.displayName())
                   .localeAwareCompare(QString::fromStdString(b.displayName())) < 0;
    });
    if (shares.empty()) {
        addInfo(*menu_, VHLocalizedString("No shares"), "noShares");
        return;
    }
    addInfo(*menu_, VHLocalizedString("Shares"), "sharesTitle");
    for (const ManagedShare& share : shares) {
        QAction* action = menu_->addAction(QIcon::fromTheme("folder-remote"),
                                           QString::fromStdString(share.displayName()));
        action->setObjectName(QString::fromStdString("share:" + share.ShareId.value_or("")));
        connect(action, &QAction::triggered, this,
                [share] { VHApplicationDelegate::delegate().openShareFolder(share); });
    }
}

void VHStatusMenu::addTransfers() {
    for (const char* name : {"paused", "upToDate", "uploads", "downloads"}) {
        addInfo(*menu_, QString(), name);
    }
    updateTransfers();
}

void VHStatusMenu::updateTransfers() {
    const VHTransferMonitor::Totals& totals = transfers_.totals();
    bool paused = transfersPaused();
    QString up = VHTransferMonitor::uploadLine(totals);
    QString down = VHTransferMonitor::downloadLine(totals);
    QString upToDate = up.isEmpty() && down.isEmpty() && !paused
                           ? VHLocalizedString("All files are up to date")
                           : QString();
    QString pausedText = paused ? VHLocalizedString("Transfers paused") : QString();
    for (auto [name, text] : {std::pair{"paused", pausedText}, std::pair{"upToDate", upToDate},
                              std::pair{"uploads", up}, std::pair{"downloads", down}}) {
        if (QAction* action = menu_->findChild<QAction*>(name)) {
            action->setText(text);
            action->setVisible(!text.isEmpty());
        }
    }
}

QAction* VHStatusMenu::addCommand(const QString& text, const QString& name,
                                  void (VHStatusMenu::*slot)()) {
    QAction* action = menu_->addAction(text);
    action->setObjectName(name);
    connect(action, &QAction::triggered, this, slot);
    return action;
}

void VHStatusMenu::openDrive() {
    VHApplicationDelegate::delegate().openRootFolder();
}

void VHStatusMenu::openWebClient() {
    VHConnector::defaultConnector().openWebClient();
}

void VHStatusMenu::togglePause() {
    bool paused = !transfersPaused();
    VHUploadQueue::uploadQueue().setPaused(paused);
    VHDownloadQueue::downloadQueue().setPaused(paused);
    refresh();
}

void VHStatusMenu::quit() {
    VHApplicationDelegate::delegate().applicationShouldTerminate();
}

}  // namespace vh
