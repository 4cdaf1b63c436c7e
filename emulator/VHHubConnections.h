// The realtime hub's open connections, kept in memory: whose they are, how
// far each has been served, the messages meant for one connection alone,
// the skip rules of the admin API, and the held polls waiting for something
// to deliver.
//
// Lock order: this object's mutex may be taken while the database lock is
// held (recording an event wakes the polls), never the other way round; it
// is never held while waiting for a socket.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "VHEmulatorDefaults.h"
#include "VHHubProtocol.h"

namespace vh::emulator {

struct VHHubTiming {
    double keepAliveSeconds = kDefaultHubKeepAliveSeconds;
    double connectionTimeoutSeconds = kDefaultHubConnectionTimeoutSeconds;
    // Without a poll for this long a connection is gone.
    double disconnectSeconds() const { return 3 * keepAliveSeconds; }
};

struct VHHubConnectionInfo {
    std::string connectionId;
    std::string email;
    std::string domainId;
    std::string domainUrl;
    int64_t seq = 0;  // the last event seq served
    bool polling = false;
};

struct VHHubOwnMessage {
    int64_t number = 0;
    nlohmann::json message;
};

// The next `count` broadcasts of a domain after `afterSeq` are not delivered.
struct VHHubSkipRule {
    int64_t afterSeq = 0;
    int64_t count = 0;
};

enum class VHPollWake { Changed, KeepAlive, Ended, TimedOut, Stopping };

class VHHubConnections {
  public:
    using Clock = std::chrono::steady_clock;

    explicit VHHubConnections(VHHubTiming timing) : timing_(timing) {}

    const VHHubTiming& timing() const { return timing_; }

    // Registers `info`'s connection (replacing one of the same id), served
    // from `cursor` on.
    void open(const VHHubConnectionInfo& info, const VHHubCursor& cursor);
    std::optional<VHHubCursor> cursor(const std::string& connectionId);
    // Starts a poll of `info`'s connection (registered when unknown) from
    // `cursor`, ending the poll it had pending; the poll's ticket.
    uint64_t beginPoll(const VHHubConnectionInfo& info, const VHHubCursor& cursor);
    // The poll with `ticket` has answered, up to `served`.
    void endPoll(const std::string& connectionId, uint64_t ticket, const VHHubCursor& served);
    // Ends the pending poll and forgets the connection.
    void abort(const std::string& connectionId);
    // Ends every held poll for good.
    void stop();

    // A number that grows with every change a poll may wait for.
    uint64_t changes();
    // An event was recorded.
    void changed();
    // Waits until something changed after `seenChanges`, the poll ended, a
    // keep-alive is due or the deadline passed.
    VHPollWake wait(const std::string& connectionId, uint64_t ticket, uint64_t seenChanges,
                    Clock::time_point keepAliveAt, Clock::time_point deadline);

    // Queues a message for one connection; false for an unknown one.
    bool push(const std::string& connectionId, nlohmann::json message);
    // The connection's messages after `own`; those up to `own` are dropped.
    std::vector<VHHubOwnMessage> messagesAfter(const std::string& connectionId, int64_t own);

    std::optional<VHHubSkipRule> skipRule(const std::string& domainId);
    void setSkipRule(const std::string& domainId, const VHHubSkipRule& rule);

    std::vector<VHHubConnectionInfo> list();

  private:
    struct Connection {
        VHHubConnectionInfo info;
        int64_t ownCount = 0;
        std::deque<VHHubOwnMessage> messages;
        uint64_t ticket = 0;  // of the pending poll; 0 for none
        Clock::time_point lastActive;
    };
    void forgetIdle();  // requires mutex_
    Connection& place(const VHHubConnectionInfo& info, const VHHubCursor& cursor);

    const VHHubTiming timing_;
    std::mutex mutex_;
    std::condition_variable wake_;                    // of mutex_
    std::map<std::string, Connection> connections_;   // guarded by mutex_
    std::map<std::string, VHHubSkipRule> skipRules_;  // by domain id; guarded by mutex_
    uint64_t changes_ = 0;                            // guarded by mutex_
    uint64_t nextTicket_ = 1;                         // guarded by mutex_
    bool stopping_ = false;                           // guarded by mutex_
};

}  // namespace vh::emulator
