// The realtime connections of the signed-in user, one per domain id, and the
// thread they live on. Any thread; the map has its own lock (a leaf).
#pragma once

#include <QThread>
#include <map>
#include <memory>
#include <string>

#include "lib/VHThreadSafety.h"
#include "service/VHSRConnection.h"

namespace vh {

class VHSRConnections {
  public:
    explicit VHSRConnections(VHSRConnection::Actions actions);
    ~VHSRConnections();

    // The domain's connection, made on first use.
    VHSRConnection* connectionForDomain(const UserDomain& domain) VH_EXCLUDES(mutex_);
    // Hands the domain's gateway-login answer to its connection and connects.
    void connect(const UserDomain& domain, const ClientLoginResponse& answer) VH_EXCLUDES(mutex_);
    // Disconnects every connection and forgets them.
    void disconnectAll() VH_EXCLUDES(mutex_);
    // disconnectAll, then ends the thread; waits for it.
    void stop() VH_EXCLUDES(mutex_);

  private:
    VHSRConnection::Actions actions_;
    QThread thread_;
    VHMutex mutex_;
    std::map<std::string, VHSRConnection*> connections_ VH_GUARDED_BY(mutex_);  // live on thread_
};

}  // namespace vh
