#include "store/VHWriteConnection.h"

#include <QThreadPool>
#include <filesystem>

#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "store/VHDatabaseSchema.h"

namespace vh {

namespace {

// SQLite's own threshold (1000 pages); also the size the log shrinks back to.
constexpr uintmax_t kCheckpointBytes = 4 << 20;

}  // namespace

bool VHWriteConnection::open(const std::string& path) {
    close();
    if (!db_.open(path, VHSqlite::Mode::ReadWrite) || !VHDatabaseSchema::verifyConnection(db_)) {
        db_.close();
        return false;
    }
    VHDatabaseSchema::useWriteAheadLog(db_);
    db_.execScript("PRAGMA wal_autocheckpoint=0; PRAGMA journal_size_limit=" +
                   std::to_string(kCheckpointBytes));
    path_ = path;
    return true;
}

void VHWriteConnection::close() {
    endPage();
    db_.close();
    path_.clear();
}

VHWriteConnection::JobScope::JobScope(VHWriteConnection& owner)
    : owner_(owner), outermost_(owner.jobDepth_++ == 0) {
    if (!outermost_) return;
    if (owner_.pageOpen_) {
        owner_.joined_.store(true, std::memory_order_release);
        owner_.journal_.recording = true;
    } else if (owner_.db_.isOpen()) {
        began_ = owner_.table().update("BEGIN TRANSACTION");
    }
}

bool VHWriteConnection::JobScope::end() {
    if (ended_) return true;
    ended_ = true;
    --owner_.jobDepth_;
    if (!outermost_) return true;
    owner_.journal_.recording = false;
    if (!began_) return true;
    VHFilesTable t = owner_.table();
    if (t.update("COMMIT TRANSACTION")) {
        owner_.checkpointWhenDue();
        return true;
    }
    t.update("ROLLBACK TRANSACTION");
    return false;
}

VHWriteConnection::JobScope::~JobScope() {
    end();
}

bool VHWriteConnection::runGroup(const std::vector<std::function<void(VHFilesTable&)>*>& jobs) {
    JobScope scope(*this);
    VHFilesTable t = table();
    for (const std::function<void(VHFilesTable&)>* job : jobs) (*job)(t);
    return scope.end();
}

bool VHWriteConnection::beginPage() {
    if (jobDepth_ > 0 || pageOpen_) return false;
    if (!table().update("BEGIN EXCLUSIVE TRANSACTION")) return false;
    pageOpen_ = true;
    failuresAtPageStart_ = journal_.failures;
    return true;
}

bool VHWriteConnection::commitPage() {
    if (!table().update("COMMIT TRANSACTION")) return false;
    endPage();
    checkpointWhenDue();
    return true;
}

void VHWriteConnection::rollbackPage() {
    VHFilesTable t = table();
    t.update("ROLLBACK TRANSACTION");
    pageOpen_ = false;
    std::vector<VHStatementJournal::Statement> replay;
    replay.swap(journal_.recorded);
    if (!replay.empty()) {
        // Readers still go through this thread, so none sees the gap.
        VHLog(kLogDatabase, "Applying again %d local changes made while the batch was open.",
              replay.size());
        t.update("BEGIN TRANSACTION");
        for (const auto& [sql, values] : replay) t.update(sql, values);
        if (!t.update("COMMIT TRANSACTION")) t.update("ROLLBACK TRANSACTION");
    }
    endPage();
}

void VHWriteConnection::checkpointWhenDue() {
    std::error_code ec;
    uintmax_t size = std::filesystem::file_size(path_ + "-wal", ec);
    if (ec || size < kCheckpointBytes || checkpointing_->exchange(true)) return;
    QThreadPool::globalInstance()->start(VHHandOff([path = path_, running = checkpointing_] {
        // A passive checkpoint waits for nobody; the writer goes on meanwhile.
        VHSqlite db;
        if (!db.open(path, VHSqlite::Mode::ReadWrite) ||
            !db.execScript("PRAGMA wal_checkpoint(PASSIVE)")) {
            VHLog(kLogDatabase, "Warning! Checkpoint of %@ failed: %@", path, db.lastError());
        }
        db.close();
        running->store(false);
    }));
}

void VHWriteConnection::endPage() {
    pageOpen_ = false;
    journal_.recorded.clear();
    joined_.store(false, std::memory_order_release);
}

}  // namespace vh
