// A point in time as seconds since 1970-01-01 00:00:00 UTC, and the service's
// JSON date texts.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vh {

struct VHDate {
    double seconds = 0;  // since 1970, UTC; may be negative

    static VHDate now();
    static VHDate distantPast();    // 0001-01-01 00:00:00 UTC
    static VHDate distantFuture();  // 4001-01-01 00:00:00 UTC
    static VHDate fromSeconds(double s) { return VHDate{s}; }

    double timeIntervalSinceNow() const { return seconds - now().seconds; }
    VHDate addingSeconds(double s) const { return VHDate{seconds + s}; }
    auto operator<=>(const VHDate&) const = default;
};

// Reads a service date: "yyyy-MM-ddTHH:mm:ss.SSSZ", then "yyyy-MM-ddTHH:mm:ssZ";
// failing both, a text with a point has its fraction digits cut to the first
// three (the rest, such as a zone offset, is kept) and is read as
// "yyyy-MM-ddTHH:mm:ss.SSS" followed by "Z" or an offset "+hh:mm". Anything
// else logs "Warning! Failed to parse date: %@" and gives the distant past.
VHDate VHDateFromJsonText(std::string_view text);

// The same three formats without the warning and fallback.
std::optional<VHDate> VHTryParseJsonDate(std::string_view text);

// "yyyy-MM-ddTHH:mm:ss.SSSZ" in UTC.
std::string VHDateToJsonText(VHDate date);

// Ticks of 100 ns since 0001-01-01, as the realtime channel stamps times.
int64_t VHTicksFromDate(VHDate date);
VHDate VHDateFromTicks(int64_t ticks);

// The local standard text "yyyy-MM-dd HH:mm:ss +hhmm" used in log lines.
std::string VHDateLocalDescription(VHDate date);

// Start of the local calendar day that holds `date`.
VHDate VHLocalDayStart(VHDate date);

}  // namespace vh
