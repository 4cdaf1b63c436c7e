// The realtime channel of one domain: a hub connection to the domain's
// gateway over which the client announces itself (the online message) and
// receives envelopes. A broadcast change whose tick follows the share's last
// applied tick is applied at once; a gap, a reconnect, a closed connection
// or any data received leads to a (throttled) catch-up; a domain event
// signs the domain in again. A connection that closes on its own is made
// again after a growing delay.
//
// Threads: the object and its hub connection live on the connector's
// realtime thread; call connect() and disconnect() there (the connector
// queues them). Catch-ups and sign-ins are handed to the connector's main
// thread. catchupIfNeeded is serialised by the object's own lock, a leaf.
#pragma once

#include <QObject>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "lib/VHDate.h"
#include "lib/VHJsonRecord.h"
#include "lib/VHThreadSafety.h"
#include "service/VHSRRecords.h"
#include "store/VHLoginRecords.h"

namespace vh {

class VHSignalRHubConnection;
class VHSignalRHubProxy;
class VHSignalRLongPolling;
struct ClientJournalEvent;

class VHSRConnection : public QObject {
    Q_OBJECT
  public:
    // What the connection asks of the connector; each runs on the main thread.
    struct Actions {
        std::function<void(const ManagedShare& share)> catchUp;
        std::function<void(const UserDomain& domain)> singleDomainLogin;
        std::function<std::optional<UserDomain>(const std::string& domainId)> userDomainWithId;
        std::function<std::optional<UserDomain>(const std::string& url)> userDomainWithName;
    };

    explicit VHSRConnection(Actions actions, QObject* parent = nullptr);
    ~VHSRConnection() override;

    void setUserDomain(const UserDomain& domain) { userDomain_ = domain; }
    void setLoginResponce(const ClientLoginResponse& answer) { loginResponce_ = answer; }

    // Connects, or sends the online message again when connected.
    void connect();
    // Stops for good, without the catch-up a closed connection brings.
    void disconnect();
    Envelope onlineMessage() const;
    void onReceiveEnvelope(const VHJson& dictionary);
    void catchupIfNeeded() VH_EXCLUDES(catchupMutex_);

  private:
    std::string domainUrl() const;
    void dropConnection();
    void setCallbacks();
    void sendOnlineMessage(const Envelope& message);
    void scheduleReconnect();
    void onError(int code);
    void onMOnline(const Envelope& envelope);
    void onBroadCast(const Envelope& envelope);
    // Whether the change waits for the item's upload to end.
    bool deferWhileUploading(const Envelope& envelope, const std::string& id);
    void onDomainEvent(const Envelope& envelope);
    std::optional<ManagedShare> shareOfEvent(const ClientJournalEvent& event) const;
    void onMain(std::function<void()> work);

    Actions actions_;
    std::optional<UserDomain> userDomain_;
    std::optional<ClientLoginResponse> loginResponce_;
    std::unique_ptr<VHSignalRHubConnection> hubConnection_;
    VHSignalRHubProxy* hubProxy_ = nullptr;  // owned by hubConnection_
    std::shared_ptr<VHSignalRLongPolling> transport_;
    int reconnectDelayMs_ = 5000;  // the next delay after a close; realtime thread
    VHMutex catchupMutex_;
    VHDate lastCatchup_ VH_GUARDED_BY(catchupMutex_) = VHDate::distantPast();
    bool catchupScheduled_ VH_GUARDED_BY(catchupMutex_) = false;
};

}  // namespace vh
