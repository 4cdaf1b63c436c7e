// Identifiers and secrets the emulator makes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vh::emulator {

// `bytes` random bytes as lower-case hex.
std::string VHRandomHex(size_t bytes);
// `bytes` random bytes as standard Base64 (may hold "+", "/" and "=").
std::string VHRandomBase64(size_t bytes);
// A lower-case GUID without dashes: internal names, share and user ids.
std::string VHNewInternalName();
// "U" followed by two GUIDs: the name of one content version.
std::string VHNewUploadName();
// Letters, digits, "-" and "_", 1 to 128 of them: safe as a key and in a URL.
bool VHIsPlainId(std::string_view id);

}  // namespace vh::emulator
