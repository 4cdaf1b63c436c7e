#include "desktop/VHUploadProgressLog.h"

#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "store/VHDatabase.h"
#include "transfer/VHUploadQueue.h"

namespace vh {

namespace {

void tell(const std::string& line) {
    VHLog(kLogMain, "%@", line);
    VHSystemLog(line);
}

// The drive path, or the name when the item is gone meanwhile.
std::string shownPath(const VHFile& file) {
    std::string path = VHDatabase::database().fullFilePath(file);
    return path.empty() ? file.publicName : path;
}

}  // namespace

VHUploadProgressLog::VHUploadProgressLog() {
    VHUploadQueue& queue = VHUploadQueue::uploadQueue();
    // Direct: the lines must not wait for a busy main thread.
    connect(
        &queue, &VHUploadQueue::fileUploadStarted, this,
        [](const VHFile& file, qint64 total, qint64 queued) {
            tell(VHFormat("Upload started: %@ (%ld bytes; %ld files, %ld bytes pending)",
                          shownPath(file), file.fileSize, queued, total));
        },
        Qt::DirectConnection);
    connect(
        &queue, &VHUploadQueue::fileUploadFinished, this,
        [](const VHFile& file, bool error) {
            tell(VHFormat(error ? "Upload stopped, to be tried again: %@" : "Upload finished: %@",
                          shownPath(file)));
        },
        Qt::DirectConnection);
}

}  // namespace vh
