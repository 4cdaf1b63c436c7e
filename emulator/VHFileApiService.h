// The file API's journal events: create (POST), delete (DELETE), and
// rename or move, new contents, lock and unlock (PUT). Contents of a file
// that is not empty arrive later at the upload URL the answer carries.
#pragma once

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"
#include "VHJournalEventRequest.h"

namespace vh::emulator {

class VHFileApiService {
  public:
    explicit VHFileApiService(VHEmulatorStore& store) : store_(store) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    void handle(VHEmulatorExchange& exchange);
    // Both may give up `guard` (the database lock) while a blob is allocated.
    void writeContent(VHEmulatorExchange& exchange, std::unique_lock<std::mutex>& guard,
                      const VHShareView& view, const VHEmulatorDomain& domain,
                      const VHJournalEventRequest& event);
    void beginUpload(VHEmulatorExchange& exchange, std::unique_lock<std::mutex>& guard,
                     const VHShareView& view, const VHEmulatorDomain& domain,
                     const VHJournalEventRequest& event, const VHPlannedWrite& plan);
    void answer(VHEmulatorExchange& exchange, const VHJournalEventRequest& event,
                const VHEmulatorResult<VHEmulatorItem>& result);

    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
