// Login: the user-domain lookup and global login on the global host, the
// same login on a gateway ("login2.aspx", for private installations), and
// the gateway login that hands out a domain's shares and the realtime
// cookie.
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHLoginService {
  public:
    explicit VHLoginService(VHEmulatorStore& store) : store_(store) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    void userDomain(VHEmulatorExchange& exchange);
    void globalLogin(VHEmulatorExchange& exchange, bool onGateway);
    void clientLogin(VHEmulatorExchange& exchange);
    nlohmann::json acceptedLogin(const VHEmulatorUser& user, const std::string& deviceId);

    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
