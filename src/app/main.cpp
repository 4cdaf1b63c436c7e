#include <sys/stat.h>

#include <QCoreApplication>
#include <cstdio>
#include <cstring>

#include "desktop/VHLogging.h"
#include "desktop/VHUnixSignals.h"
#include "lib/VHAppInfo.h"
#include "lib/VHLog.h"
#include "lib/VHPaths.h"

namespace {

void printHelp() {
    std::printf(
        "Usage: varnholt [--headless]\n"
        "\n"
        "Desktop client of the Varnholt file-sharing service.\n"
        "\n"
        "  --headless   run without a display\n"
        "  --version    print the version and exit\n"
        "  --help       print this text and exit\n");
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--help") == 0) {
            printHelp();
            return 0;
        }
        if (std::strcmp(argv[i], "--version") == 0) {
            std::printf("%s %s (%s)\n", vh::kAppTitle, vh::kShortVersion, vh::kBuildNumber);
            return 0;
        }
    }
    QCoreApplication app(argc, argv);
    std::string logs = vh::VHLogDir();
    mkdir(vh::VHPaths::dataHome().c_str(), 0700);
    mkdir(vh::VHPaths::dataRoot().c_str(), 0700);
    mkdir(logs.c_str(), 0700);
    vh::VHInitLogs();
    vh::VHLog(
        vh::kLogMain,
        "\n\n----------------------------------------------------\n\nStarting up %@ version %@",
        vh::kAppTitle, std::string(vh::kShortVersion) + " (" + vh::kBuildNumber + ")");
    vh::VHUnixSignals unixSignals;
    QObject::connect(&unixSignals, &vh::VHUnixSignals::terminationRequested, &app,
                     &QCoreApplication::quit);
    int code = app.exec();
    vh::VHClose();
    return code;
}
