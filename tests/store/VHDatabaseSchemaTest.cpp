// Creating, opening and upgrading files.db, the ends of the process when that
// is impossible, and the clean-up of first-generation metadata.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "lib/VHFatalError.h"
#include "lib/VHPaths.h"
#include "store/VHPropertyList.h"
#include "support/VHStoreTestSupport.h"

namespace fs = std::filesystem;

namespace vh::test {
namespace {

std::string dbFile() {
    return VHPaths::join(VHPaths::metadataDir(), "files.db");
}

std::vector<std::string> columns(VHSqlite& sql, const std::string& table) {
    std::vector<std::string> names;
    VHSqliteStatement* s = sql.prepare("PRAGMA table_info(" + table + ")");
    while (s && s->step() == VHSqliteStatement::Step::Row) names.push_back(s->columnText(1));
    return names;
}

std::string text(VHSqlite& sql, const std::string& query) {
    VHSqliteStatement* s = sql.prepare(query);
    return s && s->step() == VHSqliteStatement::Step::Row ? s->columnText(0) : "<none>";
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

// A files.db as the first release wrote it, with one item and one download.
void writeVersion10() {
    fs::create_directories(VHPaths::metadataDir());
    VHSqlite sql;
    ASSERT_TRUE(sql.open(dbFile(), VHSqlite::Mode::ReadWriteCreate));
    ASSERT_TRUE(sql.execScript(
        "CREATE TABLE files (publicName TEXT, shareId TEXT, uploadName TEXT, internalName TEXT, "
        "parentId TEXT, user TEXT, hash TEXT, tick INTEGER, shareTick INTEGER, updateTick "
        "INTEGER, createTick INTEGER, fileSize INTEGER, createTime INTEGER, accessTime INTEGER, "
        "modifyTime INTEGER, attributes INTEGER, permissions INTEGER, deleted INTEGER, isFile "
        "INTEGER, status INTEGER);"
        "CREATE TABLE db_metadata (dbVersion TEXT, appVersion TEXT, createTime INTEGER);"
        "CREATE TABLE downloads (internalName TEXT, downloadTime INTEGER, downloadStatus "
        "INTEGER);"
        "CREATE TABLE syncedfolders (itemId TEXT, changeTime INTEGER);"
        "INSERT INTO db_metadata VALUES ('1.0', '0.9', CURRENT_TIMESTAMP);"
        "INSERT INTO files VALUES ('old.txt', 's1', '', 'f1', 's1', 'u', 'h', 3, 3, 3, 3, 7, 1, "
        "1, 1, 128, 384, 0, 1, 0);"
        "INSERT INTO downloads VALUES ('f1', 5, 2);"));
}

TEST(VHDatabaseSchema, Version10IsUpgradedOnLoad) {
    writeVersion10();
    VHLogRecorder log;
    VHDatabase::database().load();
    std::optional<VHFile> old = VHDatabase::database().fileWithId("f1");
    VHDatabase::database().unload();

    EXPECT_EQ(fs::status(VHPaths::metadataDir()).permissions() & fs::perms::all,
              fs::perms::owner_all);  // nobody else reads the metadata
    VHSqlite sql;
    ASSERT_TRUE(sql.open(dbFile(), VHSqlite::Mode::ReadOnly));
    EXPECT_EQ(text(sql, "SELECT dbVersion FROM db_metadata"), "1.3");
    EXPECT_EQ(text(sql, "SELECT COUNT(*) FROM db_metadata"), "1");
    EXPECT_EQ(text(sql, "PRAGMA journal_mode"), "wal");  // readers never wait for the writer
    std::vector<std::string> files = columns(sql, "files");
    ASSERT_EQ(files.size(), 25u);
    EXPECT_EQ(std::vector<std::string>(files.begin() + 19, files.end()),
              (std::vector<std::string>{"status", "isLocked", "lockDeviceId", "lockTick",
                                        "lockedBy", "parentShareId"}));
    EXPECT_EQ(columns(sql, "downloads").back(), "lastReadTime");
    EXPECT_NE(text(sql, "SELECT lastReadTime FROM downloads"), "");
    EXPECT_EQ(columns(sql, "uploads").size(), 8u);
    for (const char* step : {"1.0 to 1.1", "1.1 to 1.2", "1.2 to 1.3"}) {
        EXPECT_TRUE(log.contains(std::string("Executing version ") + step + " upgrade statement"));
    }
    EXPECT_TRUE(log.contains("Database scheme upgraded to the latest version successfully."));

    ASSERT_TRUE(old);  // the old row reads with the added columns empty
    EXPECT_EQ(old->publicName, "old.txt");
    EXPECT_EQ(old->fileSize, 7u);
    EXPECT_FALSE(old->isLocked);
    EXPECT_EQ(old->parentShareId, "");
}

TEST(VHDatabaseSchema, EmptyFileIsCreatedAfreshAndUnknownVersionLeftAlone) {
    fs::create_directories(VHPaths::metadataDir());
    std::ofstream(dbFile()).close();
    VHDatabase::database().load();
    VHDatabase::database().unload();
    {
        VHSqlite sql;
        ASSERT_TRUE(sql.open(dbFile(), VHSqlite::Mode::ReadWrite));
        EXPECT_EQ(text(sql, "SELECT dbVersion FROM db_metadata"), "1.3");
        EXPECT_EQ(columns(sql, "files").size(), 25u);
        ASSERT_TRUE(sql.run("UPDATE db_metadata SET dbVersion = '0.7'"));
    }
    VHLogRecorder log;
    VHDatabase::database().load();
    VHDatabase::database().unload();
    VHSqlite sql;
    ASSERT_TRUE(sql.open(dbFile(), VHSqlite::Mode::ReadOnly));
    EXPECT_EQ(text(sql, "SELECT dbVersion FROM db_metadata"), "0.7");
    EXPECT_TRUE(log.contains("Got database version 0.7, while it should be 1.3."));
    EXPECT_FALSE(log.contains("upgraded to the latest version"));
}

// Without a handler (tools, tests) the process ends with the status.
TEST(VHDatabaseSchemaDeathTest, UncreatableDatabaseEndsWith10) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    fs::create_directories(VHPaths::metadataDir());
    // Dangling, so it counts as missing. The death test's child finds it made.
    std::error_code made;
    fs::create_symlink("/nonexistent/folder/files.db", dbFile(), made);
    EXPECT_EXIT(VHDatabase::database().load(), testing::ExitedWithCode(10),
                "Cannot create and/or open database!");
}

// With a handler installed (the application's), a fatal failure is reported
// and the call fails; the process is not ended under the caller's feet.
void loadReports(int expected) {
    int reported = 0;
    VHSetFatalErrorHandler([&](int status) { reported = status; });
    bool loaded = VHDatabase::database().load();
    std::_Exit(!loaded && reported == expected ? 0 : 1);
}

TEST(VHDatabaseSchemaDeathTest, FolderFailureIsReportedAndFailsTheLoad) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    fs::create_directories(VHPaths::stateHome());
    std::ofstream(VHPaths::metadataDir()) << "in the way";
    EXPECT_EXIT(loadReports(kExitDataFolderFailure), testing::ExitedWithCode(0),
                "Unknown file exists at cache directory location");
}

TEST(VHDatabaseSchemaDeathTest, DatabaseFailureIsReportedAndFailsTheLoad) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    fs::create_directories(VHPaths::metadataDir());
    std::ofstream(dbFile()) << std::string(4096, 'x');
    EXPECT_EXIT(loadReports(kExitDatabaseFailure), testing::ExitedWithCode(0),
                "Cannot open database or connection is broken!");
}

TEST(VHDatabaseSchema, FirstGenerationUploadsAreRescued) {
    fs::path meta = VHPaths::metadataDir();
    fs::create_directories(meta / "Uploads");
    fs::create_directories(meta / "Logs");
    VHPropertyList shares;
    shares.arrays["shares"] = {R"({"ShareId":"s1","ShareName":"Docs"})", "not json"};
    ASSERT_TRUE(shares.write((meta / "shares.db").string()));
    std::ofstream(meta / "Uploads/u1") << "one";
    std::ofstream(meta / "Uploads/u1.inf")
        << R"({"CurrentPath":"/a/b.txt","File":{"ShareId":"s1"}})";
    std::ofstream(meta / "Uploads/u2") << "two";
    std::ofstream(meta / "Uploads/u3") << "three";
    std::ofstream(meta / "Uploads/u3.inf") << R"({"CurrentPath":"/../escape.txt"})";
    fs::create_directories(meta / "UploadsBackup/Docs/a");
    std::ofstream(meta / "UploadsBackup/Docs/a/b.txt") << "earlier";

    VHDatabase::database().load();
    VHDatabase::database().unload();

    fs::path backup = meta / "UploadsBackup";
    EXPECT_EQ(readFile(backup / "Docs/a/b.txt (2)"), "one");
    EXPECT_EQ(readFile(backup / "Docs/a/b.txt"), "earlier");
    EXPECT_EQ(readFile(backup / "u2.original"), "two");
    EXPECT_EQ(readFile(backup / "u3.original"), "three");  // an unsafe path is not followed
    std::string readme = readFile(backup / "Readme.txt");
    EXPECT_NE(readme.find("This folder contains files which were not uploaded by the Varnholt\n"),
              std::string::npos);
    EXPECT_NE(readme.find("u1: full path is " + (backup / "Docs/a/b.txt (2)").string()),
              std::string::npos);
    EXPECT_NE(readme.find("u2: unknown file path, no information found"), std::string::npos);
    std::set<std::string> left;
    for (const auto& entry : fs::directory_iterator(meta)) left.insert(entry.path().filename());
    EXPECT_EQ(left, (std::set<std::string>{"Logs", "UploadsBackup", "files.db"}));
}

}  // namespace
}  // namespace vh::test
