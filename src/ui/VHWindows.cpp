#include "ui/VHWindows.h"

#include <QCoreApplication>

namespace vh {

QIcon VHWindows::appIcon() {
    return QIcon(":/tray/varnholt-idle.svg");
}

std::string VHWindows::programPath() {
    return QCoreApplication::applicationFilePath().toStdString();
}

}  // namespace vh
