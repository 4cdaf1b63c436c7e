// Checks of the file API's "Authorization: DomainToken <token>" header
// against the host's domain and of the user's right on a share. Both
// require the database lock. A missing or unknown token is refused with
// 401, a share without a right (or read-only, for a change) with 403.
#pragma once

#include <string>

#include "VHEmulatorExchange.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

struct VHDomainUser {
    VHEmulatorUser user;
    VHEmulatorDomain domain;
};

struct VHShareAccess {
    VHEmulatorUser user;
    VHEmulatorDomain domain;
    VHShareView view;
    VHEmulatorAcl acl;
};

VHEmulatorResult<VHDomainUser> VHAuthorizeDomainUser(VHEmulatorStore& store,
                                                     const VHEmulatorExchange& exchange);
VHEmulatorResult<VHShareAccess> VHAuthorizeShare(VHEmulatorStore& store,
                                                 const VHEmulatorExchange& exchange,
                                                 const std::string& shareId, bool forChange);

}  // namespace vh::emulator
