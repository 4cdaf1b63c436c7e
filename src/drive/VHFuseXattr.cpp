#include "drive/VHFuseXattr.h"

#include <cerrno>

namespace vh {

int varnholt_setxattr(const char*, const char*, const char*, size_t, int) {
    return -ENOTSUP;
}
int varnholt_getxattr(const char*, const char*, char*, size_t) {
    return -ENODATA;
}
int varnholt_listxattr(const char*, char*, size_t) {
    return 0;
}
int varnholt_removexattr(const char*, const char*) {
    return -ENODATA;
}

}  // namespace vh
