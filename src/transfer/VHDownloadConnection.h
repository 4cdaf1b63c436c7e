// One running transfer of the download queue and what it has received.
// Made, used and dropped on the download thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lib/VHDate.h"
#include "transfer/VHByteRange.h"
#include "transfer/VHFileDownloadTask.h"

namespace vh {

struct VHDownloadConnection {
    std::shared_ptr<VHFileDownloadTask> task;
    VHDate startTime;
    VHByteRange range;          // the bytes actually requested
    uint64_t received = 0;      // body bytes of a 200 answer so far
    uint64_t lastProgress = 0;  // `received` at the last progress signal
    // A read keeps every body byte here for the waiting readers; a whole-file
    // download keeps only the body of an error answer (its bytes go to the cache).
    std::string data;
    int32_t responceCode = 0;
};

}  // namespace vh
