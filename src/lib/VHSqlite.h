// RAII wrapper over the SQLite 3 C API.
//
// A VHSqlite is one connection; it is not thread-safe and must be used by one
// thread at a time (the metadata database runs all statements on its own
// thread). Every connection gets a 3-second busy time-out. Statements are
// prepared once per connection and cached by their text.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace vh {

// A bound value. Unsigned 64-bit values are stored as their signed bit
// pattern, so all bits set is stored as -1 and reads back unchanged.
using VHSqlValue = std::variant<std::monostate, int64_t, uint64_t, double, std::string>;

class VHSqliteStatement {
  public:
    enum class Step { Row, Done, Error };

    ~VHSqliteStatement();
    VHSqliteStatement(const VHSqliteStatement&) = delete;
    VHSqliteStatement& operator=(const VHSqliteStatement&) = delete;

    // Resets the statement and binds `values` to parameters 1..n.
    bool bindAll(const std::vector<VHSqlValue>& values);
    Step step();
    void reset();

    int columnCount() const;
    bool columnIsNull(int index) const;
    int64_t columnInt64(int index) const;
    uint64_t columnUInt64(int index) const { return static_cast<uint64_t>(columnInt64(index)); }
    double columnDouble(int index) const;
    std::string columnText(int index) const;  // empty for NULL

  private:
    friend class VHSqlite;
    explicit VHSqliteStatement(sqlite3_stmt* stmt) : stmt_(stmt) {}
    sqlite3_stmt* stmt_;
};

class VHSqlite {
  public:
    enum class Mode { ReadOnly, ReadWrite, ReadWriteCreate };

    VHSqlite() = default;
    ~VHSqlite();
    VHSqlite(const VHSqlite&) = delete;
    VHSqlite& operator=(const VHSqlite&) = delete;

    bool open(const std::string& path, Mode mode);
    void close();
    bool isOpen() const { return db_ != nullptr; }
    // A trivial query succeeds: the connection is usable.
    bool verify();

    // Runs a script of one or more statements separated by ";".
    bool execScript(const std::string& sql);
    // Prepares (or takes from the cache) and binds; nothing on failure.
    VHSqliteStatement* prepare(const std::string& sql, const std::vector<VHSqlValue>& values = {});
    // Runs a statement that returns no rows.
    bool run(const std::string& sql, const std::vector<VHSqlValue>& values = {});

    std::string lastError() const;
    int64_t changes() const;

  private:
    sqlite3* db_ = nullptr;
    std::string openError_;
    std::unordered_map<std::string, std::unique_ptr<VHSqliteStatement>> cache_;
};

}  // namespace vh
