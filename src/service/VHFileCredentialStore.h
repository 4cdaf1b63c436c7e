// The credential store of machines without a Secret Service: one JSON file
// in the metadata folder, created with mode 0600 and replaced atomically on
// every change, so that a crash leaves the old or the new contents.
#pragma once

#include <string>
#include <vector>

#include "service/VHCredentialStore.h"

namespace vh {

class VHFileCredentialStore final : public VHCredentialStore {
  public:
    // The file's name in the metadata folder.
    static constexpr const char* kFileName = "credentials.json";

    // The file in the metadata folder, or at `path` (tests). Registers the
    // name with the first-generation clean-up, which must never delete it.
    VHFileCredentialStore();
    explicit VHFileCredentialStore(std::string path);

    const std::string& path() const { return path_; }

    std::vector<std::string> accounts(const std::string& service) override;
    std::optional<std::string> password(const std::string& service,
                                        const std::string& account) override;
    bool setPassword(const std::string& service, const std::string& account,
                     const std::string& password) override;
    bool deletePassword(const std::string& service, const std::string& account) override;

  private:
    struct Item {
        std::string service;
        std::string account;
        std::string password;
    };

    // A missing file is empty; an unreadable one is logged and empty.
    std::vector<Item> read() const;
    bool write(const std::vector<Item>& items) const;

    std::string path_;
};

}  // namespace vh
