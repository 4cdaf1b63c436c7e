// Preferences, general: the interface language (changed at once, every open
// window follows) and start at login (the autostart entry).
// Main thread only.
#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;

namespace vh {

class VHGeneralPage : public QWidget {
    Q_OBJECT
  public:
    explicit VHGeneralPage(QWidget* parent = nullptr);

    QComboBox* languageBox() const { return language_; }
    QCheckBox* startAtLoginBox() const { return startAtLogin_; }

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void languageChosen(int index);
    void startAtLoginToggled(bool on);

    QLabel* languageLabel_;
    QComboBox* language_;
    QCheckBox* startAtLogin_;
};

}  // namespace vh
