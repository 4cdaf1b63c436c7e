#include "VHConnectorTestSupport.h"

#include <QThreadPool>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "desktop/VHLogging.h"
#include "lib/VHHttp.h"
#include "lib/VHPaths.h"
#include "store/VHDatabase.h"
#include "support/VHTestWait.h"

using nlohmann::json;

namespace vh::test {

json VHConnectorSeed() {
    return json::parse(R"({
      "globalHost": "global.varnholt.test",
      "domains": [{"url": "d1.varnholt.test"}, {"url": "d2.varnholt.test"}],
      "users": [
        {"email": "erin@varnholt.test", "password": "Erin-S3cret-Passw0rd", "name": "Erin",
         "primaryDomain": "d1.varnholt.test", "domains": ["d1.varnholt.test", "d2.varnholt.test"]},
        {"email": "frank@varnholt.test", "password": "frank-pw", "name": "Frank",
         "primaryDomain": "d1.varnholt.test", "domains": ["d1.varnholt.test"]},
        {"email": "gina@varnholt.test", "password": "gina-pw", "name": "Gina",
         "primaryDomain": "d1.varnholt.test", "domains": ["d1.varnholt.test"],
         "requireKnownDevices": true}],
      "shares": [
        {"shareId": "reports", "name": "Reports", "domain": "d1.varnholt.test",
         "owner": "erin@varnholt.test",
         "actions": [{"action": "writeFile", "path": "/q1.txt", "text": "q1"}]},
        {"shareId": "team", "name": "Team", "domain": "d1.varnholt.test",
         "owner": "frank@varnholt.test", "acl": [{"email": "erin@varnholt.test", "aclType": 1}],
         "actions": [{"action": "writeFile", "path": "/docs/a.txt", "text": "a"}]},
        {"shareId": "reports-two", "name": "Reports", "domain": "d2.varnholt.test",
         "owner": "erin@varnholt.test",
         "actions": [{"action": "writeFile", "path": "/r.txt", "text": "r"}]}]})");
}

std::string VHFileText(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void ConnectorTest::SetUp() {
    ASSERT_TRUE(emulator.start({VHConnectorSeed(), ""}));
    // Keep-alive connections hold up the emulator's exit; idle pool threads
    // and the network thread (TearDown) take theirs along.
    QThreadPool::globalInstance()->setExpiryTimeout(100);
    VHHttp::setConnectTo(emulator.connectTo());
    VHHttp::setExtraCAFile(emulator.caFile());
    std::string logs = VHPaths::join(VHPaths::dataRoot(), "Logs");
    std::filesystem::create_directories(logs);
    VHSetLogDir(logs);
    VHInitLogs();
    VHSetLogMirror([this](const std::string& line, int) {
        std::lock_guard lock(logMutex_);
        logLines_.push_back(line);
    });
    VHDatabase::database().load();
    connector().setConfiguration({kGlobalHost, false, true});
    receiver_ = std::make_unique<QObject>();
    VHConnector* c = &connector();
    QObject* r = receiver_.get();
    QObject::connect(c, &VHConnector::globalLoggedIn, r, [this] { ++loggedIn; });
    QObject::connect(c, &VHConnector::globalLoginFailed, r, [this] { ++loginFailed; });
    QObject::connect(c, &VHConnector::globalConnectionFailed, r, [this](const QString& error) {
        lastError = error;
        ++connectionFailed;
    });
    QObject::connect(c, &VHConnector::domainsLoggedIn, r, [this] { ++domainsLoggedIn; });
    QObject::connect(c, &VHConnector::globalLoggedOut, r, [this] { ++loggedOut; });
}

void ConnectorTest::TearDown() {
    VHHttp::shutdown();
    receiver_.reset();
    VHSetLogMirror({});
    VHClose();
}

ConnectorTest::Outcome ConnectorTest::signIn(const std::string& email,
                                             const std::string& password) {
    connector().setUsername(email);
    connector().setPassword(password);
    return loginAgain();
}

ConnectorTest::Outcome ConnectorTest::loginAgain() {
    int seen[3] = {loggedIn, loginFailed, connectionFailed};
    connector().loginToGlobal();
    int before = seen[0] + seen[1] + seen[2];
    if (!VHWaitUntil([&] { return loggedIn + loginFailed + connectionFailed > before; },
                     std::chrono::seconds(30))) {
        return Outcome::None;
    }
    if (loggedIn > seen[0]) return Outcome::LoggedIn;
    return loginFailed > seen[1] ? Outcome::LoginFailed : Outcome::ConnectionFailed;
}

bool ConnectorTest::loginBatch() {
    int before = domainsLoggedIn;
    connector().domainLogin();
    return VHWaitUntil([&] { return domainsLoggedIn > before; }, std::chrono::seconds(30));
}

std::optional<ManagedShare> ConnectorTest::storedShare(const std::string& shareId) {
    return VHDatabase::database().shareWithId(shareId);
}

bool ConnectorTest::caughtUp(const std::string& shareId, std::chrono::seconds timeout) {
    std::optional<json> tree = emulator.tree(shareId);
    return tree && VHWaitUntil(
                       [&] {
                           std::optional<ManagedShare> share = storedShare(shareId);
                           return share && share->LastApplyedJournalTick == (*tree)["tick"];
                       },
                       timeout);
}

std::vector<json> ConnectorTest::requestsTo(const std::string& host, const std::string& path) {
    std::vector<json> found;
    for (const json& request : emulator.requests()) {
        if (request["host"] == host && request["path"] == path) found.push_back(request);
    }
    return found;
}

int ConnectorTest::logCount(const std::string& text) {
    std::lock_guard lock(logMutex_);
    return static_cast<int>(std::count_if(logLines_.begin(), logLines_.end(), [&](auto& line) {
        return line.find(text) != std::string::npos;
    }));
}

}  // namespace vh::test
