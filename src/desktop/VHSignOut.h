// Signing out from the command line (--logout): the credentials are
// forgotten and the caches emptied, but never at the cost of local changes
// the service has not confirmed yet, unless the user insists. The logs stay.
//
// Main thread, before the event loop runs; the instance lock is taken for
// the duration, so it refuses while the client runs.
#pragma once

#include <cstdint>

namespace vh {

class VHSignOut {
  public:
    // Signs out and returns the process's exit status: 0, the delegate's
    // kExitAnotherInstance or kExitUnconfirmedChanges (the count is printed
    // on standard error), or a fatal failure's status.
    static int run(bool force);

    // Items created, changed, deleted or sent on the drive whose changes the
    // service has not confirmed yet. The store must be loaded.
    static int64_t unconfirmedChanges();
};

}  // namespace vh
