// The client's identity towards the service: credentials, sign-in in two
// stages (the global login that lists the user's domains, then a gateway
// login per domain that lists its shares), the catch-up of each share's
// change journal, and logout.
//
// One process-wide instance (defaultConnector()), created and used on the
// main thread unless a method says otherwise. Requests run asynchronously;
// every decision that changes shared state is taken on the main thread, and
// the results are announced by the signals below (emitted on the main
// thread). Failures are logged and announced; no method throws. The
// connector registers itself as the transfer layer's VHTransferHooks.
#pragma once

#include <QObject>
#include <QTimer>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lib/VHThreadSafety.h"
#include "service/VHSRConnection.h"
#include "store/VHCatchUpResponse.h"
#include "store/VHFile.h"
#include "store/VHLoginRecords.h"

class QThreadPool;

namespace vh {

class VHCredentialStore;
class VHSRConnections;
class VHTransferHooks;
struct VHHttpResponse;

// What the application decides at launch and the connector needs to know.
struct VHConnectorConfiguration {
    std::string globalAddress;  // the global login host
    bool dataIsland = false;    // log in at the configured host's gateway instead
    bool disableSignalR = false;
};

class VHConnector : public QObject {
    Q_OBJECT
  public:
    // The page size of catch-up requests.
    static constexpr int kTickTake = 10000;
    // A page the store could not apply is fetched again after this delay,
    // doubled for each further failure up to the maximum.
    static constexpr int kPageRetryDelayMs = 2000;
    static constexpr int kPageRetryMaxDelayMs = 60000;

    // The reasons globalLoginFailed gives: the refusal codes U101 and U107
    // and the service's wipe order.
    static constexpr const char* kRefusedCredentials =
        "the service refused the e-mail address or password";
    static constexpr const char* kRefusedDevice = "the service does not accept this device";
    static constexpr const char* kRefusedWipe = "the service ordered this device to be wiped";

    static VHConnector& defaultConnector();

    void setConfiguration(const VHConnectorConfiguration& configuration);
    const VHConnectorConfiguration& configuration() const { return configuration_; }

    // Starts the download and upload workers.
    void startup();
    // Waits for the sign-in and catch-up requests under way and their
    // answers; the process must not end under them. Any thread but theirs.
    void waitForOperations();

    // ---- Credentials (keychain through the Secret Service, else a 0600 file) --
    // Main thread. The first use picks the store; a Secret Service call waits
    // in a local event loop (10 s at most), so queued events may run meanwhile.
    void loadCredentials();
    // Nothing when the user name is empty.
    void saveCredentials();
    void deleteOldCredentials();
    void clearCredentials(bool alsoUsername);
    bool credentialsAvailable() const;
    std::string username() const;  // any thread
    void setUsername(const std::string& username);
    std::string password() const;
    void setPassword(const std::string& password);

    // ---- Identity and reachability ------------------------------------------
    // Read from the machine on every call (DMI serial, else machine-id).
    std::string deviceId() const;  // any thread
    // Stored in the settings, never read back (by design).
    void setDeviceId(const std::string& deviceId);
    std::string userDomain() const;
    void setUserDomain(const std::string& userDomain);
    std::string appVersion() const;  // "short (build)"
    bool internetReachable();
    bool globalReachable() const;
    bool domainReachable(const std::optional<Domain>& domain) const;
    bool disableInternetConnection() const { return disableInternetConnection_; }
    void setDisableInternetConnection(bool disable) { disableInternetConnection_ = disable; }
    bool loggedIn() const { return loggedInGlobal_; }
    // The last measured transfer speeds in bytes per second; any thread.
    double lastUploadSpeed() const;
    double lastDownloadSpeed() const;

    // ---- Domains of the last accepted global login (any thread) --------------
    std::optional<GlobalLoginResponce> globalLoginResponce() const;
    // The stored answer of an earlier run (from the share store at load).
    void setGlobalLoginResponce(const std::optional<GlobalLoginResponce>& response);
    std::optional<Domain> domainWithId(const std::string& domainId) const;
    std::optional<UserDomain> userDomainWithId(const std::string& domainId) const;
    std::optional<UserDomain> userDomainWithName(const std::string& url) const;
    bool lockAvailableForShare(const ManagedShare& share) const;

    // ---- Sign-in -------------------------------------------------------------
    void loginToGlobalFirstTime();
    void loginToGlobal();
    // Gateway login of every domain of the global answer (one batch at a time).
    void domainLogin();
    void singleDomainLogin(const UserDomain& domain);
    void gatewayLogin(const UserDomain& domain, bool inBatch);
    std::vector<UserDomain> failedUserDomains() const;
    void logout();

    // ---- Catch-up ------------------------------------------------------------
    // A page is handed to the store from the request's completion thread;
    // the next page is asked for only once the store has applied it. A page
    // the store refused leaves the share failed and is fetched again later.
    void catchUp(const ManagedShare& share);
    // Any thread.
    void sendCatchupRequest(const ManagedShare& share, int64_t startTick);
    void refresh();
    void refreshAfterFailure();
    void fullRefreshFinished();
    // (Re)starts the two-hourly re-login.
    void setupRefreshTimers();
    bool needsFullRefresh() const { return needsFullRefresh_; }
    void setNeedsFullRefresh(bool needed) { needsFullRefresh_ = needed; }
    bool inFullRefresh() const { return inFullRefresh_; }
    // Where catch-up pages go: the store's applyCatchUpPage, unless replaced
    // (tests wrap it to delay or refuse pages); an empty function restores
    // it. Any thread.
    using PageApplier = std::function<void(OSXCatchUpResponse page, ManagedShare share,
                                           std::function<void(bool applied)> done)>;
    void setPageApplier(PageApplier applier) VH_EXCLUDES(applierMutex_);
    // Share ids whose last catch-up did not complete; any thread.
    std::vector<std::string> failedCatchupShares() const;
    // Share ids with a catch-up request in flight; any thread.
    std::vector<std::string> activeCatchupShares() const;

    // ---- Public links and the web client (VHConnectorLinks.cpp) -------------
    // Main thread. The requests run on the link queue; every callback runs on
    // the main thread.
    using Opened = std::function<void(const std::optional<std::string>& url)>;
    using LinkHandler = std::function<void(const std::string& link)>;
    using LinkFailure = std::function<void(const std::string& why)>;
    // Opens the web client signed in through a one-time direct link: at its
    // start page, at the page for a new share (no share) or at `share`.
    // The address goes to the URL opener; `opened` gets it, or nothing when
    // it could not be made (the reason is logged).
    void openWebClient(Opened opened = {});
    void openShareInWebClient(const std::optional<ManagedShare>& share, Opened opened = {});
    void openWebClientFor(int function, const std::string& param, Opened opened = {});
    // Where opened addresses go (the desktop's URL opener). Main thread.
    void setURLOpener(std::function<void(const std::string& url)> opener) {
        urlOpener_ = std::move(opener);
    }
    // Base64 of `text`, zero-padded to whole blocks and encrypted with `key`
    // (32 bytes) and the configured IV; empty on failure. Any thread.
    static std::string encryptDirectLink(const std::string& text, const std::string& key);
    // The configured direct-link key ("VHDirectLinkKey" or
    // VARNHOLT_DIRECT_LINK_KEY, Base64); empty when missing or not 32 bytes.
    static std::string directLinkKey();
    // Creates a public link to the file: `handler` gets it on success only;
    // `failed` gets the logged reason otherwise.
    void createFilePublicLink(const VHFile& file, LinkHandler handler, LinkFailure failed = {});

    // ---- Realtime channel (any thread) ---------------------------------------
    VHSRConnection* srConnectionForDomain(const UserDomain& domain);
    // Disconnects every domain's realtime connection and forgets them.
    void disconnectSignalR();
    // At exit, before the HTTP layer stops: also ends the realtime thread.
    void stopRealtime();

  signals:
    void globalLoginStarted();
    void globalLoggedIn();
    void domainsLoggedIn();
    // `error` is the transport or parse error where there is one.
    void globalConnectionFailed(const QString& error);
    // The service refused the sign-in; `reason` says why, for the user.
    void globalLoginFailed(const QString& reason);
    void globalLoggedOut();

  private:
    class TransferHooks;

    // What a global login sends, taken on the main thread before it starts.
    struct GlobalLoginInput {
        std::string username;
        std::string password;
        std::string userDomain;
        VHConnectorConfiguration configuration;
    };

    VHConnector();
    ~VHConnector() override;

    // Runs `work` on the main thread, after the events already queued there.
    void onMain(std::function<void()> work);
    VHCredentialStore& credentialStore();

    // ---- Global login (VHConnectorLogin.cpp) ----
    // Pool thread: steps that send requests synchronously.
    void runGlobalLogin(const GlobalLoginInput& input);
    // Pool thread: asks GetUserDomain when needed; sets `domainWasKnown`.
    std::string globalLoginURL(const GlobalLoginInput& input, bool& domainWasKnown);
    void reportGlobalConnectionFailure(const std::string& error);
    // Main thread: acts on the reply code of an accepted answer.
    void decideGlobalLogin(const GlobalLoginResponce& response, const std::string& text,
                           bool domainWasKnown);
    void refuseUnknownDevice();

    // ---- Links (VHConnectorLinks.cpp) ----
    // What a direct link is made of, taken on the main thread.
    struct DirectLinkInput {
        std::string username, password, deviceId, param;
        std::optional<UserDomain> domain;  // the primary user domain
    };
    // Link queue: the web client's address, or nothing (logged).
    std::optional<std::string> requestDirectLink(const DirectLinkInput& input);
    static std::optional<std::string> directLinkIdOf(const VHHttpResponse& response);
    // Link queue: the link, or nothing with the reason in `why` (logged).
    std::optional<std::string> requestPublicLink(const VHFile& file, std::string& why);
    static std::optional<std::string> publicLinkOf(const VHFile& file,
                                                   const VHHttpResponse& response,
                                                   std::string& why);

    // ---- Gateway logins ----
    // Pool thread: the completion of one gateway login.
    void completeGatewayLogin(const UserDomain& domain, bool inBatch, bool realtime,
                              const VHHttpResponse& response);
    // Main thread: the shares of the answer are stored and caught up.
    void applyGatewayLogin(const UserDomain& domain, const ClientLoginResponse& response);
    // What the realtime connections ask of the connector.
    VHSRConnection::Actions realtimeActions();
    // Hands the answer to the domain's realtime connection.
    void connectRealtime(const UserDomain& domain, const ClientLoginResponse& response);
    // Main thread: counts a domain of the batch as answered, `failed` or not.
    void countDomainAnswered(const UserDomain& domain, bool failed);
    void finishedDomainLogin();

    // ---- Catch-up (VHConnectorCatchUp.cpp) ----
    // Any thread: sends the page request of a share whose active entry is held.
    void requestCatchupPage(const ManagedShare& share, int64_t startTick);
    // Pool thread: one page arrived (or did not).
    void completeCatchup(const ManagedShare& share, int64_t startTick,
                         const VHHttpResponse& response);
    // Main thread: the store has applied a page (`applied`) or refused it.
    void catchupPageApplied(const ManagedShare& share, int64_t startTick, bool more, bool applied);
    // Main thread: fetches a refused page again unless another request took over.
    void retryCatchupPage(const ManagedShare& share, int64_t startTick);
    // Removes the share's active entry when it still is `startTick`'s.
    void endActiveCatchup(const std::string& shareId, int64_t startTick) VH_EXCLUDES(activeMutex_);
    void setCatchupFailed(const std::string& shareId, bool failed) VH_EXCLUDES(failedMutex_);
    // Main thread: the next page, or the end of a full refresh.
    void continueCatchup(const ManagedShare& share, int64_t startTick, bool more);

    VHConnectorConfiguration configuration_;  // set before sign-in, main thread
    std::unique_ptr<VHTransferHooks> transferHooks_;
    std::unique_ptr<VHCredentialStore> credentialStore_;  // main thread; opened on first use

    // Locks: none of these is held while another is taken, nor across a
    // request, a store call or a signal.
    mutable VHMutex credentialsMutex_;
    std::string username_ VH_GUARDED_BY(credentialsMutex_);
    std::string password_ VH_GUARDED_BY(credentialsMutex_);
    mutable VHMutex responseMutex_;
    std::optional<GlobalLoginResponce> globalLoginResponce_ VH_GUARDED_BY(responseMutex_);
    mutable VHMutex activeMutex_;
    // share id -> start tick of the request in flight
    std::map<std::string, int64_t> activeCatchupRequests_ VH_GUARDED_BY(activeMutex_);
    mutable VHMutex failedMutex_;
    std::set<std::string> failedCatchupRequests_ VH_GUARDED_BY(failedMutex_);
    VHMutex applierMutex_;
    PageApplier pageApplier_ VH_GUARDED_BY(applierMutex_);

    std::unique_ptr<QThreadPool> loginOperationQueue_;
    std::unique_ptr<QThreadPool> catchupOperationQueue_;
    std::unique_ptr<QThreadPool> linkOperationQueue_;
    std::function<void(const std::string&)> urlOpener_;  // main thread
    std::unique_ptr<VHSRConnections> realtime_;
    QTimer* loginTimer_ = nullptr;                 // main thread
    std::vector<UserDomain> failedUserDomains_;    // main thread
    int32_t awaitingDomains_ = 0;                  // main thread
    bool deviceIdCleared_ = false;                 // main thread
    std::map<std::string, int> pageRetryDelayMs_;  // share id -> next delay; main thread
    std::atomic<bool> globalConnectionFailed_{false};
    std::atomic<bool> disableInternetConnection_{false};
    std::atomic<bool> loggedInGlobal_{false};
    std::atomic<bool> needsFullRefresh_{false};
    std::atomic<bool> inFullRefresh_{false};
};

}  // namespace vh
