// Opening, reading, writing and closing files of the drive.
#pragma once

#include <fuse.h>

namespace vh {

int varnholt_open(const char* path, struct fuse_file_info* fi);
int varnholt_read(const char* path, char* buffer, size_t size, off_t offset,
                  struct fuse_file_info* fi);
int varnholt_write(const char* path, const char* buffer, size_t size, off_t offset,
                   struct fuse_file_info* fi);
int varnholt_release(const char* path, struct fuse_file_info* fi);
int varnholt_fsync(const char* path, int dataOnly, struct fuse_file_info* fi);
int varnholt_fallocate(const char* path, int mode, off_t offset, off_t length,
                       struct fuse_file_info* fi);

}  // namespace vh
