// The credential store over the Secret Service, through QtKeychain.
//
// QtKeychain's jobs are asynchronous; each call here runs one job in a local
// event loop and gives up after a time-out. The Secret Service cannot list
// the accounts of a service, so the account names are kept in one more item
// of the same service (kIndexAccount, one name per line).
#pragma once

#include <string>
#include <vector>

#include "service/VHCredentialStore.h"

namespace vh {

class VHKeychainCredentialStore final : public VHCredentialStore {
  public:
    // Not an e-mail address, so it never collides with a user's account.
    static constexpr const char* kIndexAccount = "#accounts";

    // Whether the Secret Service answers (a read of the index item) and has
    // a keyring to keep new items in; nothing is prompted.
    static bool available(const std::string& service);

    std::vector<std::string> accounts(const std::string& service) override;
    std::optional<std::string> password(const std::string& service,
                                        const std::string& account) override;
    bool setPassword(const std::string& service, const std::string& account,
                     const std::string& password) override;
    bool deletePassword(const std::string& service, const std::string& account) override;

  private:
    bool writeIndex(const std::string& service, const std::vector<std::string>& accounts);
};

}  // namespace vh
