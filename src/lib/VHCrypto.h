// Base64 and AES-256-CBC (PKCS#7 padding) over OpenSSL's libcrypto.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vh {

std::string VHBase64Encode(std::string_view bytes);
// Nothing when the text is not valid Base64.
std::optional<std::string> VHBase64Decode(std::string_view text);

// `key` must be 32 bytes and `iv` 16 bytes; nothing on any failure.
std::optional<std::string> VHAes256CbcEncrypt(std::string_view plain, std::string_view key,
                                              std::string_view iv);
std::optional<std::string> VHAes256CbcDecrypt(std::string_view cipher, std::string_view key,
                                              std::string_view iv);

}  // namespace vh
