// varnholtctl: commands for the running Varnholt client of this session.
#include <QCoreApplication>
#include <QDir>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "app/VHControlClient.h"

namespace {

const char* const kHelp =
    "Usage: varnholtctl COMMAND [PATH...]\n"
    "\n"
    "Asks the running Varnholt client of this session to act on items of the drive.\n"
    "\n"
    "Commands:\n"
    "  status [PATH...]   the client's state; or each item's: downloaded, online only,\n"
    "                     syncing, kept offline, locks and read-only items (for a\n"
    "                     folder, each item in it)\n"
    "  link PATH          create a public link to the file and print it\n"
    "  email-link PATH    create a public link and open an e-mail that carries it\n"
    "  lock PATH          lock the file: others can read it but not change it\n"
    "  unlock PATH        unlock the file\n"
    "  keep-offline PATH  keep a folder or share on this computer, with its changes\n"
    "  online-only PATH   no longer keep it: files are fetched when opened\n"
    "  download PATH      download a file, or every file of a folder or share, now\n"
    "  refresh [PATH]     read a share's changes now; without PATH, sign in again\n"
    "  web [PATH]         open the web client signed in: its start page, or the\n"
    "                     share whose folder PATH is\n"
    "  new-share          open the web client at the page for a new share\n"
    "\n"
    "Exit status:\n"
    "  0    done\n"
    "  1    the client refused or the command failed (the reason is printed)\n"
    "  64   wrong usage\n"
    "  69   no client is running\n";

enum class Paths { None, Optional, One, Many };

struct Command {
    std::string wire;  // the command's name on the socket, without "ctl-"
    Paths paths;
};

const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> table = {
        {"status", {"status", Paths::Many}},         {"link", {"link", Paths::One}},
        {"email-link", {"emaillink", Paths::One}},   {"lock", {"lock", Paths::One}},
        {"unlock", {"unlock", Paths::One}},          {"keep-offline", {"keepoffline", Paths::One}},
        {"online-only", {"onlineonly", Paths::One}}, {"download", {"download", Paths::One}},
        {"refresh", {"refresh", Paths::Optional}},   {"web", {"web", Paths::Optional}},
        {"new-share", {"newshare", Paths::None}},
    };
    return table;
}

bool countFits(Paths paths, int count) {
    switch (paths) {
        case Paths::None:
            return count == 0;
        case Paths::Optional:
            return count <= 1;
        case Paths::One:
            return count == 1;
        case Paths::Many:
            return true;
    }
    return false;
}

// Absolute, without "." and ".." (lexically: the drive is not asked).
std::string absolutePath(const char* path) {
    return QDir::cleanPath(QDir::current().absoluteFilePath(QString::fromLocal8Bit(path)))
        .toStdString();
}

int usage(const char* error) {
    std::fprintf(stderr, "varnholtctl: %s\n\n%s", error, kHelp);
    return vh::VHControlClient::kExitUsage;
}

// One exchange with the client; its status.
int run(const std::string& wire, const std::string& parameter) {
    std::string result;
    int status = vh::VHControlClient::run(
        wire, parameter, [](const std::string& item) { std::printf("%s\n", item.c_str()); }, result,
        120000);
    if (status != 0) {
        std::fprintf(stderr, "varnholtctl: %s\n", result.c_str());
    } else if (!result.empty()) {
        std::printf("%s\n", result.c_str());
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    std::string first = argc >= 2 ? argv[1] : "";
    if (first == "--help" || first == "-h") {
        std::printf("%s", kHelp);
        return 0;
    }
    if (first.empty()) return usage("no command");
    auto command = commands().find(first);
    if (command == commands().end()) return usage("unknown command");
    const Command& c = command->second;
    if (!countFits(c.paths, argc - 2)) return usage("wrong number of paths");
    if (argc == 2) return run(c.wire, "");
    int status = 0;
    for (int i = 2; i < argc; ++i) {
        if (argc > 3) std::printf("%s:\n", argv[i]);
        int one = run(c.wire, absolutePath(argv[i]));
        if (one == vh::VHControlClient::kExitNotRunning) return one;
        if (one != 0) status = one;
    }
    return status;
}
