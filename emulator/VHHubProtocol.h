// The stateless pieces of the realtime hub's wire protocol (long polling):
// cursors, connection tokens, form bodies, cookies, protocol versions and
// the hub list a client subscribes to.
#pragma once

#include <httplib.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vh::emulator {

// How far a connection has been served: the seq of the domain's events and
// the number of the connection's own messages.
struct VHHubCursor {
    int64_t seq = 0;
    int64_t own = 0;
};

// "d-<seq>-<own>"; clients treat it as opaque.
std::string VHHubCursorText(const VHHubCursor& cursor);
std::optional<VHHubCursor> VHParseHubCursor(std::string_view text);

struct VHHubIdentity {
    std::string connectionId;
    std::string email;
};

// Binds a connection id to the user it was negotiated for. The token is
// readable again after a restart, so a client keeps its connection.
std::string VHHubToken(const VHHubIdentity& identity);
std::optional<VHHubIdentity> VHParseHubToken(std::string_view token);
// A GUID with dashes.
std::string VHNewHubConnectionId();

// The decoded value of `name` in a form body ("a=1&b=x+y"); nothing when absent.
std::optional<std::string> VHFormValue(std::string_view body, std::string_view name);
// The value of the cookie `name` in any "Cookie" header; empty when absent.
std::string VHCookieValue(const httplib::Request& request, std::string_view name);

// The version to answer: the client's, at most "2.0" and at least "1.2".
std::string VHHubProtocolVersion(std::string_view clientProtocol);

// The hub names of "connectionData" ('[{"name":"vhhub"}]', an empty text
// for none); nothing when it is not such a list.
std::optional<std::vector<std::string>> VHHubNames(const std::string& connectionData);

}  // namespace vh::emulator
