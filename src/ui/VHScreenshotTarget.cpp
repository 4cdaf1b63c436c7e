#include "ui/VHScreenshotTarget.h"

#include "store/VHDatabase.h"

namespace vh {

std::optional<VHScreenshotTarget> VHScreenshotTarget::parse(const std::string& stored) {
    size_t start = stored.find_first_not_of('/');
    if (start == std::string::npos) return std::nullopt;
    size_t slash = stored.find('/', start);
    VHScreenshotTarget target;
    target.shareId = stored.substr(start, slash == std::string::npos ? slash : slash - start);
    if (slash != std::string::npos) target.rest = stored.substr(slash + 1);
    while (!target.rest.empty() && target.rest.back() == '/') target.rest.pop_back();
    return target;
}

std::string VHScreenshotTarget::stored() const {
    return rest.empty() ? shareId : shareId + "/" + rest;
}

std::optional<ManagedShare> VHScreenshotTarget::share() const {
    return VHDatabase::database().shareWithId(shareId);
}

QString VHScreenshotTarget::displayPath() const {
    std::optional<ManagedShare> found = share();
    if (!found) return QString::fromStdString(stored());
    std::string path = found->displayName();
    if (!rest.empty()) path += "/" + rest;
    return QString::fromStdString(path);
}

bool VHScreenshotTarget::readOnly() const {
    std::optional<ManagedShare> found = share();
    return found && found->isReadonlyShare();
}

}  // namespace vh
