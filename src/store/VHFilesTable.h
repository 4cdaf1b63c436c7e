// The statements of the metadata database over one connection: the write
// connection on the database thread, or a thread's own read-only one. Nothing
// here locks, waits or calls a hook. A failed statement is logged ("Update
// query %@ failed: %@", "Select query %@ failed: %@") and gives false or
// nothing; with a journal it is also counted there.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lib/VHSqlite.h"
#include "store/VHFile.h"
#include "store/VHStatementJournal.h"

namespace vh {

class VHFilesTable {
  public:
    // `db` is null when the connection could not be opened. `journal`, when
    // given, must outlive the table.
    explicit VHFilesTable(VHSqlite* db, VHStatementJournal* journal = nullptr)
        : db_(db), journal_(journal) {}

    // ---- Primitives by result type ----
    bool update(const std::string& sql, const std::vector<VHSqlValue>& values = {});
    // Nothing when the statement failed; an empty list when no row matched.
    std::optional<std::vector<VHFile>> files(const std::string& sql,
                                             const std::vector<VHSqlValue>& values);
    std::optional<VHFile> file(const std::string& sql, const std::vector<VHSqlValue>& values);
    std::optional<std::string> string(const std::string& sql,
                                      const std::vector<VHSqlValue>& values);
    std::vector<std::string> strings(const std::string& sql, const std::vector<VHSqlValue>& values);
    std::optional<int64_t> integer(const std::string& sql, const std::vector<VHSqlValue>& values);
    std::optional<VHFileUploadStatus> upload(const std::string& sql,
                                             const std::vector<VHSqlValue>& values);

    // ---- Statements shared by several operations ----
    std::optional<VHFile> fileWithId(const std::string& id, bool shadow);
    std::optional<VHFile> fileWithParentId(const std::string& parentId, const std::string& name,
                                           bool shadow);
    std::optional<std::string> idOfFileNamed(const std::string& name, const std::string& parentId,
                                             bool shadow);
    std::optional<std::string> parentIdOf(const std::string& id);
    std::optional<std::vector<VHFile>> filesInFolder(const std::string& parentId,
                                                     bool includeFolders);
    // Every row of a folder but shadows, deleted ones too.
    std::optional<std::vector<VHFile>> allInFolder(const std::string& parentId);
    bool addFile(const VHFile& file, uint64_t status);
    bool deleteFile(const std::string& id);
    bool deleteFileWithTick(const std::string& id, uint64_t tick);
    bool deleteFileShadow(const std::string& id);
    bool deleteFileDownload(const std::string& id);
    bool updateParentShareId(const std::string& id, const std::string& parentShareId);
    bool updateLockStatus(const VHFile& file, bool setChanged);
    bool isSynchronized(const std::string& itemId);
    // The live rows of both ids are replaced: `newFile`'s contents go under
    // `oldFile`'s identity (status 2 for a file, 3 for a folder) and the new
    // identity keeps the old name. Returns the two rows as written.
    std::optional<std::pair<VHFile, VHFile>> exchange(const VHFile& oldFile, const VHFile& newFile);

  private:
    VHSqliteStatement* select(const std::string& sql, const std::vector<VHSqlValue>& values);
    void selectFailed(const std::string& sql);
    bool injectedFault(const std::string& sql);

    VHSqlite* db_;
    VHStatementJournal* journal_;
};

// Binding helpers: dates as seconds since 1970, flags as 0 or 1.
inline VHSqlValue VHSqlDate(VHDate date) {
    return date.seconds;
}
inline VHSqlValue VHSqlFlag(bool flag) {
    return int64_t{flag ? 1 : 0};
}

}  // namespace vh
