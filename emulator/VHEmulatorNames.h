// Which names the emulator keeps for files and folders. Everything else a
// client sends (including characters that a drive may refuse) is stored as
// it came.
#pragma once

#include <string_view>

namespace vh::emulator {

inline constexpr size_t kMaxItemNameBytes = 255;

// 1 to 255 bytes, not "." or "..", without "/" or NUL.
bool VHIsAcceptableItemName(std::string_view name);

}  // namespace vh::emulator
