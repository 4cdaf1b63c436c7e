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
    // Escaped as a URL would be (reserved characters kept), then as a URL value.
    std::string name = VHEscapeURLValue(VHPercentEscape(host, ":/?#[]@!$&'()*+,;="));
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
