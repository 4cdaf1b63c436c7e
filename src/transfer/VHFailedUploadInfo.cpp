#include "transfer/VHFailedUploadInfo.h"

#include <array>

namespace vh {

namespace {

constexpr std::array<double, 6> kRetryDelays = {5, 20, 60, 300, 600, 1800};

}  // namespace

VHFailedUploadInfo VHFailedUploadInfo::startingAt(VHDate now) {
    return VHFailedUploadInfo{now, now, 0};
}

std::optional<VHDate> VHFailedUploadInfo::nextTryTime() const {
    if (failures < 0 || failures >= static_cast<int32_t>(kRetryDelays.size())) {
        return std::nullopt;
    }
    return lastTry.addingSeconds(kRetryDelays[failures]);
}

std::optional<VHDate> VHFailedUploadInfo::recordFailure(VHDate now) {
    lastTry = now;
    std::optional<VHDate> next = nextTryTime();
    ++failures;
    return next;
}

}  // namespace vh
