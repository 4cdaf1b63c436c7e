// The emulator's own access to SQLite: one connection, statements prepared
// once and cached by their text, rows read by column index. Not
// thread-safe: VHEmulatorDatabase serialises every call under its lock.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vh::emulator {

// A bound value; an unsigned value is stored as its signed bit pattern.
using VHEmulatorValue = std::variant<std::monostate, int64_t, uint64_t, double, std::string>;

// The current row of a statement being stepped; valid during the callback
// that receives it.
class VHEmulatorRow {
  public:
    explicit VHEmulatorRow(sqlite3_stmt* statement) : statement_(statement) {}
    bool columnIsNull(int index) const;
    int64_t columnInt64(int index) const;
    uint64_t columnUInt64(int index) const { return static_cast<uint64_t>(columnInt64(index)); }
    double columnDouble(int index) const;
    std::string columnText(int index) const;  // empty for NULL

  private:
    sqlite3_stmt* statement_;
};

class VHEmulatorSqlite {
  public:
    VHEmulatorSqlite() = default;
    ~VHEmulatorSqlite();
    VHEmulatorSqlite(const VHEmulatorSqlite&) = delete;
    VHEmulatorSqlite& operator=(const VHEmulatorSqlite&) = delete;

    // Opens or creates the file; false with lastError() on failure.
    bool open(const std::string& path);
    // Runs statements separated by ";".
    bool execScript(const std::string& sql);
    // Runs one statement, calling `row` for each result row (may be empty);
    // false on any SQL error.
    template <typename RowHandler>
    bool query(const std::string& sql, const std::vector<VHEmulatorValue>& values,
               RowHandler&& row) {
        sqlite3_stmt* statement = prepare(sql, values);
        if (!statement) return false;
        int step;
        while ((step = next(statement)) == kRow) row(VHEmulatorRow(statement));
        finish(statement);
        return step == kDone;
    }
    int64_t changes() const;
    std::string lastError() const;

  private:
    static constexpr int kRow = 1;
    static constexpr int kDone = 0;
    static constexpr int kError = -1;
    sqlite3_stmt* prepare(const std::string& sql, const std::vector<VHEmulatorValue>& values);
    static int next(sqlite3_stmt* statement);
    static void finish(sqlite3_stmt* statement);

    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };
    sqlite3* db_ = nullptr;
    std::string openError_;
    std::unordered_map<std::string, std::unique_ptr<sqlite3_stmt, Finalizer>> cache_;
};

}  // namespace vh::emulator
