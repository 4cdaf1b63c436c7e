#include "service/VHConnector.h"

#include <QThreadPool>

#include "lib/VHAppInfo.h"
#include "lib/VHFormat.h"
#include "lib/VHHandOff.h"
#include "lib/VHLog.h"
#include "lib/VHSettings.h"
#include "service/VHCredentialStore.h"
#include "service/VHDeviceInfo.h"
#include "service/VHSRConnections.h"
#include "transfer/VHDownloadQueue.h"
#include "transfer/VHTransferHooks.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

const char* const kNeedsFullRefresh = "needsFullRefresh";

std::string keychainService() {
    return std::string(kAppTitle) + "keys";
}

template <typename Match>
std::optional<UserDomain> findUserDomain(const std::optional<GlobalLoginResponce>& response,
                                         Match matches) {
    if (!response) return std::nullopt;
    const std::optional<UserDomain>& primary = response->PrimaryUserDomain;
    if (primary && primary->Domain && matches(*primary->Domain)) return primary;
    for (const UserDomain& domain : response->UserDomains.value_or(std::vector<UserDomain>{})) {
        if (domain.Domain && matches(*domain.Domain)) return domain;
    }
    return std::nullopt;
}

}  // namespace

// The transfer layer's view of the connector.
class VHConnector::TransferHooks final : public VHTransferHooks {
  public:
    explicit TransferHooks(VHConnector& connector) : connector_(connector) {}
    std::optional<UserDomain> userDomainWithId(const std::string& domainId) override {
        return connector_.userDomainWithId(domainId);
    }
    std::string deviceId() override { return connector_.deviceId(); }

  private:
    VHConnector& connector_;
};

VHConnector& VHConnector::defaultConnector() {
    // Never destroyed: completions of requests may still arrive at exit.
    static VHConnector* connector = new VHConnector;
    return *connector;
}

VHConnector::VHConnector()
    : transferHooks_(std::make_unique<TransferHooks>(*this)),
      loginOperationQueue_(std::make_unique<QThreadPool>()),
      catchupOperationQueue_(std::make_unique<QThreadPool>()),
      linkOperationQueue_(std::make_unique<QThreadPool>()),
      realtime_(std::make_unique<VHSRConnections>(realtimeActions())) {
    needsFullRefresh_ = VHSettings::contains(kNeedsFullRefresh);
    VHTransferHooks::set(transferHooks_.get());
}

VHConnector::~VHConnector() {
    VHTransferHooks::set(nullptr);
}

VHSRConnection::Actions VHConnector::realtimeActions() {
    VHSRConnection::Actions actions;
    actions.catchUp = [this](const ManagedShare& share) { catchUp(share); };
    actions.singleDomainLogin = [this](const UserDomain& domain) { singleDomainLogin(domain); };
    actions.userDomainWithId = [this](const std::string& id) { return userDomainWithId(id); };
    actions.userDomainWithName = [this](const std::string& url) { return userDomainWithName(url); };
    return actions;
}

VHSRConnection* VHConnector::srConnectionForDomain(const UserDomain& domain) {
    return realtime_->connectionForDomain(domain);
}

void VHConnector::disconnectSignalR() {
    realtime_->disconnectAll();
}

void VHConnector::stopRealtime() {
    realtime_->stop();
}

void VHConnector::waitForOperations() {
    VHWaitForPool(*loginOperationQueue_);
    VHWaitForPool(*catchupOperationQueue_);
    VHWaitForPool(*linkOperationQueue_);
}

void VHConnector::onMain(std::function<void()> work) {
    QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

void VHConnector::setConfiguration(const VHConnectorConfiguration& configuration) {
    configuration_ = configuration;
}

void VHConnector::startup() {
    VHDownloadQueue::downloadQueue().runThread();
    VHUploadQueue::uploadQueue().runThread();
}

// ---- Credentials ------------------------------------------------------------

VHCredentialStore& VHConnector::credentialStore() {
    if (!credentialStore_) credentialStore_ = VHCredentialStore::open(keychainService());
    return *credentialStore_;
}

void VHConnector::loadCredentials() {
    std::vector<std::string> accounts = credentialStore().accounts(keychainService());
    if (!accounts.empty()) {
        std::string password =
            credentialStore().password(keychainService(), accounts.front()).value_or("");
        VHMutexLock lock(credentialsMutex_);
        username_ = accounts.front();
        password_ = password;
        return;
    }
    std::string key = VHSettings::prependAppTitle("username");
    if (VHSettings::contains(key)) setUsername(VHSettings::string(key));
}

void VHConnector::saveCredentials() {
    std::string user = username();
    if (user.empty()) return;
    deleteOldCredentials();
    credentialStore().setPassword(keychainService(), user, password());
    VHSettings::setValue(VHSettings::prependAppTitle("username"), QString::fromStdString(user));
    VHSettings::sync();
}

void VHConnector::deleteOldCredentials() {
    for (const std::string& account : credentialStore().accounts(keychainService())) {
        // Overwritten first, so that a store that keeps deleted items keeps no secret.
        credentialStore().setPassword(keychainService(), account, "");
        credentialStore().deletePassword(keychainService(), account);
    }
}

void VHConnector::clearCredentials(bool alsoUsername) {
    loggedInGlobal_ = false;
    deleteOldCredentials();
    setPassword("");
    setUserDomain("");
    setDeviceId("");
    deviceIdCleared_ = true;
    if (!alsoUsername) return;
    VHSettings::remove(VHSettings::prependAppTitle("username"));
    VHSettings::sync();
    setUsername("");
}

bool VHConnector::credentialsAvailable() const {
    VHMutexLock lock(credentialsMutex_);
    return !username_.empty() && !password_.empty();
}

std::string VHConnector::username() const {
    VHMutexLock lock(credentialsMutex_);
    return username_;
}

void VHConnector::setUsername(const std::string& username) {
    VHMutexLock lock(credentialsMutex_);
    username_ = username;
}

std::string VHConnector::password() const {
    VHMutexLock lock(credentialsMutex_);
    return password_;
}

void VHConnector::setPassword(const std::string& password) {
    VHMutexLock lock(credentialsMutex_);
    password_ = password;
}

// ---- Identity and reachability ------------------------------------------------

std::string VHConnector::deviceId() const {
    return VHMachineDeviceId();
}

void VHConnector::setDeviceId(const std::string& deviceId) {
    VHSettings::setValue(VHSettings::prependAppTitle("deviceId"), QString::fromStdString(deviceId));
    VHSettings::sync();
}

std::string VHConnector::userDomain() const {
    return VHSettings::string(VHSettings::prependAppTitle("userDomain"));
}

void VHConnector::setUserDomain(const std::string& userDomain) {
    VHSettings::setValue(VHSettings::prependAppTitle("userDomain"),
                         QString::fromStdString(userDomain));
    VHSettings::sync();
}

std::string VHConnector::appVersion() const {
    return VHFormat("%@ (%@)", kShortVersion, kBuildNumber);
}

bool VHConnector::internetReachable() {
    return !disableInternetConnection_ && VHNetworkReachable();
}

bool VHConnector::globalReachable() const {
    return !disableInternetConnection_;
}

bool VHConnector::domainReachable(const std::optional<Domain>& domain) const {
    return domain && !disableInternetConnection_;
}

double VHConnector::lastUploadSpeed() const {
    return VHTransferSpeeds::lastUploadSpeed;
}

double VHConnector::lastDownloadSpeed() const {
    return VHTransferSpeeds::lastDownloadSpeed;
}

// ---- Domains of the last accepted global login ----------------------------------

std::optional<GlobalLoginResponce> VHConnector::globalLoginResponce() const {
    VHMutexLock lock(responseMutex_);
    return globalLoginResponce_;
}

void VHConnector::setGlobalLoginResponce(const std::optional<GlobalLoginResponce>& response) {
    VHMutexLock lock(responseMutex_);
    globalLoginResponce_ = response;
}

std::optional<UserDomain> VHConnector::userDomainWithId(const std::string& domainId) const {
    return findUserDomain(globalLoginResponce(),
                          [&](const Domain& domain) { return domain.DomainId == domainId; });
}

std::optional<Domain> VHConnector::domainWithId(const std::string& domainId) const {
    std::optional<UserDomain> found = userDomainWithId(domainId);
    return found ? found->Domain : std::nullopt;
}

std::optional<UserDomain> VHConnector::userDomainWithName(const std::string& url) const {
    return findUserDomain(globalLoginResponce(),
                          [&](const Domain& domain) { return domain.Url == url; });
}

bool VHConnector::lockAvailableForShare(const ManagedShare&) const {
    return true;
}

// ---- Logout -----------------------------------------------------------------------

void VHConnector::logout() {
    disconnectSignalR();
    setGlobalLoginResponce(std::nullopt);
    VHDownloadQueue::downloadQueue().cancelAllDownloads();
    VHUploadQueue::uploadQueue().cancelAllUploads();
    clearCredentials(false);
    setUserDomain("");
    emit globalLoggedOut();
}

}  // namespace vh
