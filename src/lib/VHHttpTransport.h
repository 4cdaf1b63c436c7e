// Internal to the HTTP layer: libcurl set-up shared by the synchronous and
// the multi-handle paths. Not for use outside src/lib.
#pragma once

#include <curl/curl.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "lib/VHHttp.h"

namespace vh::http_detail {

// One request in flight: the request, the response being collected and the
// caller's streaming callbacks. Must outlive the easy handle's transfer.
struct VHHttpExchange {
    VHHttpRequest request;
    VHHttpResponse response;
    std::function<void(long, const VHHttpHeaders&)> onResponse;
    std::function<bool(std::string_view)> onData;
    bool responseAnnounced = false;
    bool aborted = false;
    // The idle time-out: when bytes last moved, how many had, and whether
    // the request ended for want of them.
    std::chrono::steady_clock::time_point lastProgress = std::chrono::steady_clock::now();
    curl_off_t movedBytes = 0;
    bool idleTimedOut = false;
    CURL* easy = nullptr;
    curl_slist* headerList = nullptr;
    curl_slist* connectTo = nullptr;
    char errorBuffer[CURL_ERROR_SIZE] = {};

    ~VHHttpExchange() {
        curl_slist_free_all(headerList);
        curl_slist_free_all(connectTo);
    }
    // Announces the response (status and headers) once.
    void announceResponse();
};

// Initialises libcurl once per process.
void VHHttpGlobalInit();

// Configures `easy` for `exchange` (URL, method, headers, body, time-out,
// cookie store, connect-to, extra CA, callbacks).
void VHHttpConfigure(CURL* easy, VHHttpExchange& exchange);

// Fills the exchange's status and error from the transfer's result.
void VHHttpComplete(CURL* easy, VHHttpExchange& exchange, CURLcode code);

// Logs the pair; the body only when it was collected.
void VHHttpLogExchange(const VHHttpExchange& exchange, bool bodyCollected);

void VHHttpSetConnectTo(const std::string& value);
void VHHttpSetExtraCAFile(const std::string& path);
CURLSH* VHHttpShare();

}  // namespace vh::http_detail
