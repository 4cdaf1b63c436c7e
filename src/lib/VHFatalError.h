// The two failures after which the client cannot go on: the metadata
// database cannot be created or opened (status 10), or the data folders
// cannot be set up (status 100).
//
// Lower layers report them here and then fail the call at hand as usual;
// they never end the process themselves, because they may be on the database
// thread or a FUSE thread while others run. The desktop layer installs a
// handler that unmounts the drive in order on the main thread and exits with
// the status. Until then (tools, tests without a handler) the process exits
// at once.
#pragma once

#include <functional>

namespace vh {

inline constexpr int kExitDatabaseFailure = 10;
inline constexpr int kExitDataFolderFailure = 100;

using VHFatalErrorHandler = std::function<void(int status)>;

// Installs the handler for all later reports; an empty function restores the
// default (std::exit). Thread-safe.
void VHSetFatalErrorHandler(VHFatalErrorHandler handler);

// Reports a fatal failure from any thread. Only the first report is acted on;
// later ones are ignored. Returns to the caller when a handler is installed.
void VHReportFatalError(int status);

// Whether a fatal failure was reported; the process is on its way out.
bool VHFatalErrorReported();

}  // namespace vh
