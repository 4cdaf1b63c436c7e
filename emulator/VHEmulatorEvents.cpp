#include "VHEmulatorEvents.h"

#include "VHEmulatorDates.h"
#include "VHEmulatorDefaults.h"

namespace vh::emulator {

bool VHEmulatorEvents::record(const std::string& domainId, int messageType,
                              const std::string& sender, const VHJson& message) {
    if (!db_.run("INSERT INTO events (domainId, messageType, sender, message, time) "
                 "VALUES (?, ?, ?, ?, ?)",
                 {domainId, int64_t(messageType), sender, message.dump(), VHNowSeconds()})) {
        return false;
    }
    auto seq = db_.integer("SELECT last_insert_rowid()");
    if (listener_) listener_();
    // Trimming now and then keeps inserts cheap.
    if (seq && *seq % 1000 == 0) {
        return db_.run(
            "DELETE FROM events WHERE domainId = ? AND seq <= (SELECT seq FROM events "
            "WHERE domainId = ? ORDER BY seq DESC LIMIT 1 OFFSET ?)",
            {domainId, domainId, int64_t(kKeptDomainEvents)});
    }
    return true;
}

int64_t VHEmulatorEvents::latest(const std::string& domainId) {
    return db_.integer("SELECT IFNULL(MAX(seq), 0) FROM events WHERE domainId = ?", {domainId})
        .value_or(0);
}

std::optional<int64_t> VHEmulatorEvents::nthAfter(const std::string& domainId, int messageType,
                                                  int64_t seq, int64_t n) {
    return db_.integer(
        "SELECT seq FROM events WHERE domainId = ? AND messageType = ? AND seq > ? "
        "ORDER BY seq LIMIT 1 OFFSET ?",
        {domainId, int64_t(messageType), seq, n - 1});
}

std::vector<VHEmulatorEvent> VHEmulatorEvents::after(const std::string& domainId, int64_t seq,
                                                     int64_t limit) {
    std::vector<VHEmulatorEvent> result;
    db_.query(
        "SELECT seq, domainId, messageType, sender, message, time FROM events "
        "WHERE domainId = ? AND seq > ? ORDER BY seq LIMIT ?",
        {domainId, seq, limit}, [&](const VHEmulatorDatabase::Row& row) {
            result.push_back({row.columnInt64(0), row.columnText(1),
                              static_cast<int>(row.columnInt64(2)), row.columnText(3),
                              row.columnText(4), row.columnDouble(5)});
        });
    return result;
}

}  // namespace vh::emulator
