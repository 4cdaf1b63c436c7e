#include "ui/VHPreferencesWindow.h"

#include <QEvent>
#include <QTabWidget>
#include <QVBoxLayout>

#include "desktop/VHLocalization.h"
#include "lib/VHAppInfo.h"
#include "ui/VHAccountPage.h"
#include "ui/VHCachePage.h"
#include "ui/VHGeneralPage.h"
#include "ui/VHScreenshotPage.h"
#include "ui/VHWindows.h"

namespace vh {

VHPreferencesWindow::VHPreferencesWindow(QWidget* parent) : QWidget(parent, Qt::Window) {
    setObjectName("preferencesWindow");
    setWindowIcon(VHWindows::appIcon());
    tabs_ = new QTabWidget;
    tabs_->setObjectName("tabs");
    account_ = new VHAccountPage;
    general_ = new VHGeneralPage;
    cache_ = new VHCachePage;
    screenshots_ = new VHScreenshotPage;
    tabs_->addTab(account_, QString());
    tabs_->addTab(general_, QString());
    tabs_->addTab(cache_, QString());
    tabs_->addTab(screenshots_, QString());
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(tabs_);
    resize(560, 230);
    connect(account_, &VHAccountPage::signInRequested, this, &VHPreferencesWindow::signInRequested);
    retranslate();
}

void VHPreferencesWindow::showTab(Tab tab) {
    tabs_->setCurrentIndex(tab);
    show();
    raise();
    activateWindow();
}

void VHPreferencesWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QWidget::changeEvent(event);
}

void VHPreferencesWindow::retranslate() {
    setWindowTitle(VHLocalizedString("%1 Preferences").arg(kAppTitle));
    tabs_->setTabText(kAccount, VHLocalizedString("Account"));
    tabs_->setTabText(kGeneral, VHLocalizedString("General"));
    tabs_->setTabText(kCache, VHLocalizedString("Cache"));
    tabs_->setTabText(kScreenshots, VHLocalizedString("Screenshots"));
}

}  // namespace vh
