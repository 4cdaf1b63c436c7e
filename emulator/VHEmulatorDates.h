// Times of the emulator: seconds since 1970 (UTC) inside, and the date
// texts of the service's JSON records outside.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vh::emulator {

double VHNowSeconds();

// "yyyy-MM-ddTHH:mm:ss.SSSZ" in UTC, to the nearest millisecond.
std::string VHServiceDateText(double seconds);

// Reads "yyyy-MM-ddTHH:mm:ss", an optional fraction of any length (beyond
// milliseconds it is cut off), then "Z" or an offset "+hh:mm" ("+hhmm").
// Nothing for any other text or an impossible date.
std::optional<double> VHParseServiceDate(std::string_view text);

}  // namespace vh::emulator
