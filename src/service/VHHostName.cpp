#include "service/VHHostName.h"

#include <algorithm>
#include <cctype>

namespace vh {

bool VHIsHostName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '.' || c == '-' || c == ':';
    });
}

}  // namespace vh
