// A run of bytes of a file: `length` bytes from `location` on.
#pragma once

#include <cstdint>

namespace vh {

struct VHByteRange {
    uint64_t location = 0;
    uint64_t length = 0;

    uint64_t end() const { return location + length; }
    // Whether every byte of `other` lies in this range.
    bool contains(const VHByteRange& other) const {
        return other.location >= location && other.end() <= end();
    }
    bool operator==(const VHByteRange&) const = default;
};

}  // namespace vh
