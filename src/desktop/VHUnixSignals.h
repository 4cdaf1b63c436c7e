// Turns SIGINT and SIGTERM into a Qt signal on the main thread (self-pipe),
// so that the orderly termination runs outside the signal handler.
#pragma once

#include <QObject>

class QSocketNotifier;

namespace vh {

class VHUnixSignals : public QObject {
    Q_OBJECT
  public:
    // Installs the handlers; a signal that comes before an instance exists
    // waits in the pipe. Call it first thing in main, before anything that
    // takes time: until then SIGTERM kills the process outright.
    static void install();

    // Delivers the signals, also those that came earlier, as
    // terminationRequested on the main thread. One instance per process.
    explicit VHUnixSignals(QObject* parent = nullptr);
    ~VHUnixSignals() override;

  signals:
    void terminationRequested(int signalNumber);

  private:
    void readPipe();
    QSocketNotifier* notifier_ = nullptr;
};

}  // namespace vh
