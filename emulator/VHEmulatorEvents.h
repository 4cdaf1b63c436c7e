// Per-domain change events, kept for the realtime hub: one per journal
// change (message type 3, a broadcast journal event) and one per raised
// domain event (message type 12). The newest kKeptDomainEvents per domain
// are kept. Every method requires the database lock.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "VHEmulatorDatabase.h"
#include "VHEmulatorRecords.h"

namespace vh::emulator {

inline constexpr int kMessageBroadcast = 3;
inline constexpr int kMessageDomainEvent = 12;

struct VHEmulatorEvent {
    int64_t seq = 0;  // grows over all domains
    std::string domainId;
    int messageType = 0;
    std::string sender;   // the envelope's "RnaSender"
    std::string message;  // the envelope's "Message": a JSON text
    double time = 0;
};

class VHEmulatorEvents {
  public:
    explicit VHEmulatorEvents(VHEmulatorDatabase& db) : db_(db) {}

    bool record(const std::string& domainId, int messageType, const std::string& sender,
                const VHJson& message);
    // Events of a domain after `seq`, oldest first, at most `limit`.
    std::vector<VHEmulatorEvent> after(const std::string& domainId, int64_t seq, int64_t limit);

  private:
    VHEmulatorDatabase& db_;
};

}  // namespace vh::emulator
