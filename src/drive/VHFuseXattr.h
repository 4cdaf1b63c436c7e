// Extended attributes of drive items. Security labels ("security.*") and
// POSIX ACLs ("system.posix_acl_*") are not supported: -ENOTSUP for them, so
// that programs stop asking; -ENODATA for any other name.
#pragma once

#include <fuse.h>

namespace vh {

int varnholt_setxattr(const char* path, const char* name, const char* value, size_t size,
                      int flags);
int varnholt_getxattr(const char* path, const char* name, char* value, size_t size);
int varnholt_listxattr(const char* path, char* list, size_t size);
int varnholt_removexattr(const char* path, const char* name);

}  // namespace vh
