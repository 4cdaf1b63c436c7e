// Preferences, account: who is signed in, and signing out (after asking).
// Main thread only.
#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace vh {

class VHAccountPage : public QWidget {
    Q_OBJECT
  public:
    explicit VHAccountPage(QWidget* parent = nullptr);

    QPushButton* signOutButton() const { return signOut_; }
    void refresh();

  signals:
    void signInRequested();

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void clicked();

    QLabel* userLabel_;
    QLabel* user_;
    QLabel* note_;
    QPushButton* signOut_;
};

}  // namespace vh
