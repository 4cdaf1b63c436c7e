// Links: public links to a file (made on the gateway, opened on the web
// client), and the one-time direct links with which the web client signs a
// user in (made through the gateway's client API, opened with the
// encrypted "sas" parameter).
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHLinkService {
  public:
    explicit VHLinkService(VHEmulatorStore& store) : store_(store) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    void createPublicLink(VHEmulatorExchange& exchange);
    void openPublicLink(VHEmulatorExchange& exchange);
    void clientApi(VHEmulatorExchange& exchange);
    void createDirectLink(VHEmulatorExchange& exchange, const nlohmann::json& command,
                          const nlohmann::json& request);
    void webClient(VHEmulatorExchange& exchange);

    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
