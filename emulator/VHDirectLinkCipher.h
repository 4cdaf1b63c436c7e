// The direct-link text of the web-client address: Base64 of AES-256-CBC
// without cipher padding over the UTF-8 text zero-padded to whole blocks.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vh::emulator {

// The clear text (trailing zero bytes removed); nothing when the Base64 or
// the cipher text is not valid for `key` (32 bytes) and `iv` (16 bytes).
std::optional<std::string> VHDecryptDirectLink(std::string_view base64, std::string_view key,
                                               std::string_view iv);

}  // namespace vh::emulator
