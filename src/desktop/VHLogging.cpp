#include "desktop/VHLogging.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <mutex>

#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHPaths.h"

namespace vh {

namespace {

constexpr double kKeepLogsSeconds = 1209600;  // 14 days

// All state below is guarded by gLock. It is recursive because VHLog rolls
// over (VHOpenLogs, VHClose) while it holds it.
std::recursive_mutex gLock;
std::string gLogDir;
VHDate gLogTime, gLogFirstTime, gLogLastTime;
int gMainFd = -1, gFuseFd = -1, gDbFd = -1;
bool gEnableDBLog = false;
VHLogMirror gMirror;

std::mutex gClockLock;  // taken alone, never while waiting for gLock
std::function<VHDate()> gClock;

VHDate now() {
    std::function<VHDate()> clock;
    {
        std::lock_guard lock(gClockLock);
        clock = gClock;
    }
    return clock ? clock() : VHDate::now();
}

int openLog(const std::string& prefix, const char* suffix, const char* warning) {
    std::string path = VHPaths::join(VHLogDir(), prefix + suffix);
    int fd = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) VHSystemLog(VHFormat(warning, errno));
    return fd;
}

void closeFd(int& fd) {
    if (fd != -1) ::close(fd);
    fd = -1;
}

// The line's prefix, "[thread] date : ". The drive logs every callback, so
// the date text is made once a second per thread, not once a line.
const std::string& linePrefix(VHDate date) {
    thread_local const pid_t thread = gettid();
    thread_local double second = -1;
    thread_local std::string prefix;
    double whole = std::floor(date.seconds);
    if (whole != second) {
        second = whole;
        prefix = VHFormat("[%d] %@ : ", thread, VHDateLocalDescription(date));
    }
    return prefix;
}

void writeLine(int type, const std::string& message) {
    // Formatting happens before the lock.
    VHDate current = now();
    const std::string& prefix = linePrefix(current);
    std::string line;
    line.reserve(prefix.size() + message.size() + 1);
    line.append(prefix).append(message).push_back('\n');
    std::lock_guard lock(gLock);
    int fd = type == kLogMain       ? gMainFd
             : type == kLogDrive    ? gFuseFd
             : type == kLogDatabase ? gDbFd
                                    : -2;  // no destination: the write would fail
    if (fd == -1) {
        VHSystemLog(message);
    } else if (fd >= 0) {
        ssize_t written = ::write(fd, line.data(), line.size());
        (void)written;  // write errors are ignored
    }
    if (gMirror) gMirror(line, type);
    if (current >= gLogLastTime) VHOpenLogs();
    if (current < gLogFirstTime) VHOpenLogs();
}

}  // namespace

std::string VHLogDir() {
    std::lock_guard lock(gLock);
    if (gLogDir.empty()) gLogDir = VHPaths::join(VHPaths::dataRoot(), "Logs");
    return gLogDir;
}

void VHSetLogDir(const std::string& dir) {
    std::lock_guard lock(gLock);
    gLogDir = dir;
}

void VHInitLogs() {
    {
        std::lock_guard lock(gLock);
        gLogTime = gLogLastTime = now();
        VHOpenLogs();
    }
    VHSetLogSink(writeLine);
}

void VHOpenLogs() {
    std::lock_guard lock(gLock);
    VHClose();
    gLogTime = now();
    gLogFirstTime = VHLocalDayStart(gLogTime);
    gLogLastTime = gLogFirstTime.addingSeconds(86400);
    time_t t = static_cast<time_t>(gLogTime.seconds);
    struct tm local {};
    localtime_r(&t, &local);
    std::string prefix =
        VHFormat("%04d-%02d-%02d-", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    gMainFd = openLog(prefix, "main.log", "Warning! Failed to open main log file : error %d");
    gFuseFd = openLog(prefix, "fuse.log", "Warning! Failed to open fuse log file : error %d");
    if (gEnableDBLog) {
        // The database log reports its failure with the drive log's text.
        gDbFd = openLog(prefix, "db.log", "Warning! Failed to open fuse log file : error %d");
    }
    VHCleanupLogs();
}

void VHCleanupLogs() {
    std::lock_guard lock(gLock);
    double cutOff = now().seconds - kKeepLogsSeconds;
    std::string dir = VHLogDir();
    DIR* listing = opendir(dir.c_str());
    if (!listing) return;
    while (struct dirent* entry = readdir(listing)) {
        std::string name = entry->d_name;
        if (name.size() < 4 || name.compare(name.size() - 4, 4, ".log") != 0) continue;
        std::string path = VHPaths::join(dir, name);
        struct stat st {};
        if (stat(path.c_str(), &st) == 0 && st.st_mtim.tv_sec < cutOff) unlink(path.c_str());
    }
    closedir(listing);
}

void VHClose() {
    std::lock_guard lock(gLock);
    closeFd(gMainFd);
    closeFd(gFuseFd);
    closeFd(gDbFd);
}

void VHSetEnableDBLog(bool enabled) {
    std::lock_guard lock(gLock);
    gEnableDBLog = enabled;
}

void VHSetLogMirror(VHLogMirror mirror) {
    std::lock_guard lock(gLock);
    gMirror = std::move(mirror);
}

void VHSetLogClock(std::function<VHDate()> clock) {
    std::lock_guard lock(gClockLock);
    gClock = std::move(clock);
}

}  // namespace vh
