#include "desktop/VHDriveController.h"

#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "drive/VHFuseMount.h"
#include "lib/VHAppInfo.h"
#include "lib/VHLog.h"

namespace vh {

namespace {
constexpr int kMaxDeadLayers = 8;
}

VHDriveController::VHDriveController(QObject* parent) : QObject(parent) {}

VHDriveController::~VHDriveController() {
    // A loop that outlives the application ends with the process.
    if (thread_.joinable()) thread_.detach();
}

bool VHDriveController::start(const std::string& path, const std::string& options) {
    if (thread_.joinable()) return false;
    path_ = path;
    // No loop of ours runs, so a mount found here belongs to another process.
    // Killed clients may have left several, one above the other.
    for (int layer = 0; layer < kMaxDeadLayers && VHIsDeadMount(path); ++layer) {
        VHLog(kLogMain,
              "Warning! Found dead filesystem on mountpoint %@. Unmounted using our force.", path);
        if (VHUnmountDrive(path, true) != 0) {
            VHLog(kLogMain, "Error! Our force was not enough to unmount dead filesystem. Sad.");
            break;
        }
    }
    mkdir(path.c_str(), 0700);
    thread_ = std::thread([this, path, options] {
        std::vector<std::string> args = {kAppTitle, path, "-f", "-o", options};
        std::vector<char*> argv;
        for (std::string& arg : args) argv.push_back(arg.data());
        int result = mount_varnholt(static_cast<int>(argv.size()), argv.data());
        QMetaObject::invokeMethod(
            this, [this, result] { threadEnded(result); }, Qt::QueuedConnection);
    });
    return true;
}

int VHDriveController::unmount(bool quiet) {
    int error = VHUnmountDrive(path_, false);
    if (error && !quiet) VHLog(kLogMain, "Failed to unmount drive : error %d", error);
    if (error == EBUSY) {
        error = VHUnmountDrive(path_, true);
        if (error && !quiet) VHLog(kLogMain, "Failed even forced unmount : error %d", error);
    }
    return error;
}

void VHDriveController::threadEnded(int result) {
    if (thread_.joinable()) thread_.join();  // its last step was to post this
    emit stopped(result);
}

}  // namespace vh
