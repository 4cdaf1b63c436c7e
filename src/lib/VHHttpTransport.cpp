#include "lib/VHHttpTransport.h"

#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <mutex>
#include <optional>

#include "lib/VHAppInfo.h"
#include "lib/VHLog.h"
#include "lib/VHSettings.h"
#include "lib/VHThreadSafety.h"

namespace vh::http_detail {

namespace {

// Lock order: none of these locks is held while another is taken, and none
// across a libcurl call (libcurl takes the share locks itself, and the CA
// callback takes gConfigMutex during a handshake).
VHMutex gConfigMutex;
// nullopt: not read yet.
std::optional<std::string> gConnectTo VH_GUARDED_BY(gConfigMutex);
std::optional<std::string> gCAFile VH_GUARDED_BY(gConfigMutex);
std::vector<X509*> gExtraCAs VH_GUARDED_BY(gConfigMutex);  // parsed from gCAFile

VHMutex gShareLocks[CURL_LOCK_DATA_LAST];
CURLSH* gShare = nullptr;  // made once by VHHttpGlobalInit

// libcurl pairs these calls itself, which the analysis cannot follow.
void lockShare(CURL*, curl_lock_data data, curl_lock_access, void*) VH_NO_THREAD_SAFETY_ANALYSIS {
    gShareLocks[data].lock();
}
void unlockShare(CURL*, curl_lock_data data, void*) VH_NO_THREAD_SAFETY_ANALYSIS {
    gShareLocks[data].unlock();
}

void freeExtraCAs() VH_REQUIRES(gConfigMutex) {
    for (X509* cert : gExtraCAs) X509_free(cert);
    gExtraCAs.clear();
}

void loadExtraCAs(const std::string& path) VH_REQUIRES(gConfigMutex) {
    freeExtraCAs();
    if (path.empty()) return;
    BIO* bio = BIO_new_file(path.c_str(), "r");
    if (!bio) {
        VHLog(kLogMain, "Warning! Cannot read the CA file %@.", path);
        return;
    }
    while (X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr))
        gExtraCAs.push_back(cert);
    BIO_free(bio);
}

// Reads the two settings once, unless a setter came first.
void loadConfigLocked() VH_REQUIRES(gConfigMutex) {
    if (!gConnectTo) gConnectTo = VHSettings::overridable("VARNHOLT_CONNECT_TO", "VHConnectTo");
    if (!gCAFile) {
        gCAFile = VHSettings::overridable("VARNHOLT_CA_FILE", "VHCAFile");
        loadExtraCAs(*gCAFile);
    }
}

CURLcode addExtraCAs(CURL*, void* sslContext, void*) {
    X509_STORE* store = SSL_CTX_get_cert_store(static_cast<SSL_CTX*>(sslContext));
    VHMutexLock lock(gConfigMutex);
    for (X509* cert : gExtraCAs) X509_STORE_add_cert(store, cert);
    return CURLE_OK;
}

size_t onHeader(char* data, size_t size, size_t count, void* userData) {
    auto* exchange = static_cast<VHHttpExchange*>(userData);
    std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) {
        exchange->response.headers.clear();  // a new response (redirect, 100 Continue)
    } else if (size_t colon = line.find(':'); colon != std::string_view::npos) {
        auto trim = [](std::string_view s) {
            while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
            while (!s.empty() && (s.back() == '\r' || s.back() == '\n' || s.back() == ' ')) {
                s.remove_suffix(1);
            }
            return std::string(s);
        };
        exchange->response.headers.emplace_back(trim(line.substr(0, colon)),
                                                trim(line.substr(colon + 1)));
    }
    return size * count;
}

size_t onBody(char* data, size_t size, size_t count, void* userData) {
    auto* exchange = static_cast<VHHttpExchange*>(userData);
    std::string_view bytes(data, size * count);
    exchange->announceResponse();
    if (exchange->onData) {
        if (!exchange->onData(bytes)) {
            exchange->aborted = true;
            return 0;
        }
    } else {
        exchange->response.body.append(bytes);
    }
    return bytes.size();
}

// libcurl's progress callback: ends a transfer its caller gave up, or whose
// bytes stopped moving for the request's time-out.
int endIdleTransfer(void* data, curl_off_t, curl_off_t downloaded, curl_off_t,
                    curl_off_t uploaded) {
    auto& exchange = *static_cast<VHHttpExchange*>(data);
    if (exchange.request.keepGoing && !exchange.request.keepGoing()) {
        exchange.aborted = true;
        return 1;
    }
    auto now = std::chrono::steady_clock::now();
    if (downloaded + uploaded != exchange.movedBytes) {
        exchange.movedBytes = downloaded + uploaded;
        exchange.lastProgress = now;
        return 0;
    }
    if (now - exchange.lastProgress < std::chrono::duration<double>(exchange.request.timeout)) {
        return 0;
    }
    exchange.idleTimedOut = true;
    return 1;
}

}  // namespace

void VHHttpExchange::announceResponse() {
    if (responseAnnounced) return;
    responseAnnounced = true;
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &response.status);
    if (onResponse) onResponse(response.status, response.headers);
}

void VHHttpGlobalInit() {
    static std::once_flag once;
    std::call_once(once, [] {
        curl_global_init(CURL_GLOBAL_DEFAULT);
        gShare = curl_share_init();
        curl_share_setopt(gShare, CURLSHOPT_LOCKFUNC, lockShare);
        curl_share_setopt(gShare, CURLSHOPT_UNLOCKFUNC, unlockShare);
        curl_share_setopt(gShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
        curl_share_setopt(gShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_DNS);
        curl_share_setopt(gShare, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
    });
}

CURLSH* VHHttpShare() {
    VHHttpGlobalInit();
    return gShare;
}

void VHHttpSetConnectTo(const std::string& value) {
    VHMutexLock lock(gConfigMutex);
    gConnectTo = value;
}

void VHHttpSetExtraCAFile(const std::string& path) {
    VHMutexLock lock(gConfigMutex);
    gCAFile = path;
    loadExtraCAs(path);
}

void VHHttpConfigure(CURL* easy, VHHttpExchange& exchange) {
    const VHHttpRequest& request = exchange.request;
    exchange.easy = easy;
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_SHARE, VHHttpShare());
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");  // cookie engine on, nothing to read
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, exchange.errorBuffer);
    std::string agent = std::string(kAppTitle) + "/" + kShortVersion;
    curl_easy_setopt(easy, CURLOPT_USERAGENT, agent.c_str());

    // An idle time-out: no byte moved for `timeout` seconds ends the request.
    // (libcurl's low-speed check averages over seconds and fired late.)
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.timeout * 1000));
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, endIdleTransfer);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &exchange);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);

    bool hasContentType = false;
    for (const auto& [name, value] : request.headers) {
        std::string line = value.empty() ? name + ";" : name + ": " + value;
        exchange.headerList = curl_slist_append(exchange.headerList, line.c_str());
        if (strcasecmp(name.c_str(), "Content-Type") == 0) hasContentType = true;
    }
    exchange.headerList = curl_slist_append(exchange.headerList, "Expect:");
    if (!hasContentType)
        exchange.headerList = curl_slist_append(exchange.headerList, "Content-Type:");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, exchange.headerList);

    if (request.method == "HEAD") {
        curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else if (request.method != "GET" || !request.body.empty()) {
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body.data());
        if (request.method != "POST") {
            curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, request.method.c_str());
        }
    }

    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &exchange);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &exchange);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, &exchange);

    VHMutexLock lock(gConfigMutex);
    loadConfigLocked();
    if (!gConnectTo->empty()) {
        exchange.connectTo = curl_slist_append(nullptr, ("::" + *gConnectTo).c_str());
        curl_easy_setopt(easy, CURLOPT_CONNECT_TO, exchange.connectTo);
    }
    if (!gExtraCAs.empty()) curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, addExtraCAs);
}

void VHHttpComplete(CURL* easy, VHHttpExchange& exchange, CURLcode code) {
    curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &exchange.response.status);
    VHHttpError& error = exchange.response.error;
    error.code = code;
    if (code == CURLE_OK) {
        error.kind = VHHttpErrorKind::None;
        return;
    }
    bool timedOut = code == CURLE_OPERATION_TIMEDOUT ||
                    (code == CURLE_ABORTED_BY_CALLBACK && exchange.idleTimedOut);
    error.kind = exchange.aborted ? VHHttpErrorKind::Cancelled
                 : timedOut       ? VHHttpErrorKind::TimedOut
                                  : VHHttpErrorKind::Failed;
    error.message = exchange.errorBuffer[0] ? exchange.errorBuffer : curl_easy_strerror(code);
}

void VHHttpLogExchange(const VHHttpExchange& exchange, bool bodyCollected) {
    VHLog(kLogMain, "Request: %@ \n Response: %@", VHHttp::describeRequest(exchange.request),
          VHHttp::describeResponse(exchange.response, bodyCollected));
}

}  // namespace vh::http_detail
