#include "lib/VHNameRules.h"

#include "lib/VHPathUtils.h"
#include "lib/VHStrings.h"

namespace vh {

bool VHIsTempFolder(std::string_view name) {
    return VHContains(name, kDocumentBeingSaved) || VHContains(name, ".sb-") ||
           VHPathExtension(name) == "download";
}

bool VHIsInTempArea(std::string_view path) {
    auto components = VHPathComponents(path);
    return components.size() > 1 && components[1] == kTempFolder;
}

bool VHIsSafeSaveName(std::string_view name) {
    return VHContains(name, ".sb-");
}

bool VHIsHiddenFuseName(std::string_view name) {
    return VHContains(name, ".fuse_hidden");
}

bool VHIsPathIgnored(std::string_view path) {
    if (path.empty() || path == "." || VHContains(path, ".sb-")) return true;
    std::string last = VHLastPathComponent(path);
    if (last == "Icon\r") return true;
    if (VHStartsWith(last, "~") || VHStartsWith(last, ".") || VHEndsWith(last, ".tmp")) return true;
    return VHPathExtension(last) == "download";
}

bool VHContainsInvalidCharacters(std::string_view name) {
    return name.find_first_of(kInvalidNameCharacters) != std::string_view::npos;
}

std::string VHFixInvalidCharacters(std::string_view name) {
    std::string fixed(name);
    for (char& c : fixed) {
        if (kInvalidNameCharacters.find(c) != std::string_view::npos) c = '_';
    }
    return fixed;
}

bool VHIsSafePathComponent(std::string_view name) {
    return !name.empty() && name != "." && name != ".." &&
           name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

}  // namespace vh
