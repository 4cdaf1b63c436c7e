// Attributes of drive items and the volume, and the refused link calls.
// Everything is answered from the metadata database: never the server, never
// file contents.
#pragma once

#include <fuse.h>

#include "store/VHFile.h"
#include "store/VHLoginRecords.h"

namespace vh {

// The drive's lock file in its root and the file manager's refresh marker.
inline constexpr const char* kFuseLockPath = "/.fuselock";
inline constexpr const char* kFinderRefresh = ".vhrefresh";

// Attributes of a path: 0 or -ENOENT; for the root what lstat of the local
// Files folder gives (0 or -errno). Without a path, of the open folder or
// file of the handle. st_blocks counts 512-byte blocks. Shares the user may
// only read, and everything in them, show without write bits; so do files
// that another user holds locked. The special names are empty files, 0700.
int varnholt_getattr(const char* path, struct stat* st, struct fuse_file_info* fi);
// The cache volume's figures, with the drive's total file size as used
// space; -errno when the data root cannot be asked.
int varnholt_statfs(const char* path, struct statvfs* st);
// The attributes getattr gives a share, and an item (`readOnly`: it lies in a
// share the user may only read); listings hand the same to the kernel.
void VHFillShareAttributes(struct stat* st, const ManagedShare& share);
void VHFillItemAttributes(struct stat* st, const VHFile& file, bool readOnly);

int varnholt_readlink(const char* path, char* buffer, size_t size);  // always -ENOENT
int varnholt_symlink(const char* target, const char* linkPath);      // always -EACCES
int varnholt_link(const char* from, const char* to);                 // always -EPERM

}  // namespace vh
