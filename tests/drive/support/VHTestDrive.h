// A real FUSE mount of the drive inside the test process, on a folder of the
// test's HOME, and a store filled the way the service fills it (a gateway
// login answer and catch-up pages).
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "store/VHLoginRecords.h"
#include "store/VHVirtualFile.h"

namespace vh::test {

// Mounts on construction (waiting for the kernel handshake) and unmounts on
// destruction, also when the test failed.
class VHTestDrive {
  public:
    explicit VHTestDrive(std::string mountPath,
                         std::string options = "fsname=Varnholt,subtype=varnholt");
    ~VHTestDrive();
    VHTestDrive(const VHTestDrive&) = delete;
    VHTestDrive& operator=(const VHTestDrive&) = delete;

    const std::string& path() const { return mountPath_; }
    bool mounted() const { return mounted_; }
    // Unmounts and waits for the FUSE loop to end; true when it ended.
    bool unmount();

  private:
    std::string mountPath_;
    std::string options_;
    std::thread thread_;
    std::atomic<bool> mounted_{false};
    std::atomic<bool> ended_{false};
    std::atomic<int> result_{0};
};

// Runs a shell command; its standard output (and error, with `withErrors`).
std::string VHRun(const std::string& command, bool withErrors = false);

// A catch-up item of a share: a file when `size` is given, else a folder.
VHVirtualFile VHTestItem(const std::string& shareId, const std::string& id,
                         const std::string& parentId, const std::string& name,
                         std::optional<uint64_t> size, uint64_t tick);

// Loads the store of the test's HOME and stores `response`'s shares for a
// domain "d1.varnholt.test" (shares get the ids given in the JSON).
void VHLoadStoreWithShares(const std::string& clientLoginJson);
// Applies items to a stored share as one catch-up page.
void VHApplyItems(const std::string& shareId, const std::vector<VHVirtualFile>& items);

}  // namespace vh::test
