// One file that is open in the content cache: the descriptor on its complete
// or partial cache file and the length of the contiguous prefix present.
// Owned by VHFileCache and touched only under its lock.
#pragma once

#include <cstdint>

#include "lib/VHDate.h"
#include "store/VHFile.h"

namespace vh {

class VHFileCacheItem {
  public:
    // No descriptor, nothing available, last use now.
    explicit VHFileCacheItem(const VHFile& file);
    // Closes the descriptor if one is held.
    ~VHFileCacheItem();
    VHFileCacheItem(const VHFileCacheItem&) = delete;
    VHFileCacheItem& operator=(const VHFileCacheItem&) = delete;

    void closeDescriptor();

    bool downloaded = false;  // opened on the complete file under Files
    int fd = -1;              // on the complete or the partial file; -1 when none
    VHFile file;
    VHDate lastRead;             // last read or write through the item
    uint64_t availableData = 0;  // bytes of the prefix that starts at 0
};

}  // namespace vh
