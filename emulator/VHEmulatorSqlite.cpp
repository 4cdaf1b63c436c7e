#include "VHEmulatorSqlite.h"

#include <sqlite3.h>

namespace vh::emulator {

namespace {

int bind(sqlite3_stmt* statement, int index, const VHEmulatorValue& value) {
    return std::visit(
        [&](const auto& v) -> int {
            using T = std::decay_t<decltype(v)>;
            if constexpr (std::is_same_v<T, std::monostate>) {
                return sqlite3_bind_null(statement, index);
            } else if constexpr (std::is_same_v<T, int64_t> || std::is_same_v<T, uint64_t>) {
                return sqlite3_bind_int64(statement, index, static_cast<sqlite3_int64>(v));
            } else if constexpr (std::is_same_v<T, double>) {
                return sqlite3_bind_double(statement, index, v);
            } else {
                return sqlite3_bind_text(statement, index, v.data(), static_cast<int>(v.size()),
                                         SQLITE_TRANSIENT);
            }
        },
        value);
}

}  // namespace

bool VHEmulatorRow::columnIsNull(int index) const {
    return sqlite3_column_type(statement_, index) == SQLITE_NULL;
}

int64_t VHEmulatorRow::columnInt64(int index) const {
    return sqlite3_column_int64(statement_, index);
}

double VHEmulatorRow::columnDouble(int index) const {
    return sqlite3_column_double(statement_, index);
}

std::string VHEmulatorRow::columnText(int index) const {
    auto text = reinterpret_cast<const char*>(sqlite3_column_text(statement_, index));
    if (!text) return {};
    return std::string(text, static_cast<size_t>(sqlite3_column_bytes(statement_, index)));
}

void VHEmulatorSqlite::Finalizer::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

VHEmulatorSqlite::~VHEmulatorSqlite() {
    cache_.clear();
    if (db_) sqlite3_close(db_);
}

bool VHEmulatorSqlite::open(const std::string& path) {
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX;
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
        openError_ = db_ ? sqlite3_errmsg(db_) : "out of memory";
        sqlite3_close(db_);
        db_ = nullptr;
        return false;
    }
    sqlite3_busy_timeout(db_, 3000);
    return true;
}

bool VHEmulatorSqlite::execScript(const std::string& sql) {
    return db_ && sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

sqlite3_stmt* VHEmulatorSqlite::prepare(const std::string& sql,
                                        const std::vector<VHEmulatorValue>& values) {
    if (!db_) return nullptr;
    auto& cached = cache_[sql];
    if (!cached) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &statement,
                               nullptr) != SQLITE_OK) {
            cache_.erase(sql);
            return nullptr;
        }
        cached.reset(statement);
    }
    sqlite3_stmt* statement = cached.get();
    sqlite3_reset(statement);
    sqlite3_clear_bindings(statement);
    for (size_t i = 0; i < values.size(); ++i) {
        if (bind(statement, static_cast<int>(i + 1), values[i]) != SQLITE_OK) return nullptr;
    }
    return statement;
}

int VHEmulatorSqlite::next(sqlite3_stmt* statement) {
    int rc = sqlite3_step(statement);
    if (rc == SQLITE_ROW) return kRow;
    return rc == SQLITE_DONE ? kDone : kError;
}

void VHEmulatorSqlite::finish(sqlite3_stmt* statement) {
    sqlite3_reset(statement);
}

int64_t VHEmulatorSqlite::changes() const {
    return db_ ? sqlite3_changes64(db_) : 0;
}

std::string VHEmulatorSqlite::lastError() const {
    return db_ ? sqlite3_errmsg(db_) : openError_;
}

}  // namespace vh::emulator
