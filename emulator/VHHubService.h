// The realtime hub on a domain's gateway ("clientgateway.<domain>/signalr"):
// negotiate, connect, start, poll, reconnect, send, abort and ping of the
// hub protocol over long polling, for the one hub "VhHub".
//
// Every request needs the ".ASPXAUTH" cookie of a membership of the domain;
// a poll that finds nothing to deliver is held on its server thread (a space
// written every keep-alive interval) until an event of the domain is
// recorded, a message for the connection arrives, another poll of the
// connection or an abort ends it, or the connection time-out passes.
#pragma once

#include <memory>

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"
#include "VHHubConnections.h"
#include "VHHubDelivery.h"

namespace vh::emulator {

class VHHubService {
  public:
    VHHubService(VHEmulatorStore& store, VHHubConnections& connections)
        : store_(store), connections_(connections), delivery_(store, connections) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    enum class Step { Negotiate, Ping, Connect, Start, Poll, Send, Abort };
    struct Caller {
        VHHubConnectionInfo connection;
        bool subscribed = false;  // the client named the hub
    };
    struct HeldPoll;

    void handle(VHEmulatorExchange& exchange, Step step);
    // The caller, or nothing after a refusal was answered.
    std::optional<Caller> authenticate(VHEmulatorExchange& exchange, Step step);
    bool checkHubs(VHEmulatorExchange& exchange, Caller& caller);
    bool checkToken(VHEmulatorExchange& exchange, Caller& caller);
    void negotiate(VHEmulatorExchange& exchange, const Caller& caller);
    void connect(VHEmulatorExchange& exchange, const Caller& caller);
    void poll(VHEmulatorExchange& exchange, const Caller& caller);
    VHHubCursor pollStart(VHEmulatorExchange& exchange, const Caller& caller);
    void hold(VHEmulatorExchange& exchange, std::shared_ptr<HeldPoll> poll);
    bool continueHeld(HeldPoll& poll, httplib::DataSink& sink);
    void send(VHEmulatorExchange& exchange, const Caller& caller);
    void echoOnline(const Caller& caller, const nlohmann::json& envelope);

    VHEmulatorStore& store_;
    VHHubConnections& connections_;
    VHHubDelivery delivery_;
};

}  // namespace vh::emulator
