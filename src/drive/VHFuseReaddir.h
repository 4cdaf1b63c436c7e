// Folder listings of the drive: the shares at the root, a share's or a
// folder's children below it, from the metadata database.
#pragma once

#include <fuse.h>

namespace vh {

// Opening a folder keeps its path in the handle, for readdir.
int varnholt_opendir(const char* path, struct fuse_file_info* fi);
int varnholt_releasedir(const char* path, struct fuse_file_info* fi);

// Lists the folder when asked from offset 0 and hands out that listing by
// offset ("." and ".." first), each entry with its attributes; names that
// hold an invalid character, are 960 characters or longer, or are ignored by
// the name rules (so every name beginning with ".") are left out, and so are
// names longer than NAME_MAX bytes, which no program could open. A missing
// share or folder lists as empty.
int varnholt_readdir(const char* path, void* buffer, fuse_fill_dir_t filler, off_t offset,
                     struct fuse_file_info* fi, enum fuse_readdir_flags flags);

}  // namespace vh
