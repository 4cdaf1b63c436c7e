// Tells a headless user what the upload queue does: one line per file when
// its upload starts and when it ends, in the main log and on standard error
// (the queue adds the periodic summary itself).
#pragma once

#include <QObject>

namespace vh {

class VHUploadProgressLog : public QObject {
    Q_OBJECT
  public:
    // Listens to the process-wide upload queue until destroyed.
    VHUploadProgressLog();
};

}  // namespace vh
