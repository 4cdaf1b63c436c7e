// A hub connection of the SignalR 2 protocol (client protocol 1.5) over the
// long-polling transport: negotiate, connect, start, then one held poll
// after another. A failed poll reports `error` once and then `reconnecting`;
// /reconnect is tried every 2 s (only refusals, -1011, are reported again)
// until one works (`reconnected`) or the server's DisconnectTimeout has
// passed (`closed`, without /abort). A failure while connecting and an
// {"E":..} answer report `error` and then `closed`.
//
// Threads: the connection, its proxies and its transport belong to the
// thread this object lives on (the main thread or a QThread with an event
// loop). Call every method there; every callback runs there, so no lock is
// needed. A callback may call stop() or deleteLater() on the connection.
#pragma once

#include <QObject>
#include <QTimer>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "lib/VHJsonRecord.h"
#include "lib/VHSignalRHubProxy.h"
#include "lib/VHSignalRLongPolling.h"

namespace vh {

class VHSignalRHubConnection : public QObject {
    Q_OBJECT
  public:
    enum class State { Disconnected, Connecting, Connected, Reconnecting };

    // `url` like "https://clientgateway.example.test/"; "signalr" is appended.
    explicit VHSignalRHubConnection(const std::string& url, QObject* parent = nullptr);
    ~VHSignalRHubConnection() override;

    // The proxy of a hub, one per name compared without case. Create every
    // proxy before start(): the hubs are named to the server then.
    VHSignalRHubProxy* createHubProxy(const std::string& hubName);
    // Ignored unless disconnected. `transport` must be made by make_shared.
    void start(std::shared_ptr<VHSignalRLongPolling> transport);
    // Posts /abort and reports `closed`: at once for a time-out below or equal
    // to 0 (-1: do not wait for the answer), else once /abort answered or the
    // time-out passed.
    void stop(double timeoutSeconds);
    State state() const { return state_; }

    // Callbacks.
    std::function<void()> started, reconnecting, reconnected, closed;
    std::function<void(const VHJson& data)> received;  // every message of a poll's "M"
    std::function<void(int code, const std::string& message)> error;

    // For VHSignalRHubProxy::invoke.
    void invoke(const std::string& hub, const std::string& method, VHJson arguments,
                VHSignalRHubProxy::InvokeCompletion done);

  private:
    // The durations of the negotiate answer, in seconds.
    struct Timing {
        double disconnectTimeout = 30;
        double connectionTimeout = 110;
        double transportConnectTimeout = 5;
    };

    void onNegotiated(const VHSignalRReply& reply);
    void connectTransport();
    void onConnected(const VHSignalRReply& reply);
    void onStarted(const VHSignalRReply& reply);
    void poll();
    void onPolled(const VHSignalRReply& reply);
    void onPollFailed(const VHSignalRReply& reply);
    void beginReconnecting();
    void reconnect();
    void onSent(uint64_t id, const VHSignalRReply& reply);

    // Takes in a persistent response; false when a callback ended the connection.
    bool process(const VHJson& response);
    bool dispatch(const VHJson& message);
    // Reports `error`, then ends the connection.
    void fail(int code, const std::string& message);
    // Ends the connection: stops everything, optionally posts /abort, reports
    // `closed` (after the /abort answer when `abortWait` > 0).
    void close(bool postAbort, double abortWait);
    void setState(State state);
    void logState(const char* what) const;
    std::string pollQuery() const;
    std::string connectionData() const;
    // Runs a callback; false when it stopped or deleted this connection.
    template <typename Callback, typename... Args>
    bool notify(const Callback& callback, const Args&... args);

    std::string url_;                                                    // ends in "/signalr"
    std::map<std::string, std::unique_ptr<VHSignalRHubProxy>> proxies_;  // by lower-case name
    std::shared_ptr<VHSignalRLongPolling> transport_;
    State state_ = State::Disconnected;
    Timing timing_;
    bool hasToken_ = false;
    std::string messageId_;
    std::string groupsToken_;
    uint64_t nextInvocation_ = 0;
    std::map<uint64_t, VHSignalRHubProxy::InvokeCompletion> invocations_;
    QTimer initTimer_;         // "S":1 must come before it fires
    QTimer nextRequestTimer_;  // the pause before the next poll or reconnect
    QTimer reconnectedTimer_;  // a /reconnect still held by then has worked
    QTimer giveUpTimer_;       // reconnecting ends after DisconnectTimeout
};

}  // namespace vh
