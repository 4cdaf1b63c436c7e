// Opening, reading, writing and closing files of the drive.
//
// Each open keeps a VHFuseFileData handle whose cache descriptor is opened
// once, by the first read of a complete copy or the first write, and kept
// until release. "/.fuselock" and ".vhrefresh" open as empty files answered
// here: they read as empty, refuse writes (EACCES) and store nothing.
#pragma once

#include <fuse.h>

namespace vh {

// 0, -EACCES (writing in a share the user may only read, or into a file
// another user holds locked), -ENOENT. With O_TRUNC for writing the file's
// contents become empty here.
int varnholt_open(const char* path, struct fuse_file_info* fi);
// Bytes read, or -errno; from the complete cache copy, else through the
// download queue (-EIO when it gives nothing).
int varnholt_read(const char* path, char* buffer, size_t size, off_t offset,
                  struct fuse_file_info* fi);
// What libfuse calls in place of varnholt_read: a complete copy is handed to
// the kernel as the descriptor and position to read from (spliced, never
// copied through a buffer here); anything else as varnholt_read's bytes.
// 0 with *out set (freed by libfuse), or -errno.
int varnholt_read_buf(const char* path, struct fuse_bufvec** out, size_t size, off_t offset,
                      struct fuse_file_info* fi);
// Bytes written into the cache copy, or -errno (-EACCES once another user
// holds the file locked, also through a handle opened before).
int varnholt_write(const char* path, const char* buffer, size_t size, off_t offset,
                   struct fuse_file_info* fi);
int varnholt_release(const char* path, struct fuse_file_info* fi);              // always 0
int varnholt_fsync(const char* path, int dataOnly, struct fuse_file_info* fi);  // always 0
int varnholt_fallocate(const char* path, int mode, off_t offset, off_t length,
                       struct fuse_file_info* fi);

}  // namespace vh
