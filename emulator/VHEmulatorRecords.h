// The service's JSON records as the emulator writes them. Keys are written
// out here, one literal each, exactly as the client reads them (misspellings
// included); nothing is shared with the client's own record types.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "VHEmulatorTypes.h"

namespace vh::emulator {

using VHJson = nlohmann::json;

// One file or folder ("VhVirtualFile").
VHJson VHVirtualFileRecord(const VHEmulatorItem& item);
// A change as the file API answers it ("ClientJournalEvent" of "Data").
VHJson VHJournalEventRecord(const VHEmulatorItem& item, int eventType, const VHChangeOrigin& origin,
                            int64_t shareTick);
// The same change as the realtime channel broadcasts it.
VHJson VHBroadcastEventRecord(const VHEmulatorItem& item, int eventType,
                              const VHChangeOrigin& origin, int64_t shareTick);
// Every file-API answer: "Code", "Message" and, when not null, "Data".
VHJson VHApiResponse(int code, const std::string& message, VHJson data = nullptr);
// A refusal; a lock conflict also carries the holder's "FileLock".
VHJson VHApiFailure(const VHEmulatorFailure& failure);

VHJson VHDomainRecord(const VHEmulatorDomain& domain);
VHJson VHUserDomainRecord(const VHEmulatorDomain& domain, const VHEmulatorMembership& member);
VHJson VHUserRecord(const VHEmulatorUser& user);
VHJson VHResellerRecord(const VHEmulatorDomain& domain);
VHJson VHManagedShareRecord(const VHEmulatorShare& share, const VHEmulatorAcl& acl,
                            const VHEmulatorDomain& domain);
VHJson VHCatchUpRecord(const std::vector<VHEmulatorItem>& items, int64_t shareTick,
                       int64_t largestTick);

}  // namespace vh::emulator
