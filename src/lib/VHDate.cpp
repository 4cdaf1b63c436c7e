#include "lib/VHDate.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "lib/VHLog.h"

namespace vh {

namespace {

constexpr double kDistantPast = -62135596800.0;   // 0001-01-01T00:00:00Z
constexpr double kDistantFuture = 64092211200.0;  // 4001-01-01T00:00:00Z

bool readDigits(std::string_view s, size_t& pos, size_t count, int& value) {
    if (pos + count > s.size()) return false;
    value = 0;
    for (size_t i = 0; i < count; ++i) {
        char c = s[pos + i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    pos += count;
    return true;
}

bool expect(std::string_view s, size_t& pos, char c) {
    if (pos >= s.size() || s[pos] != c) return false;
    ++pos;
    return true;
}

// "yyyy-MM-ddTHH:mm:ss" at the start of `s`, as seconds since 1970 (UTC).
bool readDateTime(std::string_view s, size_t& pos, double& seconds) {
    int year, month, day, hour, minute, second;
    if (!readDigits(s, pos, 4, year) || !expect(s, pos, '-') || !readDigits(s, pos, 2, month) ||
        !expect(s, pos, '-') || !readDigits(s, pos, 2, day) || !expect(s, pos, 'T') ||
        !readDigits(s, pos, 2, hour) || !expect(s, pos, ':') || !readDigits(s, pos, 2, minute) ||
        !expect(s, pos, ':') || !readDigits(s, pos, 2, second)) {
        return false;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return false;
    }
    using namespace std::chrono;
    year_month_day ymd{std::chrono::year(year), std::chrono::month(month), std::chrono::day(day)};
    if (!ymd.ok()) return false;
    auto days = sys_days(ymd).time_since_epoch().count();
    seconds = days * 86400.0 + hour * 3600 + minute * 60 + second;
    return true;
}

// ".SSS" with exactly `digits` digits, or any count when digits == 0.
bool readFraction(std::string_view s, size_t& pos, size_t digits, double& fraction) {
    if (!expect(s, pos, '.')) return false;
    size_t start = pos;
    while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9') ++pos;
    size_t count = pos - start;
    if (count == 0 || (digits && count != digits)) return false;
    fraction = std::stod("0." + std::string(s.substr(start, count)));
    return true;
}

// "Z" or "+hh:mm" / "-hh:mm" / "+hhmm": seconds east of UTC.
bool readZone(std::string_view s, size_t& pos, bool offsetAllowed, int& offset) {
    if (expect(s, pos, 'Z')) {
        offset = 0;
        return true;
    }
    if (!offsetAllowed || pos >= s.size() || (s[pos] != '+' && s[pos] != '-')) return false;
    int sign = s[pos++] == '-' ? -1 : 1;
    int hours, minutes;
    if (!readDigits(s, pos, 2, hours)) return false;
    expect(s, pos, ':');
    if (!readDigits(s, pos, 2, minutes)) return false;
    offset = sign * (hours * 3600 + minutes * 60);
    return true;
}

std::optional<VHDate> readFormat(std::string_view s, bool withFraction, bool offsetAllowed,
                                 bool shortFraction = false) {
    size_t pos = 0;
    double seconds = 0, fraction = 0;
    int offset = 0;
    if (!readDateTime(s, pos, seconds)) return std::nullopt;
    if (withFraction && !readFraction(s, pos, shortFraction ? 0 : 3, fraction)) return std::nullopt;
    if (!readZone(s, pos, offsetAllowed, offset) || pos != s.size()) return std::nullopt;
    return VHDate{seconds + fraction - offset};
}

std::string cutFractionToThreeDigits(std::string_view s) {
    size_t point = s.find('.');
    size_t end = point + 1;
    while (end < s.size() && s[end] >= '0' && s[end] <= '9') ++end;
    size_t keep = std::min<size_t>(end - point - 1, 3);
    return std::string(s.substr(0, point + 1 + keep)) + std::string(s.substr(end));
}

}  // namespace

VHDate VHDate::now() {
    using namespace std::chrono;
    auto ns = duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
    return VHDate{static_cast<double>(ns) / 1e9};
}

namespace {
constexpr int64_t kTicksAt1970 = 621355968000000000;
constexpr double kTicksPerSecond = 10000000.0;
}  // namespace

int64_t VHTicksFromDate(VHDate date) {
    return kTicksAt1970 + static_cast<int64_t>(std::floor(date.seconds * kTicksPerSecond));
}

VHDate VHDateFromTicks(int64_t ticks) {
    return VHDate{static_cast<double>(ticks - kTicksAt1970) / kTicksPerSecond};
}

VHDate VHDate::distantPast() {
    return VHDate{kDistantPast};
}
VHDate VHDate::distantFuture() {
    return VHDate{kDistantFuture};
}

std::optional<VHDate> VHTryParseJsonDate(std::string_view text) {
    if (auto d = readFormat(text, true, false)) return d;
    if (auto d = readFormat(text, false, false)) return d;
    if (text.find('.') == std::string_view::npos) return std::nullopt;
    return readFormat(cutFractionToThreeDigits(text), true, true, true);
}

VHDate VHDateFromJsonText(std::string_view text) {
    if (auto d = VHTryParseJsonDate(text)) return *d;
    VHLog(kLogMain, "Warning! Failed to parse date: %@", text);
    return VHDate::distantPast();
}

std::string VHDateToJsonText(VHDate date) {
    using namespace std::chrono;
    double whole = std::floor(date.seconds);
    int millis = static_cast<int>(std::lround((date.seconds - whole) * 1000));
    if (millis == 1000) {
        whole += 1;
        millis = 0;
    }
    auto secs = static_cast<long long>(whole);
    auto days = static_cast<int>(std::floor(secs / 86400.0));
    long long rest = secs - static_cast<long long>(days) * 86400;
    year_month_day ymd{sys_days{std::chrono::days{days}}};
    char buf[48];
    std::snprintf(buf, sizeof buf, "%04d-%02u-%02uT%02lld:%02lld:%02lld.%03dZ", int(ymd.year()),
                  unsigned(ymd.month()), unsigned(ymd.day()), rest / 3600, rest / 60 % 60,
                  rest % 60, millis);
    return buf;
}

std::string VHDateLocalDescription(VHDate date) {
    time_t t = static_cast<time_t>(std::floor(date.seconds));
    struct tm local {};
    localtime_r(&t, &local);
    char buf[64];
    strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S %z", &local);
    return buf;
}

VHDate VHLocalDayStart(VHDate date) {
    time_t t = static_cast<time_t>(std::floor(date.seconds));
    struct tm local {};
    localtime_r(&t, &local);
    local.tm_hour = local.tm_min = local.tm_sec = 0;
    local.tm_isdst = -1;
    return VHDate{static_cast<double>(mktime(&local))};
}

}  // namespace vh
