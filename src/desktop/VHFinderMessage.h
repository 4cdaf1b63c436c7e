// One message of a file-manager plug-in: "instance:command:parameter".
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vh {

struct VHFinderMessage {
    std::string instanceId;   // the plug-in instance that sent it
    std::string messageType;  // the command
    std::string parameter;    // usually an absolute path inside the drive; may be empty

    // Split at the first ":" and the next one; the rest, trimmed, is the
    // parameter (empty with only one ":"). Nothing without any ":".
    static std::optional<VHFinderMessage> parse(std::string_view text);
};

}  // namespace vh
