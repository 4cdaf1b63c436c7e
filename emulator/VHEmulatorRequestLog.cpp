#include "VHEmulatorRequestLog.h"

#include "VHEmulatorDates.h"
#include "VHEmulatorRecords.h"

namespace vh::emulator {

namespace {

constexpr size_t kKeptRecords = 100000;

}  // namespace

void VHEmulatorRequestLog::add(VHRequestRecord record) {
    std::lock_guard guard(mutex_);
    record.seq = nextSeq_++;
    records_.push_back(std::move(record));
    if (records_.size() > kKeptRecords) records_.pop_front();
}

nlohmann::json VHEmulatorRequestLog::after(int64_t seq) {
    std::lock_guard guard(mutex_);
    nlohmann::json list = nlohmann::json::array();
    for (const VHRequestRecord& record : records_) {
        if (record.seq <= seq) continue;
        list.push_back({{"seq", record.seq},
                        {"time", VHServiceDateText(record.time)},
                        {"method", record.method},
                        {"host", record.host},
                        {"path", record.path},
                        {"query", record.query},
                        {"headers", record.headers},
                        {"bodyBytes", record.bodyBytes},
                        {"status", record.status},
                        {"faultId", record.faultId}});
    }
    return list;
}

void VHEmulatorRequestLog::clear() {
    std::lock_guard guard(mutex_);
    records_.clear();
}

}  // namespace vh::emulator
