// HTTP(S) requests over libcurl.
//
// Every request of the process shares one cookie store, verifies
// certificates, honours VARNHOLT_CONNECT_TO (connect every request to
// host:port while keeping the URL, TLS name, Host header and cookie domain)
// and VARNHOLT_CA_FILE (an extra trusted CA), each also read from the
// settings "VHConnectTo" and "VHCAFile". Each request/response pair is logged
// as "Request: %@ \n Response: %@" with secrets (passwords, tokens, cookies,
// "Authorization") replaced by "<redacted>".
#pragma once

#include <QObject>
#include <QPointer>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class QThreadPool;
class QTimer;

namespace vh {

using VHHttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct VHHttpRequest {
    std::string method = "GET";
    std::string url;
    VHHttpHeaders headers;
    std::string body;
    // Seconds without any progress (connecting or transferring) after which
    // the request fails as timed out; the platform default is 60.
    double timeout = 60.0;
    // Asked about once a second while the request runs; false ends it as
    // cancelled. Unset: the request runs to its end.
    std::function<bool()> keepGoing;
};

enum class VHHttpErrorKind { None, TimedOut, Cancelled, Failed };

struct VHHttpError {
    VHHttpErrorKind kind = VHHttpErrorKind::None;
    int code = 0;  // the libcurl result code
    std::string message;

    explicit operator bool() const { return kind != VHHttpErrorKind::None; }
    bool timedOut() const { return kind == VHHttpErrorKind::TimedOut; }
};

struct VHHttpResponse {
    long status = 0;  // 0 when no response arrived
    VHHttpHeaders headers;
    std::string body;
    VHHttpError error;

    // The value of the first header of that name, compared without case.
    std::string header(std::string_view name) const;
};

class VHHttp {
  public:
    // Sends and waits on the calling thread. Never call it on the main thread.
    static VHHttpResponse send(const VHHttpRequest& request);

    // Sends on the process's network thread and runs `completion` on the
    // thread of `context` (nothing runs when the context is gone by then).
    static void sendAsync(VHHttpRequest request, QObject* context,
                          std::function<void(VHHttpResponse)> completion);
    // Sends on the network thread and runs `completion` on a thread of `pool`.
    static void sendAsync(VHHttpRequest request, QThreadPool* pool,
                          std::function<void(VHHttpResponse)> completion);

    // Overrides of the settings and environment, mainly for tests; an empty
    // value switches the feature off.
    static void setConnectTo(const std::string& hostAndPort);
    static void setExtraCAFile(const std::string& path);

    // The shared cookie store.
    static void setCookie(const std::string& domain, const std::string& name,
                          const std::string& value, const std::string& path = "/");
    // Cookies in the Netscape text form, one line each.
    static std::vector<std::string> cookies();
    static void clearCookies();

    // Stops the network thread; pending asynchronous requests are dropped.
    // Call it before the process exits: threads that end afterwards leave
    // their handles to the OS instead of racing OpenSSL's exit clean-up.
    static void shutdown();

    // The texts that the request log would show for this pair.
    static std::string describeRequest(const VHHttpRequest& request);
    static std::string describeResponse(const VHHttpResponse& response, bool withBody);
};

// Drives libcurl's multi interface from the event loop of the thread that
// this object lives on; all methods and all callbacks run on that thread.
// This is how the download thread runs many streaming transfers at once.
class VHHttpMulti : public QObject {
    Q_OBJECT
  public:
    using TransferId = uint64_t;

    struct Handlers {
        // Once, when the response headers are complete (before any data).
        std::function<void(long status, const VHHttpHeaders& headers)> onResponse;
        // For each block of body bytes. Without it the body is collected into
        // the response given to onFinished. Returning false aborts the
        // transfer silently: no further callbacks.
        std::function<bool(std::string_view bytes)> onData;
        // Once, at the end, unless the transfer was cancelled or aborted.
        std::function<void(VHHttpResponse response)> onFinished;
    };

    explicit VHHttpMulti(QObject* parent = nullptr);
    ~VHHttpMulti() override;

    TransferId start(const VHHttpRequest& request, Handlers handlers);
    // Stops a transfer; none of its callbacks runs afterwards.
    void cancel(TransferId id);
    size_t runningCount() const;

  private:
    struct Transfer;
    static int socketCallback(void* easy, int fd, int what, void* self, void* socketData);
    static int timerCallback(void* multi, long timeoutMs, void* self);
    void onSocketActivity(int fd, int eventMask);
    void onTimeout();
    void readCompletions();
    void finish(Transfer* transfer, int curlCode);
    void removeTransfer(TransferId id);

    void* multi_ = nullptr;
    QTimer* timer_ = nullptr;
    TransferId nextId_ = 1;
    std::map<TransferId, std::unique_ptr<Transfer>> transfers_;
    std::map<int, std::pair<QObject*, QObject*>> notifiers_;  // fd -> (read, write)
};

}  // namespace vh
