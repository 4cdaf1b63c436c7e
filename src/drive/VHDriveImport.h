// Puts local files onto the drive from inside the client.
//
// The client never makes a system call on its own mount: killed meanwhile it
// would hang there for good. These run the drive's own callbacks in-process
// instead, so every rule of the drive applies as it would to a program
// writing through the mount: names, read-only shares, the temp area, the
// upload queue. Any thread except the main thread (the store blocks) and the
// drive's own FUSE threads.
#pragma once

#include <functional>
#include <string>

namespace vh {

struct VHDriveImportResult {
    int error = 0;       // 0, or the errno value of the step that failed
    std::string fileId;  // the new file's internal name when error is 0
};

// Makes the folder at drive path `path` ("/Share/a/b") and its missing
// parents: 0 when it is a folder afterwards, else the errno of the first
// that could not be made (ENOTDIR when a file stands in the way).
int VHMakeDriveFolders(const std::string& path);

// Copies the local file `source` to the drive path `target`, which must not
// exist yet (EEXIST). A copy that fails part-way is removed again. The new
// file is whole when this returns, so it goes to the upload queue at once,
// without the quiet period that waits for programs to finish their saves;
// `whole` gets its id just before the queue may take it.
VHDriveImportResult VHCopyFileToDrive(
    const std::string& source, const std::string& target,
    const std::function<void(const std::string& fileId)>& whole = {});

}  // namespace vh
