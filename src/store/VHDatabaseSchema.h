// Creating files.db and bringing an older one up to the current schema.
#pragma once

#include <string>

namespace vh {

class VHSqlite;

class VHDatabaseSchema {
  public:
    // Creates the file with the current schema and its version row, in
    // write-ahead-log mode. When it cannot be created or the script fails, the
    // fatal failure 10 is reported and the result is false.
    static bool createDatabase(const std::string& path);
    // "PRAGMA journal_mode=WAL": readers then never wait for the writer. The
    // mode is kept in the file; false (logged) when it did not take.
    static bool useWriteAheadLog(VHSqlite& db);
    // Reads the version row and upgrades when it is older. A failing query is
    // logged and leaves the database as it is.
    static void checkDatabaseVersion(VHSqlite& db);
    // Applies every step from `version` on; failing steps are logged and
    // skipped. An unknown version gets no step.
    static void upgradeDatabase(VHSqlite& db, const std::string& version);

    // The file is a database that can be read.
    static bool verifyConnection(VHSqlite& db);

  private:
    static bool insertVersionRow(VHSqlite& db);
};

}  // namespace vh
