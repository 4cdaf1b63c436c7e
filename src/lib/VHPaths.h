// The XDG base folders and the application's folders below them.
// Every call reads the environment afresh, so a test can give each instance
// its own folders by setting HOME and the XDG variables.
#pragma once

#include <string>

namespace vh {

struct VHPaths {
    static std::string home();         // $HOME, else the password database
    static std::string configHome();   // $XDG_CONFIG_HOME or ~/.config
    static std::string dataHome();     // $XDG_DATA_HOME or ~/.local/share
    static std::string stateHome();    // $XDG_STATE_HOME or ~/.local/state
    static std::string runtimeDir();   // $XDG_RUNTIME_DIR or /tmp/varnholt-<uid>
    static std::string picturesDir();  // $XDG_PICTURES_DIR or ~/Pictures

    static std::string settingsFile();  // <config>/Varnholt/Varnholt.conf
    static std::string dataRoot();  // <data>/Varnholt: shares.db, Files, Uploads, Downloads, Logs
    static std::string metadataDir();  // <state>/Varnholt: files.db, credentials, instance lock

    // Makes `path` (and missing parents) a folder of mode 0700, narrowing an
    // existing one: the client's folders hold credentials, metadata and file
    // contents that no other user may read. False when it is not a folder
    // afterwards (errno tells why).
    static bool makePrivateDir(const std::string& path);

    // `a` + "/" + `b` without doubling the slash.
    static std::string join(const std::string& a, const std::string& b);
};

}  // namespace vh
