// The XML property-list files of the store: a top-level dictionary whose
// values are strings or arrays of strings (other values are skipped when
// read).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vh {

struct VHPropertyList {
    std::map<std::string, std::string> strings;
    std::map<std::string, std::vector<std::string>> arrays;

    // Nothing when the file is missing or is not a property list holding a
    // dictionary.
    static std::optional<VHPropertyList> read(const std::string& path);
    // Writes atomically (a temporary file replaces the old one). On failure
    // returns false and, when given, the reason.
    bool write(const std::string& path, std::string* error = nullptr) const;
};

}  // namespace vh
