// The requests the emulator received, newest kept (at most 100,000), for
// tests that check what a client sent. Thread-safe.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace vh::emulator {

struct VHRequestRecord {
    int64_t seq = 0;  // set by add()
    double time = 0;
    std::string method;
    std::string host;
    std::string path;
    std::string query;
    std::map<std::string, std::string> headers;
    uint64_t bodyBytes = 0;
    int status = 0;  // 0: the connection was dropped
    int64_t faultId = 0;
};

class VHEmulatorRequestLog {
  public:
    void add(VHRequestRecord record);
    // Records with a sequence number above `seq`, oldest first.
    nlohmann::json after(int64_t seq);
    void clear();

  private:
    std::mutex mutex_;
    std::deque<VHRequestRecord> records_;  // guarded by mutex_
    int64_t nextSeq_ = 1;                  // guarded by mutex_
};

}  // namespace vh::emulator
