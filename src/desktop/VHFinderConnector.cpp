#include "desktop/VHFinderConnector.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

#include "desktop/VHApplicationDelegate.h"
#include "desktop/VHControlCommands.h"
#include "desktop/VHDesktopServices.h"
#include "desktop/VHLockToggle.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHLog.h"
#include "lib/VHPaths.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

// The peer's user; -1 when the kernel does not say.
long peerUid(QLocalSocket* socket) {
    struct ucred credentials {};
    socklen_t size = sizeof credentials;
    if (getsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_PEERCRED,
                   &credentials, &size) != 0) {
        return -1;
    }
    return static_cast<long>(credentials.uid);
}

bool isUtf8(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())).toUtf8() ==
           QByteArray(text.data(), static_cast<qsizetype>(text.size()));
}

std::string drivePathOf(const std::string& absolutePath) {
    return VHFuseUtils::fullPathToRelative(absolutePath);
}

std::string interfaceLanguage() {
    return VHSettings::string("Varnholt_language", "en");
}

}  // namespace

VHFinderConnector& VHFinderConnector::defaultConnector() {
    static VHFinderConnector connector;
    return connector;
}

VHFinderConnector::~VHFinderConnector() = default;

std::string VHFinderConnector::socketPath() {
    return VHPaths::join(VHPaths::join(VHPaths::runtimeDir(), "Varnholt"), "findertalk");
}

const std::map<std::string_view, VHFinderConnector::Handler>& VHFinderConnector::commands() {
    static const std::map<std::string_view, Handler> table = {
        {"hello", &VHFinderConnector::hello},
        {"createlink", &VHFinderConnector::createLink},
        {"emaillink", &VHFinderConnector::emailLink},
        {"newshare", &VHFinderConnector::newShare},
        {"shareashare", &VHFinderConnector::shareAShare},
        {"togglelock", &VHFinderConnector::toggleLock},
        {"refresh", &VHFinderConnector::refresh},
    };
    return table;
}

bool VHFinderConnector::start() {
    const std::string path = socketPath();
    std::string folder = path.substr(0, path.rfind('/'));
    QLocalSocket probe;
    probe.connectToServer(QString::fromStdString(path));
    bool served = probe.waitForConnected(1000);
    if (served || !VHPaths::makePrivateDir(folder)) {
        VHLog(kLogMain,
              "Error! Cannot register mach port. Finder integration will be unavailable.");
        return false;
    }
    QLocalServer::removeServer(QString::fromStdString(path));
    server_ = std::make_unique<QLocalServer>();
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(QString::fromStdString(path))) {
        VHLog(kLogMain,
              "Error! Cannot register mach port. Finder integration will be unavailable.");
        server_.reset();
        return false;
    }
    connect(server_.get(), &QLocalServer::newConnection, this, &VHFinderConnector::accept);
    return true;
}

void VHFinderConnector::stop() {
    connections_.clear();
    for (auto& [socket, partial] : partialLines_) socket->deleteLater();
    partialLines_.clear();
    server_.reset();
}

void VHFinderConnector::accept() {
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        if (peerUid(socket) != static_cast<long>(getuid())) {
            VHLog(kLogMain, "Warning! Refused a file-manager connection of another user.");
            socket->abort();
            socket->deleteLater();
            continue;
        }
        partialLines_[socket];
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { read(socket); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] { dropSocket(socket); });
    }
}

void VHFinderConnector::read(QLocalSocket* socket) {
    auto partial = partialLines_.find(socket);
    if (partial == partialLines_.end()) return;
    QByteArray bytes = socket->readAll();
    std::string& buffer = partial->second;
    buffer.append(bytes.constData(), static_cast<size_t>(bytes.size()));
    size_t end;
    while ((end = buffer.find('\n')) != std::string::npos) {
        std::string line = buffer.substr(0, end);
        buffer.erase(0, end + 1);
        handleLine(line, socket);
        if (!partialLines_.contains(socket)) return;  // the line dropped its connection
    }
    if (static_cast<qint64>(buffer.size()) > kMaxLineBytes) {
        VHLog(kLogMain, "Warning! Failed to parse remote command: %@...", buffer.substr(0, 80));
        socket->abort();
    }
}

void VHFinderConnector::handleLine(std::string_view line, QLocalSocket* from) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!isUtf8(line)) {
        VHLog(kLogMain, "Received wrong Mach message. Ignoring.");
        return;
    }
    std::optional<VHFinderMessage> message = VHFinderMessage::parse(line);
    if (!message) {
        VHLog(kLogMain, "Warning! Failed to parse remote command: %@", std::string(line));
        return;
    }
    parseRemoteCommand(*message, from);
}

void VHFinderConnector::dropSocket(QLocalSocket* socket) {
    if (!partialLines_.erase(socket)) return;
    std::erase_if(connections_,
                  [socket](const auto& entry) { return entry.second->socket() == socket; });
    socket->deleteLater();
}

void VHFinderConnector::parseRemoteCommand(const VHFinderMessage& message, QLocalSocket* from) {
    if (VHControlCommands::handles(message.messageType)) {
        control(message, from);
        return;
    }
    auto command = commands().find(message.messageType);
    if (command == commands().end()) {
        VHLog(kLogMain, "Warning! Failed to parse remote command: %@",
              message.instanceId + ":" + message.messageType + ":" + message.parameter);
        return;
    }
    (this->*command->second)(message, from);
}

VHFinderConnection* VHFinderConnector::connectionWithId(const std::string& instanceId) const {
    auto found = connections_.find(instanceId);
    return found == connections_.end() ? nullptr : found->second.get();
}

void VHFinderConnector::deleteConnectionWithId(const std::string& instanceId) {
    connections_.erase(instanceId);
}

void VHFinderConnector::notifyOnLanguageChange() {
    for (auto& [id, connection] : connections_) connection->send("lang", interfaceLanguage());
}

// ---- Commands ---------------------------------------------------------------

void VHFinderConnector::hello(const VHFinderMessage& message, QLocalSocket* from) {
    VHLog(kLogMain, "Received Finder plugin connection with id %@", message.instanceId);
    deleteConnectionWithId(message.instanceId);
    auto connection = std::make_unique<VHFinderConnection>(message.instanceId, from);
    connect(
        connection.get(), &VHFinderConnection::sendTimedOut, this, [from] { from->abort(); },
        Qt::QueuedConnection);
    VHFinderConnection* added = connection.get();
    connections_[message.instanceId] = std::move(connection);
    added->send("hej", VHFuseUtils::mountPath());
    added->send("lang", interfaceLanguage());
    if (VHConnector::defaultConnector().configuration().disableSignalR)
        added->send("option", "showrefresh");
}

void VHFinderConnector::createLink(const VHFinderMessage& message, QLocalSocket*) {
    std::optional<VHFile> file =
        VHDatabase::database().fileWithPath(drivePathOf(message.parameter));
    if (!file) {
        VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain file for path %@",
              message.parameter);
        return;
    }
    VHApplicationDelegate::delegate().putFileLinkToClipboard(*file);
}

void VHFinderConnector::emailLink(const VHFinderMessage& message, QLocalSocket*) {
    std::optional<VHFile> file =
        VHDatabase::database().fileWithPath(drivePathOf(message.parameter));
    if (!file) {
        VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain file for path %@",
              message.parameter);
        return;
    }
    VHApplicationDelegate::delegate().emailFileLink(*file);
}

void VHFinderConnector::newShare(const VHFinderMessage&, QLocalSocket*) {
    VHConnector::defaultConnector().openShareInWebClient(std::nullopt);
}

void VHFinderConnector::shareAShare(const VHFinderMessage& message, QLocalSocket*) {
    auto share = VHDatabase::database().shareWithPath(drivePathOf(message.parameter));
    if (!share) {
        VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain share for path %@",
              message.parameter);
        return;
    }
    VHConnector::defaultConnector().openShareInWebClient(share);
}

void VHFinderConnector::toggleLock(const VHFinderMessage& message, QLocalSocket*) {
    switch (VHLockToggle::toggleLock(drivePathOf(message.parameter))) {
        case VHLockToggle::Result::NoFile:
            VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain file for path %@",
                  message.parameter);
            break;
        case VHLockToggle::Result::Pending:
            VHDesktopServices::showAlert(
                "Lock failed",
                "Please wait until the file is uploaded on server and then try again.");
            break;
        default:
            break;
    }
}

void VHFinderConnector::refresh(const VHFinderMessage& message, QLocalSocket*) {
    VHConnector& connector = VHConnector::defaultConnector();
    if (message.parameter.size() <= 1) {
        connector.loginToGlobal();
        return;
    }
    if (auto share = VHDatabase::database().shareWithPath(drivePathOf(message.parameter))) {
        connector.catchUp(*share);
    } else {
        VHLog(kLogMain, "parseRemoteCommand: Warning! Cannot obtain share for path %@",
              message.parameter);
    }
}

void VHFinderConnector::control(const VHFinderMessage& message, QLocalSocket* from) {
    QPointer<QLocalSocket> socket(from);
    VHControlCommands::run(message, [socket](const std::string& kind, const std::string& text) {
        if (!socket || socket->state() != QLocalSocket::ConnectedState) return;
        std::string line = kind + ":" + text + "\n";
        socket->write(line.data(), static_cast<qint64>(line.size()));
    });
}

}  // namespace vh
