// The upload queue's operations: adding and starting them, their reports,
// and the confirmation of what they sent.
#include <algorithm>

#include "lib/VHLog.h"
#include "store/VHDatabase.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

void VHUploadQueue::addToQueue(const VHFile& file, Operation predecessor, bool forceMetadataChange,
                               const std::string& interimName) {
    // The service's record of an interim rename must not replace the row.
    if (interimName.empty()) unconfirmedUploads_[file.internalName] = file;
    VHUploadOperationDelegate* delegate = this;
    auto operation = std::make_shared<VHUploadOperation>(file, delegate, forceMetadataChange);
    operation->setChunkTimeouts(chunkTimeouts_);
    operation->setInterimName(interimName);
    operations_.push_back(Entry{operation, std::move(predecessor)});
    startReady();
}

void VHUploadQueue::startReady() {
    for (Entry& entry : operations_) {
        if (entry.started) continue;
        bool waiting = entry.predecessor &&
                       std::any_of(operations_.begin(), operations_.end(), [&](const Entry& e) {
                           return e.operation == entry.predecessor;
                       });
        if (waiting) continue;
        entry.started = true;
        entry.predecessor.reset();
        Operation operation = entry.operation;
        pool_.start([this, operation] { runOperation(operation); });
    }
}

void VHUploadQueue::runOperation(const Operation& operation) {
    VHUploadOperation::Outcome outcome = operation->run();
    operationEnded(operation, outcome);
}

void VHUploadQueue::operationEnded(const Operation& operation, VHUploadOperation::Outcome outcome) {
    VHMutexLock lock(mutex_);
    const std::string& name = operation->file().internalName;
    std::erase_if(operations_, [&](const Entry& e) { return e.operation == operation; });
    bool ended = outcome == VHUploadOperation::Outcome::Cancelled ||
                 outcome == VHUploadOperation::Outcome::Interrupted;
    bool more = std::any_of(operations_.begin(), operations_.end(), [&](const Entry& e) {
        return e.operation->file().internalName == name;
    });
    if (ended && !more) unconfirmedUploads_.erase(name);
    if (stopped_) return;
    startReady();
    // A pass takes 20 items: when they went through, the next 20 need not
    // wait for the poll (thousands of small files would go at 7 a second).
    // Posted under the lock, so that a queue being stopped is never posted to.
    if (operations_.empty() && outcome == VHUploadOperation::Outcome::Finished) uploadsAdded();
}

void VHUploadQueue::cancelUpload(const VHFile& file) {
    std::vector<Operation> cancelled;
    {
        VHMutexLock lock(mutex_);
        for (const Entry& entry : operations_) {
            if (entry.operation->file().internalName == file.internalName) {
                cancelled.push_back(entry.operation);
            }
        }
    }
    for (const Operation& operation : cancelled) operation->cancel();
    uploadsAdded();
}

void VHUploadQueue::cancelAllUploads() {
    std::vector<Operation> cancelled;
    {
        VHMutexLock lock(mutex_);
        for (const Entry& entry : operations_) cancelled.push_back(entry.operation);
    }
    for (const Operation& operation : cancelled) operation->cancel();
}

bool VHUploadQueue::existsOperationOnFileWithInternalName(const std::string& internalName) {
    VHMutexLock lock(mutex_);
    return std::any_of(operations_.begin(), operations_.end(), [&](const Entry& e) {
        return e.operation->file().internalName == internalName;
    });
}

size_t VHUploadQueue::operationCount() {
    VHMutexLock lock(mutex_);
    return operations_.size();
}

bool VHUploadQueue::uploadUnconfirmed(const VHFile& file) {
    VHMutexLock lock(mutex_);
    return unconfirmedUploads_.count(file.internalName) > 0;
}

bool VHUploadQueue::sameAsUnconfirmed(const VHFile& file) {
    VHMutexLock lock(mutex_);
    auto it = unconfirmedUploads_.find(file.internalName);
    return it != unconfirmedUploads_.end() && it->second.publicName == file.publicName &&
           it->second.parentId == file.parentId;
}

void VHUploadQueue::confirmUpload(const VHFile& file) {
    VHMutexLock lock(mutex_);
    unconfirmedUploads_.erase(file.internalName);
}

bool VHUploadQueue::isFileInUploadQueue(const VHFile& file) {
    if (!file.isFile) return false;
    if (file.status == kStatusCreated || file.status == kStatusModified ||
        file.status == kStatusChanged) {
        return true;
    }
    return uploadUnconfirmed(file);
}

void VHUploadQueue::noteContentChanged(const std::string& internalName) {
    VHMutexLock lock(mutex_);
    ++generations_[internalName];
}

uint64_t VHUploadQueue::contentGeneration(const std::string& internalName) {
    VHMutexLock lock(mutex_);
    auto it = generations_.find(internalName);
    return it == generations_.end() ? 0 : it->second;
}

bool VHUploadQueue::hasDependent(const VHUploadOperation& operation) {
    VHMutexLock lock(mutex_);
    return std::any_of(operations_.begin(), operations_.end(),
                       [&](const Entry& e) { return e.predecessor.get() == &operation; });
}

bool VHUploadQueue::contentsStillCurrent(const VHUploadOperation& operation, bool checkPlace) {
    const VHFile& sent = operation.sentFile();
    if (contentGeneration(sent.internalName) != operation.generation()) return false;
    std::optional<VHFile> row = VHDatabase::database().fileWithId(sent.internalName);
    if (!row || row->fileSize != sent.fileSize || row->modifyTime != sent.modifyTime) return false;
    return !checkPlace || (row->publicName == sent.publicName && row->parentId == sent.parentId);
}

void VHUploadQueue::uploadFinished(VHUploadOperation& operation,
                                   const std::optional<VHNewAPIRecordedEvent>& journal) {
    VHDatabase& db = VHDatabase::database();
    const VHFile& sent = operation.sentFile();
    if (!operation.interimName().empty()) {
        // The item stays pending; its old name is free on the service now.
        db.movedOnService(sent.internalName, sent.publicName, sent.parentId);
        VHLog(kLogMain, "Item %@ moved to an interim name to free its old one.", sent.internalName);
        return;
    }
    const bool dependent = hasDependent(operation);
    bool current;
    if (operation.sentContents()) {
        current = contentsStillCurrent(operation, !dependent);
    } else {
        // A rename or lock change leaves contents that are still waiting.
        std::optional<VHFile> row = db.fileWithId(sent.internalName);
        current = !row || row->status != kStatusModified;
    }
    if (current) {
        db.markFileUploaded(sent);
        // A change that landed while the row was being marked puts it back.
        if (operation.sentContents() && !contentsStillCurrent(operation, false)) {
            if (std::optional<VHFile> row = db.fileWithId(sent.internalName)) {
                db.markFileUpdated(*row);
            }
            current = false;
        }
    }
    if (!current) {
        VHLog(kLogMain, "File %@ changed while it was uploaded. It will be uploaded again.",
              sent.publicName);
    }
    if (dependent) return;  // stays unconfirmed until the following operation ends
    if (journal && journal->VhVirtualFile) db.updateFileNew(*journal->VhVirtualFile);
    VHMutexLock lock(mutex_);
    unconfirmedUploads_.erase(sent.internalName);
    if (current && operation.sentContents()) generations_.erase(sent.internalName);
}

void VHUploadQueue::uploadFailed(VHUploadOperation& operation) {
    VHMutexLock lock(mutex_);
    unconfirmedUploads_.erase(operation.file().internalName);
}

void VHUploadQueue::noteUploadStarted(const VHFile& file) {
    VHDatabase& db = VHDatabase::database();
    emit fileUploadStarted(file, db.uploadsSize(), db.uploadsNumber());
}

void VHUploadQueue::noteUploadProgress(const VHFile& file, int64_t progress) {
    emit fileUploadProgress(file, progress);
}

void VHUploadQueue::noteUploadFinished(const VHFile& file, bool error) {
    emit fileUploadFinished(file, error);
}

void VHUploadQueue::lockRefused(const std::string& message) {
    VHLog(kLogMain, "%@", message);
    emit lockAlert(QString::fromStdString(message));
}

}  // namespace vh
