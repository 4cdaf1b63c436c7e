#include "support/VHTestHome.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace vh::test {

namespace {

std::string gCurrent;

void setFolder(const char* variable, const std::string& path) {
    std::filesystem::create_directories(path);
    chmod(path.c_str(), 0700);
    setenv(variable, path.c_str(), 1);
}

}  // namespace

VHTestHome::VHTestHome() {
    char pattern[] = "/tmp/varnholt-test-XXXXXX";
    if (!mkdtemp(pattern)) throw std::runtime_error("cannot make a test folder");
    root_ = pattern;
    setFolder("HOME", root_ + "/home");
    setFolder("XDG_CONFIG_HOME", root_ + "/home/.config");
    setFolder("XDG_DATA_HOME", root_ + "/home/.local/share");
    setFolder("XDG_STATE_HOME", root_ + "/home/.local/state");
    setFolder("XDG_RUNTIME_DIR", root_ + "/runtime");
    gCurrent = root_ + "/home";
}

VHTestHome::~VHTestHome() {
    VHRemoveTree(root_);
    gCurrent.clear();
}

const std::string& VHCurrentTestHome() {
    return gCurrent;
}

void VHRemoveTree(const std::string& path) {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

}  // namespace vh::test
