#include "lib/VHHttp.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>

#include "lib/VHHandOff.h"
#include "lib/VHHttpRedaction.h"
#include "lib/VHHttpTransport.h"
#include "lib/VHStrings.h"
#include "lib/VHThreadSafety.h"

namespace vh {

using http_detail::VHHttpExchange;

namespace {

constexpr size_t kLoggedBodyLimit = 4096;

// The thread on which asynchronous requests run, created on first use.
class NetworkThread {
  public:
    VHHttpMulti* multi() VH_EXCLUDES(mutex_) {
        VHMutexLock lock(mutex_);
        if (!thread_) {
            thread_ = new QThread;
            thread_->setObjectName("VHHttpNetwork");
            multi_ = new VHHttpMulti;
            multi_->moveToThread(thread_);
            QObject::connect(thread_, &QThread::finished, multi_, &QObject::deleteLater);
            VHStartThread(*thread_);
        }
        return multi_;
    }

    void stop() VH_EXCLUDES(mutex_) {
        QThread* thread = nullptr;
        {
            VHMutexLock lock(mutex_);
            std::swap(thread, thread_);
            multi_ = nullptr;
        }
        if (!thread) return;
        // Not under the lock: the thread's last events may still start requests.
        thread->quit();
        VHWaitForThread(*thread);
        delete thread;
    }

    ~NetworkThread() { stop(); }

  private:
    VHMutex mutex_;
    QThread* thread_ VH_GUARDED_BY(mutex_) = nullptr;
    VHHttpMulti* multi_ VH_GUARDED_BY(mutex_) = nullptr;  // lives on thread_
};

NetworkThread& networkThread() {
    static NetworkThread thread;
    return thread;
}

// Threads keep one handle each for send(). A thread that ends during the
// process's exit must not clean its handle up: OpenSSL may be cleaning up
// at the same moment. So once shutdown() ran, handles are left to the OS.
VHMutex gThreadHandlesMutex;
bool gThreadHandlesClosed VH_GUARDED_BY(gThreadHandlesMutex) = false;

void releaseThreadHandle(CURL* easy) {
    VHMutexLock lock(gThreadHandlesMutex);
    if (!gThreadHandlesClosed) curl_easy_cleanup(easy);
}

// Starts `request` on the network thread; `deliver` gets the response there.
void startOnNetworkThread(VHHttpRequest request, std::function<void(VHHttpResponse)> deliver) {
    VHHttpMulti* multi = networkThread().multi();
    QMetaObject::invokeMethod(multi, VHHandOff([multi, request = std::move(request),
                                                deliver = std::move(deliver)]() mutable {
                                  VHHttpMulti::Handlers handlers;
                                  handlers.onFinished = std::move(deliver);
                                  multi->start(request, std::move(handlers));
                              }));
}

}  // namespace

std::string VHHttpResponse::header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
        if (key.size() == name.size() && strncasecmp(key.data(), name.data(), key.size()) == 0) {
            return value;
        }
    }
    return {};
}

VHHttpResponse VHHttp::send(const VHHttpRequest& request) {
    http_detail::VHHttpGlobalInit();
    // One handle per thread keeps its connections alive between requests.
    thread_local std::unique_ptr<CURL, decltype(&releaseThreadHandle)> handle(curl_easy_init(),
                                                                              releaseThreadHandle);
    CURL* easy = handle.get();
    curl_easy_reset(easy);
    VHHttpExchange exchange;
    exchange.request = request;
    http_detail::VHHttpConfigure(easy, exchange);
    CURLcode code = curl_easy_perform(easy);
    http_detail::VHHttpComplete(easy, exchange, code);
    http_detail::VHHttpLogExchange(exchange, true);
    return std::move(exchange.response);
}

void VHHttp::sendAsync(VHHttpRequest request, QObject* context,
                       std::function<void(VHHttpResponse)> completion) {
    QPointer<QObject> target(context);
    startOnNetworkThread(
        std::move(request), [target, completion = std::move(completion)](VHHttpResponse response) {
            if (!target) return;
            QMetaObject::invokeMethod(
                target.data(),
                VHHandOff([completion, response = std::move(response)] { completion(response); }));
        });
}

void VHHttp::sendAsync(VHHttpRequest request, QThreadPool* pool,
                       std::function<void(VHHttpResponse)> completion) {
    startOnNetworkThread(
        std::move(request), [pool, completion = std::move(completion)](VHHttpResponse response) {
            pool->start(
                VHHandOff([completion, response = std::move(response)] { completion(response); }));
        });
}

void VHHttp::setConnectTo(const std::string& hostAndPort) {
    http_detail::VHHttpSetConnectTo(hostAndPort);
}

void VHHttp::setExtraCAFile(const std::string& path) {
    http_detail::VHHttpSetExtraCAFile(path);
}

namespace {

// Hands a cookie command to the shared store through a throw-away handle.
void applyCookieCommand(const std::string& text) {
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_SHARE, http_detail::VHHttpShare());
    curl_easy_setopt(easy, CURLOPT_COOKIELIST, text.c_str());
    curl_easy_cleanup(easy);
}

}  // namespace

void VHHttp::setCookie(const std::string& domain, const std::string& name, const std::string& value,
                       const std::string& path) {
    // Netscape form: domain, include subdomains, path, secure, expiry, name, value.
    applyCookieCommand("." + domain + "\tTRUE\t" + path + "\tFALSE\t0\t" + name + "\t" + value);
}

std::vector<std::string> VHHttp::cookies() {
    CURL* easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_SHARE, http_detail::VHHttpShare());
    curl_slist* list = nullptr;
    curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &list);
    std::vector<std::string> lines;
    for (curl_slist* item = list; item; item = item->next) lines.emplace_back(item->data);
    curl_slist_free_all(list);
    curl_easy_cleanup(easy);
    return lines;
}

void VHHttp::clearCookies() {
    applyCookieCommand("ALL");
}

void VHHttp::shutdown() {
    networkThread().stop();
    VHMutexLock lock(gThreadHandlesMutex);
    gThreadHandlesClosed = true;
}

std::string VHHttp::describeRequest(const VHHttpRequest& request) {
    std::string text = request.method + " " + VHRedactedURL(request.url) + " " +
                       VHRedactedHeaders(request.headers);
    if (!request.body.empty()) text += " body: " + VHRedactedBody(request.body, kLoggedBodyLimit);
    return text;
}

std::string VHHttp::describeResponse(const VHHttpResponse& response, bool withBody) {
    std::string text =
        "status " + std::to_string(response.status) + " " + VHRedactedHeaders(response.headers);
    if (response.error) text += " error: " + response.error.message;
    if (withBody && !response.body.empty()) {
        text += " body: " + VHRedactedBody(response.body, kLoggedBodyLimit);
    }
    return text;
}

}  // namespace vh
