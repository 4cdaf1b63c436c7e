// Renaming, moving and exchanging items on the drive.
#pragma once

#include <fuse.h>

namespace vh {

// `flags` may hold RENAME_EXCHANGE or RENAME_NOREPLACE.
int varnholt_rename(const char* from, const char* to, unsigned int flags);

}  // namespace vh
