// A journal event as a client sends it to the file API, read and checked
// before anything is looked up or stored. Sizes, ticks and the other
// numbers must be whole numbers from 0 to 2^53 (doubles hold them exactly);
// a tick may also have all 64 bits set, the client's "no tick yet".
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "VHEmulatorJournal.h"
#include "VHEmulatorTypes.h"

namespace vh::emulator {

struct VHJournalEventRequest {
    int type = -1;
    VHItemFields fields;
    uint64_t size = 0;      // the larger of "EndOfFile" and "AllocationSize"
    VHChangeOrigin origin;  // without the user, who comes from the token
};

// `method` is the request's; `itemId` the internal name in its path (empty
// for a create). A refusal is 400 with "Code" 1 and names the key.
VHEmulatorResult<VHJournalEventRequest> VHReadJournalEvent(const nlohmann::json& body,
                                                           const std::string& method,
                                                           const std::string& itemId);

}  // namespace vh::emulator
