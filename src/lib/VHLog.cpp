#include "lib/VHLog.h"

#include <unistd.h>

#include <memory>
#include <mutex>

namespace vh {

namespace {

std::mutex gSinkMutex;
std::shared_ptr<const VHLogSink> gSink;  // guarded by gSinkMutex

}  // namespace

void VHSetLogSink(VHLogSink sink) {
    std::lock_guard lock(gSinkMutex);
    gSink = sink ? std::make_shared<const VHLogSink>(std::move(sink)) : nullptr;
}

void VHLogMessage(int type, const std::string& message) {
    std::shared_ptr<const VHLogSink> sink;
    {
        std::lock_guard lock(gSinkMutex);
        sink = gSink;
    }
    if (sink) {
        (*sink)(type, message);
    } else {
        VHSystemLog(message);
    }
}

void VHSystemLog(const std::string& message) {
    std::string line = message + "\n";
    // One write per line so that lines of different threads do not mix.
    ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    (void)written;
}

}  // namespace vh
