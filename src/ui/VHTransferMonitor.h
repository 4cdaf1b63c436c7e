// What the user sees of the transfers: the files uploading and downloading
// now (from the queues' signals) and the totals still to go (asked of the
// queues once a second while anything moves).
//
// Main thread only; the queues' signals arrive queued.
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "store/VHFile.h"

namespace vh {

class VHTransferMonitor : public QObject {
    Q_OBJECT
  public:
    struct Transfer {
        QString name;
        bool upload = false;
        qint64 size = 0;  // bytes of the file
        qint64 done = 0;  // bytes the other side holds
    };
    struct Totals {
        int64_t uploads = 0, uploadBytes = 0;
        int64_t downloads = 0, downloadBytes = 0;
        double uploadSpeed = 0, downloadSpeed = 0;  // bytes per second
    };

    explicit VHTransferMonitor(QObject* parent = nullptr);

    // Running transfers, uploads first, each kind by name.
    std::vector<Transfer> transfers() const;
    const Totals& totals() const { return totals_; }
    bool active() const { return !running_.empty() || totals_.uploads || totals_.downloads; }

    // Asks the queues for the totals now.
    void refreshTotals();

    // "12.3 MB": a byte count for people, in the interface language.
    static QString byteText(int64_t bytes);
    // One line each, or empty when nothing goes that way.
    static QString uploadLine(const Totals& totals);
    static QString downloadLine(const Totals& totals);

  signals:
    void changed();

  private:
    void started(const VHFile& file, bool upload);
    void progressed(const VHFile& file, bool upload, qint64 done);
    void finished(const VHFile& file, bool upload);

    std::map<std::string, Transfer> running_;  // "u:" or "d:" + internalName
    Totals totals_;
    QTimer poll_;
};

}  // namespace vh
