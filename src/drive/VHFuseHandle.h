// What a FUSE file handle (fuse_file_info::fh) points to. Because the drive
// asks libfuse for no paths on open files and folders, every open keeps what
// later callbacks need in its handle.
#pragma once

#include <fuse.h>

#include <sys/stat.h>

#include <string>
#include <utility>
#include <vector>

namespace vh {

class VHFuseHandle {
  public:
    virtual ~VHFuseHandle() = default;

    // The handle stored in `fi`; null when there is none.
    static VHFuseHandle* from(const struct fuse_file_info* fi) {
        return fi ? reinterpret_cast<VHFuseHandle*>(fi->fh) : nullptr;
    }
    void storeIn(struct fuse_file_info* fi) { fi->fh = reinterpret_cast<uint64_t>(this); }
};

// An open special name ("/.fuselock", ".vhrefresh"): always an empty file,
// answered inside the drive; nothing is stored for it anywhere.
class VHFuseSpecialHandle : public VHFuseHandle {};

// An open folder: the drive path it was opened under (already mapped), and
// the entries of its last listing, which later readdir calls continue by
// offset. libfuse calls readdir on one handle at a time.
class VHFuseDirectoryHandle : public VHFuseHandle {
  public:
    explicit VHFuseDirectoryHandle(std::string path) : path(std::move(path)) {}
    const std::string path;
    std::vector<std::pair<std::string, struct stat>> entries;
};

}  // namespace vh
