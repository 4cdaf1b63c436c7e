// The emulator as one object: state folder, certificates, HTTPS server and
// its services, the realtime hub among them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "VHEmulatorFaults.h"
#include "VHEmulatorRequestLog.h"
#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"
#include "VHEmulatorTls.h"
#include "VHHubConnections.h"

namespace vh::emulator {

class VHEmulator {
  public:
    struct Options {
        std::string listenHost = "127.0.0.1";
        int port = 0;
        std::string stateDir;  // must exist
        std::string seedFile;  // empty: the built-in demo account
        double uploadLifetimeSeconds = kDefaultUploadLifetimeSeconds;
        uint64_t uploadReserveBytes = kDefaultUploadReserveBytes;
        VHHubTiming hubTiming;
    };

    VHEmulator();
    ~VHEmulator();
    VHEmulator(const VHEmulator&) = delete;
    VHEmulator& operator=(const VHEmulator&) = delete;

    // Opens (and on first start seeds) the state, sets up the certificates
    // and starts serving on a thread of its own; false after a logged failure.
    bool start(const Options& options);
    void stop();
    int port() const { return port_; }
    std::string caFile() const { return tls_.caFile(); }

  private:
    bool seed(const std::string& seedFile);
    void registerServices(const VHHubTiming& hubTiming);

    VHEmulatorStore store_;
    VHEmulatorTls tls_;
    VHEmulatorFaults faults_;
    VHEmulatorRequestLog log_;
    std::unique_ptr<VHHubConnections> hub_;
    std::unique_ptr<VHEmulatorServer> server_;
    std::thread thread_;
    int port_ = -1;
    std::vector<std::shared_ptr<void>> services_;
};

}  // namespace vh::emulator
