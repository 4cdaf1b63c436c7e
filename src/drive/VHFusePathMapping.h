// Where a drive path really lives: temporary save folders that applications
// create (".sb-", "A Document Being Saved By", ".download") are redirected
// into the hidden temp area "/.TempFiles", as the database's archive map says.
#pragma once

#include <string>
#include <string_view>

namespace vh {

// The path's components from its first temporary folder to the end, joined
// as a path; empty when no component is a temporary folder.
std::string keyFromPath(std::string_view path);

// The drive path where `path` really lives: the archive map's value for the
// path itself or for its parent (plus the last component); else `path`.
std::string finalPath(const std::string& path);

}  // namespace vh
