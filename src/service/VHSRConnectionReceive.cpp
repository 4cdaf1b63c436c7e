// What arrives over the realtime channel: envelopes, and the catch-ups they
// lead to.
#include <QTimer>

#include "lib/VHLog.h"
#include "service/VHSRConnection.h"
#include "store/VHDatabase.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHNewAPIRecords.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

constexpr double kCatchupInterval = 10.0;
constexpr int kCatchupRetryMs = 15000;
constexpr int kDeferredBroadcastMs = 200;

}  // namespace

void VHSRConnection::onReceiveEnvelope(const VHJson& dictionary) {
    std::optional<Envelope> envelope = VHRecordFromJson<Envelope>(dictionary);
    if (!envelope) {
        VHLog(kLogMain, "Cannot parse SignalR envelope: %@", dictionary.dump());
        return;
    }
    std::string text = dictionary.dump();
    switch (envelope->MessageType) {
        case kSRJournal:
            VHLog(kLogMain, "Warning! Unknown SignalR message type: Journal, envelope %@", text);
            break;
        case kSRMOnline:
            onMOnline(*envelope);
            break;
        case kSRBroadCast:
            onBroadCast(*envelope);
            break;
        case kSRShareAdded:
            VHLog(kLogMain, "Warning! Unknown SignalR message type: ShareAdded, envelope %@", text);
            break;
        case kSRShareRemoved:
            VHLog(kLogMain, "Warning! Unknown SignalR message type: ShareRemoved, envelope %@",
                  text);
            break;
        case kSRDomainEvent:
            onDomainEvent(*envelope);
            break;
        default:
            VHLog(kLogMain, "Warning! Unknown SignalR message type: %d, envelope %@",
                  envelope->MessageType, text);
    }
}

void VHSRConnection::onMOnline(const Envelope& envelope) {
    std::string error;
    std::optional<ClientInfo> info = VHParseRecord<ClientInfo>(envelope.Message, &error);
    if (!info) {
        VHLog(kLogMain, "Warning! Cannot parse MOnline SignalR message, error %@", error);
        return;
    }
    const auto& caches = info->DomainFilecaches;
    const VHJson* list = caches && !caches->empty() && caches->begin()->second.FilecacheList
                             ? &*caches->begin()->second.FilecacheList
                             : nullptr;
    if (caches && list && list->is_array() && !list->empty()) {
        VHLog(kLogMain, "Connection to SignalR service for file cache %@ established.",
              list->front().is_string() ? list->front().get<std::string>() : list->front().dump());
    } else {
        VHLog(kLogMain, "Connection to SignalR service for some file cache established.");
    }
}

std::optional<ManagedShare> VHSRConnection::shareOfEvent(const ClientJournalEvent& event) const {
    VHDatabase& db = VHDatabase::database();
    std::optional<ManagedShare> share;
    if (event.VhVirtualFile) {
        VHFile file = VHFile::fromVirtualFile(*event.VhVirtualFile);
        share = db.shareWithId(file.shareId);
        if (!share) share = db.shareForFile(file);
    }
    if (!share) share = db.shareWithId(event.ShareId.value_or(""));
    return share;
}

void VHSRConnection::onBroadCast(const Envelope& envelope) {
    std::string error;
    std::optional<ClientJournalEvent> event =
        VHParseRecord<ClientJournalEvent>(envelope.Message, &error);
    if (!event) {
        VHLog(kLogMain, "%@", envelope.Message);
        VHLog(kLogMain, "Warning! Cannot parse BroadCast SignalR message, error %@", error);
        return;
    }
    std::optional<ManagedShare> share = shareOfEvent(*event);
    if (!share) {
        VHLog(kLogMain,
              "Received SignalR message for share %@, but cannot find this share. Event: %@",
              event->ShareId.value_or(""), envelope.Message);
        return;
    }
    bool subfolder = share->isSubfolderShare();
    if (subfolder) {
        VHLog(kLogMain, "Got event : %@ for ssubfolder share %@", envelope.Message,
              share->shareId());
    }
    const int64_t tick = static_cast<int64_t>(event->ShareTick.value_or(0));
    const int64_t last = share->LastApplyedJournalTick;
    if (tick == last + 1 && !subfolder && event->VhVirtualFile &&
        deferWhileUploading(envelope, event->VhVirtualFile->InternalName.value_or(""))) {
        return;
    }
    if (tick == last + 1 && !subfolder && event->VhVirtualFile) {
        VHDatabase::database().updateFile(*event->VhVirtualFile, *share);
        VHDownloadQueue::downloadQueue().checkAutomaticDownloads();
    } else if (tick > last) {
        VHLog(kLogMain,
              "Lost some SignalR messages for share %@: got tick %d, while last share tick is "
              "%d. Sending CatchUp.",
              share->displayName(), tick, last);
        onMain([actions = actions_, shareCopy = *share] { actions.catchUp(shareCopy); });
    }
}

// The change of an item that is being uploaded (often the upload's own
// change, sent before its last answer arrived) is not applied while the
// upload runs; it is taken again once the upload has ended.
bool VHSRConnection::deferWhileUploading(const Envelope& envelope, const std::string& id) {
    if (!VHUploadQueue::uploadQueue().existsOperationOnFileWithInternalName(id)) return false;
    QTimer::singleShot(kDeferredBroadcastMs, this, [this, envelope] { onBroadCast(envelope); });
    return true;
}

void VHSRConnection::onDomainEvent(const Envelope& envelope) {
    std::string error;
    std::optional<DomainEvent> event = VHParseRecord<DomainEvent>(envelope.Message, &error);
    if (!event) {
        VHLog(kLogMain, "Warning! Cannot parse DomainEvent SignalR message, error %@", error);
        return;
    }
    int32_t type = event->DomainEventType;
    if (type != 1 && type != 3 && type != 8) {
        VHLog(kLogMain,
              "Unknown domain event type: %d, envelope %@, message %@.  Anyway refreshing share "
              "list.",
              type, VHSerializeRecord(envelope), envelope.Message);
    }
    std::string sender = envelope.RnaSender.value_or("");
    onMain([actions = actions_, sender] {
        if (std::optional<UserDomain> domain = actions.userDomainWithName(sender)) {
            actions.singleDomainLogin(*domain);
        } else {
            VHLog(kLogMain, "Warning! Received DomainEvent for unknown domain: %@", sender);
        }
    });
}

void VHSRConnection::catchupIfNeeded() {
    {
        VHMutexLock lock(catchupMutex_);
        if (lastCatchup_.timeIntervalSinceNow() >= -kCatchupInterval) {
            if (!catchupScheduled_) {
                catchupScheduled_ = true;
                QTimer::singleShot(kCatchupRetryMs, this, [this] {
                    {
                        VHMutexLock again(catchupMutex_);
                        catchupScheduled_ = false;
                    }
                    catchupIfNeeded();
                });
            }
            return;
        }
        lastCatchup_ = VHDate::now();
    }
    if (!loginResponce_) return;
    std::vector<ManagedShare> shares;
    VHDatabase& db = VHDatabase::database();
    for (const ManagedShare& entry :
         loginResponce_->ManagedShares.value_or(std::vector<ManagedShare>{})) {
        if (std::optional<ManagedShare> stored = db.shareWithId(entry.shareId())) {
            shares.push_back(*stored);
        }
    }
    onMain([actions = actions_, shares] {
        for (const ManagedShare& share : shares) actions.catchUp(share);
    });
}

}  // namespace vh
