// Drive path classification and the name rules, as the FUSE callbacks use
// them. Drive paths are relative to the mount point and begin with "/":
// "/" is the root, "/Share" (or "/Share/") a share, anything deeper an item.
#pragma once

#include <string>
#include <string_view>

namespace vh {

class VHFuseUtils {
  public:
    // The setting "VHMountPath" (a leading "~" expanded) or ~/Varnholt;
    // computed at the first call and kept for the life of the process.
    static const std::string& mountPath();
    // Fixes the mount path for this process; only before the first mountPath().
    static void setMountPath(const std::string& path);

    static bool isRootPath(std::string_view path);
    // True for 1 or 2 characters, or no "/" between the second and the
    // next-to-last character; so "/" is one too: test isRootPath first.
    static bool isSharePath(std::string_view path);
    // The drive path of an absolute path at or under the mount point ("/"
    // for the mount point itself); empty for any other path. Names are
    // compared as bytes.
    static std::string fullPathToRelative(std::string_view absolutePath);
    static std::string relativePathToFull(std::string_view drivePath);
    // The last component without its extension.
    static std::string filenameFromPath(std::string_view path);
    static bool containsInvalidCharacters(std::string_view name);
    static std::string fixInvalidCharacters(std::string_view name);
    // `path` is `folder` or lies below it; never for an empty folder.
    static bool isPathInFolder(std::string_view path, std::string_view folder);
    // Never sent to the server; the folder flag does not change the answer.
    static bool isPathIgnored(std::string_view path, bool isFolder);
    // Contains ".sb-".
    static bool isTempFile(std::string_view path);
    // Contains ".fuse_hidden".
    static bool isHiddenFile(std::string_view path);

    // The application's excessive-logging switch: every attribute request
    // is logged while it is on. Set once at start-up.
    static bool excessiveLogging();
    static void setExcessiveLogging(bool on);
};

}  // namespace vh
