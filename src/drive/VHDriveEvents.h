// The drive's notifications to the application: mounted, mount failed,
// unmounted, and refusals the user must be told of. Signals are emitted on FUSE's threads; connect
// with a queued connection to act on the main thread.
#pragma once

#include <QObject>

namespace vh {

class VHDriveEvents : public QObject {
    Q_OBJECT
  public:
    // The process-wide instance.
    static VHDriveEvents& instance();

  signals:
    // The kernel handshake completed: the drive is usable.
    void fuseDidMount();
    // The mount-point checks failed; `code` is -1 to -4.
    void fuseMountFailed(int code);
    // The FUSE session ended (unmounted from inside or outside).
    void fuseDidUnmount();
    // A change on the drive was refused for a reason the user must see; the
    // application shows it a second later (the callback already failed).
    void driveAlert(const QString& title, const QString& message);
};

}  // namespace vh
