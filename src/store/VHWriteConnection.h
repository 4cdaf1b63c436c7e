// The one read-write connection of files.db and the transactions over it.
// Database thread only, except readsGoThroughWriter().
//
// A job (one public change of the store) runs in a transaction, alone or with
// the other jobs queued at the same time (VHWriteQueue), so that readers see
// all of it or nothing and the log is synced once for them all. While a
// catch-up page holds its transaction open, a job joins that one instead: its
// successful updates are recorded, to be applied again should the page be
// rolled back, and from then until the page ends the readers of other threads
// read through the database thread, where they see what the job wrote.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "lib/VHSqlite.h"
#include "store/VHFilesTable.h"
#include "store/VHStatementJournal.h"

namespace vh {

class VHWriteConnection {
  public:
    // Opens `path` read-write (no creation), checks that it reads, and puts
    // it in write-ahead-log mode so that readers do not wait for writers.
    // The log is copied into the database file on a pool thread, never in a
    // commit here.
    bool open(const std::string& path);
    // Closes it; an open transaction is rolled back by SQLite.
    void close();
    // Null when closed.
    VHSqlite* sqlite() { return db_.isOpen() ? &db_ : nullptr; }
    VHFilesTable table() { return VHFilesTable(sqlite(), &journal_); }

    // Runs `body(VHFilesTable&)` as one job: in a transaction of its own, or
    // joined to an open page. A job whose commit fails returns an empty
    // result (false, nothing). Nested jobs run inside the outer one.
    template <typename Body>
    auto job(Body&& body);
    // Runs jobs as one: one transaction (or the open page's) for all of them.
    bool runGroup(const std::vector<std::function<void(VHFilesTable&)>*>& jobs);
    bool inJob() const { return jobDepth_ > 0; }

    // ---- The page transaction ----
    // "BEGIN EXCLUSIVE TRANSACTION"; false when it failed. Not inside a job.
    bool beginPage();
    bool pageOpen() const { return pageOpen_; }
    // A statement failed since the page began (its own or a joined job's: a
    // failed statement may have ended the transaction).
    bool pageFailed() const { return journal_.failures != failuresAtPageStart_; }
    // "COMMIT TRANSACTION"; on failure the page is still open.
    bool commitPage();
    // Rolls the page back and applies the joined jobs' updates again, in
    // their order, in a transaction of their own.
    void rollbackPage();
    bool readsGoThroughWriter() const { return joined_.load(std::memory_order_acquire); }

    // The counter every statement advances; see VHStatementJournal::generation.
    void setGeneration(std::atomic<uint64_t>* generation) { journal_.generation = generation; }
    // Tests only; see VHStatementJournal::fault.
    void setFault(std::function<bool(const std::string&)> fault) {
        journal_.fault = std::move(fault);
    }

  private:
    // The outermost job begins (or joins) a transaction and ends it.
    class JobScope {
      public:
        explicit JobScope(VHWriteConnection& owner);
        // Commits the job's own transaction; false when that failed.
        bool end();
        ~JobScope();

      private:
        VHWriteConnection& owner_;
        bool outermost_;
        bool began_ = false;
        bool ended_ = false;
    };

    void endPage();
    // Starts a checkpoint on a pool thread once the log has grown enough.
    void checkpointWhenDue();

    std::string path_;
    VHSqlite db_;
    VHStatementJournal journal_;
    int jobDepth_ = 0;
    bool pageOpen_ = false;
    uint64_t failuresAtPageStart_ = 0;
    std::atomic<bool> joined_{false};
    std::shared_ptr<std::atomic<bool>> checkpointing_ = std::make_shared<std::atomic<bool>>(false);
};

template <typename Body>
auto VHWriteConnection::job(Body&& body) {
    JobScope scope(*this);
    VHFilesTable t = table();
    using Result = std::invoke_result_t<Body&, VHFilesTable&>;
    if constexpr (std::is_void_v<Result>) {
        body(t);
        scope.end();
    } else {
        Result result = body(t);
        if (!scope.end()) result = Result{};
        return result;
    }
}

}  // namespace vh
