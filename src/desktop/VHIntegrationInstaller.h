// Installs the desktop integration of the current user: the GNOME Files
// extension and its emblems, a systemd user unit and an autostart entry.
// The files are built into the program; installing needs neither a running
// client nor credentials.
#pragma once

#include <string>
#include <vector>

namespace vh {

struct VHIntegrationInstaller {
    struct Result {
        std::vector<std::string> written;  // absolute paths, in the order written
        std::string error;                 // empty when every file was written
    };

    // Writes every file below $XDG_DATA_HOME and $XDG_CONFIG_HOME (read on each
    // call), replacing earlier copies whole; the unit and the autostart entry
    // start `binary`, an absolute path. Stops at the first file it cannot
    // write. Any thread.
    static Result install(const std::string& binary);

    // Start at login: the autostart entry alone, the one install() writes.
    // Any thread; the path is read from $XDG_CONFIG_HOME on each call.
    static std::string autostartPath();
    static bool autostartInstalled();
    // Writes the entry for `binary`; empty when done, else why not.
    static std::string installAutostart(const std::string& binary);
    // Removes it (start at login off); false when it stays.
    static bool removeAutostart();

    // `argument` quoted for a systemd command line (ExecStart=).
    static std::string systemdArgument(const std::string& argument);
    // `argument` quoted for the Exec key of a desktop entry.
    static std::string desktopExecArgument(const std::string& argument);
};

}  // namespace vh
