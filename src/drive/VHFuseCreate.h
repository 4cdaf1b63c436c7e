// Creating files and folders on the drive.
#pragma once

#include <fuse.h>

namespace vh {

int varnholt_create(const char* path, mode_t mode, struct fuse_file_info* fi);
int varnholt_mkdir(const char* path, mode_t mode);

}  // namespace vh
