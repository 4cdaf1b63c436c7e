// One request and its answer as the emulator's handlers see them: the
// request, the service host it was addressed to, the captured parts of the
// route's path pattern, and helpers to read the body and to answer.
//
// A handler runs on one of the server's threads; the exchange belongs to it.
#pragma once

#include <httplib.h>

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "VHEmulatorDefaults.h"
#include "VHEmulatorTypes.h"

namespace vh::emulator {

class VHEmulatorExchange {
  public:
    // `reader` is null for requests whose body the server does not read
    // (GET). A request that announces no body (neither "Content-Length" nor
    // a chunked "Transfer-Encoding") has an empty one and is never read.
    VHEmulatorExchange(const httplib::Request& request, httplib::Response& response,
                       const httplib::ContentReader* reader);

    const httplib::Request& request;
    httplib::Response& response;
    std::string host;       // lower case, without a port
    std::string domainUrl;  // "d1.varnholt.test" of "filecache01.d1.varnholt.test"
    std::vector<std::string> params;

    std::string header(const std::string& name) const;
    std::string query(const std::string& name) const;

    // The whole body; nothing when it is larger than `limit` or cannot be read.
    std::optional<std::string> body(size_t limit = kMaxJsonBody);
    // The body as a JSON value; nothing when missing or not JSON.
    std::optional<nlohmann::json> jsonBody();
    // Hands the body to `sink` piece by piece; false when reading or the sink failed.
    bool streamBody(const std::function<bool(const char*, size_t)>& sink);
    // Reads and drops an unread body, so the next request on the connection
    // starts where it should.
    void drainBody();
    uint64_t bodyBytes() const { return bodyBytes_; }

    void reply(int status, const nlohmann::json& json);
    void replyText(int status, const std::string& text,
                   const std::string& type = "text/plain; charset=utf-8");
    // Answers 200 with `length` bytes of the open file `fd` from `offset`
    // on, read while the answer is sent; takes over the descriptor.
    void replyFile(int fd, uint64_t offset, uint64_t length);
    // A refusal as the file API answers it.
    void replyFailure(const VHEmulatorFailure& failure);
    // Closes the connection without an answer.
    void dropConnection();

  private:
    const httplib::ContentReader* reader_;
    bool announcesBody_ = false;
    bool bodyTaken_ = false;
    uint64_t bodyBytes_ = 0;
};

}  // namespace vh::emulator
