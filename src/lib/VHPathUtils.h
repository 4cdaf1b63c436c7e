// Path texts of the drive and the cache ("/Share/folder/file.txt"), handled
// as strings with the usual component rules: "/" is its own first component,
// trailing slashes are ignored, and the extension follows the last point of
// the last component.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vh {

// "/a/b/" -> {"/", "a", "b"}; "a/b" -> {"a", "b"}; "" -> {}.
std::vector<std::string> VHPathComponents(std::string_view path);
// "/a/b" -> "b"; "/a/b/" -> "b"; "/" -> "/"; "" -> "".
std::string VHLastPathComponent(std::string_view path);
// "/a/b" -> "/a"; "/a" -> "/"; "/" -> "/"; "a" -> "".
std::string VHDeletingLastPathComponent(std::string_view path);
// "x.tar.gz" -> "gz"; "x" -> ""; "dir.d/x" -> "".
std::string VHPathExtension(std::string_view path);
// "x.tar.gz" -> "x.tar"
std::string VHDeletingPathExtension(std::string_view path);
// Joins with one "/" between the parts.
std::string VHAppendingPathComponent(std::string_view path, std::string_view component);
// Joins components as VHPathComponents returns them ({"/", "a"} -> "/a").
std::string VHPathWithComponents(const std::vector<std::string>& components);

}  // namespace vh
