#include "drive/VHFuseSetattr.h"

#include <cerrno>

namespace vh {

int varnholt_chmod(const char*, mode_t, struct fuse_file_info*) {
    return -ENOSYS;
}
int varnholt_chown(const char*, uid_t, gid_t, struct fuse_file_info*) {
    return -ENOSYS;
}
int varnholt_truncate(const char*, off_t, struct fuse_file_info*) {
    return -ENOSYS;
}
int varnholt_utimens(const char*, const struct timespec[2], struct fuse_file_info*) {
    return -ENOSYS;
}

}  // namespace vh
