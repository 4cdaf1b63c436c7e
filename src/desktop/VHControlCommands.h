// The commands of the control tool (varnholtctl) on the file-manager socket.
// Each is "instance:ctl-<name>:<absolute path or empty>" and is answered on
// the same connection by lines "<kind>:<text>": any number of "item" lines,
// then one "ok" or "error" line that ends the exchange.
//
// Main thread only.
#pragma once

#include <functional>
#include <string>

#include "desktop/VHFinderMessage.h"

namespace vh {

class VHControlCommands {
  public:
    // Sends one reply line; may be called after run() returned.
    using Reply = std::function<void(const std::string& kind, const std::string& text)>;

    // Whether `command` is a control command.
    static bool handles(const std::string& command);
    // Runs it; an unknown control command is answered with an error.
    static void run(const VHFinderMessage& message, Reply reply);
};

}  // namespace vh
