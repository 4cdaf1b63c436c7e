#include "VHHubService.h"

#include <algorithm>

#include "VHEmulatorDates.h"
#include "VHEmulatorText.h"
#include "VHHubProtocol.h"

namespace vh::emulator {

namespace {

using nlohmann::json;
using Clock = VHHubConnections::Clock;

const std::string kJsonType = "application/json; charset=UTF-8";
const std::string kCookieName = ".ASPXAUTH";
const std::string kUnknownUser =
    "Unrecognized user identity. The user identity cannot change during an active SignalR "
    "connection.";

void replyJson(VHEmulatorExchange& exchange, const json& answer) {
    exchange.replyText(200, answer.dump(), kJsonType);
    exchange.response.set_header("X-Content-Type-Options", "nosniff");
}

json persistent(const VHHubCursor& cursor, json messages) {
    return {{"C", VHHubCursorText(cursor)}, {"M", std::move(messages)}};
}

Clock::duration seconds(double value) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(value));
}

std::string textOf(const json& object, const char* key) {
    auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

// JS sends the invocation id as a number, the server answers it as a text.
std::string invocationId(const json& request) {
    auto found = request.find("I");
    if (found == request.end()) return "";
    return found->is_string() ? found->get<std::string>() : found->dump();
}

bool finish(httplib::DataSink& sink, const json& answer) {
    std::string text = answer.dump();
    bool written = sink.write(text.data(), text.size());
    sink.done();
    return written;
}

}  // namespace

struct VHHubService::HeldPoll {
    Caller caller;
    uint64_t ticket = 0;
    VHHubCursor cursor;
    Clock::time_point keepAliveAt;
    Clock::time_point deadline;
};

void VHHubService::registerRoutes(VHEmulatorServer& server) {
    const std::pair<const char*, Step> steps[] = {
        {"negotiate", Step::Negotiate}, {"ping", Step::Ping},  {"connect", Step::Connect},
        {"start", Step::Start},         {"poll", Step::Poll},  {"reconnect", Step::Poll},
        {"send", Step::Send},           {"abort", Step::Abort}};
    for (const auto& [name, step] : steps) {
        for (const char* method : {"GET", "POST"}) {
            server.route(
                VHHostKind::Gateway, method, std::string("/signalr/") + name,
                [this, step = step](VHEmulatorExchange& exchange) { handle(exchange, step); });
        }
    }
}

void VHHubService::handle(VHEmulatorExchange& exchange, Step step) {
    auto caller = authenticate(exchange, step);
    if (!caller) return;
    switch (step) {
        case Step::Negotiate:
            return negotiate(exchange, *caller);
        case Step::Ping:
            return replyJson(exchange, {{"Response", "pong"}});
        case Step::Connect:
            return connect(exchange, *caller);
        case Step::Start:
            return replyJson(exchange, {{"Response", "started"}});
        case Step::Poll:
            return poll(exchange, *caller);
        case Step::Send:
            return send(exchange, *caller);
        case Step::Abort:
            connections_.abort(caller->connection.connectionId);
            return exchange.replyText(200, "");
    }
}

std::optional<VHHubService::Caller> VHHubService::authenticate(VHEmulatorExchange& exchange,
                                                               Step step) {
    Caller caller;
    std::string cookie = VHCookieValue(exchange.request, kCookieName);
    {
        auto guard = store_.db.lock();
        auto domain = store_.accounts.domainByUrl(exchange.domainUrl);
        auto member =
            domain ? store_.accounts.membershipByCookie(domain->domainId, cookie) : std::nullopt;
        if (member) caller.connection = {"", member->email, domain->domainId, domain->url};
    }
    if (caller.connection.email.empty()) {
        exchange.replyText(401, "Unauthorized");
        return std::nullopt;
    }
    if (!checkHubs(exchange, caller)) return std::nullopt;
    if (step == Step::Negotiate || step == Step::Ping) return caller;
    if (!checkToken(exchange, caller)) return std::nullopt;
    return caller;
}

bool VHHubService::checkHubs(VHEmulatorExchange& exchange, Caller& caller) {
    bool named = exchange.request.has_param("connectionData");
    auto hubs = VHHubNames(exchange.query("connectionData"));
    if (!hubs) {
        exchange.replyText(400, "Protocol error: The connection data cannot be read.");
        return false;
    }
    for (const std::string& hub : *hubs) {
        if (!VHSameAsciiText(hub, kHubName)) {
            exchange.replyText(500, "'" + hub + "' Hub could not be resolved.");
            return false;
        }
    }
    // A client that lists no hub has no handler for the hub's events.
    caller.subscribed = !named || !hubs->empty();
    return true;
}

bool VHHubService::checkToken(VHEmulatorExchange& exchange, Caller& caller) {
    if (!VHSameAsciiText(exchange.query("transport"), "longPolling")) {
        exchange.replyText(400, "Protocol error: Unknown transport.");
        return false;
    }
    std::string token = exchange.query("connectionToken");
    if (token.empty()) {
        exchange.replyText(400, "Protocol error: Missing connection token.");
        return false;
    }
    // An unescaped "+" arrives as a space.
    std::replace(token.begin(), token.end(), ' ', '+');
    auto identity = VHParseHubToken(token);
    if (!identity) {
        exchange.replyText(400, "The ConnectionId is in the incorrect format.");
        return false;
    }
    if (!VHSameAsciiText(identity->email, caller.connection.email)) {
        exchange.replyText(403, kUnknownUser);
        return false;
    }
    caller.connection.connectionId = identity->connectionId;
    return true;
}

void VHHubService::negotiate(VHEmulatorExchange& exchange, const Caller& caller) {
    std::string connectionId = VHNewHubConnectionId();
    const VHHubTiming& timing = connections_.timing();
    replyJson(exchange,
              {{"Url", "/signalr"},
               {"ConnectionToken", VHHubToken({connectionId, caller.connection.email})},
               {"ConnectionId", connectionId},
               {"KeepAliveTimeout", 2 * timing.keepAliveSeconds},
               {"DisconnectTimeout", timing.disconnectSeconds()},
               {"ConnectionTimeout", timing.connectionTimeoutSeconds},
               {"TryWebSockets", false},
               {"ProtocolVersion", VHHubProtocolVersion(exchange.query("clientProtocol"))},
               {"TransportConnectTimeout", 5.0},
               {"LongPollDelay", 0.0}});
}

void VHHubService::connect(VHEmulatorExchange& exchange, const Caller& caller) {
    VHHubCursor cursor;
    {
        auto guard = store_.db.lock();
        cursor.seq = store_.events.latest(caller.connection.domainId);
    }
    connections_.open(caller.connection, cursor);
    json answer = persistent(cursor, json::array());
    answer["S"] = 1;
    replyJson(exchange, answer);
}

VHHubCursor VHHubService::pollStart(VHEmulatorExchange& exchange, const Caller& caller) {
    std::string messageId = exchange.query("messageId");
    if (messageId.empty()) {
        messageId = VHFormValue(exchange.body().value_or(""), "messageId").value_or("");
    }
    if (auto cursor = VHParseHubCursor(messageId)) return *cursor;
    if (auto cursor = connections_.cursor(caller.connection.connectionId)) return *cursor;
    auto guard = store_.db.lock();
    return {store_.events.latest(caller.connection.domainId), 0};
}

void VHHubService::poll(VHEmulatorExchange& exchange, const Caller& caller) {
    VHHubCursor from = pollStart(exchange, caller);
    auto held = std::make_shared<HeldPoll>();
    held->caller = caller;
    held->ticket = connections_.beginPoll(caller.connection, from);
    auto batch = delivery_.collect(caller.connection, from, caller.subscribed);
    held->cursor = batch.cursor;
    if (batch.messages.empty()) return hold(exchange, std::move(held));
    connections_.endPoll(caller.connection.connectionId, held->ticket, batch.cursor);
    replyJson(exchange, persistent(batch.cursor, std::move(batch.messages)));
}

void VHHubService::hold(VHEmulatorExchange& exchange, std::shared_ptr<HeldPoll> poll) {
    const VHHubTiming& timing = connections_.timing();
    auto now = Clock::now();
    poll->keepAliveAt = now + seconds(timing.keepAliveSeconds);
    poll->deadline = now + seconds(timing.connectionTimeoutSeconds);
    exchange.response.status = 200;
    exchange.response.headers.erase("Content-Type");
    exchange.response.set_header("X-Content-Type-Options", "nosniff");
    // The answer streams, so that spaces can keep the connection alive.
    exchange.response.set_chunked_content_provider(
        kJsonType,
        [this, poll](size_t, httplib::DataSink& sink) { return continueHeld(*poll, sink); },
        [this, poll](bool) {
            connections_.endPoll(poll->caller.connection.connectionId, poll->ticket, poll->cursor);
        });
}

bool VHHubService::continueHeld(HeldPoll& poll, httplib::DataSink& sink) {
    const std::string& connectionId = poll.caller.connection.connectionId;
    for (;;) {
        uint64_t seen = connections_.changes();
        auto batch = delivery_.collect(poll.caller.connection, poll.cursor, poll.caller.subscribed);
        poll.cursor = batch.cursor;
        if (!batch.messages.empty()) return finish(sink, persistent(poll.cursor, batch.messages));
        switch (
            connections_.wait(connectionId, poll.ticket, seen, poll.keepAliveAt, poll.deadline)) {
            case VHPollWake::Changed:
                continue;
            case VHPollWake::KeepAlive:
                poll.keepAliveAt += seconds(connections_.timing().keepAliveSeconds);
                return sink.write(" ", 1);
            case VHPollWake::Stopping: {
                json answer = persistent(poll.cursor, json::array());
                answer["T"] = 1;  // the host shuts down
                return finish(sink, answer);
            }
            case VHPollWake::Ended:
            case VHPollWake::TimedOut:
                return finish(sink, persistent(poll.cursor, json::array()));
        }
    }
}

void VHHubService::send(VHEmulatorExchange& exchange, const Caller& caller) {
    auto body = exchange.body();
    auto data = body ? VHFormValue(*body, "data") : std::nullopt;
    json request = data ? json::parse(*data, nullptr, false) : json();
    if (!request.is_object()) {
        return exchange.replyText(400, "Protocol error: A hub invocation is expected.");
    }
    std::string hub = textOf(request, "H"), method = textOf(request, "M");
    std::string id = invocationId(request);
    if (!VHSameAsciiText(hub, kHubName)) {
        return exchange.replyText(500, "'" + hub + "' Hub could not be resolved.");
    }
    auto arguments = request.find("A");
    bool bound = VHSameAsciiText(method, "SendMessage") && arguments != request.end() &&
                 arguments->is_array() && arguments->size() == 1 && (*arguments)[0].is_object();
    if (!bound) {
        return replyJson(exchange, {{"I", id},
                                    {"E", "There was an error invoking Hub method '" + hub + "." +
                                              method + "'."}});
    }
    const json& envelope = (*arguments)[0];
    auto type = envelope.find("MessageType");
    if (type != envelope.end() && type->is_number_integer() && *type == kMessageOnline) {
        echoOnline(caller, envelope);
    }
    replyJson(exchange, {{"I", id}});
}

void VHHubService::echoOnline(const Caller& caller, const json& envelope) {
    auto message = envelope.find("Message");
    std::string info = message == envelope.end() ? ""
                       : message->is_string()    ? message->get<std::string>()
                                                 : message->dump();
    connections_.push(caller.connection.connectionId,
                      VHHubDelivery::invocation(VHHubDelivery::envelope(
                          kMessageOnline, textOf(envelope, "RnaSender"),
                          caller.connection.domainUrl, info, VHNowSeconds())));
}

}  // namespace vh::emulator
