#include "ui/VHProgressWindow.h"

#include <QEvent>
#include <QHeaderView>
#include <QLabel>
#include <QProgressBar>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "desktop/VHLocalization.h"
#include "lib/VHAppInfo.h"
#include "ui/VHTransferMonitor.h"
#include "ui/VHWindows.h"

namespace vh {

namespace {

enum Column { kName, kDirection, kProgress, kSize };

}  // namespace

VHProgressWindow::VHProgressWindow(VHTransferMonitor& transfers, QWidget* parent)
    : QWidget(parent, Qt::Window), transfers_(transfers) {
    setObjectName("progressWindow");
    setWindowIcon(VHWindows::appIcon());
    summary_ = new QLabel;
    summary_->setObjectName("summary");
    summary_->setWordWrap(true);
    list_ = new QTreeWidget;
    list_->setObjectName("transfers");
    list_->setColumnCount(4);
    list_->setRootIsDecorated(false);
    list_->header()->setSectionResizeMode(kName, QHeaderView::Stretch);
    list_->header()->setStretchLastSection(false);
    list_->setColumnWidth(kProgress, 160);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(summary_);
    layout->addWidget(list_);
    resize(620, 320);
    connect(&transfers_, &VHTransferMonitor::changed, this, &VHProgressWindow::refresh);
    retranslate();
}

void VHProgressWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QWidget::changeEvent(event);
}

void VHProgressWindow::retranslate() {
    setWindowTitle(VHLocalizedString("%1 Transfers").arg(kAppTitle));
    list_->setHeaderLabels({VHLocalizedString("Name"), VHLocalizedString("Direction"),
                            VHLocalizedString("Progress"), VHLocalizedString("Size")});
    refresh();
}

void VHProgressWindow::refresh() {
    const VHTransferMonitor::Totals& totals = transfers_.totals();
    QStringList lines;
    for (const QString& line :
         {VHTransferMonitor::uploadLine(totals), VHTransferMonitor::downloadLine(totals)}) {
        if (!line.isEmpty()) lines << line;
    }
    summary_->setText(lines.isEmpty() ? VHLocalizedString("All files are up to date")
                                      : lines.join('\n'));
    list_->clear();
    for (const VHTransferMonitor::Transfer& transfer : transfers_.transfers()) {
        auto* item = new QTreeWidgetItem(
            {transfer.name,
             transfer.upload ? VHLocalizedString("Upload") : VHLocalizedString("Download"), "",
             VHTransferMonitor::byteText(transfer.size)});
        list_->addTopLevelItem(item);
        auto* bar = new QProgressBar;
        bar->setRange(0, 1000);
        bar->setValue(transfer.size > 0 ? static_cast<int>(transfer.done * 1000 / transfer.size)
                                        : 0);
        list_->setItemWidget(item, kProgress, bar);
    }
}

}  // namespace vh
