// Turns SIGINT and SIGTERM into a Qt signal on the main thread (self-pipe),
// so that the orderly termination runs outside the signal handler.
#pragma once

#include <QObject>

class QSocketNotifier;

namespace vh {

class VHUnixSignals : public QObject {
    Q_OBJECT
  public:
    // Installs the handlers; one instance per process, on the main thread.
    explicit VHUnixSignals(QObject* parent = nullptr);
    ~VHUnixSignals() override;

  signals:
    void terminationRequested(int signalNumber);

  private:
    void readPipe();
    QSocketNotifier* notifier_ = nullptr;
};

}  // namespace vh
