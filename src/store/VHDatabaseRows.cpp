// Row changes: one INSERT, UPDATE or DELETE of the files table per call, each
// one job on the database thread.
#include "lib/VHNameRules.h"
#include "store/VHDatabaseAccess.h"

namespace vh {

bool VHDatabase::addFile(const VHFile& file, uint64_t status) {
    return write([&](VHFilesTable& t) { return t.addFile(file, status); });
}

bool VHDatabase::updateFileAttributes(const VHFile& file) {
    return write([&](VHFilesTable& t) {
        return t.update(
            "UPDATE files SET permissions = ?, modifyTime = ?, accessTime = ? WHERE internalName "
            "= ? AND status != 5",
            {file.permissions, VHSqlDate(file.modifyTime), VHSqlDate(file.accessTime),
             file.internalName});
    });
}

bool VHDatabase::updateFileLockStatus(const VHFile& file) {
    return write([&](VHFilesTable& t) {
        std::optional<VHFile> row = t.fileWithId(file.internalName, false);
        if (!row) return false;
        VHFile locked = file;
        locked.status = row->status;
        if (row->status != kStatusSynchronized) return t.updateLockStatus(locked, false);
        return t.addFile(*row, kStatusShadow) && t.updateLockStatus(locked, true);
    });
}

bool VHDatabase::updateFileLockStatusAndStatusUnChanged(const VHFile& file) {
    return write([&](VHFilesTable& t) { return t.updateLockStatus(file, false); });
}

bool VHDatabase::updateParentShareId(const VHFile& file) {
    return write([&](VHFilesTable& t) {
        return t.updateParentShareId(file.internalName, file.parentShareId);
    });
}

bool VHDatabase::updateFileWithId(const std::string& id, const std::string& newShareId,
                                  const std::string& newParentShareId) {
    return write([&](VHFilesTable& t) {
        return t.update("UPDATE files SET shareId = ?, parentShareId = ? WHERE internalName = ?",
                        {newShareId, newParentShareId, id});
    });
}

bool VHDatabase::updateFileWithId(const std::string& id, const std::string& newShareId,
                                  uint64_t status) {
    return write([&](VHFilesTable& t) {
        return t.update("UPDATE files SET shareId = ?, status = ? WHERE internalName = ?",
                        {newShareId, status, id});
    });
}

bool VHDatabase::deleteFileRecord(const std::string& id) {
    return write([&](VHFilesTable& t) { return t.deleteFile(id); });
}

bool VHDatabase::deleteFile(const VHFile& file, uint64_t tick) {
    return write([&](VHFilesTable& t) { return t.deleteFileWithTick(file.internalName, tick); });
}

bool VHDatabase::deleteFileShadow(const std::string& id) {
    return write([&](VHFilesTable& t) { return t.deleteFileShadow(id); });
}

bool VHDatabase::deleteFileWithParentId(const std::string& parentId, const std::string& name) {
    return write([&](VHFilesTable& t) {
        return t.update("DELETE * FROM files WHERE parentId = ? AND publicName = ? AND status",
                        {parentId, name});
    });
}

bool VHDatabase::deleteAllTempFiles() {
    return write([&](VHFilesTable& t) {
        return t.update("DELETE FROM files WHERE shareId = ?", {std::string(kTempShareId)});
    });
}

bool VHDatabase::updateFileNew(const VHVirtualFile& item) {
    VHFile server = VHFile::fromVirtualFile(item);
    return write([&](VHFilesTable& t) {
        return t.update(
            "UPDATE files SET uploadName = ?, hash = ?, tick = ?, shareTick = ?, updateTick = ?, "
            "createTick = ? WHERE internalName = ? AND status != 5",
            {server.uploadName, server.fileHash, server.tick, server.shareTick, server.updateTick,
             server.createTick, server.internalName});
    });
}

}  // namespace vh
