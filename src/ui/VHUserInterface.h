// The desktop application's face: the tray menu and the windows, made when
// first needed and kept. Created by main() for runs with a display, before
// start-up, so that it hears the delegate's requests to sign in.
//
// Main thread only. One instance; it owns every window it made.
#pragma once

#include <QObject>
#include <QPointer>
#include <memory>

namespace vh {

class VHLogWindow;
class VHPreferencesWindow;
class VHProgressWindow;
class VHSignInWindow;
class VHStatusMenu;
class VHTransferMonitor;

class VHUserInterface : public QObject {
    Q_OBJECT
  public:
    VHUserInterface();
    ~VHUserInterface() override;

    VHStatusMenu& statusMenu() { return *statusMenu_; }
    VHTransferMonitor& transfers() { return *transfers_; }

    // Each shows its window (making it the first time) and returns it.
    VHSignInWindow& showSignIn(const QString& refusal = QString());
    VHPreferencesWindow& showPreferences();
    VHProgressWindow& showProgress();
    VHLogWindow& showLog();

    // The windows made so far; null before.
    VHSignInWindow* signInWindow() const { return signIn_.get(); }
    VHPreferencesWindow* preferencesWindow() const { return preferences_.get(); }
    VHProgressWindow* progressWindow() const { return progress_.get(); }
    VHLogWindow* logWindow() const { return log_.get(); }

  private:
    std::unique_ptr<VHTransferMonitor> transfers_;
    std::unique_ptr<VHStatusMenu> statusMenu_;
    std::unique_ptr<VHSignInWindow> signIn_;
    std::unique_ptr<VHPreferencesWindow> preferences_;
    std::unique_ptr<VHProgressWindow> progress_;
    std::unique_ptr<VHLogWindow> log_;
};

}  // namespace vh
