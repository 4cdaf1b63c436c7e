#include "desktop/VHSignOut.h"

#include <cstdio>
#include <limits>

#include "desktop/VHApplicationDelegate.h"
#include "lib/VHAppInfo.h"
#include "service/VHConnector.h"
#include "store/VHDatabase.h"

namespace vh {

namespace {

constexpr int64_t kPage = 10000;

int64_t sentButUnconfirmed(VHDatabase& database) {
    int64_t count = 0;
    for (int64_t offset = 0;; offset += kPage) {
        std::vector<VHFile> page = database.allFiles(true, offset, kPage);
        for (const VHFile& file : page) count += file.status == kStatusUploaded;
        if (static_cast<int64_t>(page.size()) < kPage) return count;
    }
}

}  // namespace

int64_t VHSignOut::unconfirmedChanges() {
    VHDatabase& database = VHDatabase::database();
    int64_t pending = static_cast<int64_t>(
        database.uploadsFromIndex(0, std::numeric_limits<int64_t>::max()).size());
    return pending + sentButUnconfirmed(database);
}

int VHSignOut::run(bool force) {
    VHApplicationDelegate& delegate = VHApplicationDelegate::delegate();
    if (!delegate.checkForRunningInstances()) {
        return delegate.fatalStatus() ? delegate.fatalStatus()
                                      : VHApplicationDelegate::kExitAnotherInstance;
    }
    VHDatabase::database().load();
    if (delegate.fatalStatus()) return delegate.fatalStatus();
    int64_t unconfirmed = unconfirmedChanges();
    if (unconfirmed > 0 && !force) {
        std::fprintf(stderr,
                     "%s: not signed out: %lld change(s) on the drive are not yet confirmed by "
                     "the service and would be lost.\n"
                     "Let %s run until they are uploaded, or sign out all the same with "
                     "--logout --force.\n",
                     kAppTitle, static_cast<long long>(unconfirmed), kAppTitle);
        delegate.releaseInstanceLock();
        return VHApplicationDelegate::kExitUnconfirmedChanges;
    }
    VHConnector& connector = VHConnector::defaultConnector();
    connector.loadCredentials();
    connector.logout();
    delegate.clearCaches(true);
    delegate.resetUserDefaults();
    delegate.waitForClearedCaches();
    delegate.releaseInstanceLock();
    std::printf("Signed out; credentials and caches removed.\n");
    return delegate.fatalStatus();
}

}  // namespace vh
