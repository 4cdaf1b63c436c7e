// The state a fresh emulator starts with: a seed document (a file given on
// the command line, or the built-in demo account). Formats in the README.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "VHEmulatorStore.h"

namespace vh::emulator {

// The built-in demo account.
nlohmann::json VHDemoSeed();

// Loads a seed into the store in one transaction; false with `error` set
// when any part is refused (the store is then unchanged). Takes the lock.
bool VHLoadSeed(VHEmulatorStore& store, const nlohmann::json& seed, std::string& error);

}  // namespace vh::emulator
