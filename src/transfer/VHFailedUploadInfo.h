// The retry schedule of one upload operation: made at its first failure,
// told of each further one. A plain value owned by its operation.
#pragma once

#include <cstdint>
#include <optional>

#include "lib/VHDate.h"

namespace vh {

struct VHFailedUploadInfo {
    VHDate firstFailure;
    VHDate lastTry;
    int32_t failures = 0;

    // Starts the schedule at `now` with no failure counted.
    static VHFailedUploadInfo startingAt(VHDate now);
    // lastTry + 5, 20, 60, 300, 600 or 1800 s for 0 to 5 failures; nothing
    // from 6 on (give up).
    std::optional<VHDate> nextTryTime() const;
    // Counts a failure at `now`: the time of the next try (computed before
    // the count goes up), or nothing when the operation should give up.
    std::optional<VHDate> recordFailure(VHDate now);
};

}  // namespace vh
