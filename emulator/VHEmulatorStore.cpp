#include "VHEmulatorStore.h"

namespace vh::emulator {

bool VHEmulatorStore::open(const std::string& stateDir) {
    return db.open(stateDir + "/state.db") && blobs.open(stateDir + "/blobs");
}

bool VHEmulatorStore::abandonUpload(const std::string& uploadName) {
    return static_cast<bool>(atomically([&]() -> VHEmulatorResult<bool> {
        if (!uploads.abandon(uploadName)) return VHFail(500, kCodeBadRequest, db.lastError());
        return true;
    }));
}

bool VHEmulatorStore::expireUploads() {
    return static_cast<bool>(atomically([&]() -> VHEmulatorResult<bool> {
        if (!uploads.expire()) return VHFail(500, kCodeBadRequest, db.lastError());
        return true;
    }));
}

std::string VHEmulatorStore::globalHost() {
    return db.meta("globalHost").value_or(std::string(kDefaultGlobalHost));
}

std::vector<std::string> VHEmulatorStore::hostNames() {
    std::vector<std::string> names{globalHost()};
    for (const VHEmulatorDomain& domain : accounts.domains()) {
        names.push_back(domain.url);
        names.push_back("*." + domain.url);
    }
    names.push_back("localhost");
    names.push_back("127.0.0.1");
    return names;
}

}  // namespace vh::emulator
