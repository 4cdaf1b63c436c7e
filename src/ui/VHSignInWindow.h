// The sign-in window: e-mail address and password, handed to the delegate,
// which stores them only once the service accepts them. Shows why the
// service refused a sign-in, or that it cannot be reached, in words.
//
// Main thread only. Hides itself once the service accepted the sign-in.
#pragma once

#include <QDialog>
#include <QString>
#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;

namespace vh {

class VHSignInWindow : public QDialog {
    Q_OBJECT
  public:
    explicit VHSignInWindow(QWidget* parent = nullptr);

    // Shows the window; `refusal` is the reason the connector gave (empty:
    // no credentials yet). The e-mail field holds the last user name.
    void ask(const QString& refusal);
    // The words shown for a reason of VHConnector::globalLoginFailed.
    static QString refusalText(const QString& reason);

    QLineEdit* emailField() const { return email_; }
    QLineEdit* passwordField() const { return password_; }
    QPushButton* signInButton() const { return signIn_; }
    QLabel* messageLabel() const { return message_; }

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void submit();
    // Shows what `text` gives now and again after each language change.
    void showMessage(std::function<QString()> text, bool error);
    void accepted();
    void unreachable(const QString& error);
    void updateButton();

    QLabel* heading_;
    QLabel* emailLabel_;
    QLabel* passwordLabel_;
    QLineEdit* email_;
    QLineEdit* password_;
    QLabel* message_;
    QPushButton* signIn_;
    bool waiting_ = false;
    std::function<QString()> messageText_;
};

}  // namespace vh
