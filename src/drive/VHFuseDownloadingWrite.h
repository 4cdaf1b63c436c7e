// Writes into a file whose local copy is not complete yet.
//
// A write needs the bytes around it: the whole file is asked for at high
// priority and the write waits, as a read does (7 s at most), until the
// downloaded prefix covers the range it touches. Inside the prefix it goes
// into the partial copy (later bytes only extend the prefix, so it stays);
// a write that reaches the file's end waits for the complete copy.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "store/VHFile.h"

namespace vh {

// The bytes written into the partial copy, or -errno (-EIO when the range did
// not arrive in time); nothing when the copy is complete and the caller
// writes it as usual.
std::optional<int> VHWriteWhileDownloading(const VHFile& file, const char* buffer, size_t size,
                                           off_t offset, const std::string& path);

}  // namespace vh
