// The admin API's realtime hub part (paths under "/_emulator/hub/", any
// host): the open connections, and holding back the next broadcasts of a
// domain so that a test can lose one on purpose.
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"
#include "VHHubConnections.h"
#include "VHHubDelivery.h"

namespace vh::emulator {

class VHAdminHubService {
  public:
    VHAdminHubService(VHEmulatorStore& store, VHHubConnections& connections)
        : store_(store), connections_(connections), delivery_(store, connections) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    void listConnections(VHEmulatorExchange& exchange);
    void skipBroadcasts(VHEmulatorExchange& exchange);

    VHEmulatorStore& store_;
    VHHubConnections& connections_;
    VHHubDelivery delivery_;
};

}  // namespace vh::emulator
