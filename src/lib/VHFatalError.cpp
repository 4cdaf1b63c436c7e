#include "lib/VHFatalError.h"

#include <atomic>
#include <cstdlib>

#include "lib/VHThreadSafety.h"

namespace vh {

namespace {

VHMutex gMutex;
VHFatalErrorHandler gHandler VH_GUARDED_BY(gMutex);
std::atomic<bool> gReported{false};

}  // namespace

void VHSetFatalErrorHandler(VHFatalErrorHandler handler) {
    VHMutexLock lock(gMutex);
    gHandler = std::move(handler);
}

void VHReportFatalError(int status) {
    if (gReported.exchange(true)) return;
    VHFatalErrorHandler handler;
    {
        VHMutexLock lock(gMutex);
        handler = gHandler;
    }
    if (!handler) std::exit(status);
    handler(status);
}

bool VHFatalErrorReported() {
    return gReported.load();
}

}  // namespace vh
