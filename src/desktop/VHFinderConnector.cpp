#include "desktop/VHFinderConnector.h"

#include <sys/socket.h>
#include <unistd.h>

#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>

#include "desktop/VHControlCommands.h"
#include "desktop/VHLocalization.h"
#include "drive/VHFuseStatusAttributes.h"
#include "drive/VHFuseUtils.h"
#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHPaths.h"
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

}  // namespace

std::string VHFinderConnector::interfaceLanguage() {
    return VHLocalization::language();
}

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
        {"togglesync", &VHFinderConnector::toggleSync},
        {"downloadfolder", &VHFinderConnector::downloadFolder},
        {"downloadfile", &VHFinderConnector::downloadFile},
        {"openroot", &VHFinderConnector::openRoot},
        {"openshare", &VHFinderConnector::openShare},
        {"observe", &VHFinderConnector::observe},
        {"unobserve", &VHFinderConnector::unobserve},
        {"badge", &VHFinderConnector::badge},
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

// ---- Overlay states -----------------------------------------------------------

int VHFinderConnector::getFileStatusValue(const std::string& absolutePath) {
    const std::string& mount = VHFuseUtils::mountPath();
    if (absolutePath.size() < mount.size()) return 2;
    std::string drivePath = VHFuseUtils::fullPathToRelative(absolutePath);
    if (drivePath.size() < 2) return 0;
    std::optional<VHFile> file = VHDatabase::database().fileWithPath(drivePath);
    return VHStatusAttributeValue(VHStatusAttribute::OverlayIcon, drivePath, file).value_or(0);
}

std::string VHFinderConnector::overlayIconCommand(const std::string& absolutePath) {
    return VHFormat("overlay(%d)", getFileStatusValue(absolutePath));
}

void VHFinderConnector::updateOverlayIcon(const std::string& absolutePath) {
    std::vector<std::string> instances;
    for (const auto& [id, connection] : connections_) {
        if (connection->badges().contains(absolutePath)) instances.push_back(id);
    }
    if (!instances.empty()) pushOverlay(absolutePath, std::move(instances));
}

void VHFinderConnector::updateOverlayIcon(const std::string& absolutePath,
                                          VHFinderConnection* connection) {
    pushOverlay(absolutePath, {connection->instanceId()});
}

void VHFinderConnector::updateOverlayIconsBelow(const std::string& drivePath) {
    std::string folder = VHFuseUtils::relativePathToFull(drivePath);
    std::set<std::string> paths;
    for (const auto& [id, connection] : connections_) {
        for (const std::string& badge : connection->badges()) {
            if (VHFuseUtils::isPathInFolder(badge, folder)) paths.insert(badge);
        }
    }
    for (const std::string& path : paths) updateOverlayIcon(path);
}

void VHFinderConnector::pushOverlay(const std::string& absolutePath,
                                    std::vector<std::string> instanceIds) {
    overlayPool_.start([this, absolutePath, instanceIds = std::move(instanceIds)] {
        std::string command = overlayIconCommand(absolutePath);
        QMetaObject::invokeMethod(this, [this, command, absolutePath, instanceIds] {
            for (const std::string& id : instanceIds) {
                if (VHFinderConnection* connection = connectionWithId(id))
                    connection->send(command, absolutePath);
            }
        });
    });
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
