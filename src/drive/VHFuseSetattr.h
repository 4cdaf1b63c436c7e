// Changing attributes of drive items: mode, owner, size and times. Each
// returns 0 or -errno; -EACCES for a share, the root, anything in a share
// the user may only read, and a file another user holds locked.
#pragma once

#include <fuse.h>

namespace vh {

int varnholt_chmod(const char* path, mode_t mode, struct fuse_file_info* fi);
int varnholt_chown(const char* path, uid_t uid, gid_t gid, struct fuse_file_info* fi);
int varnholt_truncate(const char* path, off_t size, struct fuse_file_info* fi);
int varnholt_utimens(const char* path, const struct timespec times[2], struct fuse_file_info* fi);

}  // namespace vh
