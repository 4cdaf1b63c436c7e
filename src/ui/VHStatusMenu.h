// The tray icon (StatusNotifierItem where the desktop has a host) and its
// menu: the account, the shares (each opens its folder), the transfers, and
// the commands. The icon tells idle, syncing, offline and error apart.
//
// Main thread only. The menu is rebuilt from the store (never from the drive)
// when it is about to show, when the sign-in state changes and when the
// transfers change.
#pragma once

#include <QAction>
#include <QIcon>
#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <memory>

namespace vh {

class VHTransferMonitor;

class VHStatusMenu : public QObject {
    Q_OBJECT
  public:
    enum class State { Idle, Syncing, Offline, Error };

    explicit VHStatusMenu(VHTransferMonitor& transfers, QObject* parent = nullptr);
    ~VHStatusMenu() override;

    QMenu* menu() { return menu_.get(); }
    QSystemTrayIcon& trayIcon() { return tray_; }
    State state() const { return state_; }
    static QIcon iconFor(State state);

    // Rebuilds the menu and the icon from the current state.
    void refresh();

  signals:
    void progressRequested();
    void preferencesRequested();
    void logRequested();

  private:
    void build();
    void retranslate();
    void addShares();
    void addTransfers();
    void updateTransfers();
    void updateState();
    QAction* addCommand(const QString& text, const QString& name, void (VHStatusMenu::*slot)());
    void openDrive();
    void openWebClient();
    void showProgress() { emit progressRequested(); }
    void showPreferences() { emit preferencesRequested(); }
    void showLog() { emit logRequested(); }
    void togglePause();
    void quit();

    VHTransferMonitor& transfers_;
    std::unique_ptr<QMenu> menu_;
    QSystemTrayIcon tray_;
    State state_ = State::Offline;
    bool online_ = false;   // the last sign-in reached the service
    bool refused_ = false;  // the service refused the credentials
};

}  // namespace vh
