// The reference mounts the benchmarks compare the drive with, over the same
// local folder: bindfs (a plain FUSE pass-through, the ceiling of a FUSE file
// system) and rclone's full-cache mount of its own WebDAV server on loopback
// (a peer client). Each is unmounted and its processes stopped when the
// object goes.
#pragma once

#include <sys/types.h>

#include <string>

namespace vh::bench {

class VHPeerMount {
  public:
    enum class Kind { Bindfs, Rclone };

    // Mounts `source` at `root`/<kind>; mounted() says whether it came up.
    VHPeerMount(Kind kind, const std::string& root, const std::string& source);
    ~VHPeerMount();
    VHPeerMount(const VHPeerMount&) = delete;
    VHPeerMount& operator=(const VHPeerMount&) = delete;

    bool mounted() const { return mounted_; }
    const std::string& path() const { return path_; }
    // The process that serves the mount (-1 when none).
    pid_t servingProcess() const { return client_; }

  private:
    std::string path_;
    pid_t server_ = -1;  // rclone's WebDAV server
    pid_t client_ = -1;
    bool mounted_ = false;
};

// Whether `program` is on the PATH.
bool VHInstalled(const char* program);
// Drops the kernel's page, dentry and inode caches (root only).
void VHDropKernelCaches();
// VmRSS of a process in MB; 0 when unknown.
double VHResidentMB(pid_t pid);

}  // namespace vh::bench
