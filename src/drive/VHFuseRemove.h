// Removing files and folders from the drive.
#pragma once

#include <fuse.h>

namespace vh {

int varnholt_unlink(const char* path);
int varnholt_rmdir(const char* path);

}  // namespace vh
