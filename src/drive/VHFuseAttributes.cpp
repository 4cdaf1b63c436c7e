#include "drive/VHFuseAttributes.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>

#include "drive/VHFuseFileData.h"
#include "drive/VHFuseGuard.h"
#include "drive/VHFuseHandle.h"
#include "drive/VHFuseNamespace.h"
#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabase.h"
#include "transfer/VHFileCache.h"

namespace vh {

namespace {

struct timespec toTimespec(VHDate date) {
    struct timespec ts {};
    double whole = std::floor(date.seconds);
    ts.tv_sec = static_cast<time_t>(whole);
    double nanos = (date.seconds - whole) * 1e9;
    ts.tv_nsec = nanos > 0 ? static_cast<long>(nanos) : 0;
    return ts;
}

void fillCommon(struct stat* st, mode_t mode) {
    std::memset(st, 0, sizeof *st);
    st->st_mode = mode;
    st->st_nlink = 1;
    // Asked once: every listed entry and lookup fills these.
    static const uid_t owner = geteuid();
    static const gid_t group = getegid();
    st->st_uid = owner;
    st->st_gid = group;
}

void fillTimes(struct stat* st, VHDate modified, VHDate accessed, VHDate changed) {
    st->st_mtim = toTimespec(modified);
    st->st_atim = toTimespec(accessed);
    st->st_ctim = toTimespec(changed);
}

bool isSpecialName(const std::string& path) {
    return path == kFuseLockPath || VHLastPathComponent(path) == kFinderRefresh;
}

void fillSpecial(struct stat* st) {
    fillCommon(st, S_IFREG | 0700);
    VHDate now = VHDate::now();
    fillTimes(st, now, now, now);
}

constexpr mode_t kWriteBits = 0222;

}  // namespace

void VHFillShareAttributes(struct stat* st, const ManagedShare& share) {
    fillCommon(st, S_IFDIR | (share.isReadonlyShare() ? 0500 : 0700));
    VHDate modified = share.ModificationDate.value_or(VHDate::distantPast());
    fillTimes(st, modified, modified, share.CreationDate.value_or(VHDate::distantPast()));
}

void VHFillItemAttributes(struct stat* st, const VHFile& file, bool readOnly) {
    mode_t mode = static_cast<mode_t>(file.permissions & 0xFFF);
    // Linux has no immutable flag to report: a file that another user holds
    // locked shows without write permission instead.
    if (readOnly || VHIsLockedByAnotherUser(file)) mode &= ~kWriteBits;
    fillCommon(st, mode | (file.isFile ? S_IFREG : S_IFDIR));
    fillTimes(st, file.modifyTime, file.accessTime, file.createTime);
    if (file.isFile) {
        st->st_size = static_cast<off_t>(file.fileSize);
        st->st_blocks = static_cast<blkcnt_t>((file.fileSize + 511) / 512);
    }
}

namespace {

// A file deleted while open lives on in the copy its handle holds.
int describeRemovedFile(VHFuseFileData& handle, struct stat* st) {
    int fd = handle.fileDescriptor();
    struct stat copy {};
    if (fd == -1 || fstat(fd, &copy) != 0) return -ENOENT;
    fillCommon(st, S_IFREG | (copy.st_mode & 0777));
    st->st_nlink = 0;
    st->st_size = copy.st_size;
    st->st_blocks = copy.st_blocks;
    st->st_mtim = copy.st_mtim;
    st->st_atim = copy.st_atim;
    st->st_ctim = copy.st_ctim;
    return 0;
}

int notFound(const char* rawPath) {
    if (VHLastPathComponent(rawPath) == "tree.txt") VHConsoleLog("file is not found....");
    VHLog(kLogDrive, "VHFuseFileSystem: attributesOfItemAtPath: failed: %s", rawPath);
    return -ENOENT;
}

int getattr(const char* rawPath, struct stat* st) {
    if (VHFuseUtils::excessiveLogging()) {
        VHLog(kLogDrive, "VHFuseFileSystem: attributesOfItemAtPath:%@", rawPath);
    }
    std::string path = finalPath(rawPath);
    if (isSpecialName(path)) {
        fillSpecial(st);
        return 0;
    }
    if (VHFuseUtils::isRootPath(path)) {
        return lstat(VHFileCache::filesCachePath().c_str(), st) == 0 ? 0 : -errno;
    }
    auto share = driveShareWithPath(path);
    if (VHFuseUtils::isSharePath(path)) {
        if (!share) return notFound(rawPath);
        VHFillShareAttributes(st, *share);
        return 0;
    }
    auto file = share ? VHDatabase::database().fileWithPath(path) : std::nullopt;
    if (!file) {
        VHConsoleLog("Get attributes, file is not found %@.", path);
        return notFound(rawPath);
    }
    if (file->deleted) return notFound(rawPath);
    VHFillItemAttributes(st, *file, share->isReadonlyShare());
    return 0;
}

}  // namespace

int varnholt_getattr(const char* path, struct stat* st, struct fuse_file_info* fi) {
    return VHFuseGuard(__func__, [&] {
        // An open file answers by its handle: its path may already name
        // another file, or a hidden one that is gone.
        if (path && !dynamic_cast<VHFuseFileData*>(VHFuseHandle::from(fi))) {
            return getattr(path, st);
        }
        // An open folder or file: libfuse gives its handle instead of a path.
        if (dynamic_cast<VHFuseSpecialHandle*>(VHFuseHandle::from(fi))) {
            fillSpecial(st);
            return 0;
        }
        if (auto* folder = dynamic_cast<VHFuseDirectoryHandle*>(VHFuseHandle::from(fi))) {
            return getattr(folder->path.c_str(), st);
        }
        if (auto* open = dynamic_cast<VHFuseFileData*>(VHFuseHandle::from(fi))) {
            VHDatabase& db = VHDatabase::database();
            auto file = db.fileWithId(open->fileId());
            if (!file || file->deleted) return describeRemovedFile(*open, st);
            // Without its path (deleted while open) the record's own share decides.
            auto share = db.shareForFile(*file);
            VHFillItemAttributes(st, *file, share && share->isReadonlyShare());
            return 0;
        }
        return -EBADF;
    });
}

int varnholt_statfs(const char* path, struct statvfs* st) {
    return VHFuseGuard(__func__, [&] {
        int result = statvfs(VHFileCache::rootCachePath().c_str(), st) == 0 ? 0 : -errno;
        VHLog(kLogDrive, "%s:%s", "varnholt_statfs", path);
        if (result != 0) return result;
        int64_t used = VHDatabase::database().totalFileSize();
        int64_t fragment = st->f_frsize ? static_cast<int64_t>(st->f_frsize) : 1;
        st->f_blocks = static_cast<fsblkcnt_t>(
            (used + static_cast<int64_t>(st->f_bfree) * fragment) / fragment);
        return 0;
    });
}

int varnholt_readlink(const char* path, char*, size_t) {
    VHLog(kLogDrive, "%s:%s", "varnholt_readlink", path);
    return -ENOENT;
}

int varnholt_symlink(const char* target, const char* linkPath) {
    VHLog(kLogDrive, "%s:%s to %s", "varnholt_symlink", target, linkPath);
    return -EACCES;
}

int varnholt_link(const char* from, const char* to) {
    // Hard links are not supported. The two paths are drive paths: handing
    // them to link(2) would touch the host's own folders.
    VHLog(kLogDrive, "%s:%s :%s", "varnholt_link", from, to);
    return -EPERM;
}

}  // namespace vh
