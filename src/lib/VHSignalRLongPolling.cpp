#include "lib/VHSignalRLongPolling.h"

#include <curl/curl.h>

#include "lib/VHStrings.h"

namespace vh {

namespace {

constexpr const char* kClientProtocol = "1.5";
constexpr size_t kQuotedBodyLimit = 200;

int errorCodeOf(const VHHttpError& error) {
    if (error.timedOut()) return kSignalRErrorTimedOut;
    switch (error.code) {
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_CONNECT:
            return kSignalRErrorNotConnectedToInternet;
        default:
            return kSignalRErrorCannotConnect;
    }
}

VHSignalRReply failure(int code, std::string message) {
    VHSignalRReply reply;
    reply.errorCode = code;
    reply.errorMessage = std::move(message);
    return reply;
}

}  // namespace

VHSignalRReply VHSignalRReplyFrom(const VHHttpResponse& response) {
    if (response.error) return failure(errorCodeOf(response.error), response.error.message);
    std::string_view body = response.body;
    if (response.status >= 400) {
        return failure(kSignalRErrorBadServerResponse,
                       "HTTP status " + std::to_string(response.status) + ": " +
                           std::string(body.substr(0, kQuotedBodyLimit)));
    }
    // The parser skips the leading spaces that the server writes as keep-alives.
    VHSignalRReply reply;
    reply.json = VHJson::parse(body.begin(), body.end(), nullptr, false);
    if (!reply.json.is_object()) {
        return failure(kSignalRErrorBadServerResponse,
                       "Unreadable answer: " + std::string(body.substr(0, kQuotedBodyLimit)));
    }
    return reply;
}

void VHSignalRLongPolling::bind(QObject* context, std::string baseUrl, std::string connectionData) {
    context_ = context;
    baseUrl_ = std::move(baseUrl);
    connectionData_ = std::move(connectionData);
    connectionToken_.clear();
}

void VHSignalRLongPolling::setConnectionToken(std::string token) {
    connectionToken_ = std::move(token);
}

void VHSignalRLongPolling::negotiate(double timeout, Completion done) {
    VHHttpRequest request;
    request.url = baseUrl_ + "/negotiate?clientProtocol=" + kClientProtocol +
                  "&connectionData=" + VHEscapeURLValue(connectionData_);
    request.timeout = timeout;
    start(std::move(request), std::move(done));
}

void VHSignalRLongPolling::send(const std::string& command, const std::string& query,
                                std::string formBody, double timeout, Completion done) {
    VHHttpRequest request;
    request.method = command == "start" ? "GET" : "POST";
    request.url = url(command, query);
    if (!formBody.empty()) {
        request.headers.emplace_back("Content-Type",
                                     "application/x-www-form-urlencoded; charset=UTF-8");
    }
    request.body = std::move(formBody);
    request.timeout = timeout;
    start(std::move(request), std::move(done));
}

void VHSignalRLongPolling::abort(double timeout, std::function<void()> done) {
    VHHttpRequest request;
    request.method = "POST";
    request.url = url("abort", "");
    request.timeout = timeout;
    VHHttp::sendAsync(std::move(request), context_.data(), [done](const VHHttpResponse&) {
        if (done) done();
    });
}

void VHSignalRLongPolling::completeAbort() {
    for (auto& [id, cancelled] : inFlight_) *cancelled = true;
    inFlight_.clear();
}

std::string VHSignalRLongPolling::url(const std::string& command, const std::string& query) const {
    return baseUrl_ + "/" + command + "?transport=longPolling&clientProtocol=" + kClientProtocol +
           "&connectionToken=" + VHEscapeURLValue(connectionToken_) +
           "&connectionData=" + VHEscapeURLValue(connectionData_) + query;
}

void VHSignalRLongPolling::start(VHHttpRequest request, Completion done) {
    uint64_t id = nextRequest_++;
    auto cancelled = std::make_shared<std::atomic<bool>>(false);
    inFlight_.emplace(id, cancelled);
    request.keepGoing = [cancelled] { return !*cancelled; };
    std::weak_ptr<VHSignalRLongPolling> weak = weak_from_this();
    VHHttp::sendAsync(std::move(request), context_.data(),
                      [weak, id, done = std::move(done)](const VHHttpResponse& response) {
                          auto self = weak.lock();
                          // An answer already queued when the request was
                          // aborted must not run either.
                          if (!self || self->inFlight_.erase(id) == 0) return;
                          done(VHSignalRReplyFrom(response));
                      });
}

}  // namespace vh
