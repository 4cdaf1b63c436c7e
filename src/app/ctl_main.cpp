// varnholtctl: commands for the running Varnholt client of this session.
#include <QCoreApplication>
#include <QDir>
#include <cstdio>
#include <map>
#include <string>

#include "app/VHControlClient.h"

namespace {

const char* const kHelp =
    "Usage: varnholtctl COMMAND [PATH]\n"
    "\n"
    "Asks the running Varnholt client of this session to act on an item of the drive.\n"
    "\n"
    "Commands:\n"
    "  link PATH         create a public link to the file and print it\n"
    "  email-link PATH   create a public link and open an e-mail that carries it\n"
    "  lock PATH         lock the file: others can read it but not change it\n"
    "  unlock PATH       unlock the file\n"
    "  web [PATH]        open the web client signed in: its start page, or the\n"
    "                    share whose folder PATH is\n"
    "  new-share         open the web client at the page for a new share\n"
    "\n"
    "Exit status:\n"
    "  0    done\n"
    "  1    the client refused or the command failed (the reason is printed)\n"
    "  64   wrong usage\n"
    "  69   no client is running\n";

struct Command {
    std::string wire;  // the command's name on the socket, without "ctl-"
    bool path;         // takes a path
    bool pathRequired;
};

const std::map<std::string, Command>& commands() {
    static const std::map<std::string, Command> table = {
        {"link", {"link", true, true}}, {"email-link", {"emaillink", true, true}},
        {"lock", {"lock", true, true}}, {"unlock", {"unlock", true, true}},
        {"web", {"web", true, false}},  {"new-share", {"newshare", false, false}},
    };
    return table;
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

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc >= 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
        std::printf("%s", kHelp);
        return 0;
    }
    if (argc < 2) return usage("no command");
    auto command = commands().find(argv[1]);
    if (command == commands().end()) return usage("unknown command");
    const Command& c = command->second;
    if (argc > 3 || (argc == 3 && !c.path) || (argc == 2 && c.pathRequired))
        return usage(c.pathRequired ? "the command takes one path" : "wrong arguments");
    std::string parameter = argc == 3 ? absolutePath(argv[2]) : "";
    std::string result;
    int status = vh::VHControlClient::run(
        c.wire, parameter, [](const std::string& item) { std::printf("%s\n", item.c_str()); },
        result, 120000);
    std::fprintf(status == 0 ? stdout : stderr, status == 0 ? "%s\n" : "varnholtctl: %s\n",
                 result.c_str());
    return status;
}
