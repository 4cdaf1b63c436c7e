// The clean-up of a first-generation metadata folder, run before files.db is
// created: its unfinished uploads are rescued into "UploadsBackup" (with a
// "Readme.txt" report) and everything else in the folder is removed.
#pragma once

#include <map>
#include <string>

namespace vh {

class VHMigration {
  public:
    // Does nothing unless a first-generation "shares.db" or "journal.db" can
    // be read in the metadata folder.
    static void checkIfMigrationNeeded();
    // Entries of the metadata folder that the clean-up must leave alone
    // besides "UploadsBackup" and "Logs" (for example a credentials store or
    // an instance lock kept there by a higher layer). Thread-safe.
    static void keepMetadataEntry(const std::string& name);

    static std::string metadataDir();
    static std::string metadataDbPath();
    static std::string journalPath();
    static std::string uploadsPath();
    static bool version1DatabaseAvailable();
    static bool version1UploadsAvailable();
    // Moves every unfinished upload into "UploadsBackup", reporting each in
    // its "Readme.txt".
    static void backupUploadsToFolder();

  private:
    static std::map<std::string, std::string> shareNames();
    static void removeFirstGenerationEntries();
};

}  // namespace vh
