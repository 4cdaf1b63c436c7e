#include "VHEmulatorDates.h"

#include <chrono>
#include <cmath>
#include <cstdio>

namespace vh::emulator {

namespace {

using namespace std::chrono;

constexpr int64_t kMillisecondsPerDay = 86'400'000;

// The value of `count` digits at `position`; -1 when any is not a digit.
int digits(std::string_view text, size_t position, size_t count) {
    if (position + count > text.size()) return -1;
    int value = 0;
    for (size_t i = position; i < position + count; ++i) {
        if (text[i] < '0' || text[i] > '9') return -1;
        value = value * 10 + (text[i] - '0');
    }
    return value;
}

bool hasAt(std::string_view text, size_t position, char expected) {
    return position < text.size() && text[position] == expected;
}

// Seconds east of UTC of "Z", "+hh:mm", "+hhmm" (or "-"); nothing otherwise.
std::optional<int> zoneOffset(std::string_view zone) {
    if (zone == "Z") return 0;
    if (zone.size() != 6 && zone.size() != 5) return std::nullopt;
    if (zone[0] != '+' && zone[0] != '-') return std::nullopt;
    if (zone.size() == 6 && zone[3] != ':') return std::nullopt;
    int hours = digits(zone, 1, 2);
    int minutes = digits(zone, zone.size() - 2, 2);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59) return std::nullopt;
    int offset = hours * 3600 + minutes * 60;
    return zone[0] == '-' ? -offset : offset;
}

}  // namespace

double VHNowSeconds() {
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

std::string VHServiceDateText(double seconds) {
    auto milliseconds = static_cast<int64_t>(std::llround(seconds * 1000.0));
    int64_t day = milliseconds / kMillisecondsPerDay;
    int64_t within = milliseconds % kMillisecondsPerDay;
    if (within < 0) {
        within += kMillisecondsPerDay;
        --day;
    }
    year_month_day date{sys_days{days{day}}};
    char text[40];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", int(date.year()),
                  unsigned(date.month()), unsigned(date.day()), int(within / 3'600'000),
                  int(within / 60'000 % 60), int(within / 1000 % 60), int(within % 1000));
    return text;
}

std::optional<double> VHParseServiceDate(std::string_view text) {
    int year = digits(text, 0, 4), month = digits(text, 5, 2), day = digits(text, 8, 2);
    int hour = digits(text, 11, 2), minute = digits(text, 14, 2), second = digits(text, 17, 2);
    if (year < 0 || month < 0 || day < 0 || hour < 0 || minute < 0 || second < 0 ||
        !hasAt(text, 4, '-') || !hasAt(text, 7, '-') || !hasAt(text, 10, 'T') ||
        !hasAt(text, 13, ':') || !hasAt(text, 16, ':') || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    year_month_day date{std::chrono::year(year), std::chrono::month(unsigned(month)),
                        std::chrono::day(unsigned(day))};
    if (!date.ok()) return std::nullopt;
    size_t position = 19;
    int milliseconds = 0;
    if (hasAt(text, position, '.')) {
        size_t start = ++position;
        while (position < text.size() && text[position] >= '0' && text[position] <= '9') {
            if (position - start < 3) milliseconds = milliseconds * 10 + (text[position] - '0');
            ++position;
        }
        if (position == start) return std::nullopt;
        for (size_t i = position - start; i < 3; ++i) milliseconds *= 10;
    }
    auto offset = zoneOffset(text.substr(position));
    if (!offset) return std::nullopt;
    int64_t since = sys_days{date}.time_since_epoch().count();
    int64_t wholeSeconds = since * 86400 + hour * 3600 + minute * 60 + second - *offset;
    return static_cast<double>(wholeSeconds) + milliseconds / 1000.0;
}

}  // namespace vh::emulator
