#include "VHEmulatorNames.h"

namespace vh::emulator {

bool VHIsAcceptableItemName(std::string_view name) {
    if (name.empty() || name.size() > kMaxItemNameBytes || name == "." || name == "..") {
        return false;
    }
    return name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

}  // namespace vh::emulator
