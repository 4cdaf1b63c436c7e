#include "service/VHSRConnection.h"

#include <QCoreApplication>
#include <QTimer>
#include <algorithm>

#include "lib/VHFormat.h"
#include "lib/VHHttp.h"
#include "lib/VHLog.h"
#include "lib/VHSignalRHubConnection.h"
#include "lib/VHSignalRHubProxy.h"
#include "lib/VHSignalRLongPolling.h"

namespace vh {

namespace {

constexpr int32_t kClientType = 2;
// A connection that closed on its own (the service was away longer than the
// disconnect time-out) is made again after these delays, doubling.
constexpr int kFirstReconnectDelayMs = 5000;
constexpr int kLongestReconnectDelayMs = 300000;

std::string userIdOf(const ClientLoginResponse& answer) {
    return answer.User ? answer.User->UserId.value_or("") : "";
}

}  // namespace

VHSRConnection::VHSRConnection(Actions actions, QObject* parent)
    : QObject(parent), actions_(std::move(actions)) {}

VHSRConnection::~VHSRConnection() {
    dropConnection();
}

std::string VHSRConnection::domainUrl() const {
    if (!userDomain_ || !userDomain_->Domain) return "";
    return userDomain_->Domain->Url.value_or("");
}

void VHSRConnection::onMain(std::function<void()> work) {
    QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(work), Qt::QueuedConnection);
}

Envelope VHSRConnection::onlineMessage() const {
    const ClientLoginResponse& answer = *loginResponce_;
    ClientInfo info;
    info.ClientName = info.UserId = userIdOf(answer);
    info.ClientType = kClientType;
    info.ConnectionId = info.TransportMethod = "";
    std::vector<std::string> shares;
    for (const ManagedShare& share : answer.ManagedShares.value_or(std::vector<ManagedShare>{})) {
        shares.push_back(share.isSubfolderShare() ? share.ParentShareId.value_or("")
                                                  : share.shareId());
    }
    info.ShareList = shares;
    info.GroupList = std::vector<std::string>{};
    info.RemainingSize = info.ReservedSize = info.LargestSize = 0;
    info.ConnectionUrl = VHFormat("https://clientgateway.%@/", domainUrl());
    ::vh::DomainFilecaches caches;
    caches.CurrentFilecache = "";
    caches.LastUsedTick = VHTicksFromDate(VHDate::now());
    caches.FilecacheList = answer.FilecacheUrls.value_or(VHJson::array());
    std::string domainId = userDomain_->Domain->DomainId.value_or("");
    info.DomainFilecaches = std::map<std::string, ::vh::DomainFilecaches>{{domainId, caches}};

    Envelope envelope;
    envelope.MessageType = kSRMOnline;
    envelope.RnaReciver = "";
    envelope.RnaSender = info.UserId;
    envelope.SendTime = envelope.ReSendTime = VHDate::now();
    envelope.Message = VHSerializeRecord(info);
    envelope.ChannelId = "";
    return envelope;
}

void VHSRConnection::connect() {
    if (!userDomain_ || !userDomain_->Domain || !loginResponce_) return;
    if (hubConnection_ && hubProxy_) {
        VHLog(kLogMain, "SignalR : re-sending online message for domain %@.", domainUrl());
        sendOnlineMessage(onlineMessage());
        return;
    }
    dropConnection();
    if (!loginResponce_->Cookie) {
        VHLog(kLogMain, "SignalR : empty cookie for domain %@. Will not connect.", domainUrl());
        return;
    }
    std::string host = VHFormat("clientgateway.%@", domainUrl());
    VHHttp::setCookie(host, ".ASPXAUTH", *loginResponce_->Cookie, "/");
    hubConnection_ = std::make_unique<VHSignalRHubConnection>("https://" + host + "/");
    hubProxy_ = hubConnection_->createHubProxy("VhHub");
    hubProxy_->on("ReciveEnvelope",
                  [this](const VHJson& dictionary) { onReceiveEnvelope(dictionary); });
    setCallbacks();
    transport_ = std::make_shared<VHSignalRLongPolling>();
    hubConnection_->start(transport_);
}

void VHSRConnection::setCallbacks() {
    Envelope online = onlineMessage();
    std::string url = domainUrl();
    VHSignalRHubConnection& hub = *hubConnection_;
    hub.started = [this, online] {
        reconnectDelayMs_ = kFirstReconnectDelayMs;
        sendOnlineMessage(online);
    };
    hub.reconnecting = [url] {
        VHLog(kLogMain, "SignalR connection to %@ : reconnecting...", url);
    };
    hub.reconnected = [this, url] {
        VHLog(kLogMain, "SignalR connection to %@ : reconnected", url);
        catchupIfNeeded();
    };
    hub.received = [this](const VHJson&) {
        VHSystemLog("got data from signalR");
        catchupIfNeeded();
    };
    hub.closed = [this, url] {
        // The connection may not be deleted inside its own callback.
        if (hubConnection_) hubConnection_.release()->deleteLater();
        hubProxy_ = nullptr;
        VHLog(kLogMain, "SignalR connection to %@ closed.", url);
        catchupIfNeeded();
        scheduleReconnect();
    };
    hub.error = [this](int code, const std::string&) { onError(code); };
}

// Without it, a service away for longer than the disconnect time-out (a
// laptop asleep, a network gone) would leave the domain without realtime
// changes until the next periodic sign-in.
void VHSRConnection::scheduleReconnect() {
    int delay = reconnectDelayMs_;
    reconnectDelayMs_ = std::min(reconnectDelayMs_ * 2, kLongestReconnectDelayMs);
    VHLog(kLogMain, "SignalR connection to %@ : connecting again in %d s.", domainUrl(),
          delay / 1000);
    QTimer::singleShot(delay, this, [this] {
        // Nothing when disconnected for good meanwhile, or connected again.
        if (loginResponce_ && !hubConnection_) connect();
    });
}

void VHSRConnection::sendOnlineMessage(const Envelope& message) {
    if (!hubProxy_) return;
    hubProxy_->invoke("SendMessage", VHJson::array({VHRecordToJson(message)}),
                      [](bool, const VHJson&, const std::string&) {});
}

void VHSRConnection::onError(int code) {
    if (code == kSignalRErrorNotConnectedToInternet) return;
    if (code != kSignalRErrorBadServerResponse) {
        VHLog(kLogMain, "SignalR connection to %@ : error code %ld.", domainUrl(),
              static_cast<long>(code));
        return;
    }
    VHLog(kLogMain, "SignalR connection to %@ : error code %ld. Stopping connection.", domainUrl(),
          static_cast<long>(code));
    if (hubConnection_) hubConnection_->stop(-1);
    if (transport_) transport_->completeAbort();
    std::string domainId = userDomain_->Domain->DomainId.value_or("");
    onMain([actions = actions_, domainId] {
        if (std::optional<UserDomain> domain = actions.userDomainWithId(domainId)) {
            actions.singleDomainLogin(*domain);
        }
    });
}

void VHSRConnection::disconnect() {
    if (hubConnection_) {
        hubConnection_->closed = nullptr;
        hubConnection_->stop(-1);
    }
    dropConnection();
    loginResponce_.reset();
}

// Never from inside a callback of the hub connection.
void VHSRConnection::dropConnection() {
    hubProxy_ = nullptr;
    hubConnection_.reset();
    transport_.reset();
}

}  // namespace vh
