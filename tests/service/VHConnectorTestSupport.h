// The connector's tests run the process-wide connector against the real
// emulator, with the real metadata store and daily log files in the test's
// own HOME, and count the connector's signals.
#pragma once

#include <gtest/gtest.h>

#include <QObject>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "emulator/support/VHEmulatorProcess.h"
#include "service/VHConnector.h"

namespace vh::test {

inline constexpr const char* kGlobalHost = "global.varnholt.test";
inline constexpr const char* kGateway1 = "clientgateway.d1.varnholt.test";
inline constexpr const char* kGateway2 = "clientgateway.d2.varnholt.test";
inline constexpr const char* kErin = "erin@varnholt.test";
inline constexpr const char* kErinPassword = "Erin-S3cret-Passw0rd";
inline constexpr const char* kGina = "gina@varnholt.test";

// Erin (d1 primary, d2) owns "reports" (d1) and "reports-two" (d2), both
// named "Reports", and may write in Frank's "team" (d1). Gina (d1) signs in
// from registered devices only.
nlohmann::json VHConnectorSeed();

class ConnectorTest : public testing::Test {
  protected:
    enum class Outcome { LoggedIn, LoginFailed, ConnectionFailed, None };

    void SetUp() override;
    void TearDown() override;

    VHConnector& connector() { return VHConnector::defaultConnector(); }
    Outcome signIn(const std::string& email, const std::string& password);
    // loginToGlobal with the current credentials; waits for its outcome.
    Outcome loginAgain();
    bool loginBatch();
    // Waits until the stored share has applied the emulator's current tick.
    bool caughtUp(const std::string& shareId, std::chrono::seconds timeout);
    std::optional<ManagedShare> storedShare(const std::string& shareId);
    std::vector<nlohmann::json> requestsTo(const std::string& host, const std::string& path);
    int logCount(const std::string& text);

    VHEmulatorProcess emulator;
    int loggedIn = 0, loginFailed = 0, connectionFailed = 0, domainsLoggedIn = 0, loggedOut = 0;
    QString lastError;

  private:
    std::unique_ptr<QObject> receiver_;
    std::mutex logMutex_;
    std::vector<std::string> logLines_;
};

std::string VHFileText(const std::string& path);

}  // namespace vh::test
