// One page of a share's change journal, as the catch-up request returns it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "lib/VHJsonRecord.h"
#include "store/VHVirtualFile.h"

namespace vh {

struct OSXCatchUpResponse {
    std::optional<std::vector<VHVirtualFile>> VhVirtualFiles;
    // Declared 32-bit by the service; kept wider so that no tick is refused.
    int64_t ShareTick = 0;
    int64_t LargestTick = 0;

    static auto jsonKeys() {
        using R = OSXCatchUpResponse;
        return std::tuple{VHKey{"VhVirtualFiles", &R::VhVirtualFiles},
                          VHKey{"ShareTick", &R::ShareTick}, VHKey{"LargestTick", &R::LargestTick}};
    }
};

}  // namespace vh
