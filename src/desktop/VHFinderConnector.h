// The file-manager plug-ins' way into the application: a Unix stream socket
// ($XDG_RUNTIME_DIR/Varnholt/findertalk, in a 0700 folder) that takes one
// "instance:command:parameter" line per message and answers "command:parameter"
// lines on the same connection. Each plug-in instance says "hello" first;
// the control tool (varnholtctl) sends "ctl-" commands and reads one reply.
//
// Everything the peer sends is untrusted: connections of other users are
// refused, a line longer than kMaxLineBytes drops its connection, and an
// unknown or malformed message is logged and dropped.
//
// One instance (defaultConnector()), main thread only.
#pragma once

#include <QObject>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "desktop/VHFinderConnection.h"
#include "desktop/VHFinderMessage.h"

class QLocalServer;
class QLocalSocket;

namespace vh {

class VHFinderConnector : public QObject {
    Q_OBJECT
  public:
    static constexpr qint64 kMaxLineBytes = 64 * 1024;

    static VHFinderConnector& defaultConnector();
    static std::string socketPath();

    // Listens on the socket, taking over a stale one; false (logged) when it
    // cannot, for example while another instance serves it.
    bool start();
    // Closes the socket and every connection.
    void stop();

    // Decodes and executes one command that arrived on `from`.
    void parseRemoteCommand(const VHFinderMessage& message, QLocalSocket* from);

    // The plug-in instance's connection; null when it is not connected.
    VHFinderConnection* connectionWithId(const std::string& instanceId) const;
    void deleteConnectionWithId(const std::string& instanceId);
    // Sends "lang" with the interface language to every plug-in.
    void notifyOnLanguageChange();

  private:
    using Handler = void (VHFinderConnector::*)(const VHFinderMessage&, QLocalSocket*);
    static const std::map<std::string_view, Handler>& commands();

    VHFinderConnector() = default;
    ~VHFinderConnector() override;

    void accept();
    void read(QLocalSocket* socket);
    void handleLine(std::string_view line, QLocalSocket* from);
    void dropSocket(QLocalSocket* socket);

    void hello(const VHFinderMessage& message, QLocalSocket* from);
    void createLink(const VHFinderMessage& message, QLocalSocket* from);
    void emailLink(const VHFinderMessage& message, QLocalSocket* from);
    void newShare(const VHFinderMessage& message, QLocalSocket* from);
    void shareAShare(const VHFinderMessage& message, QLocalSocket* from);
    void toggleLock(const VHFinderMessage& message, QLocalSocket* from);
    void refresh(const VHFinderMessage& message, QLocalSocket* from);
    void control(const VHFinderMessage& message, QLocalSocket* from);

    std::unique_ptr<QLocalServer> server_;
    std::map<std::string, std::unique_ptr<VHFinderConnection>> connections_;
    std::map<QLocalSocket*, std::string> partialLines_;
};

}  // namespace vh
