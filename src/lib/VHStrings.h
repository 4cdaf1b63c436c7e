// Small string utilities shared by every layer. Strings are UTF-8.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vh {

// A new GUID in upper-case text with dashes ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F").
std::string VHGenerateGUID();

// Unicode canonical decomposition (NFD).
std::string VHDecomposed(std::string_view text);
// Unicode lower case.
std::string VHLowercase(std::string_view text);
// White space and line ends removed at both ends.
std::string VHTrimmed(std::string_view text);

// Percent-escapes everything but RFC 3986 unreserved characters, so the
// result can stand as a URL query value or a header value.
std::string VHEscapeURLValue(std::string_view text);
// Percent-escapes everything but the unreserved characters and `kept`.
std::string VHPercentEscape(std::string_view text, std::string_view kept);
// Removes percent-escapes ("%2F" -> "/"); malformed escapes stay as they are.
std::string VHRemovePercentEscapes(std::string_view text);

std::vector<std::string> VHSplit(std::string_view text, char separator);
bool VHStartsWith(std::string_view text, std::string_view prefix);
bool VHEndsWith(std::string_view text, std::string_view suffix);
bool VHContains(std::string_view text, std::string_view part);

}  // namespace vh
