#include "service/VHSRConnections.h"

namespace vh {

VHSRConnections::VHSRConnections(VHSRConnection::Actions actions) : actions_(std::move(actions)) {
    thread_.setObjectName("realtime");
}

VHSRConnections::~VHSRConnections() {
    stop();
}

VHSRConnection* VHSRConnections::connectionForDomain(const UserDomain& domain) {
    std::string id = domain.Domain ? domain.Domain->DomainId.value_or("") : "";
    VHMutexLock lock(mutex_);
    VHSRConnection*& connection = connections_[id];
    if (!connection) {
        if (!thread_.isRunning()) thread_.start();
        connection = new VHSRConnection(actions_);
        connection->moveToThread(&thread_);
    }
    return connection;
}

void VHSRConnections::connect(const UserDomain& domain, const ClientLoginResponse& answer) {
    VHSRConnection* connection = connectionForDomain(domain);
    QMetaObject::invokeMethod(
        connection,
        [connection, domain, answer] {
            connection->setUserDomain(domain);
            connection->setLoginResponce(answer);
            connection->connect();
        },
        Qt::QueuedConnection);
}

void VHSRConnections::disconnectAll() {
    std::map<std::string, VHSRConnection*> gone;
    {
        VHMutexLock lock(mutex_);
        gone.swap(connections_);
    }
    for (auto& [id, connection] : gone) {
        QMetaObject::invokeMethod(
            connection,
            [connection] {
                connection->disconnect();
                connection->deleteLater();
            },
            Qt::QueuedConnection);
    }
}

void VHSRConnections::stop() {
    std::map<std::string, VHSRConnection*> gone;
    {
        VHMutexLock lock(mutex_);
        gone.swap(connections_);
    }
    if (!thread_.isRunning()) return;
    for (auto& [id, connection] : gone) {
        QMetaObject::invokeMethod(
            connection,
            [connection] {
                connection->disconnect();
                delete connection;
            },
            Qt::BlockingQueuedConnection);
    }
    thread_.quit();
    thread_.wait();
}

}  // namespace vh
