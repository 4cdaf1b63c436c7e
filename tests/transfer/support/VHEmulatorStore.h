// The store filled the way the client fills it: from the real emulator's
// global login, gateway login and catch-up answers for one user; and the
// user domains of that global login for the transfer layer's requests.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "emulator/support/VHEmulatorProcess.h"
#include "store/VHLoginRecords.h"
#include "transfer/VHTransferHooks.h"

namespace vh::test {

// Answers with the domains of one global login answer; registers itself as
// the transfer hooks while it lives.
class VHEmulatorDomains final : public VHTransferHooks {
  public:
    VHEmulatorDomains() { VHTransferHooks::set(this); }
    ~VHEmulatorDomains() override { VHTransferHooks::set(nullptr); }
    std::optional<UserDomain> userDomainWithId(const std::string& id) override;
    std::string deviceId() override { return "test-device"; }

    GlobalLoginResponce global;
};

// Points the HTTP layer at the emulator, loads the store of the test's HOME,
// logs `email` in on its primary domain and applies the whole journal of
// every share it can reach. False (with a test failure) when any step fails.
bool VHFillStoreFromEmulator(const VHEmulatorProcess& emulator, const std::string& email,
                             const std::string& password, VHEmulatorDomains& domains);

// An emulator seed of one domain, the user "a@varnholt.test" (password "pw")
// and the share "team" ("Team") that `actions` fill.
nlohmann::json VHTeamSeed(const nlohmann::json& actions);
// A seed action writing `text` at `path`.
nlohmann::json VHWriteTextAction(const std::string& path, const std::string& text);

}  // namespace vh::test
