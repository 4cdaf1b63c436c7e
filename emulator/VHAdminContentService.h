// The admin API's share-content part (paths under "/_emulator/", any
// host): a share's tree, a file's bytes, and changes made as another
// device.
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHAdminContentService {
  public:
    explicit VHAdminContentService(VHEmulatorStore& store) : store_(store) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    void tree(VHEmulatorExchange& exchange);
    void content(VHEmulatorExchange& exchange);
    void act(VHEmulatorExchange& exchange);

    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
