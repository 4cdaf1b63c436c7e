#include "desktop/VHDesktopServices.h"

#include <QApplication>
#include <QClipboard>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>

#include "desktop/VHLocalization.h"
#include "lib/VHLog.h"

namespace vh {

namespace {

QString q(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

void VHDesktopServices::postDistributedNotification(const std::string& name) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    // D-Bus member names may not hold "." or "-": the name travels as the argument.
    QDBusMessage signal = QDBusMessage::createSignal("/com/varnholt/Varnholt",
                                                     "com.varnholt.Varnholt", "Notification");
    signal << q(name);
    bus.send(signal);
}

bool VHDesktopServices::openURL(const std::string& url) {
    if (QProcess::startDetached("xdg-open", {q(url)})) return true;
    VHLog(kLogMain, "Warning! Cannot start xdg-open to open an address.");
    return false;
}

bool VHDesktopServices::copyToClipboard(const std::string& text) {
    if (!hasGui()) return false;
    QApplication::clipboard()->setText(q(text));
    return true;
}

bool VHDesktopServices::hasGui() {
    return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr;
}

void VHDesktopServices::showAlert(const std::string& title, const std::string& message) {
    if (hasGui()) {
        // The dialog may sit behind other windows: the notification is seen.
        QString shownTitle = VHLocalizedString(title);
        QString shownMessage = VHLocalizedString(message);
        notify(shownTitle.toStdString(), shownMessage.toStdString());
        QMessageBox box(QMessageBox::Warning, shownTitle, shownMessage);
        box.addButton(VHLocalizedString("Ok"), QMessageBox::AcceptRole);
        box.exec();
        return;
    }
    VHLog(kLogMain, "%@ : %@", title, message);
    notify(title, message);
}

bool VHDesktopServices::askQuestion(const std::string& title, const std::string& message,
                                    const std::string& acceptButton,
                                    const std::string& rejectButton, bool headlessAnswer) {
    if (!hasGui()) {
        VHLog(kLogMain, "%@ : %@", title, message);
        return headlessAnswer;
    }
    QMessageBox box(QMessageBox::Question, q(title), q(message));
    QPushButton* accept = box.addButton(q(acceptButton), QMessageBox::AcceptRole);
    box.addButton(q(rejectButton), QMessageBox::RejectRole);
    box.exec();
    return box.clickedButton() == accept;
}

void VHDesktopServices::notify(const std::string& title, const std::string& body) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    QDBusInterface notifications("org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                 "org.freedesktop.Notifications", bus);
    notifications.asyncCall("Notify", QString("Varnholt"), 0u, QString(), q(title), q(body),
                            QStringList(), QVariantMap(), -1);
}

}  // namespace vh
