#include "ui/VHCachePage.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QEvent>
#include <QFormLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QThreadPool>
#include <QVBoxLayout>
#include <algorithm>
#include <filesystem>

#include "desktop/VHDesktopServices.h"
#include "desktop/VHLocalization.h"
#include "lib/VHSettings.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHFileCache.h"
#include "transfer/VHUploadQueue.h"
#include "ui/VHTransferMonitor.h"

namespace vh {

namespace {

namespace fs = std::filesystem;

constexpr const char* kKeepSetting = "storeDownloadedFiles";

int64_t folderBytes(const std::string& folder) {
    int64_t total = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
        std::error_code ignored;
        if (it->is_regular_file(ignored)) total += static_cast<int64_t>(it->file_size(ignored));
    }
    return total;
}

QString keepText(int days) {
    switch (days) {
        case 0:
            return VHLocalizedString("For 4 hours");
        case 1:
            return VHLocalizedString("For 1 day");
        case 7:
            return VHLocalizedString("For 1 week");
        case 30:
            return VHLocalizedString("For 30 days");
        default:
            return VHLocalizedString("Until I clear them");
    }
}

}  // namespace

VHCachePage::VHCachePage(QWidget* parent) : QWidget(parent) {
    setObjectName("cachePage");
    usage_ = new QLabel;
    usage_->setObjectName("usage");
    usage_->setWordWrap(true);
    keepLabel_ = new QLabel;
    keep_ = new QComboBox;
    keep_->setObjectName("keep");
    for (int days : kKeepChoices) keep_->addItem(QString(), days);
    keep_->setCurrentIndex(std::max(0, keep_->findData(keepDays())));
    clear_ = new QPushButton;
    clear_->setObjectName("clearCache");
    auto* form = new QFormLayout;
    form->addRow(keepLabel_, keep_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(usage_);
    layout->addLayout(form);
    layout->addWidget(clear_, 0, Qt::AlignLeft);
    layout->addStretch();
    connect(keep_, &QComboBox::activated, this, &VHCachePage::keepChosen);
    connect(clear_, &QPushButton::clicked, this, &VHCachePage::clearCache);
    retranslate();
    measure();
}

int64_t VHCachePage::cacheBytes() {
    return folderBytes(VHFileCache::filesCachePath()) +
           folderBytes(VHFileCache::downloadsCachePath());
}

int VHCachePage::keepDays() {
    return VHSettings::value(VHSettings::prependAppTitle(kKeepSetting), -1).toInt();
}

void VHCachePage::measure() {
    runThenMeasure({});
}

void VHCachePage::runThenMeasure(std::function<void()> work) {
    busy_ = true;
    retranslate();
    QPointer<VHCachePage> page(this);
    QThreadPool::globalInstance()->start([page, work = std::move(work)] {
        if (work) work();
        int64_t bytes = cacheBytes();
        QMetaObject::invokeMethod(QCoreApplication::instance(), [page, bytes] {
            if (!page) return;
            page->bytes_ = bytes;
            page->busy_ = false;
            page->retranslate();
            emit page->measured();
        });
    });
}

void VHCachePage::changeEvent(QEvent* event) {
    if (event->type() == QEvent::LanguageChange) retranslate();
    QWidget::changeEvent(event);
}

void VHCachePage::retranslate() {
    usage_->setText(bytes_ < 0 ? VHLocalizedString("Measuring the downloaded files…")
                               : VHLocalizedString("Downloaded files use %1 on this computer.")
                                     .arg(VHTransferMonitor::byteText(bytes_)));
    keepLabel_->setText(VHLocalizedString("Keep downloaded files:"));
    for (int i = 0; i < keep_->count(); ++i)
        keep_->setItemText(i, keepText(keep_->itemData(i).toInt()));
    clear_->setText(VHLocalizedString("Clear Cache…"));
    clear_->setEnabled(!busy_);
}

void VHCachePage::keepChosen(int index) {
    int days = keep_->itemData(index).toInt();
    VHSettings::setValue(VHSettings::prependAppTitle(kKeepSetting), days);
    VHSettings::sync();
    // The limit applies now, not only at the next hourly sweep.
    if (days >= 0)
        runThenMeasure([] { VHDownloadQueue::downloadQueue().checkDownloadsToDelete(-1); });
}

void VHCachePage::clearCache() {
    if (VHUploadQueue::uploadQueue().hasUploads()) {
        VHDesktopServices::showAlert("Cannot clear the cache",
                                     "Some changes are not uploaded yet. Try again once every "
                                     "file is up to date.");
        return;
    }
    bool agreed = VHDesktopServices::askQuestion(
        VHLocalizedString("Clear the cache?").toStdString(),
        VHLocalizedString("Downloaded files are deleted from this computer; they stay on the "
                          "service and download again when opened.")
            .toStdString(),
        VHLocalizedString("Clear Cache").toStdString(), VHLocalizedString("Cancel").toStdString(),
        false);
    if (!agreed) return;
    runThenMeasure([] { VHDownloadQueue::downloadQueue().checkDownloadsToDelete(0); });
}

}  // namespace vh
