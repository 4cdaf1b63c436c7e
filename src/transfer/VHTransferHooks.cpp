#include "transfer/VHTransferHooks.h"

namespace vh {

namespace {

class NoConnector final : public VHTransferHooks {
    std::optional<UserDomain> userDomainWithId(const std::string&) override { return std::nullopt; }
    std::string deviceId() override { return ""; }
};

NoConnector gNone;
std::atomic<VHTransferHooks*> gHooks{nullptr};

}  // namespace

VHTransferHooks& VHTransferHooks::get() {
    VHTransferHooks* hooks = gHooks.load(std::memory_order_acquire);
    return hooks ? *hooks : gNone;
}

void VHTransferHooks::set(VHTransferHooks* hooks) {
    gHooks.store(hooks, std::memory_order_release);
}

}  // namespace vh
