// Where a drive path really lives: temporary save folders that applications
// create (".sb-", "A Document Being Saved By", ".download") are redirected
// into the hidden temp area "/.TempFiles", as the database's archive map says.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "store/VHFile.h"
#include "store/VHLoginRecords.h"

namespace vh {

// The path's components from its first temporary folder to the end, joined
// as a path; empty when no component is a temporary folder.
std::string keyFromPath(std::string_view path);

// The drive path where `path` really lives: the archive map's value for the
// path itself or for its parent (plus the last component); else `path`.
std::string finalPath(const std::string& path);

// Names on the drive are bytes: a path reaches a share or an item only when
// each of its components is exactly that name (the store's share lookup
// ignores case and composition; these do not). Any thread.

// The share that a share or item path lies in; nothing for the root or a
// first component that names no share exactly.
std::optional<ManagedShare> driveShareWithPath(const std::string& path);
// The record of an item path (as VHDatabase::fileWithPath, deleted ones
// included); nothing when its share is not named exactly.
std::optional<VHFile> driveFileWithPath(const std::string& path);
// The parent id of the children of a share or folder path; empty when the
// share or folder is unknown.
std::string driveParentIdOfChildren(const std::string& path);

}  // namespace vh
