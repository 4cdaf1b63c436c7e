// Extended attributes of drive items.
#pragma once

#include <fuse.h>

namespace vh {

int varnholt_setxattr(const char* path, const char* name, const char* value, size_t size,
                      int flags);
int varnholt_getxattr(const char* path, const char* name, char* value, size_t size);
int varnholt_listxattr(const char* path, char* list, size_t size);
int varnholt_removexattr(const char* path, const char* name);

}  // namespace vh
