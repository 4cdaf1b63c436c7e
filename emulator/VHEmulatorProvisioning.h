// Domains, users and shares made from JSON descriptions, the same for the
// seed file and the admin API (formats in the README). Every method
// requires the database lock and runs inside the caller's transaction.
#pragma once

#include <nlohmann/json.hpp>

#include "VHEmulatorActions.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHEmulatorProvisioning {
  public:
    explicit VHEmulatorProvisioning(VHEmulatorStore& store) : store_(store) {}

    // {"url", "name"}
    VHEmulatorResult<VHEmulatorDomain> addDomain(const nlohmann::json& description);
    // {"email", "password", "name", "primaryDomain", "domains",
    //  "requireKnownDevices", "devices": [{"deviceId", "wipe"}]}
    VHEmulatorResult<VHEmulatorUser> addUser(const nlohmann::json& description);
    // {"shareId", "name", "domain", "owner", "acl": [{"email", "aclType"}],
    //  "parentShare", "folder"}; `actions` (prepared from the description's
    //  "actions") fill a share that holds items, as its owner.
    VHEmulatorResult<VHEmulatorShare> addShare(const nlohmann::json& description,
                                               const VHEmulatorActions& actions);

  private:
    VHEmulatorStore& store_;
};

}  // namespace vh::emulator
