#include "drive/VHFuseUtils.h"

#include <atomic>

#include "lib/VHAppInfo.h"
#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "lib/VHPaths.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"

namespace vh {

namespace {
std::string gMountPathOverride;
}  // namespace

void VHFuseUtils::setMountPath(const std::string& path) {
    gMountPathOverride = path;
}

const std::string& VHFuseUtils::mountPath() {
    static const std::string path = [] {
        if (!gMountPathOverride.empty()) return gMountPathOverride;
        std::string configured = VHSettings::string("VHMountPath");
        if (configured.empty()) return VHPaths::join(VHPaths::home(), kAppTitle);
        if (configured == "~" || VHStartsWith(configured, "~/")) {
            return VHPaths::home() + configured.substr(1);
        }
        return configured;
    }();
    return path;
}

bool VHFuseUtils::isRootPath(std::string_view path) {
    return path.empty() || path == "/";
}

bool VHFuseUtils::isSharePath(std::string_view path) {
    if (path.size() <= 2) return true;
    return path.substr(1, path.size() - 2).find('/') == std::string_view::npos;
}

std::string VHFuseUtils::fullPathToRelative(std::string_view absolutePath) {
    const std::string& mount = mountPath();
    if (!isPathInFolder(absolutePath, mount)) return "";
    std::string relative(absolutePath.substr(mount.size()));
    return relative.empty() ? "/" : relative;
}

std::string VHFuseUtils::relativePathToFull(std::string_view drivePath) {
    return VHAppendingPathComponent(mountPath(), drivePath);
}

std::string VHFuseUtils::filenameFromPath(std::string_view path) {
    return VHDeletingPathExtension(VHLastPathComponent(path));
}

bool VHFuseUtils::containsInvalidCharacters(std::string_view name) {
    return VHContainsInvalidCharacters(name);
}

std::string VHFuseUtils::fixInvalidCharacters(std::string_view name) {
    return VHFixInvalidCharacters(name);
}

bool VHFuseUtils::isPathInFolder(std::string_view path, std::string_view folder) {
    if (folder.empty() || !VHStartsWith(path, folder)) return false;
    return path.size() == folder.size() || path[folder.size()] == '/';
}

bool VHFuseUtils::isPathIgnored(std::string_view path, bool) {
    return VHIsPathIgnored(path);
}

bool VHFuseUtils::isTempFile(std::string_view path) {
    return VHIsSafeSaveName(path);
}

bool VHFuseUtils::isHiddenFile(std::string_view path) {
    return VHIsHiddenFuseName(path);
}

namespace {
std::atomic<bool> gExcessiveLogging{false};
}  // namespace

bool VHFuseUtils::excessiveLogging() {
    return gExcessiveLogging.load(std::memory_order_relaxed);
}

void VHFuseUtils::setExcessiveLogging(bool on) {
    gExcessiveLogging = on;
}

}  // namespace vh
