#include "desktop/VHUploadCatchUp.h"

#include "service/VHConnector.h"
#include "store/VHDatabase.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

VHUploadCatchUp::VHUploadCatchUp() {
    timer_.setSingleShot(true);
    timer_.setInterval(kDelayMs);
    connect(&timer_, &QTimer::timeout, this, &VHUploadCatchUp::catchUpShares);
    connect(&VHUploadQueue::uploadQueue(), &VHUploadQueue::fileUploadFinished, this,
            [this](const VHFile& file, bool error) {
                if (!error) uploadFinished(file.shareId);
            });
}

void VHUploadCatchUp::uploadFinished(const std::string& shareId) {
    shareIds_.insert(shareId);
    timer_.start();  // again: one catch-up after the last of a burst
}

void VHUploadCatchUp::catchUpShares() {
    std::set<std::string> shareIds;
    shareIds.swap(shareIds_);
    VHDatabase& db = VHDatabase::database();
    if (!db.loaded() || db.terminating()) return;
    for (const std::string& shareId : shareIds) {
        if (std::optional<ManagedShare> share = db.shareWithId(shareId)) {
            VHConnector::defaultConnector().catchUp(*share);
        }
    }
}

}  // namespace vh
