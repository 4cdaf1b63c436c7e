#include "support/VHTestHome.h"

#include <sys/mount.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace vh::test {

namespace {

std::string gCurrent;

void setFolder(const char* variable, const std::string& path) {
    std::filesystem::create_directories(path);
    chmod(path.c_str(), 0700);
    setenv(variable, path.c_str(), 1);
}

}  // namespace

std::string VHMakeTempFolder(const std::string& prefix) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/" + prefix + "-XXXXXX";
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a folder " + pattern);
    return pattern;
}

VHTestHome::VHTestHome() {
    root_ = VHMakeTempFolder("varnholt-test");
    setFolder("HOME", root_ + "/home");
    setFolder("XDG_CONFIG_HOME", root_ + "/home/.config");
    setFolder("XDG_DATA_HOME", root_ + "/home/.local/share");
    setFolder("XDG_STATE_HOME", root_ + "/home/.local/state");
    setFolder("XDG_RUNTIME_DIR", root_ + "/runtime");
    gCurrent = root_ + "/home";
}

VHTestHome::~VHTestHome() {
    VHDetachMountsBelow(root_);
    VHRemoveTree(root_);
    gCurrent.clear();
}

const std::string& VHCurrentTestHome() {
    return gCurrent;
}

bool VHIsMountPoint(const std::string& path) {
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        std::istringstream fields(line);
        std::string id, parent, device, source, target;
        fields >> id >> parent >> device >> source >> target;
        if (target == path) return true;
    }
    return false;
}

void VHDetachMountsBelow(const std::string& root) {
    std::ifstream mountinfo("/proc/self/mountinfo");
    std::vector<std::string> mounts;
    for (std::string line; std::getline(mountinfo, line);) {
        std::istringstream fields(line);
        std::string id, parent, device, source, target;
        fields >> id >> parent >> device >> source >> target;
        if (target.rfind(root + "/", 0) == 0) mounts.push_back(target);
    }
    // Deepest first; a lazy detach also clears a mount whose server is gone.
    for (auto it = mounts.rbegin(); it != mounts.rend(); ++it) {
        if (umount2(it->c_str(), MNT_DETACH) != 0) {
            std::system(("fusermount3 -uz '" + *it + "' 2>/dev/null").c_str());
        }
    }
}

void VHRemoveTree(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

}  // namespace vh::test
