#include "ui/VHTransferMonitor.h"

#include <QLocale>
#include <algorithm>

#include "desktop/VHLocalization.h"
#include "service/VHConnector.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

constexpr int kPollMs = 1000;

std::string keyOf(const VHFile& file, bool upload) {
    return (upload ? "u:" : "d:") + file.internalName;
}

}  // namespace

VHTransferMonitor::VHTransferMonitor(QObject* parent) : QObject(parent) {
    VHUploadQueue& uploads = VHUploadQueue::uploadQueue();
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    connect(
        &uploads, &VHUploadQueue::fileUploadStarted, this,
        [this](const VHFile& file, qint64, qint64) { started(file, true); }, Qt::QueuedConnection);
    connect(
        &uploads, &VHUploadQueue::fileUploadProgress, this,
        [this](const VHFile& file, qint64 done) { progressed(file, true, done); },
        Qt::QueuedConnection);
    connect(
        &uploads, &VHUploadQueue::fileUploadFinished, this,
        [this](const VHFile& file, bool) { finished(file, true); }, Qt::QueuedConnection);
    connect(
        &downloads, &VHDownloadQueue::fileDownloadStarted, this,
        [this](const VHFile& file) { started(file, false); }, Qt::QueuedConnection);
    connect(
        &downloads, &VHDownloadQueue::fileDownloadProgress, this,
        [this](const VHFile& file, qint64 done) { progressed(file, false, done); },
        Qt::QueuedConnection);
    connect(
        &downloads, &VHDownloadQueue::fileDownloadFinished, this,
        [this](const VHFile& file, bool) { finished(file, false); }, Qt::QueuedConnection);
    poll_.setInterval(kPollMs);
    connect(&poll_, &QTimer::timeout, this, &VHTransferMonitor::refreshTotals);
}

std::vector<VHTransferMonitor::Transfer> VHTransferMonitor::transfers() const {
    std::vector<Transfer> list;
    for (const auto& [key, transfer] : running_) list.push_back(transfer);
    std::stable_sort(list.begin(), list.end(), [](const Transfer& a, const Transfer& b) {
        if (a.upload != b.upload) return a.upload;
        return a.name.localeAwareCompare(b.name) < 0;
    });
    return list;
}

void VHTransferMonitor::refreshTotals() {
    VHUploadQueue& uploads = VHUploadQueue::uploadQueue();
    VHDownloadQueue& downloads = VHDownloadQueue::downloadQueue();
    VHConnector& connector = VHConnector::defaultConnector();
    totals_.uploads = uploads.queueLen();
    totals_.uploadBytes = uploads.queueBytes();
    totals_.downloads = static_cast<int64_t>(downloads.queueLen());
    totals_.downloadBytes = static_cast<int64_t>(downloads.queueBytes());
    totals_.uploadSpeed = connector.lastUploadSpeed();
    totals_.downloadSpeed = connector.lastDownloadSpeed();
    // Polled only while something moves; a transfer's signal starts it again.
    if (active()) {
        if (!poll_.isActive()) poll_.start();
    } else {
        poll_.stop();
    }
    emit changed();
}

void VHTransferMonitor::started(const VHFile& file, bool upload) {
    running_[keyOf(file, upload)] = {QString::fromStdString(file.publicName), upload,
                                     static_cast<qint64>(file.fileSize), 0};
    refreshTotals();
}

void VHTransferMonitor::progressed(const VHFile& file, bool upload, qint64 done) {
    auto found = running_.find(keyOf(file, upload));
    if (found == running_.end()) {
        started(file, upload);
        found = running_.find(keyOf(file, upload));
    }
    found->second.done = done;
    emit changed();
}

void VHTransferMonitor::finished(const VHFile& file, bool upload) {
    running_.erase(keyOf(file, upload));
    refreshTotals();
}

QString VHTransferMonitor::byteText(int64_t bytes) {
    QLocale locale(QString::fromStdString(VHLocalization::language()));
    return locale.formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

namespace {

// The last speed, unless none was measured yet.
QString speedSuffix(double speed) {
    if (speed < 1) return QString();
    return " · " + VHTransferMonitor::byteText(static_cast<int64_t>(speed)) + "/s";
}

}  // namespace

QString VHTransferMonitor::uploadLine(const Totals& totals) {
    if (totals.uploads <= 0) return QString();
    return VHLocalizedString("Files to upload: %1 · %2 left")
               .arg(totals.uploads)
               .arg(byteText(totals.uploadBytes)) +
           speedSuffix(totals.uploadSpeed);
}

QString VHTransferMonitor::downloadLine(const Totals& totals) {
    if (totals.downloads <= 0) return QString();
    return VHLocalizedString("Files to download: %1 · %2 left")
               .arg(totals.downloads)
               .arg(byteText(totals.downloadBytes)) +
           speedSuffix(totals.downloadSpeed);
}

}  // namespace vh
