// The HTTPS server: one port for every host name, requests routed by the
// Host header (the global host, "clientgateway.", "filecache01." and
// "webclient." of a domain; admin paths on any host), fault rules applied
// around the handlers, and every service request logged.
#pragma once

#include <httplib.h>

#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "VHEmulatorExchange.h"
#include "VHEmulatorFaults.h"
#include "VHEmulatorRequestLog.h"
#include "VHEmulatorTls.h"

namespace vh::emulator {

enum class VHHostKind { Global, Gateway, Filecache, Webclient, Any };

class VHEmulatorServer {
  public:
    using Handler = std::function<void(VHEmulatorExchange&)>;

    VHEmulatorServer(VHEmulatorTls& tls, VHEmulatorFaults& faults, VHEmulatorRequestLog& log,
                     std::string globalHost);
    ~VHEmulatorServer();

    // Adds a route; `pattern` must match the whole path (case-insensitive),
    // its groups become the exchange's params. Call before run().
    void route(VHHostKind kind, const std::string& method, const std::string& pattern,
               Handler handler);
    // Binds `host`:`port` (0: a free port); the port, or -1.
    int bind(const std::string& host, int port);
    // Serves until stop(); call on a thread of its own.
    void run();
    void stop();

  private:
    struct Route {
        VHHostKind kind;
        std::string method;
        std::regex pattern;
        Handler handler;
    };
    void dispatch(const httplib::Request& request, httplib::Response& response,
                  const httplib::ContentReader* reader);
    void classifyHost(VHEmulatorExchange& exchange, VHHostKind& kind) const;
    void runHandler(VHEmulatorExchange& exchange, VHHostKind kind);
    void logRequest(const VHEmulatorExchange& exchange, int64_t faultId, bool dropped);

    VHEmulatorFaults& faults_;
    VHEmulatorRequestLog& log_;
    std::string globalHost_;
    std::vector<Route> routes_;  // fixed before run()
    std::unique_ptr<httplib::SSLServer> server_;
};

}  // namespace vh::emulator
