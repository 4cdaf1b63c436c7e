#include "VHHubProtocol.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <nlohmann/json.hpp>

#include "VHEmulatorIds.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

constexpr std::string_view kCursorPrefix = "d-";

std::optional<int64_t> wholeNumber(std::string_view text) {
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
    return value;
}

bool isConnectionId(std::string_view text) {
    if (text.size() != 36) return false;
    for (size_t i = 0; i < text.size(); ++i) {
        bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash != (text[i] == '-')) return false;
        if (!dash && !std::isxdigit(static_cast<unsigned char>(text[i]))) return false;
    }
    return true;
}

std::pair<int, int> versionOf(std::string_view text) {
    auto point = text.find('.');
    auto major = wholeNumber(text.substr(0, point));
    auto minor =
        point == text.npos ? std::optional<int64_t>(0) : wholeNumber(text.substr(point + 1));
    if (!major || !minor || *major > 100 || *minor > 100) return {0, 0};
    return {static_cast<int>(*major), static_cast<int>(*minor)};
}

}  // namespace

std::string VHHubCursorText(const VHHubCursor& cursor) {
    return std::string(kCursorPrefix) + std::to_string(cursor.seq) + "-" +
           std::to_string(cursor.own);
}

std::optional<VHHubCursor> VHParseHubCursor(std::string_view text) {
    if (!VHHasPrefix(text, kCursorPrefix)) return std::nullopt;
    text.remove_prefix(kCursorPrefix.size());
    auto dash = text.find('-');
    if (dash == text.npos) return std::nullopt;
    auto seq = wholeNumber(text.substr(0, dash));
    auto own = wholeNumber(text.substr(dash + 1));
    if (!seq || !own) return std::nullopt;
    return VHHubCursor{*seq, *own};
}

std::string VHHubToken(const VHHubIdentity& identity) {
    return VHBase64Encoded(identity.connectionId + ":" + identity.email);
}

std::optional<VHHubIdentity> VHParseHubToken(std::string_view token) {
    auto text = VHBase64Decoded(token);
    if (!text) return std::nullopt;
    auto colon = text->find(':');
    if (colon == std::string::npos || !isConnectionId(std::string_view(*text).substr(0, colon)) ||
        colon + 1 == text->size()) {
        return std::nullopt;
    }
    return VHHubIdentity{text->substr(0, colon), text->substr(colon + 1)};
}

std::string VHNewHubConnectionId() {
    std::string hex = VHRandomHex(16);
    return hex.substr(0, 8) + "-" + hex.substr(8, 4) + "-" + hex.substr(12, 4) + "-" +
           hex.substr(16, 4) + "-" + hex.substr(20);
}

std::optional<std::string> VHFormValue(std::string_view body, std::string_view name) {
    while (!body.empty()) {
        auto amp = body.find('&');
        std::string_view pair = body.substr(0, amp);
        body = amp == body.npos ? std::string_view() : body.substr(amp + 1);
        auto equals = pair.find('=');
        if (pair.substr(0, equals) != name) continue;
        std::string value(equals == pair.npos ? std::string_view() : pair.substr(equals + 1));
        std::replace(value.begin(), value.end(), '+', ' ');
        return VHPercentDecoded(value);
    }
    return std::nullopt;
}

std::string VHCookieValue(const httplib::Request& request, std::string_view name) {
    size_t count = request.get_header_value_count("Cookie");
    for (size_t i = 0; i < count; ++i) {
        std::string value = request.get_header_value("Cookie", i);
        std::string_view header = value;
        while (!header.empty()) {
            auto semicolon = header.find(';');
            std::string_view pair = header.substr(0, semicolon);
            header = semicolon == header.npos ? std::string_view() : header.substr(semicolon + 1);
            while (!pair.empty() && pair.front() == ' ') pair.remove_prefix(1);
            auto equals = pair.find('=');
            if (equals != pair.npos && pair.substr(0, equals) == name) {
                return std::string(pair.substr(equals + 1));
            }
        }
    }
    return {};
}

std::string VHHubProtocolVersion(std::string_view clientProtocol) {
    auto version = std::clamp(versionOf(clientProtocol), std::pair(1, 2), std::pair(2, 0));
    return std::to_string(version.first) + "." + std::to_string(version.second);
}

std::optional<std::vector<std::string>> VHHubNames(const std::string& connectionData) {
    std::vector<std::string> names;
    if (connectionData.empty()) return names;
    auto list = nlohmann::json::parse(connectionData, nullptr, false);
    if (!list.is_array()) return std::nullopt;
    for (const auto& hub : list) {
        if (!hub.is_object()) return std::nullopt;
        // Clients differ in the key's case.
        auto name = hub.contains("name") ? hub["name"] : hub.value("Name", nlohmann::json());
        if (!name.is_string()) return std::nullopt;
        names.push_back(name.get<std::string>());
    }
    return names;
}

}  // namespace vh::emulator
