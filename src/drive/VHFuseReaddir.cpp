#include "drive/VHFuseReaddir.h"

#include <climits>
#include <string>
#include <vector>

#include "drive/VHFuseGuard.h"
#include "drive/VHFuseHandle.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHNameRules.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

constexpr size_t kMaxListedNameLength = 960;

// The parent id whose children a share or folder path lists; empty when the
// share or folder is unknown.
std::string parentIdOf(const std::string& path) {
    if (VHFuseUtils::isSharePath(path)) {
        auto share = driveShareWithPath(path);
        if (!share) return "";
        return share->isSubfolderShare() ? share->internalName() : share->shareId();
    }
    auto folder = driveFileWithPath(path);
    return folder ? folder->internalName : "";
}

std::vector<std::string> listedNames(const std::string& path) {
    std::vector<std::string> names;
    if (VHFuseUtils::isRootPath(path)) {
        for (const ManagedShare& share : VHDatabase::database().shares()) {
            // A name from the server that cannot be one path component is not shown.
            if (VHIsSafePathComponent(share.displayName())) names.push_back(share.displayName());
        }
        return names;
    }
    std::string parentId = parentIdOf(path);
    if (parentId.empty()) return names;
    for (std::string& name : VHDatabase::database().fileNamesListWithParent(parentId)) {
        // Beyond NAME_MAX bytes no program could open the name: leave it out too.
        if (!VHContainsInvalidCharacters(name) && name.size() < kMaxListedNameLength &&
            name.size() <= NAME_MAX) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

int readdir(const std::string& path, void* buffer, fuse_fill_dir_t filler) {
    VHLog(kLogDrive, "%s:%@", "varnholt_readdir", path);
    std::vector<std::string> names = listedNames(path);
    if (VHFuseUtils::excessiveLogging()) {
        VHLog(kLogDrive, "%s: returned %d items", "varnholt_readdir", names.size());
    }
    auto noFlags = static_cast<fuse_fill_dir_flags>(0);
    filler(buffer, ".", nullptr, 0, noFlags);
    filler(buffer, "..", nullptr, 0, noFlags);
    for (const std::string& name : names) {
        if (!VHFuseUtils::isPathIgnored(name, false))
            filler(buffer, name.c_str(), nullptr, 0, noFlags);
    }
    return 0;
}

}  // namespace

int varnholt_opendir(const char* path, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] {
        (new VHFuseDirectoryHandle(finalPath(path ? path : "/")))->storeIn(fi);
        return 0;
    });
}

int varnholt_releasedir(const char*, struct fuse_file_info* fi) {
    delete VHFuseHandle::from(fi);
    fi->fh = 0;
    return 0;
}

int varnholt_readdir(const char*, void* buffer, fuse_fill_dir_t filler, off_t,
                     struct fuse_file_info* fi, enum fuse_readdir_flags) {
    return VHFuseGuard(__func__, [&] {
        auto* folder = dynamic_cast<VHFuseDirectoryHandle*>(VHFuseHandle::from(fi));
        return folder ? readdir(folder->path, buffer, filler) : -EBADF;
    });
}

}  // namespace vh
