#include "lib/VHPaths.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "lib/VHAppInfo.h"

namespace vh {

namespace {

std::string env(const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? value : "";
}

std::string xdg(const char* variable, const char* fallbackBelowHome) {
    std::string value = env(variable);
    // Relative values are invalid by the XDG rules and are ignored.
    if (!value.empty() && value[0] == '/') return value;
    return VHPaths::join(VHPaths::home(), fallbackBelowHome);
}

}  // namespace

std::string VHPaths::home() {
    std::string value = env("HOME");
    if (!value.empty()) return value;
    struct passwd* pw = getpwuid(getuid());
    return pw && pw->pw_dir ? pw->pw_dir : "/";
}

std::string VHPaths::configHome() {
    return xdg("XDG_CONFIG_HOME", ".config");
}
std::string VHPaths::dataHome() {
    return xdg("XDG_DATA_HOME", ".local/share");
}
std::string VHPaths::stateHome() {
    return xdg("XDG_STATE_HOME", ".local/state");
}
std::string VHPaths::picturesDir() {
    return xdg("XDG_PICTURES_DIR", "Pictures");
}

std::string VHPaths::runtimeDir() {
    std::string value = env("XDG_RUNTIME_DIR");
    if (!value.empty() && value[0] == '/') return value;
    return "/tmp/varnholt-runtime-" + std::to_string(getuid());
}

std::string VHPaths::settingsFile() {
    return join(join(configHome(), kAppTitle), std::string(kAppTitle) + ".conf");
}

std::string VHPaths::dataRoot() {
    return join(dataHome(), kAppTitle);
}
std::string VHPaths::metadataDir() {
    return join(stateHome(), kAppTitle);
}

bool VHPaths::makePrivateDir(const std::string& path) {
    std::error_code ec;
    std::filesystem::path parent = std::filesystem::path(path).parent_path();
    if (!parent.empty()) std::filesystem::create_directories(parent, ec);
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return false;
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return false;
    if (!S_ISDIR(st.st_mode)) {
        errno = ENOTDIR;
        return false;
    }
    if ((st.st_mode & 07777) != 0700 && st.st_uid == geteuid()) chmod(path.c_str(), 0700);
    return true;
}

std::string VHPaths::join(const std::string& a, const std::string& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    bool slashA = a.back() == '/', slashB = b.front() == '/';
    if (slashA && slashB) return a + b.substr(1);
    if (slashA || slashB) return a + b;
    return a + "/" + b;
}

}  // namespace vh
