#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "lib/VHSqlite.h"
#include "support/VHTestHome.h"

namespace vh {

namespace {

std::string dbPath() {
    return test::VHCurrentTestHome() + "/t.db";
}

}  // namespace

TEST(VHSqlite, ValuesRoundTripThroughPreparedStatements) {
    VHSqlite db;
    ASSERT_TRUE(db.open(dbPath(), VHSqlite::Mode::ReadWriteCreate));
    ASSERT_TRUE(db.verify());
    ASSERT_TRUE(
        db.execScript("CREATE TABLE t (a TEXT, tick INTEGER, at INTEGER);"
                      "CREATE INDEX idx_a ON t(a);"));
    ASSERT_TRUE(
        db.run("INSERT INTO t (a, tick, at) VALUES(?, ?, ?)",
               {std::string("n\u0301ame"), uint64_t{18446744073709551615ull}, 1709647402.25}));
    ASSERT_TRUE(db.run("INSERT INTO t (a, tick, at) VALUES(?, ?, ?)",
                       {VHSqlValue{}, int64_t{7}, int64_t{3}}));
    EXPECT_EQ(db.changes(), 1);

    VHSqliteStatement* s = db.prepare("SELECT a, tick, at FROM t ORDER BY rowid");
    ASSERT_TRUE(s);
    ASSERT_EQ(s->step(), VHSqliteStatement::Step::Row);
    EXPECT_EQ(s->columnText(0), "n\u0301ame");
    EXPECT_EQ(s->columnUInt64(1), 18446744073709551615ull);
    EXPECT_DOUBLE_EQ(s->columnDouble(2), 1709647402.25);
    EXPECT_EQ(s->columnInt64(2), 1709647402);  // a real number read as whole seconds
    ASSERT_EQ(s->step(), VHSqliteStatement::Step::Row);
    EXPECT_TRUE(s->columnIsNull(0));
    EXPECT_EQ(s->columnText(0), "");
    EXPECT_EQ(s->step(), VHSqliteStatement::Step::Done);
    // The cached statement is reset and rebound on the next prepare.
    EXPECT_EQ(db.prepare("SELECT a, tick, at FROM t ORDER BY rowid"), s);
    EXPECT_EQ(s->step(), VHSqliteStatement::Step::Row);
}

TEST(VHSqlite, ReportsErrorsAndOpeningFailures) {
    VHSqlite db;
    EXPECT_FALSE(db.open(dbPath(), VHSqlite::Mode::ReadWrite));  // missing file, no create
    EXPECT_FALSE(db.lastError().empty());
    ASSERT_TRUE(db.open(dbPath(), VHSqlite::Mode::ReadWriteCreate));
    EXPECT_FALSE(db.run("DELETE * FROM files WHERE parentId = ?", {std::string("x")}));
    EXPECT_NE(db.lastError().find("syntax error"), std::string::npos) << db.lastError();
    EXPECT_FALSE(db.execScript("CREATE TABLE x (a); CREATE TABLE x (a);"));
    EXPECT_NE(db.lastError().find("already exists"), std::string::npos);
}

TEST(VHSqlite, AWriterWaitsForABusyDatabaseInsteadOfFailing) {
    VHSqlite first, second;
    ASSERT_TRUE(first.open(dbPath(), VHSqlite::Mode::ReadWriteCreate));
    ASSERT_TRUE(first.execScript("CREATE TABLE t (a);"));
    ASSERT_TRUE(second.open(dbPath(), VHSqlite::Mode::ReadWrite));
    ASSERT_TRUE(first.execScript("BEGIN EXCLUSIVE TRANSACTION; INSERT INTO t VALUES (1);"));
    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        first.execScript("COMMIT TRANSACTION;");
    });
    auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(second.run("INSERT INTO t VALUES (2)")) << second.lastError();
    release.join();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
}

}  // namespace vh
