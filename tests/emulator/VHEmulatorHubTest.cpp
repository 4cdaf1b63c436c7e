// The realtime hub of the real emulator, spoken to over long polling as a
// client would: negotiate, connect, start, poll, send, abort.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

const std::string kHubData = R"([{"name":"vhhub"}])";

std::string cookieOf(const VHEmulatorProcess& emulator, const std::string& email,
                     const std::string& domainUrl) {
    json account = emulator.account(email).value_or(json::object());
    for (const json& domain : account.value("domains", json::array())) {
        if (domain["url"] == domainUrl) return domain["cookie"];
    }
    return {};
}

// One hub connection of one user, by hand.
struct HubClient {
    HubClient(const VHEmulatorProcess& emulator, std::string cookie, std::string host = kGateway1)
        : emulator(emulator), cookie(std::move(cookie)), host(std::move(host)) {}

    const VHEmulatorProcess& emulator;
    std::string cookie;
    std::string host;
    std::string token;
    std::string transport = "longPolling";

    VHEmulatorReply call(const std::string& step, const std::string& body = "") const {
        std::string target = "/signalr/" + step + "?transport=" + transport +
                             "&clientProtocol=1.5&connectionToken=" + VHTestEscaped(token) +
                             "&connectionData=" + VHTestEscaped(kHubData);
        return emulator.request(
            step == "start" ? "GET" : "POST", host, target,
            {{"Cookie", ".ASPXAUTH=" + cookie},
             {"Content-Type", "application/x-www-form-urlencoded; charset=UTF-8"}},
            body);
    }
    VHEmulatorReply negotiate(const std::string& query = "") const {
        return emulator.request(
            "GET", host, "/signalr/negotiate?connectionData=" + VHTestEscaped(kHubData) + query,
            {{"Cookie", ".ASPXAUTH=" + cookie}});
    }
    // Negotiates, connects and starts; the first cursor.
    std::string open() {
        token = negotiate("&clientProtocol=1.5").json().value("ConnectionToken", "");
        json connected = call("connect").json();
        EXPECT_EQ(connected["S"], 1);
        EXPECT_EQ(call("start").json(), json({{"Response", "started"}}));
        return connected.value("C", "");
    }
    json poll(const std::string& cursor, const std::string& step = "poll") const {
        return call(step, "messageId=" + VHTestEscaped(cursor)).json();
    }
    VHEmulatorReply send(const json& invocation) const {
        return call("send", "data=" + VHTestEscaped(invocation.dump()));
    }
};

// The envelopes of a poll's messages.
std::vector<json> envelopes(const json& answer) {
    std::vector<json> result;
    for (const json& message : answer.value("M", json::array())) {
        EXPECT_EQ(message["H"], "VhHub");
        EXPECT_EQ(message["M"], "ReciveEnvelope");
        result.push_back(message["A"][0]);
    }
    return result;
}

json messageOf(const json& envelope) {
    return json::parse(envelope.value("Message", ""), nullptr, false);
}

bool eventually(const std::function<bool()>& condition) {
    for (auto deadline = std::chrono::steady_clock::now() + 60s;
         std::chrono::steady_clock::now() < deadline; std::this_thread::sleep_for(50ms)) {
        if (condition()) return true;
    }
    return false;
}

class EmulatorHub : public testing::Test {
  protected:
    void SetUp() override {
        curl_global_init(CURL_GLOBAL_ALL);
        ASSERT_TRUE(emulator.start({VHCompactSeed(), "", arguments()}));
        alice.cookie = cookieOf(emulator, "alice@varnholt.test", "d1.varnholt.test");
        ASSERT_FALSE(alice.cookie.empty());
    }
    virtual std::vector<std::string> arguments() const { return {}; }

    bool polling(const std::string& domainUrl = "d1.varnholt.test") const {
        auto list = emulator.admin("GET", "hub/connections");
        for (const json& connection : list.value_or(json::array())) {
            if (connection["user"] == "alice@varnholt.test" && connection["domain"] == domainUrl &&
                connection["polling"] == true) {
                return true;
            }
        }
        return false;
    }
    bool writeFile(const std::string& path) const {
        return emulator.act("team", {{{"action", "writeFile"}, {"path", path}, {"text", path}}})
            .has_value();
    }

    VHEmulatorProcess emulator;
    HubClient alice{emulator, ""};
};

TEST_F(EmulatorHub, ExchangeEchoesTheOnlineMessageAndRefusesUnknownCalls) {
    VHEmulatorReply negotiated = alice.negotiate("&clientProtocol=1.5");
    EXPECT_EQ(negotiated.headers["content-type"], "application/json; charset=UTF-8");
    EXPECT_EQ(negotiated.headers["x-content-type-options"], "nosniff");
    json answer = negotiated.json();
    EXPECT_EQ(answer["Url"], "/signalr");
    EXPECT_EQ(answer["ProtocolVersion"], "1.5");
    EXPECT_EQ(answer["ConnectionTimeout"], 110.0);
    EXPECT_EQ(answer["KeepAliveTimeout"], 20.0);
    EXPECT_EQ(answer["TryWebSockets"], false);
    EXPECT_EQ(alice.negotiate("&clientProtocol=2.1").json()["ProtocolVersion"], "2.0");
    EXPECT_EQ(alice.negotiate("&clientProtocol=1.0").json()["ProtocolVersion"], "1.2");

    std::string cursor = alice.open();
    ASSERT_FALSE(cursor.empty());
    EXPECT_EQ(alice.call("ping").json(), json({{"Response", "pong"}}));
    std::string info = R"({"ClientName":"alice","ClientType":2})";
    json online = {{"MessageType", 2}, {"RnaReciver", ""},   {"RnaSender", "alice-id"},
                   {"Message", info},  {"Origin", 0},        {"ChannelId", ""},
                   {"ReSendCount", 0}, {"ReSendInterval", 0}};
    EXPECT_EQ(alice.send({{"H", "vhhub"}, {"M", "SendMessage"}, {"A", {online}}, {"I", 0}}).json(),
              json({{"I", "0"}}));
    auto echoed = envelopes(alice.poll(cursor));
    ASSERT_EQ(echoed.size(), 1u);
    EXPECT_EQ(echoed[0]["MessageType"], 2);
    EXPECT_EQ(echoed[0]["Message"], info);
    EXPECT_EQ(
        VHKeys(echoed[0]),
        std::set<std::string>({"MessageType", "RnaReciver", "RnaSender", "SendTime", "ReSendTime",
                               "ReSendInterval", "ReSendCount", "Message", "Origin", "ChannelId"}));

    EXPECT_EQ(alice.send({{"H", "vhhub"}, {"M", "Nope"}, {"A", json::array()}, {"I", 1}}).json(),
              json({{"I", "1"}, {"E", "There was an error invoking Hub method 'vhhub.Nope'."}}));
    EXPECT_EQ(alice.send({{"H", "vhhub"}, {"M", "SendMessage"}, {"A", {online, online}}, {"I", 2}})
                  .json()["E"],
              "There was an error invoking Hub method 'vhhub.SendMessage'.");
    VHEmulatorReply otherHub = alice.send({{"H", "chat"}, {"M", "Send"}, {"A", {1}}, {"I", 3}});
    EXPECT_EQ(otherHub.body, "'chat' Hub could not be resolved.");
    VHEmulatorReply unknown = emulator.request(
        "GET", kGateway1, "/signalr/negotiate?connectionData=" + VHTestEscaped(R"([{"name":"x"}])"),
        {{"Cookie", ".ASPXAUTH=" + alice.cookie}});
    EXPECT_EQ(unknown.status, 500);
    EXPECT_EQ(unknown.body, "'x' Hub could not be resolved.");
}

TEST_F(EmulatorHub, HeldPollsWakeForTheirDomainOnly) {
    HubClient second{emulator, cookieOf(emulator, "alice@varnholt.test", "d2.varnholt.test"),
                     "clientgateway.d2.varnholt.test"};
    std::string cursor = alice.open(), secondCursor = second.open();
    auto held = std::async(std::launch::async, [&] { return alice.poll(cursor); });
    auto heldSecond = std::async(std::launch::async, [&] { return second.poll(secondCursor); });
    ASSERT_TRUE(eventually([&] { return polling() && polling("d2.varnholt.test"); }));
    ASSERT_TRUE(writeFile("/pushed.txt"));
    json answer = held.get();
    auto delivered = envelopes(answer);
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0]["MessageType"], 3);
    json event = messageOf(delivered[0]);
    EXPECT_EQ(event["ShareId"], "team");
    EXPECT_EQ(event["VhVirtualFile"]["PublicName"], "pushed.txt");

    held = std::async(std::launch::async, [&] { return alice.poll(answer["C"]); });
    ASSERT_TRUE(emulator.raiseDomainEvent("d1.varnholt.test", {{"DomainEventType", 3}}));
    delivered = envelopes(held.get());
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0]["MessageType"], 12);
    EXPECT_EQ(delivered[0]["RnaSender"], "d1.varnholt.test");
    EXPECT_EQ(messageOf(delivered[0])["DomainEventType"], 3);

    // The other domain's poll stayed held through both and takes only its own event.
    ASSERT_TRUE(emulator.raiseDomainEvent("d2.varnholt.test", {{"DomainEventType", 8}}));
    delivered = envelopes(heldSecond.get());
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(delivered[0]["RnaSender"], "d2.varnholt.test");
}

TEST_F(EmulatorHub, CursorResumesAfterALostPoll) {
    std::string cursor = alice.open();
    ASSERT_TRUE(emulator.addFault(
        {{"host", "^clientgateway"}, {"path", "/signalr/poll"}, {"drop", true}, {"count", 1}}));
    EXPECT_EQ(alice.call("poll", "messageId=" + VHTestEscaped(cursor)).status, 0);
    ASSERT_TRUE(writeFile("/one.txt"));
    ASSERT_TRUE(writeFile("/two.txt"));
    for (const char* step : {"reconnect", "poll"}) {  // the same cursor gives the same events
        auto delivered = envelopes(alice.poll(cursor, step));
        ASSERT_EQ(delivered.size(), 2u) << step;
        EXPECT_EQ(messageOf(delivered[0])["VhVirtualFile"]["PublicName"], "one.txt");
        EXPECT_EQ(messageOf(delivered[1])["VhVirtualFile"]["PublicName"], "two.txt");
    }
}

TEST_F(EmulatorHub, SkipHoldsBackBroadcastsThatStayInTheJournal) {
    std::string cursor = alice.open();
    EXPECT_FALSE(emulator.admin("POST", "hub/skip", {{"domain", "nowhere.test"}}));
    ASSERT_TRUE(emulator.admin("POST", "hub/skip", {{"domain", "d1.varnholt.test"}, {"count", 1}}));
    ASSERT_TRUE(writeFile("/lost.txt"));
    ASSERT_TRUE(writeFile("/kept.txt"));
    auto delivered = envelopes(alice.poll(cursor));
    ASSERT_EQ(delivered.size(), 1u);
    EXPECT_EQ(messageOf(delivered[0])["VhVirtualFile"]["PublicName"], "kept.txt");
    json tree = *emulator.tree("team");
    EXPECT_NE(tree.dump().find("/lost.txt"), std::string::npos);
}

TEST_F(EmulatorHub, RefusesStrangersAndForeignTokens) {
    HubClient stranger{emulator, "not-a-cookie"};
    EXPECT_EQ(stranger.negotiate().status, 401);
    HubClient noCookie{emulator, ""};
    EXPECT_EQ(noCookie.negotiate().status, 401);
    HubClient otherDomain{emulator, cookieOf(emulator, "alice@varnholt.test", "d2.varnholt.test")};
    EXPECT_EQ(otherDomain.negotiate().status, 401);

    alice.open();
    stranger.token = alice.token;
    EXPECT_EQ(stranger.call("poll").status, 401);
    HubClient bob{emulator, cookieOf(emulator, "bob@varnholt.test", "d1.varnholt.test")};
    bob.token = alice.token;
    VHEmulatorReply foreign = bob.call("poll");
    EXPECT_EQ(foreign.status, 403);
    EXPECT_EQ(foreign.body.rfind("Unrecognized user identity.", 0), 0u) << foreign.body;

    HubClient broken = alice;
    broken.token = "bm90IGEgdG9rZW4=";
    VHEmulatorReply bad = broken.call("poll");
    EXPECT_EQ(bad.status, 400);
    EXPECT_EQ(bad.body, "The ConnectionId is in the incorrect format.");
    broken.token = "";
    EXPECT_EQ(broken.call("send").body, "Protocol error: Missing connection token.");
    HubClient webSockets = alice;
    webSockets.transport = "webSockets";
    EXPECT_EQ(webSockets.call("poll").body, "Protocol error: Unknown transport.");
}

TEST_F(EmulatorHub, AnotherPollOrAnAbortEndsTheHeldOne) {
    std::string cursor = alice.open();
    auto first = std::async(std::launch::async, [&] { return alice.poll(cursor); });
    ASSERT_TRUE(eventually([&] { return polling(); }));
    auto second = std::async(std::launch::async, [&] { return alice.poll(cursor); });
    ASSERT_EQ(first.wait_for(60s), std::future_status::ready);
    EXPECT_EQ(first.get(), json({{"C", cursor}, {"M", json::array()}}));
    ASSERT_TRUE(eventually([&] { return polling(); }));
    EXPECT_EQ(alice.call("abort").status, 200);
    ASSERT_EQ(second.wait_for(60s), std::future_status::ready);
    EXPECT_EQ(second.get()["M"], json::array());
    EXPECT_EQ(emulator.admin("GET", "hub/connections"), json::array());
}

class EmulatorHubShortTimes : public EmulatorHub {
  protected:
    std::vector<std::string> arguments() const override {
        return {"--hub-keepalive", "1", "--hub-timeout", "5"};
    }
};

TEST_F(EmulatorHubShortTimes, IdlePollKeepsAliveThenAnswersEmpty) {
    json negotiated = alice.negotiate().json();
    EXPECT_EQ(negotiated["KeepAliveTimeout"], 2.0);
    EXPECT_EQ(negotiated["ConnectionTimeout"], 5.0);
    std::string cursor = alice.open();
    VHEmulatorReply idle = alice.call("poll", "messageId=" + VHTestEscaped(cursor));
    ASSERT_EQ(idle.status, 200);
    ASSERT_FALSE(idle.body.empty());
    EXPECT_EQ(idle.body[0], ' ');
    EXPECT_EQ(json::parse(idle.body), json({{"C", cursor}, {"M", json::array()}}));
}

}  // namespace
}  // namespace vh::test
