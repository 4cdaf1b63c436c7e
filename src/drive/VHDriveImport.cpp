#include "drive/VHDriveImport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "drive/VHFuseAttributes.h"
#include "drive/VHFuseCreate.h"
#include "drive/VHFuseFileData.h"
#include "drive/VHFuseFileIO.h"
#include "drive/VHFuseRemove.h"
#include "lib/VHPathUtils.h"
#include "store/VHStoreHooks.h"

namespace vh {

namespace {

constexpr size_t kCopyBlock = 128 * 1024;

// Whether something stands at `path`: 0 (with its attributes) or -errno.
int lookUp(const std::string& path, struct stat& st) {
    st = {};
    return varnholt_getattr(path.c_str(), &st, nullptr);
}

// Writes the whole of `in` through the open drive handle: 0 or an errno value.
int copyBytes(int in, const std::string& target, struct fuse_file_info& fi) {
    std::vector<char> block(kCopyBlock);
    off_t offset = 0;
    for (;;) {
        ssize_t count = ::read(in, block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) return 0;
        for (ssize_t done = 0; done < count;) {
            int written = varnholt_write(target.c_str(), block.data() + done,
                                         static_cast<size_t>(count - done), offset, &fi);
            if (written <= 0) return written < 0 ? -written : EIO;
            done += written;
            offset += written;
        }
    }
}

std::string fileIdOf(const struct fuse_file_info& fi) {
    auto* handle = dynamic_cast<VHFuseFileData*>(VHFuseHandle::from(&fi));
    return handle ? handle->fileId() : "";
}

}  // namespace

int VHMakeDriveFolders(const std::string& path) {
    struct stat st {};
    int found = lookUp(path, st);
    if (found == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
    if (found != -ENOENT) return -found;
    std::string parent = VHDeletingLastPathComponent(path);
    if (parent != "/" && parent != path) {
        if (int error = VHMakeDriveFolders(parent)) return error;
    }
    int made = varnholt_mkdir(path.c_str(), 0755);
    if (made != 0 && made != -EEXIST) return -made;
    VHStoreHooks::app().refreshFinderFolders({parent});
    return 0;
}

VHDriveImportResult VHCopyFileToDrive(const std::string& source, const std::string& target,
                                      const std::function<void(const std::string&)>& whole) {
    struct stat st {};
    if (lookUp(target, st) == 0) return {EEXIST, ""};
    int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0) return {errno, ""};
    struct fuse_file_info fi {};
    fi.flags = O_WRONLY | O_CREAT | O_TRUNC;
    int created = varnholt_create(target.c_str(), 0644, &fi);
    if (created != 0) {
        ::close(in);
        return {-created, ""};
    }
    std::string fileId = fileIdOf(fi);
    int error = copyBytes(in, target, fi);
    ::close(in);
    varnholt_release(target.c_str(), &fi);
    // Half a file must never reach the service.
    if (error) varnholt_unlink(target.c_str());
    VHStoreHooks::app().refreshFinderFolders({VHDeletingLastPathComponent(target)});
    if (error) return {error, ""};
    // Until now the upload queue leaves the file alone (it was just written).
    if (whole) whole(fileId);
    VHFuseFileData::writerFinished(fileId);
    return {0, fileId};
}

}  // namespace vh
