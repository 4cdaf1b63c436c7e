#include "drive/VHFuseRename.h"

#include <cerrno>

namespace vh {

int varnholt_rename(const char*, const char*, unsigned int) {
    return -ENOSYS;
}

}  // namespace vh
