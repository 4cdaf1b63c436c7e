// Lookups and listings of VHDatabase: reads of the files table by id, by
// parent and name, by parent or by share.
#include <set>

#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHStrings.h"
#include "store/VHDatabaseAccess.h"
#include "store/VHStoreHooks.h"

namespace vh {

namespace {

std::vector<VHFile> orEmpty(std::optional<std::vector<VHFile>> rows) {
    return rows ? std::move(*rows) : std::vector<VHFile>{};
}

}  // namespace

// ---- Lookups --------------------------------------------------------------------

std::optional<VHFile> VHDatabase::fileWithId(const std::string& id, bool shadow) {
    if (shadow) return read([&](VHFilesTable& t) { return t.fileWithId(id, true); });
    if (std::optional<VHFile> cached = records_.fileWithId(id)) return cached;
    uint64_t generation = records_.currentGeneration();
    std::optional<VHFile> file = read([&](VHFilesTable& t) { return t.fileWithId(id, false); });
    if (file) records_.insert(*file, generation);
    return file;
}

std::optional<VHFile> VHDatabase::serversideFileWithId(const std::string& id) {
    return read([&](VHFilesTable& t) {
        return t.file(
            "SELECT * FROM files WHERE internalName = ? AND status = 0 OR status = 5 LIMIT 0, 1",
            {id});
    });
}

std::optional<VHFile> VHDatabase::fileWithParentId(const std::string& parentId,
                                                   const std::string& name, bool shadow) {
    if (shadow)
        return read([&](VHFilesTable& t) { return t.fileWithParentId(parentId, name, true); });
    if (std::optional<std::optional<VHFile>> cached = cachedChild(parentId, name)) return *cached;
    uint64_t generation = records_.currentGeneration();
    std::optional<VHFile> file =
        read([&](VHFilesTable& t) { return t.fileWithParentId(parentId, name, false); });
    if (file) records_.insert(*file, generation);
    return file;
}

std::optional<std::optional<VHFile>> VHDatabase::cachedChild(const std::string& parentId,
                                                             const std::string& name) {
    std::optional<VHFile> found;
    VHRecordCache::Child child = records_.child(parentId, name, found);
    if (child == VHRecordCache::Child::Unknown && records_.shouldLoadFolder(parentId)) {
        uint64_t generation = records_.currentGeneration();
        auto rows = read([&](VHFilesTable& t) { return t.allInFolder(parentId); });
        if (rows) records_.insertFolder(parentId, *rows, generation);
        child = records_.child(parentId, name, found);
    }
    if (child == VHRecordCache::Child::Unknown) return std::nullopt;
    return found;
}

std::optional<std::string> VHDatabase::idOfFileNamed(const std::string& name,
                                                     const std::string& parentId, bool shadow) {
    return read([&](VHFilesTable& t) { return t.idOfFileNamed(name, parentId, shadow); });
}

std::optional<VHFile> VHDatabase::fileWithName(const std::string& name) {
    return read([&](VHFilesTable& t) {
        return t.file(
            "SELECT * FROM files WHERE publicName = ? AND status != 5 AND NOT deleted limit 0, 1",
            {name});
    });
}

std::optional<std::string> VHDatabase::allParents(const std::string& id) {
    return read([&](VHFilesTable& t) {
        return t.string("SELECT parentId FROM files WHERE internalName = ? AND status != 5", {id});
    });
}

std::vector<VHFile> VHDatabase::filesWithShareID(const std::string& shareId,
                                                 const std::string& id) {
    return orEmpty(read([&](VHFilesTable& t) {
        return t.files(
            "SELECT * FROM files WHERE shareId = ? AND internalName = ? AND status != 5 AND NOT "
            "deleted",
            {shareId, id});
    }));
}

bool VHDatabase::isFileLockedRemotely(const VHFile& file) {
    if (!file.isLocked || file.lockDeviceId.empty()) return false;
    return file.lockDeviceId != VHStoreHooks::app().deviceId();
}

// ---- Listings -------------------------------------------------------------------

std::vector<VHFile> VHDatabase::filesInFolder(const std::string& parentId, bool includeFolders) {
    return orEmpty(
        read([&](VHFilesTable& t) { return t.filesInFolder(parentId, includeFolders); }));
}

std::vector<VHFile> VHDatabase::filesWithParent(const std::string& parentId) {
    auto rows = read([&](VHFilesTable& t) { return t.filesInFolder(parentId, false); });
    if (!rows) VHLog(kLogDatabase, "%s : Cannot select %@ child files.", __func__, parentId);
    return orEmpty(std::move(rows));
}

std::vector<VHFile> VHDatabase::allShareSiblings(const std::string& shareId, bool includeFolders) {
    auto rows = read([&](VHFilesTable& t) {
        return t.files(includeFolders ? "SELECT * FROM files WHERE shareId = ? AND status != 5 AND "
                                        "NOT deleted"
                                      : "SELECT * FROM files WHERE shareId = ? AND status != 5 AND "
                                        "isFile AND NOT deleted",
                       {shareId});
    });
    if (!rows) VHLog(kLogDatabase, "%s : Cannot select share %@ child files.", __func__, shareId);
    return orEmpty(std::move(rows));
}

std::vector<VHFile> VHDatabase::allFolderSiblings(const std::string& folderId,
                                                  bool includeFolders) {
    return read([&](VHFilesTable& t) {
        std::vector<VHFile> found;
        std::vector<std::string> folders{folderId};
        std::set<std::string> visited{folderId};
        while (!folders.empty()) {
            std::string folder = folders.back();
            folders.pop_back();
            for (VHFile& child : orEmpty(t.filesInFolder(folder, true))) {
                if (!child.isFile && visited.insert(child.internalName).second) {
                    folders.push_back(child.internalName);
                }
                if (child.isFile || includeFolders) found.push_back(std::move(child));
            }
        }
        return found;
    });
}

std::vector<VHFile> VHDatabase::allFiles(bool includeFolders, int64_t offset, int64_t count) {
    auto rows = read([&](VHFilesTable& t) {
        return t.files(includeFolders ? "SELECT * FROM files WHERE status != 5 AND NOT deleted "
                                        "LIMIT ?, ?"
                                      : "SELECT * FROM files WHERE status != 5 AND isFile AND NOT "
                                        "deleted LIMIT ?, ?",
                       {offset, count});
    });
    if (!rows) {
        VHLog(kLogDatabase, "%s : Cannot select all files in range (%ld, %ld).", __func__, offset,
              count);
    }
    return orEmpty(std::move(rows));
}

std::vector<std::string> VHDatabase::fileIdsWithParent(const std::string& parentId) {
    return read([&](VHFilesTable& t) {
        return t.strings(
            "SELECT internalName FROM files WHERE parentId = ? AND status != 5 AND NOT deleted",
            {parentId});
    });
}

std::vector<std::string> VHDatabase::subfolderIdsWithParent(const std::string& parentId) {
    return read([&](VHFilesTable& t) {
        return t.strings(
            "SELECT internalName FROM files WHERE NOT isFile AND parentId = ? AND status != 5 AND "
            "NOT deleted",
            {parentId});
    });
}

std::vector<std::string> VHDatabase::allSubfolderIds(const std::vector<std::string>& folderIds) {
    std::vector<std::string> all;
    std::set<std::string> visited;
    std::vector<std::string> pending(folderIds.rbegin(), folderIds.rend());
    while (!pending.empty()) {
        std::string folder = pending.back();
        pending.pop_back();
        if (!visited.insert(folder).second) continue;
        all.push_back(folder);
        for (std::string& child : subfolderIdsWithParent(folder)) pending.push_back(child);
    }
    return all;
}

std::vector<VHFile> VHDatabase::listingWithParent(const std::string& parentId) {
    std::vector<VHFile> rows =
        orEmpty(read([&](VHFilesTable& t) { return t.filesInFolder(parentId, true); }));
    std::set<std::string> seen;
    std::vector<VHFile> listed;
    listed.reserve(rows.size());
    for (VHFile& row : rows) {
        if (VHStartsWith(row.publicName, ".fuse_hidden")) continue;
        if (seen.insert(row.publicName).second) {
            listed.push_back(std::move(row));
            continue;
        }
        VHLog(kLogDatabase, "%s : duplicate item %@ in directory listing, ignoring it.",
              "fileNamesListWithParent", row.publicName);
        write([&](VHFilesTable& t) {
            return t.update(
                "DELETE FROM files WHERE parentId = ? AND publicName = ? AND status != 5 AND NOT "
                "deleted LIMIT 1",
                {parentId, row.publicName});
        });
    }
    return listed;
}

std::vector<std::string> VHDatabase::fileNamesListWithParent(const std::string& parentId) {
    std::vector<std::string> names;
    for (VHFile& row : listingWithParent(parentId)) names.push_back(std::move(row.publicName));
    return names;
}

bool VHDatabase::folderIsEmpty(const std::string& folderId, bool includeDeleted) {
    auto count = read([&](VHFilesTable& t) {
        return t.integer(includeDeleted ? "SELECT COUNT(*) FROM files WHERE parentId = ? AND "
                                          "status != 5"
                                        : "SELECT COUNT(*) FROM files WHERE parentId = ? AND "
                                          "status != 5 AND NOT deleted",
                         {folderId});
    });
    return count.value_or(0) == 0;
}

std::vector<std::string> VHDatabase::foldersWithUploads() {
    return read([&](VHFilesTable& t) {
        return t.strings("SELECT DISTINCT parentId FROM files WHERE status == 1 OR status == 2",
                         {});
    });
}

int64_t VHDatabase::totalFileSize() {
    return read([&](VHFilesTable& t) {
               return t.integer("SELECT SUM(fileSize) FROM files WHERE status != 5", {});
           })
        .value_or(0);
}

}  // namespace vh
