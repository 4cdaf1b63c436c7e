// What the end-to-end tests compare: bytes read through the drive, the
// emulator's view of a share, and the client's own record of an item.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "emulator/support/VHEmulatorProcess.h"

namespace vh::test {

// SHA-256 of `bytes`, lower-case hex.
std::string VHSha256Hex(const std::string& bytes);
// A whole file's bytes (empty when it cannot be read).
std::string VHReadWhole(const std::string& path);
// The emulator's tree entry of `path` in a share; null when absent.
nlohmann::json VHTreeItem(const VHEmulatorProcess& emulator, const std::string& shareId,
                          const std::string& path);
// The sequence number of the emulator's latest logged request (0 when none).
int64_t VHLastRequestSeq(const VHEmulatorProcess& emulator);
// The status of the running client's record of an item (its files.db in the
// test's HOME); -1 when there is none.
int64_t VHRecordStatus(const std::string& internalName);

}  // namespace vh::test
