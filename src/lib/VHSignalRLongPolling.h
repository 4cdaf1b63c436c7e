// The long-polling transport of the hub client: builds the protocol's URLs,
// sends its requests through the HTTP layer (so the shared cookie store goes
// with every one of them) and turns the answers into parsed JSON or an error
// code. Requests run on the network thread; their completions run on the
// thread of the bound context object, and nothing else touches this object
// from another thread, so it needs no lock.
#pragma once

#include <QObject>
#include <QPointer>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "lib/VHHttp.h"
#include "lib/VHJsonRecord.h"

namespace vh {

// Error codes passed to the error callback, the platform's URL-loading codes.
inline constexpr int kSignalRErrorTimedOut = -1001;
// The connection was made but broke, or TLS failed.
inline constexpr int kSignalRErrorCannotConnect = -1004;
inline constexpr int kSignalRErrorNotConnectedToInternet = -1009;  // resolve/connect failures
// An HTTP status >= 400, an unparsable answer, {"E":..}.
inline constexpr int kSignalRErrorBadServerResponse = -1011;

struct VHSignalRReply {
    int errorCode = 0;  // 0 or one of kSignalRError*
    std::string errorMessage;
    VHJson json;  // the answer, an object, when errorCode is 0
};

// The error code and message of a failed exchange, or 0 and the answer
// parsed (after any keep-alive spaces the server wrote first).
VHSignalRReply VHSignalRReplyFrom(const VHHttpResponse& response);

class VHSignalRLongPolling : public std::enable_shared_from_this<VHSignalRLongPolling> {
  public:
    using Completion = std::function<void(const VHSignalRReply&)>;

    // `baseUrl` ends in the hub path ("https://host/signalr"); `connectionData`
    // is the JSON text of the hub list. Completions run on `context`'s thread
    // and not at all once it is gone.
    void bind(QObject* context, std::string baseUrl, std::string connectionData);
    void setConnectionToken(std::string token);

    void negotiate(double timeout, Completion done);
    // A transport request such as "connect", "start", "poll", "reconnect" or
    // "send"; `query` is added to the common parameters ("&messageId=...").
    void send(const std::string& command, const std::string& query, std::string formBody,
              double timeout, Completion done);
    // Posts /abort. It is not stopped by completeAbort; `done` (if set) runs
    // when the answer came or the request failed.
    void abort(double timeout, std::function<void()> done);

    // Stops any request in flight at once; no callbacks follow.
    void completeAbort();

  private:
    std::string url(const std::string& command, const std::string& query) const;
    void start(VHHttpRequest request, Completion done);

    QPointer<QObject> context_;
    std::string baseUrl_;
    std::string connectionData_;
    std::string connectionToken_;
    uint64_t nextRequest_ = 1;
    // Requests whose completion is still due, with the flag that ends them.
    std::map<uint64_t, std::shared_ptr<std::atomic<bool>>> inFlight_;
};

}  // namespace vh
