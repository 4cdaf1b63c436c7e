// Where the user's password is kept: (service, account, password) triples.
//
// The Secret Service (through QtKeychain) when one answers on the session
// bus; otherwise a file of the metadata folder that only the user may read.
// Failures are logged and become false, nothing or an empty list. An
// implementation is used from one thread at a time (the connector's main
// thread); it is not safe for concurrent calls.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vh {

class VHCredentialStore {
  public:
    virtual ~VHCredentialStore() = default;

    // The accounts of `service` in the order they were first stored.
    virtual std::vector<std::string> accounts(const std::string& service) = 0;
    // Nothing when there is no such item or it cannot be read.
    virtual std::optional<std::string> password(const std::string& service,
                                                const std::string& account) = 0;
    // Creates or replaces the item.
    virtual bool setPassword(const std::string& service, const std::string& account,
                             const std::string& password) = 0;
    // True also when there was no such item.
    virtual bool deletePassword(const std::string& service, const std::string& account) = 0;

    // The Secret Service when it answers for `service`, else the file store;
    // logs which one.
    static std::unique_ptr<VHCredentialStore> open(const std::string& service);
};

}  // namespace vh
