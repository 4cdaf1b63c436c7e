// What `varnholtctl status` prints: the state of the client, or of items of
// the drive as their overlay, lock and access attributes say. Main thread.
#pragma once

#include <functional>
#include <string>

namespace vh {

class VHControlStatus {
  public:
    using Line = std::function<void(const std::string& text)>;

    // Signed-in user, mount, shares and transfers, a line each.
    static void clientState(const Line& line);
    // The item at a drive path ("/Share/a"): one line for a file, one per
    // child for a folder, a share or the root. False when there is no item.
    static bool itemStates(const std::string& drivePath, const Line& line);
    // "<state>[, details]\t<name>" of one item of a drive path.
    static std::string describe(const std::string& drivePath, const std::string& name);
};

}  // namespace vh
