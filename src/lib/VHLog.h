// The program-wide logging entry point.
//
// VHLog formats on the calling thread and hands the message to the installed
// sink. Until the desktop layer installs the daily log files (VHInitLogs),
// every message goes to standard error, the platform's system log.
//
// Types: 0 main log, 1 drive log, 4 database log (any other type is dropped
// by the file sink).
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "lib/VHFormat.h"

namespace vh {

enum VHLogType : int { kLogMain = 0, kLogDrive = 1, kLogDatabase = 4 };

// A sink receives the type and the formatted message (no trailing newline).
using VHLogSink = std::function<void(int type, const std::string& message)>;

// Installs the sink for all later messages; an empty function restores the
// standard-error sink. Thread-safe.
void VHSetLogSink(VHLogSink sink);

void VHLogMessage(int type, const std::string& message);

// Writes one line to standard error, as the platform's system log.
void VHSystemLog(const std::string& message);

template <typename... Args>
void VHLog(int type, std::string_view format, const Args&... args) {
    VHLogMessage(type, VHFormat(format, args...));
}

// Console trace: goes to standard error, never to the log files.
template <typename... Args>
void VHConsoleLog(std::string_view format, const Args&... args) {
    VHSystemLog(VHFormat(format, args...));
}

}  // namespace vh
