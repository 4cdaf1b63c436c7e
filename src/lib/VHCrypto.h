// Base64 and AES-256-CBC over OpenSSL's libcrypto.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vh {

std::string VHBase64Encode(std::string_view bytes);
// Nothing when the text is not valid Base64.
std::optional<std::string> VHBase64Decode(std::string_view text);

enum class VHCipherPadding { Pkcs7, None };

// `key` must be 32 bytes and `iv` 16 bytes; without padding the input must be
// whole blocks. Nothing on any failure, with OpenSSL's error code in `error`
// when given (0 for a wrong key, IV or input size).
std::optional<std::string> VHAes256CbcEncrypt(std::string_view plain, std::string_view key,
                                              std::string_view iv,
                                              VHCipherPadding padding = VHCipherPadding::Pkcs7,
                                              unsigned long* error = nullptr);
std::optional<std::string> VHAes256CbcDecrypt(std::string_view cipher, std::string_view key,
                                              std::string_view iv,
                                              VHCipherPadding padding = VHCipherPadding::Pkcs7,
                                              unsigned long* error = nullptr);

}  // namespace vh
