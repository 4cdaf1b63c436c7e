// The transfers now running, each with its progress, and the totals still
// to go. Follows the transfer monitor.
// Main thread only.
#pragma once

#include <QWidget>

class QLabel;
class QTreeWidget;

namespace vh {

class VHTransferMonitor;

class VHProgressWindow : public QWidget {
    Q_OBJECT
  public:
    explicit VHProgressWindow(VHTransferMonitor& transfers, QWidget* parent = nullptr);

    QTreeWidget* list() const { return list_; }
    QLabel* summary() const { return summary_; }

  protected:
    void changeEvent(QEvent* event) override;

  private:
    void retranslate();
    void refresh();

    VHTransferMonitor& transfers_;
    QLabel* summary_;
    QTreeWidget* list_;
};

}  // namespace vh
