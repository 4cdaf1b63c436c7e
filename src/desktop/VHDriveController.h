// The drive's FUSE loop on its own thread, as the application runs it: one
// loop at a time, unmounted as an eject would (by force when busy), and
// followed until the loop has ended.
//
// Main thread only. Nothing here makes a system call on the mounted drive:
// a FUSE server blocked on its own mount can be neither answered nor killed.
// The mount point is looked at only while no loop of this process runs.
#pragma once

#include <QObject>
#include <string>
#include <thread>

namespace vh {

class VHDriveController : public QObject {
    Q_OBJECT
  public:
    explicit VHDriveController(QObject* parent = nullptr);
    ~VHDriveController() override;

    // Clears a dead mount left at `path` by an earlier process, makes the
    // folder and starts the loop. False, doing nothing, while a loop runs.
    bool start(const std::string& path, const std::string& options);
    // From start() until stopped() was emitted: mounting, mounted or ending.
    bool running() const { return thread_.joinable(); }

    // Unmounts as an eject would and, when that finds the drive busy, by
    // force. With `quiet` nothing is logged (a retry while the mount is not
    // yet made). Returns 0 or the errno value of the last attempt; EINVAL
    // when nothing is mounted there (yet).
    int unmount(bool quiet = false);

  signals:
    // The loop has ended and its thread is gone; `result` is mount_varnholt's.
    void stopped(int result);

  private:
    void threadEnded(int result);

    std::string path_;
    std::thread thread_;
};

}  // namespace vh
