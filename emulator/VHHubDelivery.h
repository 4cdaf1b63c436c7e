// What the realtime hub delivers to a connection: the recorded events of its
// domain after its cursor (less the broadcasts a skip rule holds back) and
// the messages meant for it alone, each as the hub's "ReciveEnvelope" event.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "VHEmulatorStore.h"
#include "VHHubConnections.h"

namespace vh::emulator {

inline constexpr std::string_view kHubName = "VhHub";
inline constexpr int kMessageOnline = 2;

class VHHubDelivery {
  public:
    VHHubDelivery(VHEmulatorStore& store, VHHubConnections& connections)
        : store_(store), connections_(connections) {}

    struct Batch {
        nlohmann::json messages = nlohmann::json::array();
        VHHubCursor cursor;
    };
    // What the connection gets after `from`; `subscribed` false (the client
    // named no hub) moves the cursor without messages. Takes the database
    // lock, then the hub's; requires neither.
    Batch collect(const VHHubConnectionInfo& connection, const VHHubCursor& from, bool subscribed);

    // Holds back the domain's next `count` broadcasts; requires no lock.
    void skipBroadcasts(const std::string& domainId, int64_t count);

    // An envelope with every key a client reads; `message` is a JSON text.
    static nlohmann::json envelope(int messageType, const std::string& receiver,
                                   const std::string& sender, const std::string& message,
                                   double time);
    // The hub's client event carrying `envelope`.
    static nlohmann::json invocation(nlohmann::json envelope);

  private:
    VHEmulatorStore& store_;
    VHHubConnections& connections_;
};

}  // namespace vh::emulator
