// Bookkeeping of transfers and synchronized folders: the uploads, downloads
// and syncedfolders tables, and the upload list in the files table.
#include <set>

#include "lib/VHLog.h"
#include "store/VHDatabaseAccess.h"
#include "store/VHStoreHooks.h"

namespace vh {

namespace {

std::vector<VHFile> orEmpty(std::optional<std::vector<VHFile>> rows) {
    return rows ? std::move(*rows) : std::vector<VHFile>{};
}

// Marked itself or, with `recurse`, through any ancestor.
bool synchronizedAtOrAbove(VHFilesTable& t, const std::string& itemId, bool recurse) {
    if (t.isSynchronized(itemId)) return true;
    std::set<std::string> visited{itemId};
    std::optional<std::string> parent = recurse ? t.parentIdOf(itemId) : std::nullopt;
    while (parent && !parent->empty() && visited.insert(*parent).second) {
        if (t.isSynchronized(*parent)) return true;
        parent = t.parentIdOf(*parent);
    }
    return false;
}

}  // namespace

// ---- Uploads and downloads --------------------------------------------------------

int64_t VHDatabase::uploadsNumber() {
    return read([&](VHFilesTable& t) {
               return t.integer("SELECT COUNT(*) FROM files WHERE status = 2 OR status = 1", {});
           })
        .value_or(0);
}

int64_t VHDatabase::uploadsSize() {
    return read([&](VHFilesTable& t) {
               return t.integer("SELECT SUM(fileSize) FROM files WHERE status = 2 OR status = 1",
                                {});
           })
        .value_or(0);
}

std::vector<VHFile> VHDatabase::uploadsFromIndex(int64_t offset, int64_t count) {
    return orEmpty(read([&](VHFilesTable& t) {
        return t.files(
            "SELECT * FROM files WHERE status = 1 OR status = 2 OR status = 3 ORDER BY deleted "
            "DESC, status DESC LIMIT ?, ?",
            {offset, count});
    }));
}

bool VHDatabase::markFileUploaded(const VHFile& file) {
    serverPlaces_.forget(file.internalName);
    return write([&](VHFilesTable& t) {
        return t.update(
            "UPDATE files SET status = 4 WHERE internalName = ? AND status != 5 AND status != 0",
            {file.internalName});
    });
}

std::vector<VHFile> VHDatabase::rowsNamed(const std::string& parentId, const std::string& name) {
    return orEmpty(read([&](VHFilesTable& t) {
        return t.files("SELECT * FROM files WHERE parentId = ? AND publicName = ?",
                       {parentId, name});
    }));
}

bool VHDatabase::hasPendingChildren(const std::string& folderId) {
    auto count = read([&](VHFilesTable& t) {
        return t.integer(
            "SELECT COUNT(*) FROM files f WHERE parentId = ? AND (status IN (1, 2, 3) OR (status "
            "= 5 AND EXISTS (SELECT 1 FROM files l WHERE l.internalName = f.internalName AND "
            "l.status IN (1, 2, 3))))",
            {folderId});
    });
    return count.value_or(0) > 0;
}

bool VHDatabase::movedOnService(const std::string& id, const std::string& name,
                                const std::string& parentId) {
    serverPlaces_.moved(id, {parentId, name});
    return write([&](VHFilesTable& t) {
        return t.update(
            "UPDATE files SET publicName = ?, parentId = ? WHERE internalName = ? AND status = 5",
            {name, parentId, id});
    });
}

std::optional<VHFileUploadStatus> VHDatabase::uploadStatusForFile(const VHFile& file) {
    return read([&](VHFilesTable& t) {
        return t.upload("SELECT * FROM uploads WHERE internalName = ? LIMIT 0, 1",
                        {file.internalName});
    });
}

bool VHDatabase::updateUploadStatus(const VHFileUploadStatus& s) {
    return write([&](VHFilesTable& t) {
        return t.update("DELETE FROM uploads WHERE internalName = ?", {s.internalName}) &&
               t.update(
                   "INSERT INTO uploads (internalName, tick, startTime, finishTime, progress, "
                   "fileHash, uploadName, token) VALUES(?, ?, ?, ?, ?, ?, ?, ?)",
                   {s.internalName, int64_t{s.tick}, VHSqlDate(s.startTime),
                    VHSqlDate(s.finishTime), s.progress, s.fileHash, s.uploadName, s.token});
    });
}

bool VHDatabase::deleteUploadStatusForFile(const VHFile& file) {
    return write([&](VHFilesTable& t) {
        return t.update("DELETE FROM uploads WHERE internalName = ?", {file.internalName});
    });
}

bool VHDatabase::markFileDownloaded(const VHFile& file) {
    VHSqlValue now = VHSqlDate(VHDate::now());
    return write([&](VHFilesTable& t) {
        return t.deleteFileDownload(file.internalName) &&
               t.update(
                   "INSERT INTO downloads (internalName, downloadTime, lastReadTime, "
                   "downloadStatus) VALUES(?, ?, ?, ?)",
                   {file.internalName, now, now, int64_t{2}});
    });
}

bool VHDatabase::deleteFileDownload(const VHFile& file) {
    return write([&](VHFilesTable& t) { return t.deleteFileDownload(file.internalName); });
}

bool VHDatabase::deleteDownloadsOlderThen(VHDate cutOff) {
    struct Expiry {
        std::vector<VHFile> uncached;  // whose content goes
        bool deleted = false;
    };
    Expiry expiry = write([&](VHFilesTable& t) {
        Expiry found;
        for (const std::string& id : t.strings("SELECT internalName FROM downloads WHERE "
                                               "downloadTime < ? AND downloadStatus = 2",
                                               {VHSqlDate(cutOff)})) {
            if (synchronizedAtOrAbove(t, id, true)) continue;
            VHLog(kLogDatabase, "File download %@ appears to be expired - deleting.", id);
            if (auto file = t.fileWithId(id, false)) found.uncached.push_back(std::move(*file));
        }
        found.deleted =
            t.update("DELETE FROM downloads WHERE downloadTime < ? AND downloadStatus = 2",
                     {VHSqlDate(cutOff)});
        return found;
    });
    for (const VHFile& file : expiry.uncached) VHStoreHooks::cache().deleteFileCache(file);
    return expiry.deleted;
}

// ---- Synchronized folders ----------------------------------------------------------

bool VHDatabase::markItemSynchronized(const std::string& itemId, bool synced) {
    return write([&](VHFilesTable& t) {
        if (!t.update("DELETE FROM syncedfolders WHERE itemId = ?", {itemId})) return false;
        return !synced || t.update("INSERT INTO syncedfolders (itemId, changeTime) VALUES (?, ?)",
                                   {itemId, VHSqlDate(VHDate::now())});
    });
}

bool VHDatabase::shareSynchronized(const std::string& shareId) {
    return read([&](VHFilesTable& t) { return t.isSynchronized(shareId); });
}

std::vector<std::string> VHDatabase::syncedFolders() {
    return read([&](VHFilesTable& t) { return t.strings("SELECT itemId FROM syncedfolders", {}); });
}

bool VHDatabase::itemSynchronized(const std::string& itemId, bool recurse) {
    return read([&](VHFilesTable& t) { return synchronizedAtOrAbove(t, itemId, recurse); });
}

}  // namespace vh
