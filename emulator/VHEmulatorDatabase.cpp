#include "VHEmulatorDatabase.h"

#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

const char* kSchema = R"sql(
PRAGMA journal_mode = WAL;
PRAGMA synchronous = NORMAL;
CREATE TABLE IF NOT EXISTS meta (key TEXT PRIMARY KEY, value TEXT);
CREATE TABLE IF NOT EXISTS domains (domainId TEXT PRIMARY KEY, url TEXT UNIQUE COLLATE NOCASE,
  name TEXT, resellerId TEXT);
CREATE TABLE IF NOT EXISTS users (userId TEXT PRIMARY KEY, email TEXT UNIQUE COLLATE NOCASE,
  password TEXT, name TEXT, companyId TEXT, primaryDomainId TEXT, requireKnownDevices INTEGER,
  createTime REAL, lastLoginTime REAL);
CREATE TABLE IF NOT EXISTS memberships (email TEXT COLLATE NOCASE, domainId TEXT, token TEXT,
  cookie TEXT, PRIMARY KEY (email, domainId));
CREATE TABLE IF NOT EXISTS devices (deviceId TEXT, email TEXT COLLATE NOCASE, wipe INTEGER,
  PRIMARY KEY (deviceId, email));
CREATE TABLE IF NOT EXISTS shares (shareId TEXT PRIMARY KEY, domainId TEXT, name TEXT,
  companyId TEXT, vshareId TEXT, ownerEmail TEXT, parentShareId TEXT, rootFolder TEXT,
  tick INTEGER, createTime REAL, modifyTime REAL);
CREATE TABLE IF NOT EXISTS acls (shareId TEXT, email TEXT COLLATE NOCASE, aclType INTEGER,
  token TEXT, PRIMARY KEY (shareId, email));
CREATE TABLE IF NOT EXISTS items (internalName TEXT PRIMARY KEY, shareId TEXT, parentId TEXT,
  name TEXT, isFile INTEGER, size INTEGER, uploadName TEXT, blobId TEXT, hash TEXT, user TEXT,
  tick INTEGER, updateTick INTEGER, createTick INTEGER, createTime REAL, accessTime REAL,
  writeTime REAL, attributes INTEGER, permissions INTEGER, deleted INTEGER, locked INTEGER,
  lockDeviceId TEXT, lockedBy TEXT, lockTime INTEGER);
CREATE INDEX IF NOT EXISTS items_share_tick ON items (shareId, tick);
CREATE INDEX IF NOT EXISTS items_parent_name ON items (parentId, name);
CREATE INDEX IF NOT EXISTS items_upload ON items (uploadName);
CREATE TABLE IF NOT EXISTS departures (shareId TEXT, internalName TEXT, tick INTEGER,
  PRIMARY KEY (shareId, internalName));
CREATE INDEX IF NOT EXISTS departures_tick ON departures (shareId, tick);
CREATE TABLE IF NOT EXISTS uploads (uploadName TEXT PRIMARY KEY, token TEXT, shareId TEXT,
  internalName TEXT, eventType INTEGER, fields TEXT, expected INTEGER, position INTEGER,
  blobId TEXT, user TEXT, deviceId TEXT, transmitId TEXT, created REAL,
  reserved INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS events (seq INTEGER PRIMARY KEY AUTOINCREMENT, domainId TEXT,
  messageType INTEGER, sender TEXT, message TEXT, time REAL);
CREATE INDEX IF NOT EXISTS events_domain ON events (domainId, seq);
CREATE TABLE IF NOT EXISTS directlinks (linkId TEXT PRIMARY KEY, email TEXT COLLATE NOCASE,
  domainId TEXT, jsonData TEXT, expires REAL, maxUse INTEGER, used INTEGER);
CREATE TABLE IF NOT EXISTS publiclinks (linkId TEXT PRIMARY KEY, shareId TEXT,
  internalName TEXT, email TEXT, expires REAL, maxUse INTEGER, used INTEGER, password TEXT);
)sql";

}  // namespace

bool VHEmulatorDatabase::open(const std::string& path) {
    auto guard = lock();
    if (!sql_.open(path) || !sql_.execScript(kSchema) || !upgrade()) {
        VHEmulatorLog("cannot open the state database " + path + ": " + sql_.lastError());
        return false;
    }
    return true;
}

bool VHEmulatorDatabase::upgrade() {
    bool hasReserved = false;
    query("PRAGMA table_info(uploads)", {},
          [&](const Row& row) { hasReserved |= row.columnText(1) == "reserved"; });
    if (hasReserved) return true;
    // Uploads of an older state had their whole size allocated.
    return run("ALTER TABLE uploads ADD COLUMN reserved INTEGER NOT NULL DEFAULT 0") &&
           run("UPDATE uploads SET reserved = expected");
}

bool VHEmulatorDatabase::run(const std::string& sql, const std::vector<VHEmulatorValue>& values) {
    if (sql_.query(sql, values, [](const Row&) {})) return true;
    VHEmulatorLog("statement failed: " + sql + " (" + sql_.lastError() + ")");
    return false;
}

bool VHEmulatorDatabase::query(const std::string& sql, const std::vector<VHEmulatorValue>& values,
                               const std::function<void(const Row&)>& row) {
    if (sql_.query(sql, values, row)) return true;
    VHEmulatorLog("query failed: " + sql + " (" + sql_.lastError() + ")");
    return false;
}

std::optional<int64_t> VHEmulatorDatabase::integer(const std::string& sql,
                                                   const std::vector<VHEmulatorValue>& values) {
    std::optional<int64_t> result;
    query(sql, values, [&](const Row& row) {
        if (!result && !row.columnIsNull(0)) result = row.columnInt64(0);
    });
    return result;
}

std::optional<std::string> VHEmulatorDatabase::text(const std::string& sql,
                                                    const std::vector<VHEmulatorValue>& values) {
    std::optional<std::string> result;
    query(sql, values, [&](const Row& row) {
        if (!result && !row.columnIsNull(0)) result = row.columnText(0);
    });
    return result;
}

bool VHEmulatorDatabase::transaction(const std::function<bool()>& work) {
    if (inTransaction_) return work();
    if (!run("BEGIN IMMEDIATE")) return false;
    inTransaction_ = true;
    bool ok = work();
    inTransaction_ = false;
    if (ok && run("COMMIT")) return true;
    run("ROLLBACK");
    return false;
}

std::optional<std::string> VHEmulatorDatabase::meta(const std::string& key) {
    return text("SELECT value FROM meta WHERE key = ?", {key});
}

bool VHEmulatorDatabase::setMeta(const std::string& key, const std::string& value) {
    return run("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)", {key, value});
}

}  // namespace vh::emulator
