#include "store/VHDatabaseSchema.h"

#include "lib/VHAppInfo.h"
#include "lib/VHFatalError.h"
#include "lib/VHLog.h"
#include "lib/VHSqlite.h"
#include "store/VHDatabase.h"
#include "store/VHFilesTable.h"

namespace vh {

namespace {

const char* const kCreateScript =
    "CREATE TABLE files (publicName TEXT, shareId TEXT, uploadName TEXT, internalName TEXT, "
    "parentId TEXT, user TEXT, hash TEXT, tick INTEGER, shareTick INTEGER, updateTick INTEGER, "
    "createTick INTEGER, fileSize INTEGER, createTime INTEGER, accessTime INTEGER, modifyTime "
    "INTEGER, attributes INTEGER, permissions INTEGER, deleted INTEGER, isFile INTEGER, status "
    "INTEGER, isLocked INTEGER, lockDeviceId TEXT, lockTick INTEGER, lockedBy TEXT, "
    "parentShareId TEXT);"
    "CREATE INDEX idx_publicName ON files(publicName);"
    "CREATE INDEX idx_shareId ON files(shareId);"
    "CREATE INDEX idx_uploadName ON files(uploadName);"
    "CREATE INDEX idx_internalName ON files(internalName);"
    "CREATE INDEX idx_parentId ON files(parentId);"
    "CREATE INDEX idx_deleted ON files(deleted);"
    "CREATE INDEX idx_status ON files(status);"
    "CREATE INDEX idx_idandstatus ON files(internalName, status);"
    "CREATE INDEX idx_parentAndName ON files(parentId, publicName);"
    "CREATE TABLE db_metadata (dbVersion TEXT, appVersion TEXT, createTime INTEGER);"
    "CREATE TABLE downloads (internalName TEXT, downloadTime INTEGER, lastReadTime INTEGER, "
    "downloadStatus INTEGER);"
    "CREATE INDEX idx_dnl_internalName ON downloads(internalName);"
    "CREATE INDEX idx_dnl_time ON downloads(downloadTime);"
    "CREATE INDEX idx_dnl_readTime ON downloads(lastReadTime);"
    "CREATE TABLE syncedfolders (itemId TEXT, changeTime INTEGER);"
    "CREATE INDEX idx_sync_itemId ON syncedfolders(itemId);"
    "CREATE TABLE uploads (internalName TEXT, tick INTEGER, startTime INTEGER, finishTime "
    "INTEGER, progress INTEGER, fileHash TEXT, uploadName TEXT, token TEXT);"
    "CREATE INDEX idx_upl_name ON uploads(internalName);";

struct UpgradeStep {
    const char* from;
    const char* to;
    const char* announcement;
    const char* script;
};

const UpgradeStep kUpgradeSteps[] = {
    {"1.0", "1.1", "Executing version 1.0 to 1.1 upgrade statement...",
     "ALTER TABLE downloads ADD COLUMN lastReadTime INTEGER;CREATE INDEX idx_dnl_time ON "
     "downloads(downloadTime);CREATE INDEX idx_dnl_readTime ON downloads(lastReadTime);CREATE "
     "TABLE uploads (    internalName TEXT,    tick INTEGER,    startTime INTEGER,    finishTime "
     "INTEGER,    progress INTEGER,    fileHash TEXT,    uploadName TEXT,    token TEXT);CREATE "
     "INDEX idx_upl_name ON uploads(internalName);"},
    {"1.1", "1.2", "Executing version 1.1 to 1.2 upgrade statement...",
     "ALTER TABLE files ADD COLUMN isLocked INTEGER;ALTER TABLE files ADD COLUMN lockDeviceId "
     "TEXT;ALTER TABLE files ADD COLUMN lockTick INTEGER;ALTER TABLE files ADD COLUMN lockedBy "
     "TEXT;"},
    {"1.2", "1.3", "Executing version 1.2 to 1.3 upgrade statement...",
     "ALTER TABLE files ADD COLUMN parentShareId TEXT;"},
};

}  // namespace

bool VHDatabaseSchema::createDatabase(const std::string& path) {
    VHSqlite db;
    if (!db.open(path, VHSqlite::Mode::ReadWriteCreate) || !verifyConnection(db)) {
        VHLog(kLogDatabase, "Cannot create and/or open database!");
        VHReportFatalError(kExitDatabaseFailure);
        return false;
    }
    useWriteAheadLog(db);
    if (!db.execScript(kCreateScript)) {
        VHLog(kLogDatabase, "Failed to initialize table: query execution failed. Error %@",
              db.lastError());
        VHReportFatalError(kExitDatabaseFailure);
        return false;
    }
    insertVersionRow(db);
    return true;
}

bool VHDatabaseSchema::useWriteAheadLog(VHSqlite& db) {
    VHSqliteStatement* s = db.prepare("PRAGMA journal_mode=WAL");
    std::string mode = s && s->step() == VHSqliteStatement::Step::Row ? s->columnText(0) : "";
    if (s) s->reset();
    if (mode == "wal") return true;
    VHLog(kLogDatabase, "Warning! Cannot switch the database to write-ahead logging: %@",
          mode.empty() ? db.lastError() : mode);
    return false;
}

bool VHDatabaseSchema::verifyConnection(VHSqlite& db) {
    // Unlike a constant query, this reads the file's header.
    VHSqliteStatement* s = db.prepare("SELECT COUNT(*) FROM sqlite_master");
    bool usable = s && s->step() == VHSqliteStatement::Step::Row;
    if (s) s->reset();
    return usable;
}

bool VHDatabaseSchema::insertVersionRow(VHSqlite& db) {
    return VHFilesTable(&db).update(
        "INSERT INTO db_metadata (dbVersion, appVersion, createTime) VALUES(?, ?, "
        "CURRENT_TIMESTAMP)",
        {std::string(cCurrentDBVersion), std::string(kShortVersion)});
}

void VHDatabaseSchema::checkDatabaseVersion(VHSqlite& db) {
    VHSqliteStatement* s = db.prepare(
        "SELECT dbVersion, appVersion, createTime FROM db_metadata "
        "LIMIT 1 OFFSET 0");
    if (!s || s->step() != VHSqliteStatement::Step::Row) {
        VHLog(kLogDatabase, "%s : database version check query failed, error %@. Cannot continue.",
              __func__, db.lastError());
        return;
    }
    std::string version = s->columnText(0);
    VHLog(kLogDatabase,
          "Database opened. Db version: %@, created or upgraded by app version %@ at %@", version,
          s->columnText(1), s->columnText(2));
    s->reset();
    if (version == cCurrentDBVersion) return;
    VHLog(kLogDatabase,
          "Got database version %@, while it should be %@. Upgrading database to the latest "
          "version...",
          version, cCurrentDBVersion);
    upgradeDatabase(db, version);
}

void VHDatabaseSchema::upgradeDatabase(VHSqlite& db, const std::string& version) {
    std::string current = version;
    for (const UpgradeStep& step : kUpgradeSteps) {
        if (current != step.from) continue;
        VHLog(kLogDatabase, step.announcement);
        if (!db.execScript(step.script)) {
            VHLog(kLogDatabase, "Upgrade statement failed. Error %@", db.lastError());
        }
        if (current == "1.0" &&
            !db.run("UPDATE downloads SET lastReadTime = ?;", {VHSqlDate(VHDate::now())})) {
            VHLog(kLogDatabase, "Upgrade statement #2 failed. Error %@", db.lastError());
        }
        VHLog(kLogDatabase, "Upgrade statement succeeded.");
        current = step.to;
    }
    if (current != cCurrentDBVersion) return;
    VHFilesTable(&db).update("DELETE FROM db_metadata");
    insertVersionRow(db);
    VHLog(kLogDatabase, "Database scheme upgraded to the latest version successfully.");
}

}  // namespace vh
