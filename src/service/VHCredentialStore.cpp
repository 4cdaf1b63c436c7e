#include "service/VHCredentialStore.h"

#include "lib/VHLog.h"
#include "service/VHFileCredentialStore.h"
#include "service/VHKeychainCredentialStore.h"

namespace vh {

std::unique_ptr<VHCredentialStore> VHCredentialStore::open(const std::string& service) {
    if (VHKeychainCredentialStore::available(service)) {
        VHLog(kLogMain, "Credentials are kept in the Secret Service.");
        return std::make_unique<VHKeychainCredentialStore>();
    }
    auto file = std::make_unique<VHFileCredentialStore>();
    VHLog(kLogMain, "No Secret Service answers: credentials are kept in %@.", file->path());
    return file;
}

}  // namespace vh
