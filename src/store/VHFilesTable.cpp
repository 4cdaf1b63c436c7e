#include "store/VHFilesTable.h"

#include "lib/VHLog.h"

namespace vh {

namespace {

const char* const kInsertFile =
    "INSERT INTO files (publicName, shareId, uploadName, internalName, parentId, user, hash, "
    "tick, shareTick, updateTick, createTick, fileSize, createTime, accessTime, modifyTime, "
    "attributes, permissions, deleted, isFile, status, isLocked, lockDeviceId, lockTick, "
    "lockedBy, parentShareId)VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, "
    "?, ?, ?, ?, ?)";

std::vector<VHSqlValue> rowValues(const VHFile& f, uint64_t status) {
    return {f.publicName,
            f.shareId,
            f.uploadName,
            f.internalName,
            f.parentId,
            f.user,
            f.fileHash,
            f.tick,
            f.shareTick,
            f.updateTick,
            f.createTick,
            f.fileSize,
            VHSqlDate(f.createTime),
            VHSqlDate(f.accessTime),
            VHSqlDate(f.modifyTime),
            f.attributes,
            f.permissions,
            VHSqlFlag(f.deleted),
            VHSqlFlag(f.isFile),
            status,
            VHSqlFlag(f.isLocked),
            f.lockDeviceId,
            f.lockTick,
            f.lockedBy,
            f.parentShareId};
}

}  // namespace

bool VHFilesTable::update(const std::string& sql, const std::vector<VHSqlValue>& values) {
    if (!db_) {
        VHLog(kLogDatabase, "Warning! Cannot connect to the database to update it!");
        return false;
    }
    if (injectedFault(sql)) return false;
    bool ran = db_->run(sql, values);
    if (journal_ && journal_->generation)
        journal_->generation->fetch_add(1, std::memory_order_acq_rel);
    if (ran) {
        if (journal_ && journal_->recording) journal_->recorded.emplace_back(sql, values);
        return true;
    }
    VHLog(kLogDatabase, "Update query %@ failed: %@", sql, db_->lastError());
    if (journal_) ++journal_->failures;
    db_->prepare(sql);  // resets it: a write that failed half-way must not keep its locks
    return false;
}

bool VHFilesTable::injectedFault(const std::string& sql) {
    if (!journal_ || !journal_->fault || !journal_->fault(sql)) return false;
    VHLog(kLogDatabase, "Update query %@ failed: %@", sql, "fault injected by a test");
    ++journal_->failures;
    return true;
}

VHSqliteStatement* VHFilesTable::select(const std::string& sql,
                                        const std::vector<VHSqlValue>& values) {
    if (!db_) {
        VHLog(kLogDatabase, "Warning! Cannot connect to the database!");
        return nullptr;
    }
    VHSqliteStatement* statement = db_->prepare(sql, values);
    if (!statement) selectFailed(sql);
    return statement;
}

void VHFilesTable::selectFailed(const std::string& sql) {
    VHLog(kLogDatabase, "Select query %@ failed: %@", sql, db_->lastError());
    if (journal_) ++journal_->failures;
}

std::optional<std::vector<VHFile>> VHFilesTable::files(const std::string& sql,
                                                       const std::vector<VHSqlValue>& values) {
    VHSqliteStatement* s = select(sql, values);
    if (!s) return std::nullopt;
    std::vector<VHFile> rows;
    VHSqliteStatement::Step step;
    while ((step = s->step()) == VHSqliteStatement::Step::Row) rows.push_back(VHFile::fromRow(*s));
    if (step == VHSqliteStatement::Step::Error) selectFailed(sql);
    s->reset();
    if (step == VHSqliteStatement::Step::Error) return std::nullopt;
    return rows;
}

std::optional<VHFile> VHFilesTable::file(const std::string& sql,
                                         const std::vector<VHSqlValue>& values) {
    VHSqliteStatement* s = select(sql, values);
    if (!s) return std::nullopt;
    std::optional<VHFile> row;
    VHSqliteStatement::Step step = s->step();
    if (step == VHSqliteStatement::Step::Row) row = VHFile::fromRow(*s);
    if (step == VHSqliteStatement::Step::Error) selectFailed(sql);
    s->reset();
    return row;
}

std::optional<std::string> VHFilesTable::string(const std::string& sql,
                                                const std::vector<VHSqlValue>& values) {
    VHSqliteStatement* s = select(sql, values);
    if (!s) return std::nullopt;
    std::optional<std::string> text;
    VHSqliteStatement::Step step = s->step();
    if (step == VHSqliteStatement::Step::Row && !s->columnIsNull(0)) text = s->columnText(0);
    if (step == VHSqliteStatement::Step::Error) selectFailed(sql);
    s->reset();
    return text;
}

std::vector<std::string> VHFilesTable::strings(const std::string& sql,
                                               const std::vector<VHSqlValue>& values) {
    std::vector<std::string> texts;
    VHSqliteStatement* s = select(sql, values);
    if (!s) return texts;
    VHSqliteStatement::Step step;
    while ((step = s->step()) == VHSqliteStatement::Step::Row) texts.push_back(s->columnText(0));
    if (step == VHSqliteStatement::Step::Error) selectFailed(sql);
    s->reset();
    return texts;
}

std::optional<int64_t> VHFilesTable::integer(const std::string& sql,
                                             const std::vector<VHSqlValue>& values) {
    VHSqliteStatement* s = select(sql, values);
    if (!s) return std::nullopt;
    std::optional<int64_t> value;
    VHSqliteStatement::Step step = s->step();
    if (step == VHSqliteStatement::Step::Row) value = s->columnInt64(0);
    if (step == VHSqliteStatement::Step::Error) selectFailed(sql);
    s->reset();
    return value;
}

std::optional<VHFileUploadStatus> VHFilesTable::upload(const std::string& sql,
                                                       const std::vector<VHSqlValue>& values) {
    VHSqliteStatement* s = select(sql, values);
    if (!s) return std::nullopt;
    std::optional<VHFileUploadStatus> row;
    VHSqliteStatement::Step step = s->step();
    if (step == VHSqliteStatement::Step::Row) row = VHFileUploadStatus::fromRow(*s);
    if (step == VHSqliteStatement::Step::Error) selectFailed(sql);
    s->reset();
    return row;
}

std::optional<VHFile> VHFilesTable::fileWithId(const std::string& id, bool shadow) {
    return file(shadow ? "SELECT * FROM files WHERE internalName = ? AND status = 5 LIMIT 0, 1"
                       : "SELECT * FROM files WHERE internalName = ? AND status != 5 LIMIT 0, 1",
                {id});
}

// A name whose deletion is still on its way to the service may already be
// taken again: the live item answers for it.
std::optional<std::vector<VHFile>> VHFilesTable::allInFolder(const std::string& parentId) {
    return files("SELECT * FROM files WHERE parentId = ? AND status != 5", {parentId});
}

std::optional<VHFile> VHFilesTable::fileWithParentId(const std::string& parentId,
                                                     const std::string& name, bool shadow) {
    return file(shadow ? "SELECT * FROM files WHERE parentId = ? AND publicName = ? AND status = "
                         "5 LIMIT 0, 1"
                       : "SELECT * FROM files WHERE parentId = ? AND publicName = ? AND status "
                         "!= 5 ORDER BY deleted ASC LIMIT 0, 1",
                {parentId, name});
}

std::optional<std::string> VHFilesTable::idOfFileNamed(const std::string& name,
                                                       const std::string& parentId, bool shadow) {
    return string(shadow ? "SELECT internalName FROM files WHERE parentId = ? AND publicName = ? "
                           "ORDER BY status DESC LIMIT 0, 1"
                         : "SELECT internalName FROM files WHERE parentId = ? AND publicName = ? "
                           "AND status != 5 ORDER BY deleted ASC LIMIT 0, 1",
                  {parentId, name});
}

std::optional<std::string> VHFilesTable::parentIdOf(const std::string& id) {
    return string("SELECT parentId FROM files WHERE internalName = ? AND status != 5 LIMIT 0, 1",
                  {id});
}

std::optional<std::vector<VHFile>> VHFilesTable::filesInFolder(const std::string& parentId,
                                                               bool includeFolders) {
    return files(includeFolders ? "SELECT * FROM files WHERE parentId = ? AND status != 5 AND NOT "
                                  "deleted"
                                : "SELECT * FROM files WHERE parentId = ? AND status != 5 AND "
                                  "isFile AND NOT deleted",
                 {parentId});
}

bool VHFilesTable::addFile(const VHFile& file, uint64_t status) {
    return update(kInsertFile, rowValues(file, status));
}

bool VHFilesTable::deleteFile(const std::string& id) {
    return update("DELETE FROM files WHERE internalName = ?", {id});
}

bool VHFilesTable::deleteFileWithTick(const std::string& id, uint64_t tick) {
    return update("DELETE FROM files WHERE internalName = ? AND tick = ?", {id, tick});
}

bool VHFilesTable::deleteFileShadow(const std::string& id) {
    return update("DELETE FROM files WHERE internalName = ? AND status = 5", {id});
}

bool VHFilesTable::deleteFileDownload(const std::string& id) {
    return update("DELETE FROM downloads WHERE internalName = ?", {id});
}

bool VHFilesTable::updateParentShareId(const std::string& id, const std::string& parentShareId) {
    return update("UPDATE files SET parentShareId = ? WHERE internalName = ?", {parentShareId, id});
}

bool VHFilesTable::updateLockStatus(const VHFile& file, bool setChanged) {
    return update(setChanged ? "UPDATE files SET isLocked = ?, lockDeviceId = ?, lockTick = ?, "
                               "lockedBy = ?, status=3 WHERE internalName = ? AND status = ?"
                             : "UPDATE files SET isLocked = ?, lockDeviceId = ?, lockTick = ?, "
                               "lockedBy = ? WHERE internalName = ? AND status = ?",
                  {VHSqlFlag(file.isLocked), file.lockDeviceId, file.lockTick, file.lockedBy,
                   file.internalName, file.status});
}

bool VHFilesTable::isSynchronized(const std::string& itemId) {
    return integer("SELECT COUNT(*) FROM syncedfolders WHERE itemId = ?", {itemId}).value_or(0) !=
           0;
}

std::optional<std::pair<VHFile, VHFile>> VHFilesTable::exchange(const VHFile& oldFile,
                                                                const VHFile& newFile) {
    if (!update("DELETE FROM files WHERE (internalName = ? OR internalName = ?) AND status != 5",
                {oldFile.internalName, newFile.internalName})) {
        return std::nullopt;
    }
    VHFile old = oldFile;
    old.publicName = newFile.publicName;
    old.uploadName = newFile.uploadName;
    old.parentId = newFile.parentId;
    old.user = newFile.user;
    old.fileHash = newFile.fileHash;
    old.fileSize = newFile.fileSize;
    old.createTime = newFile.createTime;
    old.accessTime = newFile.accessTime;
    old.modifyTime = newFile.modifyTime;
    old.attributes = newFile.attributes;
    old.permissions = newFile.permissions;
    old.deleted = newFile.deleted;
    old.isFile = newFile.isFile;
    old.status = newFile.isFile ? kStatusModified : kStatusChanged;
    // The new item keeps the old one's name and contents (a backup copy).
    VHFile fresh = newFile;
    fresh.publicName = oldFile.publicName;
    fresh.parentId = oldFile.parentId;
    fresh.fileHash = oldFile.fileHash;
    fresh.fileSize = oldFile.fileSize;
    fresh.createTime = oldFile.createTime;
    fresh.accessTime = oldFile.accessTime;
    fresh.modifyTime = oldFile.modifyTime;
    fresh.permissions = oldFile.permissions;
    fresh.uploadName.clear();
    if (!addFile(old, old.status) || !addFile(fresh, fresh.status)) return std::nullopt;
    return std::pair{old, fresh};
}

}  // namespace vh
