// The emulator's SQLite state and the one lock that guards it.
//
// Every table is reached through this connection while lock() is held; the
// store classes (accounts, journal, uploads, events) expect their caller to
// hold it. Hold it for statements only: never across socket I/O, and never
// while hashing or writing a large content.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VHEmulatorSqlite.h"

namespace vh::emulator {

class VHEmulatorDatabase {
  public:
    using Row = VHEmulatorRow;

    // Opens or creates the database file and its tables; false on failure.
    bool open(const std::string& path);

    std::unique_lock<std::mutex> lock() { return std::unique_lock<std::mutex>(mutex_); }

    // The rest require lock().
    bool run(const std::string& sql, const std::vector<VHEmulatorValue>& values = {});
    // Calls `row` for each result row; false on an SQL error.
    bool query(const std::string& sql, const std::vector<VHEmulatorValue>& values,
               const std::function<void(const Row&)>& row);
    std::optional<int64_t> integer(const std::string& sql,
                                   const std::vector<VHEmulatorValue>& values = {});
    std::optional<std::string> text(const std::string& sql,
                                    const std::vector<VHEmulatorValue>& values = {});
    int64_t changes() const { return sql_.changes(); }
    std::string lastError() const { return sql_.lastError(); }

    // Runs `work` in one transaction, committed when it returns true and
    // rolled back otherwise. Nested calls join the outer transaction.
    bool transaction(const std::function<bool()>& work);

    std::optional<std::string> meta(const std::string& key);
    bool setMeta(const std::string& key, const std::string& value);

  private:
    // Brings the tables of an older state folder up to date.
    bool upgrade();

    std::mutex mutex_;
    VHEmulatorSqlite sql_;        // guarded by mutex_
    bool inTransaction_ = false;  // guarded by mutex_
};

}  // namespace vh::emulator
