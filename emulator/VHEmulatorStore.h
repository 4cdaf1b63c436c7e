// The emulator's whole state in one place: the database with its lock, the
// blob folder, and the stores over them. Members are public; every store
// method requires db.lock().
#pragma once

#include <string>
#include <vector>

#include "VHEmulatorAccounts.h"
#include "VHEmulatorBlobs.h"
#include "VHEmulatorDatabase.h"
#include "VHEmulatorDefaults.h"
#include "VHEmulatorEvents.h"
#include "VHEmulatorJournal.h"
#include "VHEmulatorUploads.h"

namespace vh::emulator {

class VHEmulatorStore {
  public:
    // Opens "state.db" and the "blobs" folder in `stateDir`.
    bool open(const std::string& stateDir);

    // Runs `work` (returning a VHEmulatorResult) in one transaction that is
    // committed when the result holds a value. Blobs given up during it are
    // removed after the commit, blobs made for it after a rollback. Requires
    // db.lock().
    template <typename Work>
    auto atomically(Work work) -> decltype(work()) {
        std::optional<decltype(work())> result;
        bool committed = db.transaction([&] {
            result.emplace(work());
            return static_cast<bool>(*result);
        });
        if (committed) {
            blobs.committed();
            return std::move(*result);
        }
        blobs.rolledBack();
        if (result && !*result) return std::move(*result);
        return VHFail(500, kCodeBadRequest, "The change could not be stored");
    }

    // Gives up one upload, or every expired one, in a transaction of its
    // own; both require db.lock().
    bool abandonUpload(const std::string& uploadName);
    bool expireUploads();

    // The global login host; requires db.lock().
    std::string globalHost();
    // Every host name to certify: the global host and each domain with its
    // subdomains; requires db.lock().
    std::vector<std::string> hostNames();

    VHEmulatorDatabase db;
    VHEmulatorBlobs blobs;
    VHEmulatorAccounts accounts{db};
    VHEmulatorEvents events{db};
    VHEmulatorJournal journal{db, accounts, events, blobs};
    VHEmulatorUploads uploads{db, blobs};
};

}  // namespace vh::emulator
