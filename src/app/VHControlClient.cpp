#include "app/VHControlClient.h"

#include <unistd.h>

#include <QElapsedTimer>
#include <QLocalSocket>

#include "lib/VHPaths.h"

namespace vh {

namespace {

std::string socketPath() {
    return VHPaths::join(VHPaths::join(VHPaths::runtimeDir(), "Varnholt"), "findertalk");
}

}  // namespace

int VHControlClient::run(const std::string& command, const std::string& parameter,
                         const std::function<void(const std::string&)>& item, std::string& result,
                         int timeoutMs) {
    QLocalSocket socket;
    socket.connectToServer(QString::fromStdString(socketPath()));
    if (!socket.waitForConnected(2000)) {
        result = "the Varnholt client is not running (nothing answers on " + socketPath() + ")";
        return kExitNotRunning;
    }
    std::string line =
        "varnholtctl-" + std::to_string(getpid()) + ":ctl-" + command + ":" + parameter + "\n";
    socket.write(line.data(), static_cast<qint64>(line.size()));
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < timeoutMs) {
        while (socket.canReadLine()) {
            std::string reply = socket.readLine().trimmed().toStdString();
            std::string kind = reply.substr(0, reply.find(':'));
            std::string text = reply.size() > kind.size() ? reply.substr(kind.size() + 1) : "";
            if (kind == "item") {
                item(text);
            } else if (kind == "ok" || kind == "error") {
                result = text;
                return kind == "ok" ? 0 : kExitFailed;
            }
        }
        if (socket.state() != QLocalSocket::ConnectedState) break;
        socket.waitForReadyRead(static_cast<int>(timeoutMs - clock.elapsed()));
    }
    result = socket.state() == QLocalSocket::ConnectedState ? "no answer from the Varnholt client"
                                                            : "the Varnholt client went away";
    return kExitFailed;
}

}  // namespace vh
