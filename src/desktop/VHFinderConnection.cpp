#include "desktop/VHFinderConnection.h"

#include <QLocalSocket>

#include "lib/VHLog.h"

namespace vh {

VHFinderConnection::VHFinderConnection(std::string instanceId, QLocalSocket* socket)
    : instanceId_(std::move(instanceId)), socket_(socket) {
    sendTimer_.setSingleShot(true);
    sendTimer_.setInterval(kSendTimeoutMs);
    connect(&sendTimer_, &QTimer::timeout, this, [this] {
        VHLog(kLogMain,
              "Failed to send findercommand %@ : send port is connected, but sending "
              "failed.",
              pendingCommand_);
        emit sendTimedOut();
    });
    connect(socket_, &QLocalSocket::bytesWritten, this, &VHFinderConnection::bytesWritten);
}

bool VHFinderConnection::connected() const {
    return socket_->state() == QLocalSocket::ConnectedState;
}

bool VHFinderConnection::send(const std::string& command, const std::string& parameter) {
    if (!connected()) return false;
    std::string line = command + ":" + parameter + "\n";
    socket_->write(line.data(), static_cast<qint64>(line.size()));
    if (!sendTimer_.isActive()) {
        pendingCommand_ = command;
        sendTimer_.start();
    }
    return true;
}

void VHFinderConnection::bytesWritten() {
    if (socket_->bytesToWrite() == 0) sendTimer_.stop();
}

}  // namespace vh
