// Text helpers of the emulator: host names, e-mail addresses, paths and
// header values. Everything here works on bytes; only ASCII letters change
// case.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vh::emulator {

std::string VHAsciiLowercase(std::string_view text);
bool VHSameAsciiText(std::string_view a, std::string_view b);  // ignoring ASCII case
bool VHHasPrefix(std::string_view text, std::string_view prefix);
// The non-empty parts between "/" ("/a//b/" gives "a", "b").
std::vector<std::string> VHPathComponents(std::string_view path);
// "%2F" becomes "/"; a malformed escape stays as it is.
std::string VHPercentDecoded(std::string_view text);

std::string VHBase64Encoded(std::string_view bytes);
// Nothing when the text is not padded standard Base64.
std::optional<std::string> VHBase64Decoded(std::string_view text);

// Writes one line to standard error, prefixed with the program's name.
void VHEmulatorLog(const std::string& line);

}  // namespace vh::emulator
