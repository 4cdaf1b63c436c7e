// Catch-up: each share's change journal, page by page, from its last tick.
#include <QThreadPool>
#include <QTimer>
#include <algorithm>

#include "lib/VHFormat.h"
#include "lib/VHHttp.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "service/VHConnector.h"
#include "service/VHHostName.h"
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
    setCatchupFailed(share.shareId(), true);
    if (!domainReachable(domainWithId(share.DomainId.value_or("")))) {
        VHLog(kLogMain, "sendCatchupRequest: domain %@ is not reachable, will try again later.",
              share.DomainId.value_or(""));
        return;
    }
    {
        VHMutexLock lock(activeMutex_);
        auto active = activeCatchupRequests_.find(share.shareId());
        if (active != activeCatchupRequests_.end() && active->second <= startTick) {
            VHLog(kLogMain,
                  "sendCatchupRequest: share %@ is already being catched up from tick %d.",
                  share.ShareName.value_or(""), active->second);
            return;
        }
        activeCatchupRequests_[share.shareId()] = startTick;
    }
    requestCatchupPage(share, startTick);
}

void VHConnector::requestCatchupPage(const ManagedShare& share, int64_t startTick) {
    std::string gateway = share.GateWayUrl.value_or("");
    if (!VHIsHostName(gateway)) {
        VHLog(kLogMain, "Warning! No catchup request for share %@: gateway \"%@\" is unsafe.",
              share.shareId(), gateway);
        endActiveCatchup(share.shareId(), startTick);
        onMain([this, share, startTick] { continueCatchup(share, startTick, false); });
        return;
    }
    VHHttpRequest request;
    request.method = "POST";
    request.url = VHFormat("https://clientgateway.%@/CatchUp7.aspx", gateway);
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
    std::optional<OSXCatchUpResponse> page;
    if (response.status == 200 && !response.body.empty()) {
        std::string error;
        page = VHParseRecord<OSXCatchUpResponse>(response.body, &error);
        if (!page) {
            VHLog(kLogMain,
                  "Warning! Cannot parse catchup responce for share %@: error %@. Responce is %@",
                  share.ShareName.value_or(""), error, response.body);
        }
    } else {
        VHLog(kLogMain,
              "Warning! Error with catchup responce for share %@: %@, HTTP status code: %d",
              share.shareId(), response.error.message, response.status);
    }
    size_t count = page && page->VhVirtualFiles ? page->VhVirtualFiles->size() : 0;
    if (count == 0) {
        if (page) setCatchupFailed(share.shareId(), false);
        endActiveCatchup(share.shareId(), startTick);
        onMain([this, share, startTick] { continueCatchup(share, startTick, false); });
        return;
    }
    // The share stays active until its page is in the store: another request
    // of the share would otherwise start from the journal position the page
    // is about to move, and a full refresh would count as finished while its
    // last page is still being written.
    bool more = count >= static_cast<size_t>(kTickTake);
    PageApplier apply;
    {
        VHMutexLock lock(applierMutex_);
        apply = pageApplier_;
    }
    auto done = [this, share, startTick, more](bool applied) {
        onMain([this, share, startTick, more, applied] {
            catchupPageApplied(share, startTick, more, applied);
        });
    };
    if (apply) {
        apply(std::move(*page), share, done);
    } else {
        VHDatabase::database().applyCatchUpPage(std::move(*page), share, done);
    }
}

void VHConnector::setPageApplier(PageApplier applier) {
    VHMutexLock lock(applierMutex_);
    pageApplier_ = std::move(applier);
}

void VHConnector::catchupPageApplied(const ManagedShare& share, int64_t startTick, bool more,
                                     bool applied) {
    if (!applied) {
        int& delay =
            pageRetryDelayMs_.try_emplace(share.shareId(), kPageRetryDelayMs).first->second;
        VHLog(kLogMain,
              "Warning! Catchup page of share %@ from tick %d was not applied; fetching it again "
              "in %d ms.",
              share.ShareName.value_or(""), startTick, delay);
        QTimer::singleShot(delay, this,
                           [this, share, startTick] { retryCatchupPage(share, startTick); });
        delay = std::min(delay * 2, kPageRetryMaxDelayMs);
        return;
    }
    pageRetryDelayMs_.erase(share.shareId());
    setCatchupFailed(share.shareId(), false);
    endActiveCatchup(share.shareId(), startTick);
    continueCatchup(share, startTick, more);
}

void VHConnector::retryCatchupPage(const ManagedShare& share, int64_t startTick) {
    bool stillOurs = false;
    {
        VHMutexLock lock(activeMutex_);
        auto active = activeCatchupRequests_.find(share.shareId());
        stillOurs = active != activeCatchupRequests_.end() && active->second == startTick;
    }
    if (!stillOurs) return;  // a request from a lower tick replaced this one
    if (VHDatabase::database().terminating()) {
        endActiveCatchup(share.shareId(), startTick);
        return;
    }
    requestCatchupPage(share, startTick);
}

void VHConnector::endActiveCatchup(const std::string& shareId, int64_t startTick) {
    VHMutexLock lock(activeMutex_);
    auto active = activeCatchupRequests_.find(shareId);
    // An entry replaced by a request from a lower tick belongs to that request.
    if (active != activeCatchupRequests_.end() && active->second == startTick) {
        activeCatchupRequests_.erase(active);
    }
}

void VHConnector::setCatchupFailed(const std::string& shareId, bool failed) {
    VHMutexLock lock(failedMutex_);
    if (failed) {
        failedCatchupRequests_.insert(shareId);
    } else {
        failedCatchupRequests_.erase(shareId);
    }
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
        VHMutexLock lock(activeMutex_);
        allDone = activeCatchupRequests_.empty();
    }
    if (allDone && inFullRefresh_) fullRefreshFinished();
}

std::vector<std::string> VHConnector::failedCatchupShares() const {
    VHMutexLock lock(failedMutex_);
    return {failedCatchupRequests_.begin(), failedCatchupRequests_.end()};
}

std::vector<std::string> VHConnector::activeCatchupShares() const {
    VHMutexLock lock(activeMutex_);
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
    // Left set, it would postpone every later catch-up of the process.
    inFullRefresh_ = false;
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
