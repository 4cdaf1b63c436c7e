#include "support/VHControlTool.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "lib/VHPaths.h"
#include "support/VHDriveProbe.h"
#include "support/VHTestClient.h"

namespace vh::test {

namespace fs = std::filesystem;

VHEmulatorReply VHFetchServiceURL(const VHEmulatorProcess& emulator, const std::string& url) {
    std::string rest = url.substr(url.find("://") + 3);
    size_t slash = rest.find('/');
    return emulator.request("GET", rest.substr(0, slash), rest.substr(slash));
}

VHControlResult VHRunControlTool(const std::vector<std::string>& arguments,
                                 const std::map<std::string, std::string>& env) {
    static int calls = 0;
    std::string errFile = VHPaths::home() + "/ctl-stderr-" + std::to_string(++calls);
    std::string command;
    for (const auto& [name, value] : env) command += name + "=" + VHShellQuoted(value) + " ";
    command += VH_TEST_CTL_BINARY;
    for (const std::string& argument : arguments) command += " " + VHShellQuoted(argument);
    command += " 2>" + errFile;
    VHControlResult result;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return result;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) result.out.append(buffer, n);
    int status = pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.err = VHReadWhole(errFile);
    fs::remove(errFile);
    if (!result.out.empty() && result.out.back() == '\n') result.out.pop_back();
    return result;
}

VHPluginSocket::VHPluginSocket(std::string instanceId)
    : instanceId_(std::move(instanceId)), socket_(std::make_unique<QLocalSocket>()) {
    socket_->connectToServer(
        QString::fromStdString(VHPaths::runtimeDir() + "/Varnholt/findertalk"));
    socket_->waitForConnected(5000);
}

bool VHPluginSocket::connected() const {
    return socket_->state() == QLocalSocket::ConnectedState;
}

void VHPluginSocket::send(const std::string& command, const std::string& parameter) {
    sendRaw(instanceId_ + ":" + command + ":" + parameter + "\n");
}

void VHPluginSocket::sendRaw(const std::string& bytes) {
    socket_->write(bytes.data(), static_cast<qint64>(bytes.size()));
    socket_->waitForBytesWritten(5000);
}

std::string VHPluginSocket::transcript() const {
    std::string text;
    for (const std::string& line : lines_) text += line + "\n";
    return text;
}

bool VHPluginSocket::closedByPeer(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (connected() && std::chrono::steady_clock::now() < deadline) {
        socket_->readAll();
        socket_->waitForReadyRead(100);
    }
    return !connected();
}

void VHPluginSocket::readAvailable() {
    while (socket_->canReadLine()) lines_.push_back(socket_->readLine().chopped(1).toStdString());
}

std::string VHPluginSocket::nextLine(std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (consumed_ == lines_.size()) {
        readAvailable();
        if (consumed_ < lines_.size()) break;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !connected()) return "";
        socket_->waitForReadyRead(static_cast<int>(std::min<int64_t>(left.count(), 200)));
    }
    return lines_[consumed_++];
}

bool VHPluginSocket::waitForLine(const std::string& line, std::chrono::milliseconds timeout) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (nextLine(left) == line) return true;
    }
    return false;
}

VHRecordingBrowser::VHRecordingBrowser()
    : script_(VHPaths::home() + "/browser.sh"), log_(VHPaths::home() + "/opened-urls") {
    std::ofstream(script_) << "#!/bin/sh\nprintf '%s\\n' \"$1\" >> " << log_ << "\n";
    fs::permissions(script_, fs::perms::owner_all);
}

std::map<std::string, std::string> VHRecordingBrowser::environment() const {
    return {{"BROWSER", script_},
            {"DISPLAY", ""},
            {"WAYLAND_DISPLAY", ""},
            {"XDG_CURRENT_DESKTOP", ""}};
}

std::string VHRecordingBrowser::nextURL(std::chrono::milliseconds timeout) {
    std::string url;
    VHTestClient::waitFor(
        [&] {
            std::ifstream in(log_);
            size_t index = 0;
            for (std::string line; std::getline(in, line); ++index) {
                if (index == taken_) {
                    url = line;
                    ++taken_;
                    return true;
                }
            }
            return false;
        },
        timeout);
    return url;
}

}  // namespace vh::test
