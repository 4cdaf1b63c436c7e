#include "desktop/VHIntegrationInstaller.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <QDir>
#include <QFile>
#include <QSaveFile>
#include <filesystem>

#include "lib/VHPaths.h"

namespace vh {

namespace {

constexpr char kBinaryPlaceholder[] = "@VARNHOLT_BINARY@";

struct Entry {
    QString resource;
    std::string destination;
    std::string binaryArgument;  // replaces the placeholder; empty: copied as it is
};

std::string emblemFolder() {
    return VHPaths::join(VHPaths::dataHome(), "icons/hicolor/scalable/emblems");
}

Entry autostartEntry(const std::string& binary) {
    return {":/integration/session/varnholt.desktop", VHIntegrationInstaller::autostartPath(),
            VHIntegrationInstaller::desktopExecArgument(binary)};
}

std::vector<Entry> entries(const std::string& binary) {
    const std::string data = VHPaths::dataHome();
    const std::string config = VHPaths::configHome();
    std::vector<Entry> list = {
        {":/integration/nautilus/varnholt-nautilus.py",
         VHPaths::join(data, "nautilus-python/extensions/varnholt-nautilus.py"), ""},
        {":/integration/session/varnholt.service",
         VHPaths::join(config, "systemd/user/varnholt.service"),
         VHIntegrationInstaller::systemdArgument(binary)},
        autostartEntry(binary),
    };
    const QDir icons(":/integration/icons");
    for (const QString& name : icons.entryList(QDir::Files, QDir::Name)) {
        list.push_back(
            {icons.filePath(name), VHPaths::join(emblemFolder(), name.toStdString()), ""});
    }
    return list;
}

// Empty when written; else why not.
std::string write(const Entry& entry) {
    QFile source(entry.resource);
    if (!source.open(QIODevice::ReadOnly))
        return "missing in the program: " + entry.resource.toStdString();
    QByteArray contents = source.readAll();
    if (!entry.binaryArgument.empty())
        contents.replace(kBinaryPlaceholder, QByteArray::fromStdString(entry.binaryArgument));
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(entry.destination).parent_path(),
                                        error);
    // A file manager reading the extension meanwhile sees the old copy or the
    // new one, never half of it.
    QSaveFile file(QString::fromStdString(entry.destination));
    if (error || !file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size() ||
        !file.commit()) {
        return "cannot write " + entry.destination + ": " +
               (error ? error.message() : file.errorString().toStdString());
    }
    return "";
}

bool needsQuotes(const std::string& argument, std::string_view reserved) {
    return argument.empty() || argument.find_first_of(reserved) != std::string::npos;
}

}  // namespace

std::string VHIntegrationInstaller::systemdArgument(const std::string& argument) {
    std::string quoted;
    for (char c : argument) {
        if (c == '%' || c == '$') quoted += c;  // specifiers and variables
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return needsQuotes(argument, " \t\"'\\;") ? "\"" + quoted + "\"" : quoted;
}

std::string VHIntegrationInstaller::desktopExecArgument(const std::string& argument) {
    std::string escaped;
    for (char c : argument) {
        // Inside quotes these four take a backslash; the key's string escapes
        // then double every backslash.
        if (c == '"' || c == '`' || c == '$') escaped += "\\\\";
        if (c == '\\') escaped += "\\\\\\";
        if (c == '%') escaped += '%';  // field codes
        escaped += c;
    }
    return needsQuotes(argument, " \t\n\"'\\><~|&;$*?#()`") ? "\"" + escaped + "\"" : escaped;
}

std::string VHIntegrationInstaller::autostartPath() {
    return VHPaths::join(VHPaths::configHome(), "autostart/varnholt.desktop");
}

bool VHIntegrationInstaller::autostartInstalled() {
    return QFile::exists(QString::fromStdString(autostartPath()));
}

std::string VHIntegrationInstaller::installAutostart(const std::string& binary) {
    return write(autostartEntry(binary));
}

bool VHIntegrationInstaller::removeAutostart() {
    std::error_code error;
    std::filesystem::remove(autostartPath(), error);
    return !autostartInstalled();
}

VHIntegrationInstaller::Result VHIntegrationInstaller::install(const std::string& binary) {
    Result result;
    if (binary.find('\n') != std::string::npos) {
        result.error = "the program's path holds a line break: " + binary;
        return result;
    }
    for (const Entry& entry : entries(binary)) {
        result.error = write(entry);
        if (!result.error.empty()) return result;
        result.written.push_back(entry.destination);
    }
    // A theme cache left by another program hides new icons until it is
    // older than the theme's folder.
    std::string theme = VHPaths::join(VHPaths::dataHome(), "icons/hicolor");
    utimensat(AT_FDCWD, theme.c_str(), nullptr, 0);
    return result;
}

}  // namespace vh
