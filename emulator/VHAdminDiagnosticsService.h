// The admin API's diagnostics part (paths under "/_emulator/", any host):
// fault rules and the log of requests received.
#pragma once

#include "VHEmulatorFaults.h"
#include "VHEmulatorRequestLog.h"
#include "VHEmulatorServer.h"

namespace vh::emulator {

class VHAdminDiagnosticsService {
  public:
    VHAdminDiagnosticsService(VHEmulatorFaults& faults, VHEmulatorRequestLog& log)
        : faults_(faults), log_(log) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    VHEmulatorFaults& faults_;
    VHEmulatorRequestLog& log_;
};

}  // namespace vh::emulator
