// Preferences, screenshots: whether new screenshots are uploaded, the folder
// on the drive they go to, and whether a public link is put on the
// clipboard. Only the settings are kept here; the uploader reads them.
//
// Main thread only.
#pragma once

#include <QPointer>
#include <QWidget>

#include "ui/VHFolderPicker.h"
#include "ui/VHScreenshotTarget.h"

class QCheckBox;
class QLabel;
class QPushButton;

namespace vh {

class VHScreenshotPage : public QWidget {
    Q_OBJECT
  public:
    explicit VHScreenshotPage(QWidget* parent = nullptr);

    QCheckBox* uploadBox() const { return upload_; }
    QCheckBox* linkBox() const { return link_; }
    QPushButton* chooseButton() const { return choose_; }
    QLabel* folderLabel() const { return folder_; }
    // The picker while it is open.
    VHFolderPicker* picker() const { return picker_; }
    // Stores the folder, unless it is read-only (then the user is told and
    // the setting stays). Whether it was stored.
    bool setTarget(const VHScreenshotTarget& target);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void openPicker();
    void store(const char* key, bool on);

    QCheckBox* upload_;
    QLabel* folderLabel_;
    QLabel* folder_;
    QPushButton* choose_;
    QCheckBox* link_;
    QPointer<VHFolderPicker> picker_;
};

}  // namespace vh
