#include "drive/VHFuseXattr.h"

#include <cerrno>
#include <string_view>

namespace vh {

namespace {

// POSIX ACLs and security labels are not kept on the drive. Saying so, rather
// than "no such attribute", lets ls and cp remember it for the whole mount
// instead of asking again for every entry.
bool isUnsupported(const char* name) {
    std::string_view n = name ? name : "";
    return n.starts_with("security.") || n.starts_with("system.posix_acl_");
}

}  // namespace

int varnholt_setxattr(const char*, const char*, const char*, size_t, int) {
    return -ENOTSUP;
}
int varnholt_getxattr(const char*, const char* name, char*, size_t) {
    return isUnsupported(name) ? -ENOTSUP : -ENODATA;
}
int varnholt_listxattr(const char*, char*, size_t) {
    return 0;
}
int varnholt_removexattr(const char*, const char* name) {
    return isUnsupported(name) ? -ENOTSUP : -ENODATA;
}

}  // namespace vh
