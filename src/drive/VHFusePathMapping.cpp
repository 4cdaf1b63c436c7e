#include "drive/VHFusePathMapping.h"

#include "drive/VHFuseUtils.h"
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

std::optional<ManagedShare> driveShareWithPath(const std::string& path) {
    std::vector<std::string> components = VHPathComponents(path);
    if (components.size() < 2) return std::nullopt;
    auto share = VHDatabase::database().metadataStorage().shareWithFilePath(path);
    if (!share || share->displayName() != components[1]) return std::nullopt;
    return share;
}

std::optional<VHFile> driveFileWithPath(const std::string& path) {
    if (!driveShareWithPath(path)) return std::nullopt;
    return VHDatabase::database().fileWithPath(path);
}

std::string driveParentIdOfChildren(const std::string& path) {
    if (VHFuseUtils::isSharePath(path)) {
        auto share = driveShareWithPath(path);
        if (!share) return "";
        return share->isSubfolderShare() ? share->internalName() : share->shareId();
    }
    auto folder = driveFileWithPath(path);
    return folder ? folder->internalName : "";
}

}  // namespace vh
