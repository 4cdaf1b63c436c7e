// The hub client against the real emulator's hub: polls held with keep-alive
// spaces, invocations, events after changes made by another device, lost
// polls, a server that goes away, a refused cookie, stopping, and fifty
// connections sharing one hub.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <numeric>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "emulator/support/VHEmulatorProcess.h"
#include "lib/VHHttp.h"
#include "lib/VHLog.h"
#include "lib/VHSignalRHubConnection.h"
#include "lib/VHStrings.h"
#include "support/VHTestWait.h"

namespace vh::test {
namespace {

using namespace std::chrono_literals;

constexpr const char* kDemo = "demo@varnholt.test";
constexpr const char* kDomain = "d1.varnholt.test";
constexpr const char* kGateway = "clientgateway.d1.varnholt.test";
constexpr const char* kShare = "team-documents";

// The share tick of a journal broadcast of kShare; nothing for anything else.
std::optional<int64_t> broadcastTick(const VHJson& envelope) {
    if (!envelope.is_object() || envelope.value("MessageType", -1) != 3) return std::nullopt;
    auto event = VHJson::parse(envelope.value("Message", ""), nullptr, false);
    if (!event.is_object() || event.value("ShareId", "") != kShare) return std::nullopt;
    return event.value("ShareTick", int64_t(-1));
}

// Log lines; shared with the sink, which may still run on the network thread
// after the test is gone.
struct CapturedLog {
    std::mutex mutex;
    std::vector<std::string> lines;

    bool contains(const std::string& text) {
        std::lock_guard lock(mutex);
        for (const auto& line : lines) {
            if (line.find(text) != std::string::npos) return true;
        }
        return false;
    }
};

class SignalRHubConnectionTest : public testing::Test {
  protected:
    void SetUp() override {
        // Keep-alive spaces every 2 s, empty answers after 4 s, DisconnectTimeout 6 s.
        ASSERT_TRUE(emulator.start({nullptr, "", {"--hub-keepalive", "2", "--hub-timeout", "4"}}));
        VHHttp::setConnectTo(emulator.connectTo());
        VHHttp::setExtraCAFile(emulator.caFile());
        VHHttp::clearCookies();
        auto account = emulator.account(kDemo);
        ASSERT_TRUE(account);
        for (const auto& domain : (*account)["domains"]) {
            if (domain["url"] == kDomain) cookie = domain["cookie"].get<std::string>();
        }
        ASSERT_FALSE(cookie.empty());
        VHHttp::setCookie(kGateway, ".ASPXAUTH", cookie);
        VHSetLogSink([log = log](int, const std::string& line) {
            std::lock_guard lock(log->mutex);
            log->lines.push_back(line);
        });

        connection = std::make_unique<VHSignalRHubConnection>(std::string("https://") + kGateway);
        // Names in another case than the server's: they compare without case.
        connection->createHubProxy("VhHub")->on(
            "RECIVEENVELOPE", [this](const VHJson& envelope) { envelopes.push_back(envelope); });
        connection->started = [this] { calls.push_back("started"); };
        connection->reconnecting = [this] { calls.push_back("reconnecting"); };
        connection->reconnected = [this] { calls.push_back("reconnected"); };
        connection->closed = [this] { calls.push_back("closed"); };
        connection->received = [this](const VHJson&) { ++receivedCount; };
        connection->error = [this](int code, const std::string&) {
            calls.push_back("error");
            errors.push_back(code);
        };
    }

    void TearDown() override {
        connection.reset();
        VHSetLogSink({});
        if (HasFailure()) {
            std::lock_guard lock(log->mutex);
            for (const auto& line : log->lines) std::cerr << line << "\n";
        }
        VHHttp::clearCookies();
        VHHttp::setConnectTo("");
        VHHttp::setExtraCAFile("");
    }

    void start() { connection->start(std::make_shared<VHSignalRLongPolling>()); }
    bool happened(const std::string& call, std::chrono::milliseconds timeout = 30s) {
        return VHWaitUntil([&] { return count(call) > 0; }, timeout);
    }
    int count(const std::string& call) const {
        return static_cast<int>(std::count(calls.begin(), calls.end(), call));
    }
    // The ticks of the journal broadcasts received for the share.
    std::vector<int64_t> broadcastTicks() const {
        std::vector<int64_t> ticks;
        for (const auto& envelope : envelopes) {
            if (auto tick = broadcastTick(envelope)) ticks.push_back(*tick);
        }
        return ticks;
    }
    int64_t writeFile(const std::string& path) {
        auto answer =
            emulator.act(kShare, {{{"action", "writeFile"}, {"path", path}, {"text", "x"}}});
        return answer ? (*answer)["tick"].get<int64_t>() : -1;
    }
    bool delivered(int64_t tick) {
        return VHWaitUntil(
            [&] {
                auto ticks = broadcastTicks();
                return std::find(ticks.begin(), ticks.end(), tick) != ticks.end();
            },
            30s);
    }
    std::vector<VHJson> requests(const std::string& path) const {
        std::vector<VHJson> found;
        for (const auto& request : emulator.requests()) {
            if (request["path"] == path) found.push_back(request);
        }
        return found;
    }

    VHEmulatorProcess emulator;
    std::string cookie;
    std::shared_ptr<CapturedLog> log = std::make_shared<CapturedLog>();
    std::unique_ptr<VHSignalRHubConnection> connection;
    std::vector<std::string> calls;
    std::vector<int> errors;
    std::vector<VHJson> envelopes;
    int receivedCount = 0;
};

TEST_F(SignalRHubConnectionTest, StartsInvokesReceivesEventsAndStops) {
    start();
    ASSERT_TRUE(happened("started"));
    EXPECT_EQ(connection->state(), VHSignalRHubConnection::State::Connected);

    VHJson online = {{"MessageType", 2}, {"RnaSender", "demo"}, {"Message", "{}"}};
    // Both run at once and may answer in either order.
    std::map<std::string, std::string> outcomes;
    auto proxy = connection->createHubProxy("vhhub");
    for (auto [method, arguments] : {std::pair{"SendMessage", VHJson::array({online})},
                                     std::pair{"NoSuchMethod", VHJson::array({1})}}) {
        proxy->invoke(method, arguments,
                      [&, method](bool ok, const VHJson&, const std::string& error) {
                          outcomes[method] = ok ? "ok" : error;
                      });
    }
    ASSERT_TRUE(VHWaitUntil([&] { return outcomes.size() == 2; }, 30s));
    EXPECT_EQ(outcomes["SendMessage"], "ok");
    EXPECT_NE(outcomes["NoSuchMethod"].find("NoSuchMethod"), std::string::npos)
        << outcomes["NoSuchMethod"];
    ASSERT_TRUE(VHWaitUntil([&] { return !envelopes.empty(); }, 30s))
        << "no echo of the online message";
    EXPECT_EQ(envelopes[0].value("MessageType", -1), 2);

    int64_t tick = writeFile("/hub/one.txt");
    ASSERT_GT(tick, 0);
    EXPECT_TRUE(delivered(tick));
    EXPECT_GE(receivedCount, static_cast<int>(envelopes.size()));

    // Polls answered after being held with keep-alive spaces read fine.
    ASSERT_TRUE(VHWaitUntil([&] { return requests("/signalr/poll").size() >= 3; }, 60s));
    EXPECT_TRUE(errors.empty());
    for (const auto& poll : requests("/signalr/poll")) {
        EXPECT_EQ(poll["method"], "POST");
        EXPECT_NE(poll["query"].get<std::string>().find("messageId="), std::string::npos);
    }

    // Neither the connection token nor the cookie reaches the log.
    std::string query = requests("/signalr/poll").front()["query"];
    auto start = query.find("connectionToken=") + 16;
    std::string token = query.substr(start, query.find('&', start) - start);
    ASSERT_GT(token.size(), 8u);
    EXPECT_FALSE(log->contains(token));
    EXPECT_FALSE(log->contains(VHRemovePercentEscapes(token)));
    EXPECT_FALSE(log->contains(cookie));

    connection->stop(10);
    ASSERT_TRUE(happened("closed"));
    EXPECT_EQ(connection->state(), VHSignalRHubConnection::State::Disconnected);
    EXPECT_FALSE(requests("/signalr/abort").empty());
    EXPECT_TRUE(VHWaitUntil([&] {
        auto list = emulator.admin("GET", "hub/connections");
        return list && list->empty();
    }));
}

TEST_F(SignalRHubConnectionTest, DroppedPollReconnectsWithoutLosingEvents) {
    start();
    ASSERT_TRUE(happened("started"));
    // The held poll is under way; every poll after it is dropped (libcurl
    // silently retries a request whose reused connection died, so one drop
    // alone may go unseen) until the client reconnects.
    auto fault = emulator.addFault({{"path", "/signalr/poll"}, {"drop", true}});
    ASSERT_TRUE(fault);
    int64_t first = writeFile("/hub-first.txt");
    ASSERT_TRUE(happened("reconnecting"));
    ASSERT_TRUE(emulator.removeFault(*fault));
    int64_t second = writeFile("/hub-second.txt");
    ASSERT_TRUE(happened("reconnected"));
    EXPECT_TRUE(delivered(second));

    EXPECT_EQ(broadcastTicks(), (std::vector<int64_t>{first, second}));
    EXPECT_EQ(calls, (std::vector<std::string>{"started", "error", "reconnecting", "reconnected"}));
    EXPECT_EQ(errors, std::vector<int>{kSignalRErrorCannotConnect});
    EXPECT_FALSE(requests("/signalr/reconnect").empty());
    EXPECT_EQ(connection->state(), VHSignalRHubConnection::State::Connected);
}

TEST_F(SignalRHubConnectionTest, ServerGoneEndsInClosedAfterDisconnectTimeout) {
    start();
    ASSERT_TRUE(happened("started"));
    emulator.stop();
    ASSERT_TRUE(happened("reconnecting"));
    ASSERT_TRUE(happened("closed", 60s));
    EXPECT_EQ(count("reconnected"), 0);
    EXPECT_EQ(count("closed"), 1);
    EXPECT_EQ(connection->state(), VHSignalRHubConnection::State::Disconnected);
    for (int code : errors) EXPECT_NE(code, kSignalRErrorBadServerResponse);
}

TEST_F(SignalRHubConnectionTest, RefusedCookieFailsAndRestartStops) {
    VHHttp::setCookie(kGateway, ".ASPXAUTH", "not-a-session");
    start();
    ASSERT_TRUE(happened("closed"));
    EXPECT_EQ(calls, (std::vector<std::string>{"error", "closed"}));
    EXPECT_EQ(errors, std::vector<int>{kSignalRErrorBadServerResponse});

    bool invoked = true;
    connection->createHubProxy("VhHub")->invoke(
        "SendMessage", VHJson::array(),
        [&](bool ok, const VHJson&, const std::string&) { invoked = ok; });
    EXPECT_TRUE(VHWaitUntil([&] { return !invoked; }));

    VHHttp::setCookie(kGateway, ".ASPXAUTH", cookie);
    start();
    ASSERT_TRUE(happened("started"));
    connection->stop(-1);
    EXPECT_EQ(count("closed"), 2) << "stop(-1) waits for nothing";
    EXPECT_TRUE(VHWaitUntil([&] { return !requests("/signalr/abort").empty(); }, 30s));
}

TEST_F(SignalRHubConnectionTest, FiftyConnectionsGetEveryBroadcastOnceInTickOrder) {
    constexpr int kConnections = 50;
    constexpr int kChanges = 1000;
    struct Client {
        std::unique_ptr<VHSignalRHubConnection> connection;
        bool started = false;
        std::vector<int64_t> ticks;
        std::vector<std::string> trouble;  // errors, reconnects, closes
    };
    std::vector<Client> clients(kConnections);
    for (Client& client : clients) {
        client.connection =
            std::make_unique<VHSignalRHubConnection>(std::string("https://") + kGateway);
        client.connection->createHubProxy("VhHub")->on("ReciveEnvelope",
                                                       [&client](const VHJson& envelope) {
                                                           if (auto tick = broadcastTick(envelope))
                                                               client.ticks.push_back(*tick);
                                                       });
        client.connection->started = [&client] { client.started = true; };
        client.connection->reconnecting = [&client] { client.trouble.push_back("reconnecting"); };
        client.connection->closed = [&client] { client.trouble.push_back("closed"); };
        client.connection->error = [&client](int code, const std::string& message) {
            client.trouble.push_back("error " + std::to_string(code) + " " + message);
        };
        client.connection->start(std::make_shared<VHSignalRLongPolling>());
    }
    auto allOf = [&](const std::function<bool(const Client&)>& condition) {
        return std::all_of(clients.begin(), clients.end(), condition);
    };
    ASSERT_TRUE(VHWaitUntil([&] { return allOf([](const Client& c) { return c.started; }); }, 60s));
    auto tree = emulator.tree(kShare);
    ASSERT_TRUE(tree);
    int64_t first = (*tree)["tick"].get<int64_t>() + 1;

    // One change per request, from another thread while the connections poll.
    auto began = std::chrono::steady_clock::now();
    std::atomic<int> refused = 0;
    std::thread writer([&] {
        for (int i = 0; i < kChanges; ++i) {
            VHJson action = {{"action", "writeFile"},
                             {"path", "/fan-out-" + std::to_string(i) + ".txt"},
                             {"text", std::to_string(i)}};
            if (!emulator.act(kShare, VHJson::array({action}))) ++refused;
        }
    });
    bool arrived = VHWaitUntil(
        [&] { return allOf([](const Client& c) { return c.ticks.size() >= size_t(kChanges); }); },
        180s);
    writer.join();
    double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    // A broadcast delivered twice would come now.
    VHWaitUntil([] { return false; }, 1s);
    std::printf("%d connections, %d changes: all delivered in %.1f s\n", kConnections, kChanges,
                took);
    ASSERT_EQ(refused, 0);

    std::vector<int64_t> expected(kChanges);
    std::iota(expected.begin(), expected.end(), first);
    ASSERT_EQ((*emulator.tree(kShare))["tick"].get<int64_t>(), expected.back());
    EXPECT_TRUE(arrived);
    for (size_t i = 0; i < clients.size(); ++i) {
        const std::vector<int64_t>& ticks = clients[i].ticks;
        auto differs = std::mismatch(ticks.begin(), ticks.end(), expected.begin(), expected.end());
        EXPECT_TRUE(ticks == expected)
            << "connection " << i << ": " << ticks.size() << " broadcasts, the first unexpected at "
            << (differs.first - ticks.begin()) << " (tick "
            << (differs.first == ticks.end() ? -1 : *differs.first) << ")";
        EXPECT_TRUE(clients[i].trouble.empty())
            << "connection " << i << ": " << testing::PrintToString(clients[i].trouble);
    }
    for (Client& client : clients) client.connection->stop(-1);
}

}  // namespace
}  // namespace vh::test
