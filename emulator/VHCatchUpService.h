// Catch-up: pages of a share's latest item records after a given tick,
// for the holder of one of the share's access tokens.
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHCatchUpService {
  public:
    explicit VHCatchUpService(VHEmulatorStore& store) : store_(store) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    void catchUp(VHEmulatorExchange& exchange);

    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
