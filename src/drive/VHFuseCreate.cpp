#include "drive/VHFuseCreate.h"

#include <cerrno>

namespace vh {

int varnholt_create(const char*, mode_t, struct fuse_file_info*) {
    return -ENOSYS;
}
int varnholt_mkdir(const char*, mode_t) {
    return -ENOSYS;
}

}  // namespace vh
