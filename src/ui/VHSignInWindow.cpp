#include "ui/VHSignInWindow.h"

#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHLocalization.h"
#include "lib/VHAppInfo.h"
#include "service/VHConnector.h"
#include "ui/VHWindows.h"

namespace vh {

namespace {

QString signingIn() {
    return VHLocalizedString("Signing in…");
}

QString unreachableText(const QString& error) {
    if (error.isEmpty())
        return VHLocalizedString(
            "The service did not complete the sign-in. Trying again every minute.");
    return VHLocalizedString("Cannot reach the service (%1). Trying again every minute.")
        .arg(error);
}

}  // namespace

VHSignInWindow::VHSignInWindow(QWidget* parent) : QDialog(parent) {
    setObjectName("signInWindow");
    setWindowIcon(VHWindows::appIcon());
    heading_ = new QLabel;
    heading_->setObjectName("heading");
    heading_->setWordWrap(true);
    QFont font = heading_->font();
    font.setPointSizeF(font.pointSizeF() * 1.3);
    font.setBold(true);
    heading_->setFont(font);
    email_ = new QLineEdit;
    email_->setObjectName("email");
    password_ = new QLineEdit;
    password_->setObjectName("password");
    password_->setEchoMode(QLineEdit::Password);
    emailLabel_ = new QLabel;
    passwordLabel_ = new QLabel;
    message_ = new QLabel;
    message_->setObjectName("message");
    message_->setWordWrap(true);
    message_->setMinimumHeight(message_->fontMetrics().height() * 3);
    message_->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    signIn_ = new QPushButton;
    signIn_->setObjectName("signIn");
    signIn_->setDefault(true);

    auto* form = new QFormLayout;
    form->addRow(emailLabel_, email_);
    form->addRow(passwordLabel_, password_);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(signIn_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading_);
    layout->addSpacing(8);
    layout->addLayout(form);
    layout->addWidget(message_);
    layout->addLayout(buttons);
    setMinimumWidth(440);

    connect(signIn_, &QPushButton::clicked, this, &VHSignInWindow::submit);
    connect(email_, &QLineEdit::textChanged, this, &VHSignInWindow::updateButton);
    connect(password_, &QLineEdit::textChanged, this, &VHSignInWindow::updateButton);
    VHConnector& connector = VHConnector::defaultConnector();
    connect(&connector, &VHConnector::globalLoggedIn, this, &VHSignInWindow::accepted);
    connect(&connector, &VHConnector::globalConnectionFailed, this, &VHSignInWindow::unreachable);
    retranslate();
    updateButton();
}

void VHSignInWindow::ask(const QString& refusal) {
    waiting_ = false;
    if (email_->text().isEmpty())
        email_->setText(QString::fromStdString(VHConnector::defaultConnector().username()));
    password_->clear();
    if (refusal.isEmpty()) {
        showMessage({}, false);
    } else {
        showMessage([refusal] { return refusalText(refusal); }, true);
    }
    updateButton();
    show();
    raise();
    activateWindow();
    (email_->text().isEmpty() ? email_ : password_)->setFocus();
}

QString VHSignInWindow::refusalText(const QString& reason) {
    if (reason == VHConnector::kRefusedCredentials)
        return VHLocalizedString(
            "The e-mail address or the password is wrong (U101). Check both and try again.");
    if (reason == VHConnector::kRefusedDevice)
        return VHLocalizedString(
            "The service does not accept this computer (U107). Ask your administrator to allow "
            "it, then sign in again.");
    if (reason == VHConnector::kRefusedWipe)
        return VHLocalizedString(
            "The service ordered the data of this computer to be deleted. Sign in again to start "
            "afresh.");
    return VHLocalizedString("The service refused the sign-in: %1").arg(reason);
}

void VHSignInWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QDialog::changeEvent(event);
}

void VHSignInWindow::retranslate() {
    setWindowTitle(VHLocalizedString("Sign in to %1").arg(kAppTitle));
    heading_->setText(VHLocalizedString("Sign in to %1").arg(kAppTitle));
    emailLabel_->setText(VHLocalizedString("E-mail address:"));
    passwordLabel_->setText(VHLocalizedString("Password:"));
    signIn_->setText(VHLocalizedString("Sign In"));
    message_->setText(messageText_ ? messageText_() : QString());
}

void VHSignInWindow::submit() {
    std::string user = email_->text().trimmed().toStdString();
    std::string password = password_->text().toStdString();
    if (user.empty() || password.empty()) return;
    waiting_ = true;
    showMessage(signingIn, false);
    updateButton();
    VHApplicationDelegate::delegate().signIn(user, password);
}

void VHSignInWindow::showMessage(std::function<QString()> text, bool error) {
    messageText_ = std::move(text);
    message_->setText(messageText_ ? messageText_() : QString());
    message_->setStyleSheet(error ? "color: #c6262e;" : "");
}

void VHSignInWindow::accepted() {
    waiting_ = false;
    password_->clear();
    showMessage({}, false);
    hide();
}

void VHSignInWindow::unreachable(const QString& error) {
    if (!waiting_) return;
    waiting_ = false;
    showMessage([error] { return unreachableText(error); }, true);
    updateButton();
}

void VHSignInWindow::updateButton() {
    signIn_->setEnabled(!waiting_ && !email_->text().trimmed().isEmpty() &&
                        !password_->text().isEmpty());
}

}  // namespace vh
