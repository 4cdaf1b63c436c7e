#include "lib/VHSqlite.h"

#include <sqlite3.h>

namespace vh {

VHSqliteStatement::~VHSqliteStatement() {
    sqlite3_finalize(stmt_);
}

bool VHSqliteStatement::bindAll(const std::vector<VHSqlValue>& values) {
    reset();
    sqlite3_clear_bindings(stmt_);
    int index = 1;
    for (const VHSqlValue& value : values) {
        int rc = std::visit(
            [&](const auto& v) -> int {
                using T = std::decay_t<decltype(v)>;
                if constexpr (std::is_same_v<T, std::monostate>) {
                    return sqlite3_bind_null(stmt_, index);
                } else if constexpr (std::is_same_v<T, int64_t> || std::is_same_v<T, uint64_t>) {
                    return sqlite3_bind_int64(stmt_, index, static_cast<sqlite3_int64>(v));
                } else if constexpr (std::is_same_v<T, double>) {
                    return sqlite3_bind_double(stmt_, index, v);
                } else {
                    return sqlite3_bind_text(stmt_, index, v.data(), static_cast<int>(v.size()),
                                             SQLITE_TRANSIENT);
                }
            },
            value);
        if (rc != SQLITE_OK) return false;
        ++index;
    }
    return true;
}

VHSqliteStatement::Step VHSqliteStatement::step() {
    int rc = sqlite3_step(stmt_);
    if (rc == SQLITE_ROW) return Step::Row;
    if (rc == SQLITE_DONE) return Step::Done;
    return Step::Error;
}

void VHSqliteStatement::reset() {
    sqlite3_reset(stmt_);
}

int VHSqliteStatement::columnCount() const {
    return sqlite3_column_count(stmt_);
}

bool VHSqliteStatement::columnIsNull(int index) const {
    return sqlite3_column_type(stmt_, index) == SQLITE_NULL;
}

int64_t VHSqliteStatement::columnInt64(int index) const {
    // A time stored as a real number reads as its whole seconds here.
    if (sqlite3_column_type(stmt_, index) == SQLITE_FLOAT) {
        return static_cast<int64_t>(sqlite3_column_double(stmt_, index));
    }
    return sqlite3_column_int64(stmt_, index);
}

double VHSqliteStatement::columnDouble(int index) const {
    return sqlite3_column_double(stmt_, index);
}

std::string VHSqliteStatement::columnText(int index) const {
    auto text = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, index));
    return text ? std::string(text, static_cast<size_t>(sqlite3_column_bytes(stmt_, index)))
                : std::string();
}

VHSqlite::~VHSqlite() {
    close();
}

bool VHSqlite::open(const std::string& path, Mode mode) {
    close();
    int flags = mode == Mode::ReadOnly    ? SQLITE_OPEN_READONLY
                : mode == Mode::ReadWrite ? SQLITE_OPEN_READWRITE
                                          : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    // Each connection is confined to one thread by its owner.
    flags |= SQLITE_OPEN_NOMUTEX;
    int rc = sqlite3_open_v2(path.c_str(), &db_, flags, nullptr);
    if (rc != SQLITE_OK) {
        openError_ = db_ ? sqlite3_errmsg(db_) : sqlite3_errstr(rc);
        sqlite3_close(db_);
        db_ = nullptr;
        return false;
    }
    sqlite3_busy_timeout(db_, 3000);
    return true;
}

void VHSqlite::close() {
    cache_.clear();  // statements first: the connection cannot close under them
    if (db_) sqlite3_close(db_);
    db_ = nullptr;
}

bool VHSqlite::verify() {
    if (!db_) return false;
    VHSqliteStatement* s = prepare("SELECT 1");
    return s && s->step() == VHSqliteStatement::Step::Row;
}

bool VHSqlite::execScript(const std::string& sql) {
    return db_ && sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

VHSqliteStatement* VHSqlite::prepare(const std::string& sql,
                                     const std::vector<VHSqlValue>& values) {
    if (!db_) return nullptr;
    auto it = cache_.find(sql);
    if (it == cache_.end()) {
        sqlite3_stmt* stmt = nullptr;
        if (sqlite3_prepare_v2(db_, sql.c_str(), static_cast<int>(sql.size()), &stmt, nullptr) !=
            SQLITE_OK) {
            sqlite3_finalize(stmt);
            return nullptr;
        }
        std::unique_ptr<VHSqliteStatement> statement(new VHSqliteStatement(stmt));
        it = cache_.emplace(sql, std::move(statement)).first;
    }
    return it->second->bindAll(values) ? it->second.get() : nullptr;
}

bool VHSqlite::run(const std::string& sql, const std::vector<VHSqlValue>& values) {
    VHSqliteStatement* s = prepare(sql, values);
    if (!s) return false;
    if (s->step() == VHSqliteStatement::Step::Error) return false;  // keeps the error message
    s->reset();
    return true;
}

std::string VHSqlite::lastError() const {
    if (!db_) return openError_.empty() ? "database is not open" : openError_;
    return sqlite3_errmsg(db_);
}

int64_t VHSqlite::changes() const {
    return db_ ? sqlite3_changes64(db_) : 0;
}

}  // namespace vh
