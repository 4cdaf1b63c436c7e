// The drive's name rules, shared by the drive, the metadata store and the
// transfer queues: which names are temporary, hidden, ignored (never sent to
// the server) or invalid. All tests are case-sensitive.
#pragma once

#include <string>
#include <string_view>

namespace vh {

inline constexpr const char* kTempShareId = "tmp";
inline constexpr const char* kTempFolder = ".TempFiles";
inline constexpr const char* kDocumentBeingSaved = "A Document Being Saved By";
// The nine characters no name on the drive may hold, in this order.
inline constexpr std::string_view kInvalidNameCharacters = "\\/:?*\"<>|";

// A temporary save folder of an application: contains "A Document Being
// Saved By" or ".sb-", or has the extension "download".
bool VHIsTempFolder(std::string_view name);
// A path inside the temp area: its first component below "/" is ".TempFiles".
bool VHIsInTempArea(std::string_view path);
// Contains ".sb-" (a safe-save name).
bool VHIsSafeSaveName(std::string_view name);
// Contains ".fuse_hidden" (a file deleted while open).
bool VHIsHiddenFuseName(std::string_view name);
// Never sent to the server: empty, ".", anything with ".sb-", "Icon\r", a last
// component that begins with "~" or "." or ends with ".tmp", or that has the
// extension "download".
bool VHIsPathIgnored(std::string_view path);

bool VHContainsInvalidCharacters(std::string_view name);
// Each invalid character replaced by "_".
std::string VHFixInvalidCharacters(std::string_view name);

// A server-supplied name or id that is safe as one file-system path
// component: not empty, not "." or "..", no "/" and no NUL.
bool VHIsSafePathComponent(std::string_view name);

}  // namespace vh
