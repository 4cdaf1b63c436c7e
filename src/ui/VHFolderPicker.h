// Chooses a folder on the drive: the shares, then their folders, as the
// store knows them (the drive itself is never listed). Window-modal and
// non-blocking: open() it and take chosen().
//
// Main thread only.
#pragma once

#include <QDialog>

#include "ui/VHScreenshotTarget.h"

class QLabel;
class QPushButton;
class QTreeWidget;
class QTreeWidgetItem;

namespace vh {

class VHFolderPicker : public QDialog {
    Q_OBJECT
  public:
    explicit VHFolderPicker(QWidget* parent = nullptr);

    QTreeWidget* tree() const { return tree_; }
    QPushButton* chooseButton() const { return choose_; }
    // The item of a share or a folder below it ("Team Documents/Projects");
    // its ancestors are expanded on the way. Null when there is none.
    QTreeWidgetItem* itemWithPath(const QString& displayPath);

  signals:
    void chosen(const vh::VHScreenshotTarget& target);

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void addShares();
    void expand(QTreeWidgetItem* item);
    void choose();

    QLabel* hint_;
    QTreeWidget* tree_;
    QPushButton* choose_;
    QPushButton* cancel_;
};

}  // namespace vh
