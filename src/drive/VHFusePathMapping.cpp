#include "drive/VHFusePathMapping.h"

#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"
#include "store/VHDatabase.h"

namespace vh {

std::string keyFromPath(std::string_view path) {
    std::vector<std::string> components = VHPathComponents(path);
    for (size_t i = 0; i < components.size(); ++i) {
        if (VHIsTempFolder(components[i])) {
            return VHPathWithComponents(
                {components.begin() + static_cast<long>(i), components.end()});
        }
    }
    return "";
}

std::string finalPath(const std::string& path) {
    if (VHPathComponents(path).size() <= 1) return path;
    VHStringMap& archive = VHDatabase::database().archiveMap();
    if (auto redirected = archive.value(keyFromPath(path))) return *redirected;
    if (auto parent = archive.value(keyFromPath(VHDeletingLastPathComponent(path)))) {
        return *parent + "/" + VHLastPathComponent(path);
    }
    return path;
}

}  // namespace vh
