#include "drive/VHFuseXattr.h"

#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "drive/VHFuseGuard.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseStatusAttributes.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHLog.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

// POSIX ACLs and security labels are not kept on the drive. Saying so, rather
// than "no such attribute", lets ls and cp remember it for the whole mount
// instead of asking again for every entry.
bool isUnsupported(std::string_view name) {
    return name.starts_with("security.") || name.starts_with("system.posix_acl_");
}

// The item at a drive path and the side file that holds its attributes.
struct Item {
    std::optional<ManagedShare> share;  // for a share path
    std::optional<VHFile> file;         // for an item path: its live record
    std::string sidecar;                // "" when the item is unknown

    bool known() const { return share || file; }
};

Item itemAt(const std::string& path) {
    Item item;
    VHFileCache& cache = VHFileCache::fileCache();
    if (VHFuseUtils::isSharePath(path)) {
        item.share = driveShareWithPath(path);
        if (item.share) item.sidecar = cache.pathForShareExtAttrs(item.share->shareId());
        return item;
    }
    item.file = driveFileWithPath(path);
    if (item.file && item.file->deleted) item.file.reset();
    if (item.file) item.sidecar = cache.pathForFileExtAttrs(*item.file);
    return item;
}

bool sidecarExists(const Item& item) {
    return !item.sidecar.empty() && access(item.sidecar.c_str(), F_OK) == 0;
}

// The side file to store into. An item's is made when missing. A share's is
// made by the content cache with the share's folder: lstat gives 0 or -1,
// never 2, so the test below never makes one here.
std::string sidecarForWriting(const Item& item) {
    struct stat st {};
    if (item.share) {
        if (lstat(item.sidecar.c_str(), &st) == 2) {
            VHFileCache::fileCache().createExAttrsForShare(*item.share);
        }
    } else if (item.file) {
        if (lstat(item.sidecar.c_str(), &st) != 0 && errno == ENOENT) {
            VHFileCache::fileCache().createExAttrsForFile(*item.file);
        }
    }
    return item.sidecar;
}

int copyStatusValue(char byte, char* value, size_t size) {
    if (size < 1) return -ERANGE;
    value[0] = byte;
    return 1;
}

int getxattr(const char* rawPath, const char* name, char* value, size_t size) {
    VHLog(kLogDrive, "%s:%s", "varnholt_getxattr", rawPath);
    std::string path = finalPath(rawPath);
    if (VHFuseUtils::isRootPath(path)) return -ENODATA;
    Item item = itemAt(path);
    if (!item.known()) return -ENODATA;
    if (auto attribute = VHStatusAttributeNamed(name)) {
        auto byte = VHStatusAttributeValue(*attribute, path, item.file);
        return byte ? copyStatusValue(*byte, value, size) : -ENODATA;
    }
    if (!sidecarExists(item)) return -ENODATA;
    ssize_t length = lgetxattr(item.sidecar.c_str(), name, value, size);
    return length < 0 ? -errno : static_cast<int>(length);
}

int setxattr(const char* rawPath, const char* name, const char* value, size_t size, int flags) {
    VHLog(kLogDrive, "%s: %s, name: %s", "varnholt_setxattr", rawPath, name);
    std::string path = finalPath(rawPath);
    if (VHFuseUtils::isRootPath(path)) return -EACCES;
    if (VHStatusAttributeNamed(name)) return -EPERM;
    Item item = itemAt(path);
    if (!item.known() || item.sidecar.empty()) return -EFAULT;
    std::string sidecar = sidecarForWriting(item);
    int options = flags & (XATTR_CREATE | XATTR_REPLACE);
    if (lsetxattr(sidecar.c_str(), name, value, size, options) != 0) {
        int error = errno;
        VHLog(kLogDrive, "%s : failed : errno = %d", "varnholt_setxattr", error);
        return -error;
    }
    return 0;
}

// The names stored on `sidecar`, each ending in NUL, without those the drive
// answers -ENOTSUP for (a host with labels puts its own on every file);
// -errno when they cannot be read.
std::variant<std::string, int> storedNames(const std::string& sidecar) {
    std::string names;
    for (;;) {
        ssize_t needed = llistxattr(sidecar.c_str(), nullptr, 0);
        if (needed < 0) return -errno;
        names.resize(static_cast<size_t>(needed));
        ssize_t got = llistxattr(sidecar.c_str(), names.data(), names.size());
        if (got >= 0) {
            names.resize(static_cast<size_t>(got));
            break;
        }
        if (errno != ERANGE) return -errno;  // ERANGE: a name came meanwhile
    }
    std::string kept;
    for (size_t start = 0; start < names.size();) {
        std::string_view name(names.c_str() + start);
        if (!isUnsupported(name)) kept.append(name).push_back('\0');
        start += name.size() + 1;
    }
    return kept;
}

int listxattr(const char* rawPath, char* list, size_t size) {
    VHLog(kLogDrive, "%s:%s", "varnholt_listxattr", rawPath);
    std::string path = finalPath(rawPath);
    if (VHFuseUtils::isRootPath(path)) return 0;
    Item item = itemAt(path);
    if (!sidecarExists(item)) return 0;
    auto names = storedNames(item.sidecar);
    if (const int* error = std::get_if<int>(&names)) return *error;
    const std::string& kept = std::get<std::string>(names);
    if (size == 0) return static_cast<int>(kept.size());
    if (kept.size() > size) return -ERANGE;
    std::memcpy(list, kept.data(), kept.size());
    return static_cast<int>(kept.size());
}

int removexattr(const char* rawPath, const char* name) {
    VHLog(kLogDrive, "%s:%s", "varnholt_removexattr", rawPath);
    VHLog(kLogDrive, "%s:%s ofItemAtPath:%@", "varnholt_removexattr", name, rawPath);
    std::string path = finalPath(rawPath);
    if (VHFuseUtils::isRootPath(path)) return -ENODATA;
    if (VHStatusAttributeNamed(name)) return -EPERM;
    Item item = itemAt(path);
    if (!sidecarExists(item)) return -ENODATA;
    return lremovexattr(item.sidecar.c_str(), name) == 0 ? 0 : -errno;
}

}  // namespace

int varnholt_setxattr(const char* path, const char* name, const char* value, size_t size,
                      int flags) {
    if (!name || isUnsupported(name)) return -ENOTSUP;
    return VHFuseGuard(__func__,
                       [&] { return setxattr(path ? path : "/", name, value, size, flags); });
}

int varnholt_getxattr(const char* path, const char* name, char* value, size_t size) {
    if (!name || isUnsupported(name)) return -ENOTSUP;
    return VHFuseGuard(__func__, [&] { return getxattr(path ? path : "/", name, value, size); });
}

int varnholt_listxattr(const char* path, char* list, size_t size) {
    return VHFuseGuard(__func__, [&] { return listxattr(path ? path : "/", list, size); });
}

int varnholt_removexattr(const char* path, const char* name) {
    if (!name || isUnsupported(name)) return -ENOTSUP;
    return VHFuseGuard(__func__, [&] { return removexattr(path ? path : "/", name); });
}

}  // namespace vh
