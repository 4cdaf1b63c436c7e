// The file API's journal events: create (POST), delete (DELETE), and
// rename or move, new contents, lock and unlock (PUT). Contents of a file
// that is not empty arrive later at the upload URL the answer carries.
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHFileApiService {
  public:
    explicit VHFileApiService(VHEmulatorStore& store) : store_(store) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    struct Event {
        int type = -1;
        VHItemFields fields;
        uint64_t size = 0;
        VHChangeOrigin origin;
    };
    void handle(VHEmulatorExchange& exchange);
    std::optional<Event> readEvent(VHEmulatorExchange& exchange);
    void writeContent(VHEmulatorExchange& exchange, const VHShareView& view,
                      const VHEmulatorDomain& domain, const Event& event);
    void beginUpload(VHEmulatorExchange& exchange, const VHShareView& view,
                     const VHEmulatorDomain& domain, const Event& event,
                     const VHPlannedWrite& plan);
    void answer(VHEmulatorExchange& exchange, const Event& event,
                const VHEmulatorResult<VHEmulatorItem>& result);

    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
