// Per-domain change events, kept for the realtime hub: one per journal
// change (message type 3, a broadcast journal event) and one per raised
// domain event (message type 12). The newest kKeptDomainEvents per domain
// are kept. Every method requires the database lock.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
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

    // Called after each event is recorded, with the database lock held
    // (inside a transaction that may still roll back).
    void setListener(std::function<void()> listener) { listener_ = std::move(listener); }

    bool record(const std::string& domainId, int messageType, const std::string& sender,
                const VHJson& message);
    // The newest event's seq of a domain; 0 when it has none.
    int64_t latest(const std::string& domainId);
    // The seq of the `n`th (from 1) event of `messageType` after `seq`.
    std::optional<int64_t> nthAfter(const std::string& domainId, int messageType, int64_t seq,
                                    int64_t n);
    // Events of a domain after `seq`, oldest first, at most `limit`.
    std::vector<VHEmulatorEvent> after(const std::string& domainId, int64_t seq, int64_t limit);

  private:
    VHEmulatorDatabase& db_;
    std::function<void()> listener_;
};

}  // namespace vh::emulator
