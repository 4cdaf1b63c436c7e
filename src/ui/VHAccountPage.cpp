#include "ui/VHAccountPage.h"

#include <QEvent>
#include <QFormLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHLocalization.h"
#include "service/VHConnector.h"

namespace vh {

VHAccountPage::VHAccountPage(QWidget* parent) : QWidget(parent) {
    setObjectName("accountPage");
    userLabel_ = new QLabel;
    user_ = new QLabel;
    user_->setObjectName("user");
    user_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    note_ = new QLabel;
    note_->setWordWrap(true);
    signOut_ = new QPushButton;
    signOut_->setObjectName("signOut");
    auto* form = new QFormLayout;
    form->addRow(userLabel_, user_);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(note_);
    layout->addWidget(signOut_, 0, Qt::AlignLeft);
    layout->addStretch();
    connect(signOut_, &QPushButton::clicked, this, &VHAccountPage::clicked);
    VHConnector& connector = VHConnector::defaultConnector();
    connect(&connector, &VHConnector::globalLoggedIn, this, &VHAccountPage::refresh);
    connect(&connector, &VHConnector::globalLoggedOut, this, &VHAccountPage::refresh);
    retranslate();
}

void VHAccountPage::refresh() {
    retranslate();
}

void VHAccountPage::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QWidget::changeEvent(event);
}

void VHAccountPage::retranslate() {
    VHConnector& connector = VHConnector::defaultConnector();
    bool signedIn = connector.credentialsAvailable();
    userLabel_->setText(VHLocalizedString("Signed in as:"));
    user_->setText(signedIn ? QString::fromStdString(connector.username())
                            : VHLocalizedString("Not signed in"));
    note_->setText(VHLocalizedString(
        "Signing out removes the drive and deletes the downloaded files from this computer."));
    note_->setVisible(signedIn);
    signOut_->setText(signedIn ? VHLocalizedString("Sign Out…") : VHLocalizedString("Sign In…"));
}

void VHAccountPage::clicked() {
    if (!VHConnector::defaultConnector().credentialsAvailable()) {
        emit signInRequested();
        return;
    }
    if (VHApplicationDelegate::delegate().logoutAfterConfirmation()) refresh();
}

}  // namespace vh
