// The preferences window: account, general (language, start at login),
// cache and screenshots, one tab each.
// Main thread only.
#pragma once

#include <QWidget>

class QTabWidget;

namespace vh {

class VHAccountPage;
class VHCachePage;
class VHGeneralPage;
class VHScreenshotPage;

class VHPreferencesWindow : public QWidget {
    Q_OBJECT
  public:
    enum Tab { kAccount, kGeneral, kCache, kScreenshots };

    explicit VHPreferencesWindow(QWidget* parent = nullptr);

    void showTab(Tab tab);
    QTabWidget* tabs() const { return tabs_; }
    VHAccountPage* accountPage() const { return account_; }
    VHGeneralPage* generalPage() const { return general_; }
    VHCachePage* cachePage() const { return cache_; }
    VHScreenshotPage* screenshotPage() const { return screenshots_; }

  signals:
    void signInRequested();

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();

    QTabWidget* tabs_;
    VHAccountPage* account_;
    VHGeneralPage* general_;
    VHCachePage* cache_;
    VHScreenshotPage* screenshots_;
};

}  // namespace vh
