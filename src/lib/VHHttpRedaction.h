// Keeps secrets out of the request log: passwords, tokens, cookies and
// "Authorization" values are replaced by "<redacted>" in header values, URL
// query values and JSON bodies (at any depth).
#pragma once

#include <string>
#include <string_view>

#include "lib/VHHttp.h"

namespace vh {

inline constexpr const char* kRedacted = "<redacted>";

// A header, query parameter or JSON key whose value is secret.
bool VHIsSecretName(std::string_view name);

std::string VHRedactedURL(std::string_view url);
std::string VHRedactedHeaders(const VHHttpHeaders& headers);
// A JSON body with secret values replaced; another text as it is, cut to
// `limit` bytes; bytes that are not text as "<N bytes>".
std::string VHRedactedBody(std::string_view body, size_t limit);

}  // namespace vh
