// What the windows share: the program's icon and where it runs from.
#pragma once

#include <QIcon>
#include <string>

namespace vh {

struct VHWindows {
    // The idle tray icon, also every window's icon.
    static QIcon appIcon();
    // The running program's absolute path (what start at login runs).
    static std::string programPath();
};

}  // namespace vh
