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
        } else if (arg == "--force") {
            line.force = true;
        } else if (arg == "--password-stdin") {
            line.passwordFromStdin = true;
        } else if (arg == "--install-integration") {
            line.installIntegration = true;
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
    if (line.installIntegration && argc > 2) {
        error = "--install-integration takes no other option";
        return std::nullopt;
    }
    if (line.force && !line.logout) {
        error = "--force goes with --logout";
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
           "  --logout              sign out, forget the credentials, empty the caches\n"
           "                        (the logs stay) and exit; refused while changes on the\n"
           "                        drive are not yet confirmed by the service\n"
           "  --force               with --logout: sign out all the same, losing them\n"
           "  --install-integration install for the current user, replacing earlier\n"
           "                        copies, and exit: the GNOME Files extension and its\n"
           "                        emblems, the systemd user unit varnholt.service and\n"
           "                        the autostart entry; needs no running client\n"
           "  --version             print the version and exit\n"
           "  --help                print this text and exit\n"
           "\n"
           "The password is stored once the service accepts it. SIGINT and SIGTERM\n"
           "unmount the drive and end the program in order.\n"
           "\n"
           "Exit status:\n"
           "  0    ended in order (signal, --logout, --help, --version,\n"
           "       --install-integration)\n"
           "  1    --install-integration could not write a file\n"
           "  2    no credentials: sign in with --user and --password-stdin\n"
           "  3    another instance runs on the same folders\n"
           "  4    the drive could not be mounted\n"
           "  5    the service refused the sign-in (e-mail, password, device or wipe)\n"
           "  6    --logout refused: changes not yet confirmed by the service\n"
           "  10   the metadata database cannot be created or opened\n"
           "  64   wrong usage (an unknown or incomplete option)\n"
           "  100  the data folder cannot be set up\n"
           "\n"
           "Environment: VARNHOLT_GLOBAL_ADDRESS (the service's global host),\n"
           "VARNHOLT_CONNECT_TO=host:port (connect every request there) and\n"
           "VARNHOLT_CA_FILE (an extra trusted CA), e.g. for the bundled emulator.\n"
           "Settings: $XDG_CONFIG_HOME/Varnholt/Varnholt.conf; data: $XDG_DATA_HOME/Varnholt;\n"
           "logs: $XDG_DATA_HOME/Varnholt/Logs.\n";
}

}  // namespace vh
