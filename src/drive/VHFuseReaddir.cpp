#include "drive/VHFuseReaddir.h"

#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <string>
#include <vector>

#include "drive/VHFuseAttributes.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseHandle.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHNameRules.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

constexpr size_t kMaxListedNameLength = 960;
// What libfuse itself gives entries of no known inode: readdir(3) skips an
// entry whose inode is 0, and "." and ".." get none from the lookup.
constexpr ino_t kUnknownInode = 0xffffffff;

using Entries = std::vector<std::pair<std::string, struct stat>>;

bool isListable(const std::string& name) {
    // Beyond NAME_MAX bytes no program could open the name: leave it out too.
    return !VHContainsInvalidCharacters(name) && name.size() < kMaxListedNameLength &&
           name.size() <= NAME_MAX && !VHFuseUtils::isPathIgnored(name, false);
}

void addEntry(Entries& entries, const std::string& name, const struct stat& st) {
    if (isListable(name)) entries.emplace_back(name, st);
}

void listShares(Entries& entries) {
    struct stat st {};
    for (const ManagedShare& share : VHDatabase::database().shares()) {
        // A name from the server that cannot be one path component is not shown.
        if (!VHIsSafePathComponent(share.displayName())) continue;
        VHFillShareAttributes(&st, share);
        addEntry(entries, share.displayName(), st);
    }
}

void listChildren(const std::string& path, Entries& entries) {
    std::string parentId = driveParentIdOfChildren(path);
    if (parentId.empty()) return;
    auto share = driveShareWithPath(path);
    bool readOnly = share && share->isReadonlyShare();
    struct stat st {};
    for (const VHFile& file : VHDatabase::database().listingWithParent(parentId)) {
        VHFillItemAttributes(&st, file, readOnly);
        addEntry(entries, file.publicName, st);
    }
}

// The whole folder with the attributes of every entry, so that the kernel
// needs no lookup per entry afterwards (readdirplus) and learns each type.
Entries listing(const std::string& path) {
    struct stat folder {};
    folder.st_mode = S_IFDIR;
    folder.st_ino = kUnknownInode;
    Entries entries{{".", folder}, {"..", folder}};
    if (VHFuseUtils::isRootPath(path)) {
        listShares(entries);
    } else {
        listChildren(path, entries);
    }
    return entries;
}

int readdir(VHFuseDirectoryHandle& folder, void* buffer, fuse_fill_dir_t filler, off_t offset,
            fuse_readdir_flags flags) {
    if (offset == 0) {
        VHLog(kLogDrive, "%s:%@", "varnholt_readdir", folder.path);
        folder.entries = listing(folder.path);
        if (VHFuseUtils::excessiveLogging()) {
            VHLog(kLogDrive, "%s: returned %d items", "varnholt_readdir",
                  folder.entries.size() - 2);
        }
    }
    auto fillFlags =
        static_cast<fuse_fill_dir_flags>((flags & FUSE_READDIR_PLUS) ? FUSE_FILL_DIR_PLUS : 0);
    for (size_t i = static_cast<size_t>(std::max<off_t>(offset, 0)); i < folder.entries.size();
         ++i) {
        const auto& [name, st] = folder.entries[i];
        if (filler(buffer, name.c_str(), &st, static_cast<off_t>(i + 1), fillFlags) != 0) break;
    }
    return 0;
}

}  // namespace

int varnholt_opendir(const char* path, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] {
        (new VHFuseDirectoryHandle(finalPath(path ? path : "/")))->storeIn(fi);
        // The kernel keeps a listing until the folder changes: through the
        // drive it notices itself, from elsewhere the store's changes drop
        // it (VHInvalidateDrivePaths).
        fi->cache_readdir = 1;
        fi->keep_cache = 1;
        return 0;
    });
}

int varnholt_releasedir(const char*, struct fuse_file_info* fi) {
    delete VHFuseHandle::from(fi);
    fi->fh = 0;
    return 0;
}

int varnholt_readdir(const char*, void* buffer, fuse_fill_dir_t filler, off_t offset,
                     struct fuse_file_info* fi, enum fuse_readdir_flags flags) {
    return VHFuseGuard(__func__, [&] {
        auto* folder = dynamic_cast<VHFuseDirectoryHandle*>(VHFuseHandle::from(fi));
        return folder ? readdir(*folder, buffer, filler, offset, flags) : -EBADF;
    });
}

}  // namespace vh
