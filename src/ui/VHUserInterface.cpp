#include "ui/VHUserInterface.h"

#include "desktop/VHApplicationDelegate.h"
#include "ui/VHLogWindow.h"
#include "ui/VHPreferencesWindow.h"
#include "ui/VHProgressWindow.h"
#include "ui/VHSignInWindow.h"
#include "ui/VHStatusMenu.h"
#include "ui/VHTransferMonitor.h"

namespace vh {

namespace {

template <typename Window>
Window& raised(Window& window) {
    window.show();
    window.raise();
    window.activateWindow();
    return window;
}

}  // namespace

VHUserInterface::VHUserInterface()
    : transfers_(std::make_unique<VHTransferMonitor>()),
      statusMenu_(std::make_unique<VHStatusMenu>(*transfers_)) {
    connect(&VHApplicationDelegate::delegate(), &VHApplicationDelegate::loginRequested, this,
            [this](const QString& refusal) { showSignIn(refusal); });
    connect(statusMenu_.get(), &VHStatusMenu::preferencesRequested, this,
            [this] { showPreferences(); });
    connect(statusMenu_.get(), &VHStatusMenu::progressRequested, this, [this] { showProgress(); });
    connect(statusMenu_.get(), &VHStatusMenu::logRequested, this, [this] { showLog(); });
}

VHUserInterface::~VHUserInterface() = default;

VHSignInWindow& VHUserInterface::showSignIn(const QString& refusal) {
    if (!signIn_) signIn_ = std::make_unique<VHSignInWindow>();
    signIn_->ask(refusal);
    return *signIn_;
}

VHPreferencesWindow& VHUserInterface::showPreferences() {
    if (!preferences_) {
        preferences_ = std::make_unique<VHPreferencesWindow>();
        connect(preferences_.get(), &VHPreferencesWindow::signInRequested, this,
                [this] { showSignIn(); });
    }
    return raised(*preferences_);
}

VHProgressWindow& VHUserInterface::showProgress() {
    if (!progress_) progress_ = std::make_unique<VHProgressWindow>(*transfers_);
    return raised(*progress_);
}

VHLogWindow& VHUserInterface::showLog() {
    if (!log_) log_ = std::make_unique<VHLogWindow>();
    return raised(*log_);
}

}  // namespace vh
