// Confirms finished uploads: the service confirms a change through its
// journal, so a share whose uploads finished is caught up shortly after
// (once for a burst of uploads). Until then the items stay unconfirmed.
#pragma once

#include <QObject>
#include <QTimer>
#include <set>
#include <string>

namespace vh {

class VHUploadCatchUp : public QObject {
    Q_OBJECT
  public:
    static constexpr int kDelayMs = 2000;

    // Listens to the process-wide upload queue; lives on the main thread.
    VHUploadCatchUp();

  private:
    void uploadFinished(const std::string& shareId);
    void catchUpShares();

    std::set<std::string> shareIds_;
    QTimer timer_;
};

}  // namespace vh
