// The command line of the varnholt executable.
#pragma once

#include <optional>
#include <string>

namespace vh {

struct VHCommandLine {
    // Usage errors: an unknown or incomplete option.
    static constexpr int kExitUsage = 64;

    bool headless = false;
    bool help = false;
    bool version = false;
    bool logout = false;
    bool force = false;  // --logout also when changes would be lost
    bool passwordFromStdin = false;
    bool installIntegration = false;  // takes no other option
    std::string user;                 // --user EMAIL
    std::string mountPath;            // --mount DIR

    // Nothing, with `error` set, for an unknown or incomplete option.
    static std::optional<VHCommandLine> parse(int argc, char** argv, std::string& error);
    static const char* helpText();
};

}  // namespace vh
