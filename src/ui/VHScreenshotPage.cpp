#include "ui/VHScreenshotPage.h"

#include <QCheckBox>
#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "desktop/VHDesktopServices.h"
#include "desktop/VHLocalization.h"
#include "lib/VHSettings.h"
#include "ui/VHFolderPicker.h"

namespace vh {

namespace {

std::string key(const char* name) {
    return VHSettings::prependAppTitle(name);
}

}  // namespace

VHScreenshotPage::VHScreenshotPage(QWidget* parent) : QWidget(parent) {
    setObjectName("screenshotPage");
    upload_ = new QCheckBox;
    upload_->setObjectName("uploadScreenshots");
    upload_->setChecked(VHSettings::boolean(key(VHScreenshotTarget::kUploadKey)));
    folderLabel_ = new QLabel;
    folder_ = new QLabel;
    folder_->setObjectName("folder");
    folder_->setWordWrap(true);
    choose_ = new QPushButton;
    choose_->setObjectName("chooseFolder");
    link_ = new QCheckBox;
    link_->setObjectName("createLink");
    link_->setChecked(VHSettings::boolean(key(VHScreenshotTarget::kLinkKey)));
    auto* grid = new QGridLayout;
    grid->addWidget(folderLabel_, 0, 0);
    grid->addWidget(folder_, 0, 1);
    grid->addWidget(choose_, 0, 2);
    grid->setColumnStretch(1, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(upload_);
    layout->addLayout(grid);
    layout->addWidget(link_);
    layout->addStretch();
    connect(upload_, &QCheckBox::toggled, this,
            [this](bool on) { store(VHScreenshotTarget::kUploadKey, on); });
    connect(link_, &QCheckBox::toggled, this,
            [this](bool on) { store(VHScreenshotTarget::kLinkKey, on); });
    connect(choose_, &QPushButton::clicked, this, &VHScreenshotPage::openPicker);
    retranslate();
}

void VHScreenshotPage::store(const char* name, bool on) {
    VHSettings::setValue(key(name), on);
    VHSettings::sync();
}

void VHScreenshotPage::openPicker() {
    if (picker_ && picker_->isVisible()) return;
    picker_ = new VHFolderPicker(this);
    connect(picker_, &VHFolderPicker::chosen, this, &VHScreenshotPage::setTarget);
    connect(picker_, &QDialog::finished, picker_, &QObject::deleteLater);
    picker_->open();
}

bool VHScreenshotPage::setTarget(const VHScreenshotTarget& target) {
    if (target.readOnly()) {
        VHDesktopServices::showAlert(
            "Invalid path",
            "You cannot save screenshoots in a readonly folder. Please select another location!");
        return false;
    }
    VHSettings::setValue(key(VHScreenshotTarget::kPathKey),
                         QString::fromStdString(target.stored()));
    VHSettings::sync();
    retranslate();
    return true;
}

void VHScreenshotPage::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QWidget::changeEvent(event);
}

void VHScreenshotPage::retranslate() {
    upload_->setText(VHLocalizedString("Upload new screenshots to the drive"));
    folderLabel_->setText(VHLocalizedString("Folder:"));
    auto target = VHScreenshotTarget::parse(VHSettings::string(key(VHScreenshotTarget::kPathKey)));
    folder_->setText(target ? target->displayPath() : VHLocalizedString("None chosen"));
    choose_->setText(VHLocalizedString("Choose…"));
    link_->setText(VHLocalizedString("Copy a public link to the clipboard"));
}

}  // namespace vh
