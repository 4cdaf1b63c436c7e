// Sign-in: the global login and the gateway login of every domain.
#include <QThreadPool>

#include "lib/VHCrypto.h"
#include "lib/VHFormat.h"
#include "lib/VHHttp.h"
#include "lib/VHLog.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "service/VHDeviceInfo.h"
#include "service/VHHostName.h"
#include "service/VHSRConnections.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

constexpr double kGlobalTimeout = 15.0;
constexpr double kDefaultTimeout = 60.0;

std::string urlOf(const UserDomain& domain) {
    return domain.Domain ? domain.Domain->Url.value_or("") : "";
}

bool answered(const VHHttpResponse& response) {
    return response.status == 200 && !response.body.empty();
}

}  // namespace

void VHConnector::loginToGlobalFirstTime() {
    VHLog(kLogMain, "loginToGlobalFirstTime called.");
    if (!globalReachable()) {
        VHLog(kLogMain, "Global is not reachable - no internet connection available.");
        globalConnectionFailed_ = true;
        return;
    }
    loginToGlobal();
}

void VHConnector::loginToGlobal() {
    VHLog(kLogMain, "loginToGlobal called.");
    if (!credentialsAvailable()) {
        VHLog(kLogMain, "No credentials available - exiting.");
        return;
    }
    emit globalLoginStarted();
    if (!globalReachable()) {
        VHLog(kLogMain, "loginToGlobal : global server is not reachable, exiting");
        globalConnectionFailed_ = true;
        emit globalConnectionFailed(QString());
        return;
    }
    GlobalLoginInput input{username(), password(), userDomain(), configuration_};
    QThreadPool::globalInstance()->start([this, input] { runGlobalLogin(input); });
}

std::string VHConnector::globalLoginURL(const GlobalLoginInput& input, bool& domainWasKnown) {
    const std::string& host = input.configuration.globalAddress;
    domainWasKnown = false;
    if (input.configuration.dataIsland) {
        return VHFormat("https://clientgateway.%@/login2.aspx", host);
    }
    std::string domain = input.userDomain;
    if (!domain.empty()) {
        domainWasKnown = true;
    } else {
        VHLog(kLogMain, "Asking for user's domain at %@...", host);
        VHHttpRequest request;
        request.url = VHFormat("https://%@/GetUserDomain.aspx?useremail=%@", host,
                               VHEscapeURLValue(input.username));
        request.timeout = kGlobalTimeout;
        VHHttpResponse response = VHHttp::send(request);
        if (answered(response)) {
            std::vector<std::string> parts = VHSplit(response.body, ',');
            if (parts.size() == 2 && VHIsHostName(parts[1])) {
                domain = parts[1];
                setUserDomain(domain);
                VHLog(kLogMain, "Retrieved user domain: %@", domain);
            } else {
                VHLog(kLogMain, "Invalid user domain reply: %@", response.body);
            }
        } else {
            VHLog(kLogMain, "Failed to retrieve user domain: error %@, HTTP status code: %d",
                  response.error.message, response.status);
        }
    }
    if (!domain.empty()) return VHFormat("https://clientgateway.%@/login2.aspx", domain);
    VHLog(kLogMain, "Warning! userDomain is still empty. Trying login to global.");
    return VHFormat("https://%@/GlobalLogin.aspx", host);
}

void VHConnector::runGlobalLogin(const GlobalLoginInput& input) {
    bool domainWasKnown = false;
    VHHttpRequest request;
    request.url = globalLoginURL(input, domainWasKnown);
    request.timeout = kGlobalTimeout;
    request.headers = {{"useremail", input.username},
                       {"password2", VHBase64Encode(input.password)},
                       {"devicetype", "Linux"},
                       {"deviceid", deviceId()},
                       {"devicename", VHDeviceName()},
                       {"deviceos", VHFormat("Linux %@", VHOperatingSystemName())},
                       {"applicationversion", appVersion()}};
    VHHttpResponse response = VHHttp::send(request);
    if (!answered(response)) {
        VHLog(kLogMain, "Global connection failed: error %@, HTTP status code: %d",
              response.error.message, response.status);
        reportGlobalConnectionFailure(response.error.message);
        return;
    }
    globalConnectionFailed_ = false;
    std::string error;
    std::optional<GlobalLoginResponce> parsed =
        VHParseRecord<GlobalLoginResponce>(response.body, &error);
    if (!parsed) {
        VHLog(kLogMain, "Warning! Cannot parse global login responce. Error %@", error);
        onMain([this, error] { emit globalConnectionFailed(QString::fromStdString(error)); });
        return;
    }
    VHLog(kLogMain, "Login to global reply code: %@", parsed->ErrorCode.value_or(""));
    if (deviceId().empty()) {
        setDeviceId(parsed->DeviceId.value_or(""));
        VHLog(kLogMain, "LoginToGlobal: Set deviceId to %@", parsed->DeviceId.value_or(""));
    }
    onMain([this, answer = *parsed, text = response.body, domainWasKnown] {
        decideGlobalLogin(answer, text, domainWasKnown);
    });
}

void VHConnector::reportGlobalConnectionFailure(const std::string& error) {
    globalConnectionFailed_ = true;
    onMain([this, error] { emit globalConnectionFailed(QString::fromStdString(error)); });
}

void VHConnector::decideGlobalLogin(const GlobalLoginResponce& response, const std::string& text,
                                    bool domainWasKnown) {
    std::string code = response.ErrorCode.value_or("");
    if (response.Wipe) {
        VHLog(kLogMain, "loginToGlobal: WIPE command received. Wiping.");
        logout();
        clearCredentials(true);
        setGlobalLoginResponce(response);
        emit globalLoginFailed(VHConnector::kRefusedWipe);
    } else if (code == "U100") {
        deviceIdCleared_ = false;
        setGlobalLoginResponce(response);
        VHDatabase::database().setGlobalLoginResponce(text);
        loggedInGlobal_ = true;
        emit globalLoggedIn();
    } else if (code == "U107") {
        refuseUnknownDevice();
    } else if (code == "U101") {
        if (domainWasKnown) setUserDomain("");
        emit globalLoginFailed(VHConnector::kRefusedCredentials);
    } else {
        emit globalConnectionFailed(QString());
    }
}

void VHConnector::refuseUnknownDevice() {
    if (deviceIdCleared_) {
        VHLog(kLogMain,
              "loginToGlobal: device id is not recognized on server, but it was cleared already "
              "(?\?)");
        emit globalLoginFailed(VHConnector::kRefusedDevice);
        return;
    }
    VHLog(kLogMain,
          "loginToGlobal: device id is not recognized on server. Cleared it, trying to login "
          "again.");
    setDeviceId("");
    emit globalConnectionFailed(QString());
    deviceIdCleared_ = true;
}

// ---- Gateway logins -------------------------------------------------------------------

void VHConnector::domainLogin() {
    if (awaitingDomains_ > 0) return;
    failedUserDomains_.clear();
    std::optional<GlobalLoginResponce> response = globalLoginResponce();
    std::vector<UserDomain> others = response
                                         ? response->UserDomains.value_or(std::vector<UserDomain>{})
                                         : std::vector<UserDomain>{};
    awaitingDomains_ = static_cast<int32_t>(others.size()) + 1;
    gatewayLogin(response ? response->PrimaryUserDomain.value_or(UserDomain{}) : UserDomain{},
                 true);
    for (const UserDomain& domain : others) gatewayLogin(domain, true);
}

void VHConnector::singleDomainLogin(const UserDomain& domain) {
    gatewayLogin(domain, false);
}

void VHConnector::gatewayLogin(const UserDomain& domain, bool inBatch) {
    VHLog(kLogMain, "Logging in to domain : %@", urlOf(domain));
    if (!domainReachable(domain.Domain)) {
        VHLog(kLogMain, "No connectivity to domain %@, will try later.", urlOf(domain));
        if (inBatch) onMain([this, domain] { countDomainAnswered(domain, true); });
        return;
    }
    if (!VHIsHostName(urlOf(domain))) {
        VHLog(kLogMain, "Warning! No gateway login for domain \"%@\": the address is unsafe.",
              urlOf(domain));
        if (inBatch) onMain([this, domain] { countDomainAnswered(domain, true); });
        return;
    }
    VHHttpRequest request;
    request.url = VHFormat("https://clientgateway.%@/ClientLogin.aspx?userEmail=%@&token=%@&API=1",
                           urlOf(domain), VHEscapeURLValue(username()),
                           VHEscapeURLValue(domain.UserDomainToken.value_or("")));
    request.timeout = kDefaultTimeout;
    bool realtime = !configuration_.disableSignalR;
    VHHttp::sendAsync(request, loginOperationQueue_.get(),
                      [this, domain, inBatch, realtime](const VHHttpResponse& response) {
                          completeGatewayLogin(domain, inBatch, realtime, response);
                      });
}

void VHConnector::completeGatewayLogin(const UserDomain& domain, bool inBatch, bool realtime,
                                       const VHHttpResponse& response) {
    if (!answered(response)) {
        VHLog(kLogMain,
              "Failed connection to gateway for domain: %@. Error %@. HTTP status code: %d",
              urlOf(domain), response.error.message, response.status);
        if (inBatch) onMain([this, domain] { countDomainAnswered(domain, true); });
        return;
    }
    std::string error;
    std::optional<ClientLoginResponse> parsed =
        VHParseRecord<ClientLoginResponse>(response.body, &error);
    if (!parsed) {
        VHLog(kLogMain, "Failed to parse gateway login responce for domain: %@. Error %@.",
              urlOf(domain), error);
    } else {
        VHLog(kLogMain, "Received gateway login data for domain: %@.", urlOf(domain));
        if (!parsed->Cookie)
            VHLog(kLogMain, "Warning! Empty Cookie for domain: %@.", urlOf(domain));
        if (realtime) connectRealtime(domain, *parsed);
        onMain([this, domain, answer = *parsed] { applyGatewayLogin(domain, answer); });
    }
    if (inBatch) onMain([this, domain] { countDomainAnswered(domain, false); });
}

void VHConnector::connectRealtime(const UserDomain& domain, const ClientLoginResponse& response) {
    realtime_->connect(domain, response);
}

void VHConnector::applyGatewayLogin(const UserDomain& domain, const ClientLoginResponse& response) {
    VHDatabase& database = VHDatabase::database();
    database.updateShares(response, domain);
    if (needsFullRefresh_) return;
    VHLog(kLogMain, "Catch up for shares in domain %@", urlOf(domain));
    for (const ManagedShare& share : response.ManagedShares.value_or(std::vector<ManagedShare>{})) {
        if (std::optional<ManagedShare> stored = database.shareWithId(share.shareId())) {
            catchUp(*stored);
        }
    }
}

void VHConnector::countDomainAnswered(const UserDomain& domain, bool failed) {
    if (failed) failedUserDomains_.push_back(domain);
    if (--awaitingDomains_ == 0) finishedDomainLogin();
}

void VHConnector::finishedDomainLogin() {
    emit domainsLoggedIn();
    if (std::optional<GlobalLoginResponce> response = globalLoginResponce()) {
        VHDatabase::database().deleteDomainShares(*response);
    }
    if (needsFullRefresh_) refreshAfterFailure();
}

std::vector<UserDomain> VHConnector::failedUserDomains() const {
    return failedUserDomains_;
}

}  // namespace vh
