// A private HOME and XDG folders for one test, removed afterwards.
#pragma once

#include <string>

namespace vh::test {

class VHTestHome {
  public:
    VHTestHome();
    ~VHTestHome();
    VHTestHome(const VHTestHome&) = delete;
    VHTestHome& operator=(const VHTestHome&) = delete;

    const std::string& root() const { return root_; }

  private:
    std::string root_;
};

// Makes a new folder "<prefix>-XXXXXX" in $TMPDIR (default /tmp), so that a
// run can keep its folders, and mounts left by a crashed test, in one place.
// Throws std::runtime_error when it cannot.
std::string VHMakeTempFolder(const std::string& prefix);

// The folder of the running test (its HOME).
const std::string& VHCurrentTestHome();

// Whether something is mounted at `path` (it is a mount point now).
bool VHIsMountPoint(const std::string& path);

// Detaches every mount below `root` (a test's FUSE mounts, even dead ones).
void VHDetachMountsBelow(const std::string& root);

// Removes a folder tree; errors are ignored.
void VHRemoveTree(const std::string& path);

}  // namespace vh::test
