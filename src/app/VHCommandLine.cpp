#include "app/VHCommandLine.h"

#include <cstring>

namespace vh {

std::optional<VHCommandLine> VHCommandLine::parse(int argc, char** argv, std::string& error) {
    VHCommandLine line;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
        if (arg == "--headless") {
            line.headless = true;
        } else if (arg == "--help" || arg == "-h") {
            line.help = true;
        } else if (arg == "--version") {
            line.version = true;
        } else if (arg == "--logout") {
            line.logout = true;
        } else if (arg == "--password-stdin") {
            line.passwordFromStdin = true;
        } else if (arg == "--user" || arg == "--mount") {
            const char* v = value();
            if (!v || !*v) {
                error = arg + " needs a value";
                return std::nullopt;
            }
            (arg == "--user" ? line.user : line.mountPath) = v;
        } else {
            error = "unknown option " + arg;
            return std::nullopt;
        }
    }
    if (!line.user.empty() && !line.passwordFromStdin) {
        // A password on the command line would be visible to every user.
        error = "--user needs --password-stdin";
        return std::nullopt;
    }
    return line;
}

const char* VHCommandLine::helpText() {
    return "Usage: varnholt [options]\n"
           "\n"
           "Desktop client of the Varnholt file-sharing service. Every share you can reach\n"
           "appears as a top-level folder of one drive, ~/Varnholt.\n"
           "\n"
           "Options:\n"
           "  --headless            run without a display (a service, a server, a terminal)\n"
           "  --user EMAIL          sign in as EMAIL; the password is read from standard\n"
           "  --password-stdin      input (one line) and kept in the Secret Service, or,\n"
           "                        where none answers, in a file only you can read\n"
           "  --mount DIR           mount the drive at DIR for this run (default ~/Varnholt,\n"
           "                        or the setting VHMountPath)\n"
           "  --logout              sign out, forget the credentials, empty the caches, exit\n"
           "  --version             print the version and exit\n"
           "  --help                print this text and exit\n"
           "\n"
           "SIGINT and SIGTERM unmount the drive and end the program in order.\n"
           "Without credentials, --headless prints how to give them and exits with status 2.\n"
           "\n"
           "Environment: VARNHOLT_GLOBAL_ADDRESS (the service's global host),\n"
           "VARNHOLT_CONNECT_TO=host:port (connect every request there) and\n"
           "VARNHOLT_CA_FILE (an extra trusted CA), e.g. for the bundled emulator.\n"
           "Settings: $XDG_CONFIG_HOME/Varnholt/Varnholt.conf; data: $XDG_DATA_HOME/Varnholt;\n"
           "logs: $XDG_DATA_HOME/Varnholt/Logs.\n";
}

}  // namespace vh
