// What the download queue knows of one file that has been read through the
// network, keyed by its internalName. Guarded by the queue's read mutex.
#pragma once

#include <cstdint>

#include "lib/VHDate.h"
#include "store/VHFile.h"

namespace vh {

struct VHFileDownloadStatus {
    VHFile file;
    VHDate lastRead;
    // Bookkeeping only: nothing decides on these three.
    uint64_t reads = 0;
    int64_t readFromBeginning = 0;  // never advanced
    bool nonSequentialReads = false;
    // A read connection for this file is running; at most one at a time.
    bool downloadingChunk = false;
    // Read connections in a row that each went on from the end of the
    // downloaded prefix: a sequential reader, whose next bites grow.
    int prefixFetches = 0;
};

}  // namespace vh
