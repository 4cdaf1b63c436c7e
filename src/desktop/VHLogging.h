// The daily log files: "YYYY-MM-DD-main.log" (type 0), "-fuse.log" (type 1)
// and "-db.log" (type 4, only when the database log is enabled), mode 0600,
// in the data root's "Logs" folder. Any thread may log; one lock orders the
// writes, the midnight rollover and the reopening.
//
// Line format: "[<thread id>] <yyyy-MM-dd HH:mm:ss +hhmm> : <message>\n". A
// message for a file that is not open goes to standard error without the
// prefix; a message of any other type goes nowhere.
#pragma once

#include <functional>
#include <string>

#include "lib/VHDate.h"

namespace vh {

// The log folder, fixed at the first call (the data root's "Logs").
std::string VHLogDir();
// Points the log folder elsewhere; takes effect at the next VHOpenLogs.
void VHSetLogDir(const std::string& dir);

// Sets the log times to now, opens the files and routes VHLog to them.
void VHInitLogs();
// Closes and reopens the files for the current day, then cleans up.
void VHOpenLogs();
// Deletes ".log" files of the log folder modified more than 14 days ago.
void VHCleanupLogs();
// Closes all three files; their messages then go to standard error.
void VHClose();

// Opens the database log from the next VHOpenLogs on (off by default).
void VHSetEnableDBLog(bool enabled);

// Mirrors every line into the log window while a mirror is set.
using VHLogMirror = std::function<void(const std::string& line, int type)>;
void VHSetLogMirror(VHLogMirror mirror);

// Replaces the clock of the log facility (tests); an empty function restores
// the real clock.
void VHSetLogClock(std::function<VHDate()> clock);

}  // namespace vh
