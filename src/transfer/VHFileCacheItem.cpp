#include "transfer/VHFileCacheItem.h"

#include <unistd.h>

namespace vh {

VHFileCacheItem::VHFileCacheItem(const VHFile& file) : file(file), lastRead(VHDate::now()) {}

VHFileCacheItem::~VHFileCacheItem() {
    closeDescriptor();
}

void VHFileCacheItem::closeDescriptor() {
    if (fd < 0) return;
    close(fd);
    fd = -1;
}

}  // namespace vh
