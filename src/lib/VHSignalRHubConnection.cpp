#include "lib/VHSignalRHubConnection.h"

#include <QPointer>
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "lib/VHLog.h"
#include "lib/VHStrings.h"

namespace vh {

namespace {

constexpr double kRequestTimeout = 30;
// A poll may be held for ConnectionTimeout; give the answer this much longer.
constexpr double kPollGrace = 10;
constexpr double kLongestWait = 3600;
constexpr int kReconnectDelayMs = 2000;
// A /reconnect that the server still holds after this has worked.
constexpr int kReconnectedAfterMs = 3000;
constexpr const char* kDisconnectedMessage =
    "Connection was disconnected before invocation result was received.";

int milliseconds(double seconds) {
    return static_cast<int>(std::lround(std::clamp(seconds, 0.0, kLongestWait) * 1000));
}

// A duration of the negotiate answer; `fallback` when missing or not sane.
double seconds(const VHJson& negotiate, const char* key, double fallback) {
    auto found = negotiate.find(key);
    if (found == negotiate.end() || !found->is_number()) return fallback;
    double value = found->get<double>();
    return std::isfinite(value) && value >= 0 ? std::min(value, kLongestWait) : fallback;
}

std::string text(const VHJson& json, const char* key) {
    auto found = json.find(key);
    return found != json.end() && found->is_string() ? found->get<std::string>() : "";
}

bool isOne(const VHJson& json, const char* key) {
    auto found = json.find(key);
    return found != json.end() && found->is_number() && found->get<double>() == 1;
}

std::string describe(const VHJson& value) {
    return value.is_string() ? value.get<std::string>()
                             : value.dump(-1, ' ', false, VHJson::error_handler_t::replace);
}

const char* stateName(VHSignalRHubConnection::State state) {
    switch (state) {
        case VHSignalRHubConnection::State::Disconnected:
            return "disconnected";
        case VHSignalRHubConnection::State::Connecting:
            return "connecting";
        case VHSignalRHubConnection::State::Connected:
            return "connected";
        case VHSignalRHubConnection::State::Reconnecting:
            return "reconnecting";
    }
    return "";
}

}  // namespace

template <typename Callback, typename... Args>
bool VHSignalRHubConnection::notify(const Callback& callback, const Args&... args) {
    QPointer<VHSignalRHubConnection> self(this);
    // A copy: the callback may delete this connection and the original with it.
    if (Callback copy = callback) copy(args...);
    return self && state_ != State::Disconnected;
}

VHSignalRHubConnection::VHSignalRHubConnection(const std::string& url, QObject* parent)
    : QObject(parent), url_(url) {
    if (!VHEndsWith(url_, "/")) url_ += '/';
    url_ += "signalr";
    for (QTimer* timer : {&initTimer_, &nextRequestTimer_, &reconnectedTimer_, &giveUpTimer_}) {
        timer->setSingleShot(true);
    }
    connect(&initTimer_, &QTimer::timeout, this,
            [this] { fail(kSignalRErrorTimedOut, "The transport did not initialize in time."); });
    connect(&nextRequestTimer_, &QTimer::timeout, this, &VHSignalRHubConnection::poll);
    connect(&reconnectedTimer_, &QTimer::timeout, this, [this] {
        giveUpTimer_.stop();
        setState(State::Connected);
        notify(reconnected);
    });
    connect(&giveUpTimer_, &QTimer::timeout, this, [this] {
        VHLog(kLogMain, "SignalR %@: could not reconnect within %g s", url_,
              timing_.disconnectTimeout);
        close(false, 0);
    });
}

VHSignalRHubConnection::~VHSignalRHubConnection() {
    if (transport_) transport_->completeAbort();
}

VHSignalRHubProxy* VHSignalRHubConnection::createHubProxy(const std::string& hubName) {
    auto& proxy = proxies_[VHLowercase(hubName)];
    if (!proxy) proxy = std::make_unique<VHSignalRHubProxy>(*this, hubName);
    return proxy.get();
}

void VHSignalRHubConnection::start(std::shared_ptr<VHSignalRLongPolling> transport) {
    if (state_ != State::Disconnected || !transport) return;
    transport_ = std::move(transport);
    transport_->bind(this, url_, connectionData());
    timing_ = {};
    hasToken_ = false;
    messageId_.clear();
    groupsToken_.clear();
    setState(State::Connecting);
    transport_->negotiate(kRequestTimeout, [this](const auto& reply) { onNegotiated(reply); });
}

void VHSignalRHubConnection::stop(double timeoutSeconds) {
    if (state_ == State::Disconnected) return;
    close(hasToken_, timeoutSeconds);
}

void VHSignalRHubConnection::onNegotiated(const VHSignalRReply& reply) {
    if (reply.errorCode) return fail(reply.errorCode, reply.errorMessage);
    std::string token = text(reply.json, "ConnectionToken");
    std::string version = text(reply.json, "ProtocolVersion");
    if (token.empty() || std::strtod(version.c_str(), nullptr) < 1.4) {
        return fail(kSignalRErrorBadServerResponse, "Unusable negotiate answer.");
    }
    timing_.disconnectTimeout = seconds(reply.json, "DisconnectTimeout", 30);
    timing_.connectionTimeout = seconds(reply.json, "ConnectionTimeout", 110);
    timing_.transportConnectTimeout = seconds(reply.json, "TransportConnectTimeout", 5);
    transport_->setConnectionToken(std::move(token));
    hasToken_ = true;
    connectTransport();
}

void VHSignalRHubConnection::connectTransport() {
    initTimer_.start(milliseconds(timing_.transportConnectTimeout));
    transport_->send("connect", "", "", std::max(timing_.transportConnectTimeout, 1.0),
                     [this](const auto& reply) { onConnected(reply); });
}

void VHSignalRHubConnection::onConnected(const VHSignalRReply& reply) {
    initTimer_.stop();
    if (reply.errorCode) return fail(reply.errorCode, reply.errorMessage);
    if (!process(reply.json)) return;
    if (!isOne(reply.json, "S")) {
        return fail(kSignalRErrorBadServerResponse, "The transport was not initialized.");
    }
    transport_->send("start", "", "", kRequestTimeout,
                     [this](const auto& reply) { onStarted(reply); });
}

void VHSignalRHubConnection::onStarted(const VHSignalRReply& reply) {
    if (reply.errorCode) return fail(reply.errorCode, reply.errorMessage);
    if (text(reply.json, "Response") != "started") {
        return fail(kSignalRErrorBadServerResponse, "The server did not start the connection.");
    }
    setState(State::Connected);
    if (notify(started)) poll();
}

void VHSignalRHubConnection::poll() {
    bool reconnecting = state_ == State::Reconnecting;
    transport_->send(reconnecting ? "reconnect" : "poll", pollQuery(), "",
                     timing_.connectionTimeout + kPollGrace,
                     [this](const auto& reply) { onPolled(reply); });
    if (reconnecting) reconnectedTimer_.start(kReconnectedAfterMs);
}

void VHSignalRHubConnection::onPolled(const VHSignalRReply& reply) {
    reconnectedTimer_.stop();
    if (reply.errorCode) return onPollFailed(reply);
    if (!process(reply.json)) return;
    if (state_ == State::Reconnecting) {
        giveUpTimer_.stop();
        setState(State::Connected);
        if (!notify(reconnected)) return;
    }
    if (isOne(reply.json, "T")) return beginReconnecting();
    auto delay = reply.json.find("L");
    if (delay != reply.json.end() && delay->is_number() && delay->get<double>() > 0) {
        nextRequestTimer_.start(milliseconds(delay->get<double>() / 1000));
    } else {
        poll();
    }
}

void VHSignalRHubConnection::onPollFailed(const VHSignalRReply& reply) {
    if (state_ == State::Connected) {
        if (notify(error, reply.errorCode, reply.errorMessage)) beginReconnecting();
        return;
    }
    // While reconnecting only a refusal is news; lost connections are expected.
    if (reply.errorCode == kSignalRErrorBadServerResponse &&
        !notify(error, reply.errorCode, reply.errorMessage)) {
        return;
    }
    nextRequestTimer_.start(kReconnectDelayMs);
}

void VHSignalRHubConnection::beginReconnecting() {
    setState(State::Reconnecting);
    giveUpTimer_.start(milliseconds(timing_.disconnectTimeout));
    nextRequestTimer_.start(kReconnectDelayMs);
    notify(reconnecting);
}

void VHSignalRHubConnection::invoke(const std::string& hub, const std::string& method,
                                    VHJson arguments, VHSignalRHubProxy::InvokeCompletion done) {
    if (state_ != State::Connected && state_ != State::Reconnecting) {
        QTimer::singleShot(0, this,
                           [done] { done(false, VHJson(), "The connection is not started."); });
        return;
    }
    uint64_t id = nextInvocation_++;
    invocations_.emplace(id, std::move(done));
    VHJson call = {{"H", hub},
                   {"M", method},
                   {"A", arguments.is_array() ? std::move(arguments) : VHJson::array()},
                   {"I", id}};
    std::string body = "data=" + VHEscapeURLValue(describe(call));
    transport_->send("send", "", std::move(body), kRequestTimeout,
                     [this, id](const auto& reply) { onSent(id, reply); });
}

void VHSignalRHubConnection::onSent(uint64_t id, const VHSignalRReply& reply) {
    auto found = invocations_.find(id);
    if (found == invocations_.end()) return;
    auto done = std::move(found->second);
    invocations_.erase(found);
    if (reply.errorCode) return done(false, VHJson(), reply.errorMessage);
    const VHJson& json = reply.json;
    if (json.contains("E")) return done(false, VHJson(), describe(json["E"]));
    if (!json.contains("I") || describe(json["I"]) != std::to_string(id)) {
        return done(false, VHJson(), "The answer belongs to another invocation.");
    }
    done(true, json.value("R", VHJson()), "");
}

bool VHSignalRHubConnection::process(const VHJson& response) {
    if (response.contains("E")) {
        fail(kSignalRErrorBadServerResponse, describe(response["E"]));
        return false;
    }
    if (std::string cursor = text(response, "C"); !cursor.empty()) messageId_ = cursor;
    if (response.contains("G")) groupsToken_ = text(response, "G");
    auto messages = response.find("M");
    if (messages == response.end() || !messages->is_array()) return true;
    for (const VHJson& message : *messages) {
        if (!dispatch(message)) return false;
    }
    return true;
}

bool VHSignalRHubConnection::dispatch(const VHJson& message) {
    if (message.is_object() && message.contains("A")) {
        auto proxy = proxies_.find(VHLowercase(text(message, "H")));
        if (proxy != proxies_.end()) {
            QPointer<VHSignalRHubConnection> self(this);
            proxy->second->dispatch(text(message, "M"), message["A"]);
            if (!self || state_ == State::Disconnected) return false;
        }
    }
    return notify(received, message);
}

void VHSignalRHubConnection::fail(int code, const std::string& message) {
    if (notify(error, code, message)) close(hasToken_, 0);
}

void VHSignalRHubConnection::close(bool postAbort, double abortWait) {
    for (QTimer* timer : {&initTimer_, &nextRequestTimer_, &reconnectedTimer_, &giveUpTimer_}) {
        timer->stop();
    }
    if (transport_) transport_->completeAbort();
    setState(State::Disconnected);
    auto invocations = std::move(invocations_);
    invocations_.clear();
    bool waitForAbort = postAbort && abortWait > 0;
    if (waitForAbort) {
        QPointer<VHSignalRHubConnection> self(this);
        transport_->abort(abortWait, [self] {
            if (self && self->state_ == State::Disconnected) self->notify(self->closed);
        });
    } else {
        if (postAbort) transport_->abort(kRequestTimeout, nullptr);
        notify(closed);
    }
    // Their completions do not touch this connection, which may be gone by now.
    for (auto& [id, done] : invocations) done(false, VHJson(), kDisconnectedMessage);
}

void VHSignalRHubConnection::setState(State state) {
    if (state_ == state) return;
    state_ = state;
    VHLog(kLogMain, "SignalR %@: %@", url_, stateName(state));
}

std::string VHSignalRHubConnection::pollQuery() const {
    std::string query = "&messageId=" + VHEscapeURLValue(messageId_);
    if (!groupsToken_.empty()) query += "&groupsToken=" + VHEscapeURLValue(groupsToken_);
    return query;
}

std::string VHSignalRHubConnection::connectionData() const {
    VHJson hubs = VHJson::array();
    for (const auto& [key, proxy] : proxies_) hubs.push_back({{"Name", proxy->hubName()}});
    return describe(hubs);
}

}  // namespace vh
