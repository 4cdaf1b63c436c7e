#include "drive/VHFuseRemove.h"

#include <cerrno>

namespace vh {

int varnholt_unlink(const char*) {
    return -ENOSYS;
}
int varnholt_rmdir(const char*) {
    return -ENOSYS;
}

}  // namespace vh
