#include "service/VHDeviceInfo.h"

#include <unistd.h>

#include <QNetworkInformation>
#include <cctype>
#include <climits>
#include <fstream>
#include <sstream>

#include "lib/VHStrings.h"

namespace vh {

namespace {

const char* const kSerialPaths[] = {"/sys/class/dmi/id/product_serial", "/etc/machine-id"};
const char* const kOsReleasePaths[] = {"/etc/os-release", "/usr/lib/os-release"};

std::string trimmedContents(const char* path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return "";
    std::stringstream text;
    text << in.rdbuf();
    return VHTrimmed(text.str());
}

// Escapes what may not stand in a URL at all, as a first pass; reserved
// characters stay.
std::string percentEscaped(const std::string& text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    static const std::string kLegal = "-._~:/?#[]@!$&'()*+,;=";
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c) && c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x80 && kLegal.find(static_cast<char>(c)) != std::string::npos) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

std::string unquoted(const std::string& value) {
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front()) {
        return value.substr(1, value.size() - 2);
    }
    return value;
}

}  // namespace

std::string VHMachineDeviceId() {
    for (const char* path : kSerialPaths) {
        std::string id = trimmedContents(path);
        if (!id.empty()) return id;
    }
    return "";
}

std::string VHDeviceName() {
    char host[HOST_NAME_MAX + 1] = {};
    if (gethostname(host, sizeof host - 1) != 0 || host[0] == '\0') return "Unknown";
    std::string name = VHEscapeURLValue(percentEscaped(host));
    return name.empty() ? "Unknown" : name;
}

std::string VHOperatingSystemName() {
    for (const char* path : kOsReleasePaths) {
        std::ifstream in(path);
        std::string line;
        while (std::getline(in, line)) {
            if (VHStartsWith(line, "PRETTY_NAME=")) return unquoted(VHTrimmed(line.substr(12)));
        }
    }
    return "";
}

bool VHNetworkReachable() {
    static const bool loaded = QNetworkInformation::loadDefaultBackend();
    QNetworkInformation* information = QNetworkInformation::instance();
    if (!loaded || !information) return true;
    QNetworkInformation::Reachability reachability = information->reachability();
    return reachability == QNetworkInformation::Reachability::Online ||
           reachability == QNetworkInformation::Reachability::Unknown;
}

}  // namespace vh
