#include "ui/VHGeneralPage.h"

#include <QCheckBox>
#include <QComboBox>
#include <QEvent>
#include <QFormLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "desktop/VHDesktopServices.h"
#include "desktop/VHIntegrationInstaller.h"
#include "desktop/VHLocalization.h"
#include "lib/VHAppInfo.h"
#include "ui/VHWindows.h"

namespace vh {

VHGeneralPage::VHGeneralPage(QWidget* parent) : QWidget(parent) {
    setObjectName("generalPage");
    languageLabel_ = new QLabel;
    language_ = new QComboBox;
    language_->setObjectName("language");
    for (const std::string& code : VHLocalization::availableLanguages())
        language_->addItem(VHLocalization::nativeName(code), QString::fromStdString(code));
    language_->setCurrentIndex(
        language_->findData(QString::fromStdString(VHLocalization::language())));
    startAtLogin_ = new QCheckBox;
    startAtLogin_->setObjectName("startAtLogin");
    startAtLogin_->setChecked(VHIntegrationInstaller::autostartInstalled());
    auto* form = new QFormLayout;
    form->addRow(languageLabel_, language_);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(startAtLogin_);
    layout->addStretch();
    connect(language_, &QComboBox::activated, this, &VHGeneralPage::languageChosen);
    connect(startAtLogin_, &QCheckBox::toggled, this, &VHGeneralPage::startAtLoginToggled);
    retranslate();
}

void VHGeneralPage::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QWidget::changeEvent(event);
}

void VHGeneralPage::retranslate() {
    // The language may have changed elsewhere (another window, a test).
    language_->setCurrentIndex(
        language_->findData(QString::fromStdString(VHLocalization::language())));
    languageLabel_->setText(VHLocalizedString("Language:"));
    startAtLogin_->setText(VHLocalizedString("Start %1 when I log in").arg(kAppTitle));
}

void VHGeneralPage::languageChosen(int index) {
    std::string code = language_->itemData(index).toString().toStdString();
    if (code.empty() || code == VHLocalization::language()) return;
    VHLocalization::setLanguage(code);
}

void VHGeneralPage::startAtLoginToggled(bool on) {
    bool done = on ? VHIntegrationInstaller::installAutostart(VHWindows::programPath()).empty()
                   : VHIntegrationInstaller::removeAutostart();
    if (done) return;
    QSignalBlocker quiet(startAtLogin_);
    startAtLogin_->setChecked(VHIntegrationInstaller::autostartInstalled());
    VHDesktopServices::showAlert("Start at login", on ? "The autostart entry cannot be written."
                                                      : "The autostart entry cannot be removed.");
}

}  // namespace vh
