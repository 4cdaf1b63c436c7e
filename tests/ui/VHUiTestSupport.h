// What the window tests share: the display, waiting, modal dialogs, and a
// client signed in through the sign-in window against the emulator.
#pragma once

#include <QString>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class QAction;
class QMenu;
class QWidget;

namespace vh {
class VHUserInterface;
}

namespace vh::test {

class VHEmulatorProcess;

// Why the window tests cannot run here; empty when they can.
const std::string& VHUiSkipReason();
// Starts a private Xvfb display for the process and points Qt at it (else
// at the offscreen platform, with the reason kept for VHUiSkipReason). Call
// before the QApplication is made; the server lives until the process ends.
void VHUseDisplay(bool wanted);

// Runs the event loop until `condition` holds; false after `ms`.
bool VHWaitUntil(const std::function<bool()>& condition, int ms = 60000);

// The next message box that opens is answered with the button whose text is
// `button`; its title and text are kept here ("title\ntext").
std::shared_ptr<QString> VHAnswerNextDialog(const QString& button);

// The menu's visible item with that object name; null when none.
QAction* VHMenuItem(QMenu* menu, const QString& name);

// The texts a window shows, keyed by the widget and part that shows them:
// title, labels, buttons, tabs, combo box items, list headers.
std::vector<std::pair<std::string, QString>> VHShownTexts(QWidget* window);

// The in-process client: the delegate started with windows, pointed at the
// emulator, with no credentials stored.
class VHUiClient {
  public:
    explicit VHUiClient(const VHEmulatorProcess& emulator);
    ~VHUiClient();

    VHUserInterface& ui() { return *ui_; }
    // Types the credentials into the sign-in window and presses "Sign In".
    void typeCredentials(const QString& email, const QString& password);
    // Signs in with the demo account; true once the tray menu lists its shares.
    bool signIn();

  private:
    std::unique_ptr<VHUserInterface> ui_;
};

}  // namespace vh::test
