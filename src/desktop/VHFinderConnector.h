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
#include <QThreadPool>
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
    // The language code plug-ins are told ("lang").
    static std::string interfaceLanguage();

    // ---- Overlay states (pushed as "overlay(N):<absolute path>") ------------
    // The state of the item at an absolute path: 0 to 5 as the drive's
    // overlay attribute gives it; 2 above the drive, 0 for its root. Any thread.
    static int getFileStatusValue(const std::string& absolutePath);
    // "overlay(N)" for the path. Any thread.
    static std::string overlayIconCommand(const std::string& absolutePath);
    // Pushes the path's state to every plug-in with a badge for it, or to
    // one; computed on a pool thread, sent from the main thread.
    void updateOverlayIcon(const std::string& absolutePath);
    void updateOverlayIcon(const std::string& absolutePath, VHFinderConnection* connection);
    // Pushes every badge at or below a drive path ("/Share/folder").
    void updateOverlayIconsBelow(const std::string& drivePath);

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
    void toggleSync(const VHFinderMessage& message, QLocalSocket* from);
    void downloadFolder(const VHFinderMessage& message, QLocalSocket* from);
    void downloadFile(const VHFinderMessage& message, QLocalSocket* from);
    void openRoot(const VHFinderMessage& message, QLocalSocket* from);
    void openShare(const VHFinderMessage& message, QLocalSocket* from);
    void observe(const VHFinderMessage& message, QLocalSocket* from);
    void unobserve(const VHFinderMessage& message, QLocalSocket* from);
    void badge(const VHFinderMessage& message, QLocalSocket* from);
    void refresh(const VHFinderMessage& message, QLocalSocket* from);
    void control(const VHFinderMessage& message, QLocalSocket* from);

    // Computes the state of `absolutePath` and sends it to the instances.
    void pushOverlay(const std::string& absolutePath, std::vector<std::string> instanceIds);

    std::unique_ptr<QLocalServer> server_;
    std::map<std::string, std::unique_ptr<VHFinderConnection>> connections_;
    std::map<QLocalSocket*, std::string> partialLines_;
    QThreadPool overlayPool_;  // state computations ask the store and the queues
};

}  // namespace vh
