// Catch-up: each share's change journal, page by page, from its last tick.
#include <QThreadPool>

#include "lib/VHFormat.h"
#include "lib/VHHttp.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

constexpr double kDefaultTimeout = 60.0;
constexpr int kLoginIntervalMs = 7200 * 1000;

// The local temporary share has no journal on the service.
bool isServiceShare(const ManagedShare& share) {
    return share.shareId() != kTempShareId;
}

}  // namespace

void VHConnector::catchUp(const ManagedShare& share) {
    if (!internetReachable()) return;
    if (inFullRefresh_) {
        VHLog(kLogMain, "catchUp for share: doing full refresh now, catchup postponed.");
        return;
    }
    // A share that never applied anything starts below the first tick.
    int64_t tick = share.LastApplyedJournalTick == 0 ? -1 : share.LastApplyedJournalTick;
    sendCatchupRequest(share, tick);
}

void VHConnector::sendCatchupRequest(const ManagedShare& share, int64_t startTick) {
    {
        std::lock_guard lock(failedMutex_);
        failedCatchupRequests_.insert(share.shareId());
    }
    if (!domainReachable(domainWithId(share.DomainId.value_or("")))) {
        VHLog(kLogMain, "sendCatchupRequest: domain %@ is not reachable, will try again later.",
              share.DomainId.value_or(""));
        return;
    }
    {
        std::lock_guard lock(activeMutex_);
        auto active = activeCatchupRequests_.find(share.shareId());
        if (active != activeCatchupRequests_.end() && active->second <= startTick) {
            VHLog(kLogMain,
                  "sendCatchupRequest: share %@ is already being catched up from tick %d.",
                  share.ShareName.value_or(""), active->second);
            return;
        }
        activeCatchupRequests_[share.shareId()] = startTick;
    }
    VHHttpRequest request;
    request.method = "POST";
    request.url = VHFormat("https://clientgateway.%@/CatchUp7.aspx", share.GateWayUrl.value_or(""));
    request.timeout = kDefaultTimeout;
    std::string token = share.ShareAcl ? share.ShareAcl->AclToken.value_or("") : "";
    request.headers = {{"share", share.shareId()},
                       {"token", VHEscapeURLValue(token)},
                       {"vshareId", share.VshareId.value_or("")},
                       {"tickfrom", VHFormat("%i", startTick)},
                       {"tickstart", VHFormat("%i", startTick)},
                       {"ticktake", VHFormat("%d", kTickTake)}};
    VHHttp::sendAsync(request, catchupOperationQueue_.get(),
                      [this, share, startTick](const VHHttpResponse& response) {
                          completeCatchup(share, startTick, response);
                      });
}

void VHConnector::completeCatchup(const ManagedShare& share, int64_t startTick,
                                  const VHHttpResponse& response) {
    bool more = false;
    if (response.status == 200 && !response.body.empty()) {
        std::string error;
        std::optional<OSXCatchUpResponse> page =
            VHParseRecord<OSXCatchUpResponse>(response.body, &error);
        if (page) {
            size_t count = page->VhVirtualFiles ? page->VhVirtualFiles->size() : 0;
            if (count > 0) {
                onMain([page = std::move(*page), share] {
                    VHDatabase::database().updateFiles(page, share);
                });
            }
            more = count >= static_cast<size_t>(kTickTake);
            std::lock_guard lock(failedMutex_);
            failedCatchupRequests_.erase(share.shareId());
        } else {
            VHLog(kLogMain,
                  "Warning! Cannot parse catchup responce for share %@: error %@. Responce is %@",
                  share.ShareName.value_or(""), error, response.body);
        }
    } else {
        VHLog(kLogMain,
              "Warning! Error with catchup responce for share %@: %@, HTTP status code: %d",
              share.shareId(), response.error.message, response.status);
    }
    {
        std::lock_guard lock(activeMutex_);
        auto active = activeCatchupRequests_.find(share.shareId());
        if (active != activeCatchupRequests_.end() && active->second == startTick) {
            activeCatchupRequests_.erase(active);
        }
    }
    onMain([this, share, startTick, more] { continueCatchup(share, startTick, more); });
}

void VHConnector::continueCatchup(const ManagedShare& share, int64_t startTick, bool more) {
    if (more) {
        // The next page starts a whole page further on, not at the page's largest tick.
        VHLog(kLogMain, "sendCatchupRequest: continuing catchup for share %@, tick %d.",
              share.ShareName.value_or(""), startTick + kTickTake);
        sendCatchupRequest(share, startTick + kTickTake);
    }
    bool allDone = false;
    {
        std::lock_guard lock(activeMutex_);
        allDone = activeCatchupRequests_.empty();
    }
    if (allDone && inFullRefresh_) fullRefreshFinished();
}

std::vector<std::string> VHConnector::failedCatchupShares() const {
    std::lock_guard lock(failedMutex_);
    return {failedCatchupRequests_.begin(), failedCatchupRequests_.end()};
}

std::vector<std::string> VHConnector::activeCatchupShares() const {
    std::lock_guard lock(activeMutex_);
    std::vector<std::string> shareIds;
    for (const auto& [shareId, tick] : activeCatchupRequests_) shareIds.push_back(shareId);
    return shareIds;
}

void VHConnector::refresh() {
    VHDatabase& database = VHDatabase::database();
    if (database.terminating()) {
        VHLog(kLogMain, "CatchUp: app is terminating, skipping share refresh.");
        return;
    }
    if (needsFullRefresh_) {
        refreshAfterFailure();
        return;
    }
    if (inFullRefresh_) {
        VHLog(kLogMain, "CatchUp: refresh cancelled - doing full refresh now.");
        return;
    }
    for (const ManagedShare& share : database.shares()) {
        if (isServiceShare(share)) catchUp(share);
    }
}

void VHConnector::refreshAfterFailure() {
    VHLog(kLogMain, "Refresh after failure requested : doing full catchup for all shares.");
    if (!internetReachable()) {
        VHLog(kLogMain, "refreshAfterFailure: internet is not reachable, exiting");
        return;
    }
    if (inFullRefresh_) {
        VHLog(kLogMain, "refreshAfterFailure: Already doing full refresh - exiting.");
        return;
    }
    inFullRefresh_ = true;
    for (const ManagedShare& share : VHDatabase::database().shares()) {
        if (isServiceShare(share)) sendCatchupRequest(share, 0);
    }
}

void VHConnector::fullRefreshFinished() {
    VHLog(kLogMain, "Full refresh finished : checking if there are missing uploads.");
    VHLog(kLogMain, "Finished checking for missing uploads.");
    needsFullRefresh_ = false;
    VHSettings::remove("needsFullRefresh");
    VHSettings::sync();
}

void VHConnector::setupRefreshTimers() {
    delete loginTimer_;
    loginTimer_ = new QTimer(this);
    loginTimer_->setInterval(kLoginIntervalMs);
    connect(loginTimer_, &QTimer::timeout, this, &VHConnector::loginToGlobal);
    loginTimer_->start();
}

}  // namespace vh
