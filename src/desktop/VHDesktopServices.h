// The desktop around the application: notifications to other processes
// (D-Bus signals on the session bus) and messages the user must see
// (a dialog when a window system runs; otherwise the log at level 0 and a
// desktop notification). Everything is skipped quietly where no session bus
// exists. Main thread only.
#pragma once

#include <string>

namespace vh {

class VHDesktopServices {
  public:
    // Emits the signal `name` (e.g. "com.varnholt.drive-mounted") on the
    // session bus, from the object path /com/varnholt/Varnholt.
    static void postDistributedNotification(const std::string& name);
    // Shows a message with one "Ok" button, and a notification; texts that
    // are translation keys show in the interface language. Headless: logged
    // and notified, untranslated.
    static void showAlert(const std::string& title, const std::string& message);
    // Asks a question (texts as given); headless runs cannot ask and get
    // `headlessAnswer`.
    static bool askQuestion(const std::string& title, const std::string& message,
                            const std::string& acceptButton, const std::string& rejectButton,
                            bool headlessAnswer);
    // A desktop notification (org.freedesktop.Notifications).
    static void notify(const std::string& title, const std::string& body);
    // Hands `url` to the desktop's opener (xdg-open) without waiting for it;
    // false when it cannot be started. The address is not logged: a direct
    // link in it signs in.
    static bool openURL(const std::string& url);
    // Puts `text` on the clipboard; false where there is none (headless).
    static bool copyToClipboard(const std::string& text);
    // Whether dialogs can be shown (a GUI application runs).
    static bool hasGui();
};

}  // namespace vh
