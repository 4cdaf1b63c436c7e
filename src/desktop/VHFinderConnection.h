// One file-manager plug-in instance (or one control-tool call) on the
// connector's socket: what it observes and which badges it asked for, and
// the line-based sending back on its own connection.
//
// Main thread only. The connection owns nothing of the socket's life: the
// connector closes and deletes sockets.
#pragma once

#include <QObject>
#include <QTimer>
#include <set>
#include <string>

class QLocalSocket;

namespace vh {

class VHFinderConnection : public QObject {
    Q_OBJECT
  public:
    // A send still not taken by the peer after this long fails, and the
    // peer is dropped: a plug-in that stopped reading must not hold memory.
    static constexpr int kSendTimeoutMs = 3000;

    VHFinderConnection(std::string instanceId, QLocalSocket* socket);

    const std::string& instanceId() const { return instanceId_; }
    QLocalSocket* socket() const { return socket_; }
    bool connected() const;

    // Queues "command:parameter" and a line end; false (and a log line) when
    // the peer is gone.
    bool send(const std::string& command, const std::string& parameter);

    std::set<std::string>& observedPaths() { return observedPaths_; }
    std::set<std::string>& badges() { return badges_; }

  signals:
    // The peer did not take a send within kSendTimeoutMs.
    void sendTimedOut();

  private:
    void bytesWritten();

    std::string instanceId_;
    QLocalSocket* socket_;
    std::set<std::string> observedPaths_;
    std::set<std::string> badges_;
    QTimer sendTimer_;
    std::string pendingCommand_;  // the first command the peer has not taken yet
};

}  // namespace vh
