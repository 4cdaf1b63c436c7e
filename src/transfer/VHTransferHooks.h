// How the transfer layer reaches the connector above it: the user domain
// whose token signs file-cache requests, and this device's id. The connector
// registers itself at start-up; until then there is no domain and no id.
// Every method may be called from any thread.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "store/VHLoginRecords.h"

namespace vh {

class VHTransferHooks {
  public:
    virtual ~VHTransferHooks() = default;
    // The user domain of the last accepted global login with that DomainId.
    virtual std::optional<UserDomain> userDomainWithId(const std::string& domainId) = 0;
    virtual std::string deviceId() = 0;

    static VHTransferHooks& get();
    // nullptr restores the empty one; the object must outlive its registration.
    static void set(VHTransferHooks* hooks);
};

// The last measured transfer speeds in bytes per second (shown to the user;
// the connector reports them as its own).
struct VHTransferSpeeds {
    static inline std::atomic<double> lastDownloadSpeed{0};
    static inline std::atomic<double> lastUploadSpeed{0};
};

}  // namespace vh
