// Locking and unlocking a file of the drive on the user's behalf. The
// records change at once; the upload queue then sends the lock change, and
// the service's refusal (somebody else holds the lock) comes back as an alert.
//
// Main thread (the store calls block for one job each).
#pragma once

#include <string>

namespace vh {

class VHLockToggle {
  public:
    enum class Result { Changed, NoFile, NotAllowed, AlreadyThere, Pending };

    // Inverts the lock of the file at `drivePath` ("/Share/a/b"). A lock of
    // another user stays (logged) unless the user owns the share. While a
    // change of the file is on its way to the service (Pending) nothing
    // changes: the service's confirmation would undo the new lock state.
    static Result toggleLock(const std::string& drivePath);
    // Locks (`lock`) or unlocks; AlreadyThere when the file is so already.
    static Result setLocked(const std::string& drivePath, bool lock);
};

}  // namespace vh
