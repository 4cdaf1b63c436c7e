// What the statements over the write connection did, for the transaction
// that spans them: how many failed, and (while a catch-up page holds its
// transaction open) the changes of other jobs that joined it, so that they
// can be applied again when the page is rolled back. Database thread only.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "lib/VHSqlite.h"

namespace vh {

struct VHStatementJournal {
    using Statement = std::pair<std::string, std::vector<VHSqlValue>>;

    uint64_t failures = 0;
    // While set, every successful update is appended to `recorded`.
    bool recording = false;
    std::vector<Statement> recorded;
    // Tests only: an update for which it returns true fails as if SQLite had
    // refused it.
    std::function<bool(const std::string& sql)> fault;
    // Advanced after every statement that ran, so that readers can tell
    // that what they cached may be out of date (VHRecordCache).
    std::atomic<uint64_t>* generation = nullptr;
};

}  // namespace vh
