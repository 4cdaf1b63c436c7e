#include "desktop/VHFinderMessage.h"

#include "lib/VHStrings.h"

namespace vh {

std::optional<VHFinderMessage> VHFinderMessage::parse(std::string_view text) {
    size_t first = text.find(':');
    if (first == std::string_view::npos) return std::nullopt;
    VHFinderMessage message;
    message.instanceId = std::string(text.substr(0, first));
    std::string_view rest = text.substr(first + 1);
    size_t second = rest.find(':');
    if (second == std::string_view::npos) {
        message.messageType = VHTrimmed(rest);
        return message;
    }
    message.messageType = std::string(rest.substr(0, second));
    message.parameter = VHTrimmed(rest.substr(second + 1));
    return message;
}

}  // namespace vh
