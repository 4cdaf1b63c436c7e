#include "transfer/VHUploadOperation.h"

#include <chrono>

#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHStrings.h"
#include "store/VHDatabase.h"
#include "transfer/VHNewAPI.h"
#include "transfer/VHTransferHooks.h"

namespace vh {

namespace {

const char* const kRenameFailure =
    "Warning! Failing item renaming: cannot receive responce from the server. ";
const char* const kDeleteFailure =
    "Warning! Failing item deletion: cannot receive responce from the server. ";
const char* const kLockFailure =
    "Warning! Failing item locking/unlocking: cannot receive responce from the server. ";

bool isOneOf(long status, std::initializer_list<long> accepted) {
    for (long s : accepted) {
        if (status == s) return true;
    }
    return false;
}

// "LockedBy" of the answer's "FileLock", wherever the service put it.
std::string lockHolder(const std::string& body) {
    VHJson json = VHJson::parse(body, nullptr, false);
    if (!json.is_object()) return "";
    for (const VHJson* where : {&json, json.contains("Data") ? &json["Data"] : nullptr}) {
        if (!where || !where->is_object() || !where->contains("FileLock")) continue;
        const VHJson& lock = (*where)["FileLock"];
        if (lock.is_object() && lock.contains("LockedBy") && lock["LockedBy"].is_string()) {
            return lock["LockedBy"].get<std::string>();
        }
    }
    return "";
}

}  // namespace

VHUploadOperation::VHUploadOperation(VHFile file, VHUploadOperationDelegate* delegate,
                                     bool forceMetadataChange)
    : file_(std::move(file)),
      delegate_(delegate),
      forceMetadataChange_(forceMetadataChange),
      sent_(file_) {}

VHUploadOperation::Outcome VHUploadOperation::run() {
    for (;;) {
        Result result = upload();
        switch (result.outcome) {
            case Outcome::Finished:
                delegate_->uploadFinished(*this, result.journal);
                return Outcome::Finished;
            case Outcome::Cancelled:
            case Outcome::Interrupted:
                return result.outcome;
            case Outcome::Failed:
                break;
        }
        VHDate now = VHDate::now();
        if (!failureInfo_) failureInfo_ = VHFailedUploadInfo::startingAt(now);
        std::optional<VHDate> next = failureInfo_->recordFailure(now);
        if (!next) {
            delegate_->uploadFailed(*this);
            return Outcome::Failed;
        }
        if (!waitUntil(*next)) {
            uploadCancelled();
            return Outcome::Cancelled;
        }
    }
}

void VHUploadOperation::cancel() {
    VHMutexLock lock(waitMutex_);
    cancelled_ = true;
    wake_.notify_all();
}

bool VHUploadOperation::waitUntil(VHDate when) {
    VHMutexLock lock(waitMutex_);
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::duration<double>(std::max(0.0, when.timeIntervalSinceNow()));
    while (!cancelled_ && std::chrono::steady_clock::now() < deadline) {
        wake_.wait_until(lock, deadline);
    }
    return !cancelled_;
}

VHUploadOperation::Result VHUploadOperation::upload() {
    if (isCancelled()) return uploadCancelled();
    // The generation is taken before the row is read, so that a change that
    // lands after this point is seen when the upload is confirmed.
    generation_ = delegate_->contentGeneration(file_.internalName);
    VHDatabase& db = VHDatabase::database();
    sent_ = db.fileWithId(file_.internalName).value_or(file_);
    if (forceMetadataChange_) sent_.status = kStatusChanged;
    if (forceCreate_) sent_.status = kStatusCreated;
    sentContents_ = false;
    std::optional<ManagedShare> share = db.shareForFile(sent_);
    if (!share) {
        VHLog(kLogMain, "Internal error: no share with id %@ for file %@.", sent_.shareId,
              sent_.publicName);
        return {Outcome::Failed, std::nullopt};
    }
    if (!interimName_.empty()) {
        sent_.publicName = interimName_;
        // In the folder the service has it in, wherever it goes next.
        if (std::optional<VHFile> shadow = db.fileWithId(sent_.internalName, true)) {
            sent_.parentId = shadow->parentId;
        }
        return newFileApiRename(*share);
    }
    if (sent_.deleted) return newFileApiDelete(*share);
    if (sent_.status == kStatusChanged) {
        std::optional<VHFile> shadow = db.fileWithId(sent_.internalName, true);
        if (shadow && shadow->isLocked != sent_.isLocked) return newFileApiLock(*share);
        return newFileApiRename(*share);
    }
    if (sent_.status == kStatusCreated && !sent_.isFile) return newFileApiCreateFolder(*share);
    sentContents_ = true;
    return newFileApiUpload(*share);
}

VHUploadOperation::Result VHUploadOperation::newFileApiCreateFolder(const ManagedShare& share) {
    VHLog(kLogMain, "new file api: creating folder %@", sent_.publicName);
    // Folder creation shares the rename's failure text.
    return sendItemEvent(share, kEventCreate, kRenameFailure);
}

VHUploadOperation::Result VHUploadOperation::newFileApiDelete(const ManagedShare& share) {
    VHLog(kLogMain, "new file api: deleting item %@", sent_.publicName);
    return sendItemEvent(share, kEventDelete, kDeleteFailure);
}

VHUploadOperation::Result VHUploadOperation::newFileApiRename(const ManagedShare& share) {
    VHLog(kLogMain, "new file api: renaming item %@", sent_.publicName);
    return sendItemEvent(share, kEventRename, kRenameFailure);
}

VHUploadOperation::Result VHUploadOperation::newFileApiLock(const ManagedShare& share) {
    VHLog(kLogMain, "new file api: changing lock to %d for item %@", sent_.isLocked ? 1 : 0,
          sent_.publicName);
    return sendItemEvent(share, sent_.isLocked ? kEventLock : kEventUnlock, kLockFailure);
}

VHUploadOperation::Result VHUploadOperation::sendItemEvent(const ManagedShare& share, int32_t type,
                                                           const char* failureText) {
    if (isCancelled()) return uploadCancelled();
    std::optional<VHNewAPIJournalEvent> event = createNewAPIEventForFile(type);
    if (!event) return {Outcome::Failed, std::nullopt};
    std::optional<VHNewAPIResponce> response = sendNewFileApiRequest(*event, share);
    if (isCancelled()) return uploadCancelled();
    if (response && response->Data) {
        return {Outcome::Finished, response->Data->ClientJournalEvent};
    }
    VHLog(kLogMain, failureText);
    return {Outcome::Failed, std::nullopt};
}

std::optional<VHNewAPIJournalEvent> VHUploadOperation::createNewAPIEventForFile(int32_t type) {
    VHNewAPIJournalEvent event;
    event.TransmitId = VHGenerateGUID();
    event.ClientJournalEventType = type;
    event.VhVirtualFile = sent_.virtualFile();
    event.DeviceId = VHTransferHooks::get().deviceId();
    return event;
}

std::optional<VHNewAPIResponce> VHUploadOperation::sendNewFileApiRequest(
    const VHNewAPIJournalEvent& event, const ManagedShare& share) {
    std::optional<UserDomain> domain =
        VHTransferHooks::get().userDomainWithId(share.DomainId.value_or(""));
    if (!domain) return std::nullopt;
    std::optional<VHHttpRequest> request =
        VHNewAPI::newApiUploadRequestForEvent(event, *domain, share);
    if (!request) return std::nullopt;
    request->keepGoing = [this] { return !isCancelled(); };
    VHHttpResponse response = VHHttp::send(*request);
    if (response.body.empty()) {
        VHLog(kLogMain, "Warning! No responce body for the new file API request. Error : %@",
              response.error.message);
        return std::nullopt;
    }
    std::string error;
    std::optional<VHNewAPIResponce> parsed = VHParseRecord<VHNewAPIResponce>(response.body, &error);
    if (!parsed) {
        VHLog(kLogMain,
              "Warning! Cannot parse new file API create file responce, error %@. Responce is %@.",
              error, response.body);
        return std::nullopt;
    }
    judgeStatus(event.ClientJournalEventType, response, *parsed);
    return parsed;
}

void VHUploadOperation::judgeStatus(int32_t type, const VHHttpResponse& response,
                                    const VHNewAPIResponce& parsed) {
    const long status = response.status;
    bool valid = false;
    switch (type) {
        case kEventCreate:
        case kEventUpdate:
            valid = isOneOf(status, {200, 201, 202}) ||
                    (status == 400 && parsed.hasCode(kReasonAlreadyDone));
            if (status == 400 && parsed.hasCode(kReasonUnknownItem)) {
                forceCreate_ = true;
                valid = true;
            }
            break;
        case kEventDelete:
            if (status == 400 && parsed.hasCode(kReasonUnknownItem)) {
                // Already gone on the server: nothing left to send.
                VHDatabase::database().deleteFileRecord(sent_.internalName);
                cancel();
                valid = true;
            } else {
                valid = status == 200;
            }
            break;
        case kEventLock:
        case kEventUnlock:
            if (status == 423) {
                std::string holder = lockHolder(response.body);
                delegate_->lockRefused(
                    holder.empty() ? std::string("This file is already locked by another user.")
                                   : VHFormat("This file is already locked by %@.", holder));
            }
            valid = isOneOf(status, {200, 201});
            break;
        default:
            valid = isOneOf(status, {200, 201});
            break;
    }
    if (!valid) {
        VHLog(kLogMain,
              "Warning! New File API responded with invalid HTTP status code: %ld, message %@",
              status, response.body);
    }
}

VHUploadOperation::Result VHUploadOperation::uploadCancelled() {
    delegate_->noteUploadFinished(sent_, true);
    return {Outcome::Cancelled, std::nullopt};
}

}  // namespace vh
