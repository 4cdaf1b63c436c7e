#include <gtest/gtest.h>

#include <QThread>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "desktop/VHLogging.h"
#include "lib/VHHttp.h"
#include "lib/VHLog.h"
#include "support/VHTestHome.h"
#include "support/VHTestHttpsServer.h"
#include "support/VHTestWait.h"

namespace vh {

namespace {

using namespace std::chrono_literals;

class VHHttpTest : public testing::Test {
  protected:
    void SetUp() override {
        server_.server().Get("/hello", [](const httplib::Request& req, httplib::Response& res) {
            res.set_header("X-Host", req.get_header_value("Host"));
            res.set_content("hi", "text/plain");
        });
        server_.server().Get("/slow", [](const httplib::Request&, httplib::Response& res) {
            std::this_thread::sleep_for(3s);
            res.set_content("late", "text/plain");
        });
        server_.server().Get("/set", [](const httplib::Request&, httplib::Response& res) {
            res.set_header("Set-Cookie", "session=abc; Path=/");
        });
        server_.server().Get("/check", [](const httplib::Request& req, httplib::Response& res) {
            res.set_content(req.get_header_value("Cookie"), "text/plain");
        });
        auto echo = [](const httplib::Request& req, httplib::Response& res) {
            res.set_content(req.method + "|" + req.get_header_value("Content-Range") + "|" +
                                (req.has_header("Content-Type") ? "typed" : "untyped") + "|" +
                                req.body,
                            "text/plain");
        };
        server_.server().Put("/echo", echo);
        server_.server().Post("/echo", echo);
        server_.server().Delete("/echo", echo);
        server_.server().Get("/big", [](const httplib::Request&, httplib::Response& res) {
            res.set_content(std::string(1 << 20, 'x'), "application/octet-stream");
        });
        server_.start();
        VHHttp::setConnectTo(server_.connectTo());
        VHHttp::setExtraCAFile(server_.caFile());
        VHHttp::clearCookies();
    }

    void TearDown() override {
        VHHttp::setConnectTo("");
        VHHttp::setExtraCAFile("");
    }

    static VHHttpRequest get(const std::string& path, double timeout = 10) {
        VHHttpRequest request;
        request.url = "https://api.varnholt.test" + path;
        request.timeout = timeout;
        return request;
    }

    test::VHTestHttpsServer server_{{"*.varnholt.test", "varnholt.test"}};
};

}  // namespace

TEST_F(VHHttpTest, ConnectToReachesTheLocalServerKeepingTheHostAndItsCertificate) {
    VHHttpResponse response = VHHttp::send(get("/hello"));
    ASSERT_FALSE(response.error) << response.error.message;
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "hi");
    EXPECT_EQ(response.header("x-host"), "api.varnholt.test");

    // Certificate checks stay on: a server whose CA is not trusted is refused.
    test::VHTestHttpsServer stranger({"*.varnholt.test"});
    stranger.server().Get("/hello", [](const httplib::Request&, httplib::Response& res) {
        res.set_content("hi", "text/plain");
    });
    stranger.start();
    VHHttp::setConnectTo(stranger.connectTo());
    response = VHHttp::send(get("/hello"));
    EXPECT_EQ(response.error.kind, VHHttpErrorKind::Failed);
    EXPECT_EQ(response.status, 0);
}

TEST_F(VHHttpTest, ATimeOutIsReportedAsATimeOutAndOtherFailuresAreNot) {
    auto start = std::chrono::steady_clock::now();
    VHHttpResponse response = VHHttp::send(get("/slow", 1));
    EXPECT_TRUE(response.error.timedOut()) << response.error.message;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2800ms);

    // A caller that gives up ends its request within about a second.
    std::atomic<bool> wanted{true};
    VHHttpRequest given = get("/slow", 30);
    given.keepGoing = [&] { return wanted.load(); };
    std::thread giveUp([&] {
        std::this_thread::sleep_for(300ms);
        wanted = false;
    });
    start = std::chrono::steady_clock::now();
    response = VHHttp::send(given);
    giveUp.join();
    EXPECT_EQ(response.error.kind, VHHttpErrorKind::Cancelled);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms);

    VHHttp::setConnectTo("127.0.0.1:1");  // nothing listens there
    response = VHHttp::send(get("/hello", 5));
    EXPECT_EQ(response.error.kind, VHHttpErrorKind::Failed);
    EXPECT_FALSE(response.error.timedOut());
}

TEST_F(VHHttpTest, OneCookieStoreServesEveryRequestOnEveryThread) {
    ASSERT_EQ(VHHttp::send(get("/set")).status, 200);
    VHHttp::setCookie("varnholt.test", "manual", "1");
    std::string seen;
    QObject context;
    VHHttp::sendAsync(get("/check"), &context, [&](VHHttpResponse r) { seen = r.body + "."; });
    ASSERT_TRUE(test::VHWaitUntil([&] { return !seen.empty(); }));
    EXPECT_NE(seen.find("session=abc"), std::string::npos) << seen;
    EXPECT_NE(seen.find("manual=1"), std::string::npos) << seen;
    EXPECT_EQ(VHHttp::cookies().size(), 2u);
    VHHttp::clearCookies();
    EXPECT_EQ(VHHttp::send(get("/check")).body, "");
}

TEST_F(VHHttpTest, MethodsBodiesAndHeadersGoOutAsGiven) {
    VHHttpRequest put = get("/echo");
    put.method = "PUT";
    put.headers = {{"Content-Range", "bytes 0-3/10"}};
    put.body = std::string("ab\0c", 4);
    EXPECT_EQ(VHHttp::send(put).body, std::string("PUT|bytes 0-3/10|untyped|ab\0c", 29));

    VHHttpRequest post = get("/echo");
    post.method = "POST";
    post.headers = {{"Content-Type", "application/json"}};
    post.body = "{}";
    EXPECT_EQ(VHHttp::send(post).body, "POST||typed|{}");
    post.body.clear();
    post.headers.clear();
    EXPECT_EQ(VHHttp::send(post).body, "POST||untyped|");

    VHHttpRequest del = get("/echo");
    del.method = "DELETE";
    del.body = "{\"x\":1}";
    EXPECT_EQ(VHHttp::send(del).body, "DELETE||untyped|{\"x\":1}");
}

TEST_F(VHHttpTest, AsynchronousCompletionsRunOnTheChosenThread) {
    QThread worker;
    worker.start();
    QObject context;
    context.moveToThread(&worker);
    std::atomic<QThread*> ranOn{nullptr};
    VHHttp::sendAsync(get("/hello"), &context, [&](VHHttpResponse r) {
        EXPECT_EQ(r.body, "hi");
        ranOn = QThread::currentThread();
    });
    ASSERT_TRUE(test::VHWaitUntil([&] { return ranOn.load() != nullptr; }));
    EXPECT_EQ(ranOn.load(), &worker);
    context.moveToThread(QThread::currentThread());
    worker.quit();
    worker.wait();
}

TEST_F(VHHttpTest, StreamingTransfersDeliverTheBodyInBlocksAndCanBeAborted) {
    VHHttpMulti multi;
    std::vector<std::string> events;
    size_t received = 0;
    bool finished = false;
    VHHttpMulti::Handlers handlers;
    handlers.onResponse = [&](long status, const VHHttpHeaders&) {
        events.push_back("response " + std::to_string(status) + " after " +
                         std::to_string(received));
    };
    handlers.onData = [&](std::string_view bytes) {
        received += bytes.size();
        return true;
    };
    handlers.onFinished = [&](VHHttpResponse r) {
        finished = true;
        EXPECT_FALSE(r.error);
        EXPECT_TRUE(r.body.empty());  // streamed, not collected
    };
    multi.start(get("/big"), handlers);

    bool abortedFinished = false;
    size_t abortedBytes = 0;
    VHHttpMulti::Handlers aborting;
    aborting.onData = [&](std::string_view bytes) {
        abortedBytes += bytes.size();
        return false;
    };
    aborting.onFinished = [&](VHHttpResponse) { abortedFinished = true; };
    multi.start(get("/big"), aborting);

    bool cancelledFinished = false;
    VHHttpMulti::Handlers cancelled;
    cancelled.onFinished = [&](VHHttpResponse) { cancelledFinished = true; };
    multi.cancel(multi.start(get("/slow"), cancelled));

    ASSERT_TRUE(test::VHWaitUntil([&] { return finished && multi.runningCount() == 0; }));
    EXPECT_EQ(received, 1u << 20);
    EXPECT_EQ(events, std::vector<std::string>{"response 200 after 0"});
    EXPECT_GT(abortedBytes, 0u);
    EXPECT_LT(abortedBytes, 1u << 20);
    EXPECT_FALSE(abortedFinished);
    EXPECT_FALSE(cancelledFinished);
}

TEST_F(VHHttpTest, SecretsNeverReachTheLogFiles) {
    server_.server().Post("/login", [](const httplib::Request&, httplib::Response& res) {
        res.set_header("Set-Cookie", "auth=VHSECRET-cookie; Path=/");
        res.set_content(
            R"({"UserDomains":[{"UserDomainToken":"VHSECRET-domain"}],"Cookie":"VHSECRET-c",
            "ShareAcl":{"AclToken":"VHSECRET-acl"},"ErrorCode":"U100"})",
            "application/json");
    });
    std::string logs = test::VHCurrentTestHome() + "/Logs";
    std::filesystem::create_directories(logs);
    VHSetLogDir(logs);
    VHInitLogs();
    VHHttpRequest login = get("/login?userEmail=a@b.c&token=VHSECRET-query&API=1");
    login.method = "POST";
    login.headers = {{"password2", "VHSECRET-pw"},
                     {"Authorization", "DomainToken VHSECRET-auth"},
                     {"token", "VHSECRET-header"},
                     {"useremail", "a@b.c"},
                     // JSON in header fields, as the client API sends it
                     {"command", R"({"Token":"VHSECRET-cmd","Method":"CreateDirectLink"})"},
                     {"request", R"({"MaxUse":1,"JsonData":"{\"B\":\"VHSECRET-json\"}"})"}};
    login.body = R"({"ShareId":"s","EnablePassword":true,"Password":"VHSECRET-link"})";
    EXPECT_EQ(VHHttp::send(login).status, 200);
    VHClose();
    VHSetLogSink({});

    // Not `stream << rdbuf()`: an empty log file would fail the stream.
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator(logs)) {
        std::ifstream file(entry.path());
        text.append(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    EXPECT_NE(
        text.find(
            "Request: POST https://api.varnholt.test/login?userEmail=a@b.c&token=<redacted>&API=1"),
        std::string::npos)
        << text;
    EXPECT_NE(text.find("useremail: a@b.c"), std::string::npos);
    EXPECT_NE(text.find("\"Method\":\"CreateDirectLink\""), std::string::npos);
    EXPECT_NE(text.find("U100"), std::string::npos);
    EXPECT_EQ(text.find("VHSECRET"), std::string::npos) << text;
}

}  // namespace vh
