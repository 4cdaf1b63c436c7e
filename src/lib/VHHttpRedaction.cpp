#include "lib/VHHttpRedaction.h"

#include <nlohmann/json.hpp>

#include "lib/VHStrings.h"

namespace vh {

namespace {

void redactJson(nlohmann::json& j) {
    if (j.is_object()) {
        for (auto it = j.begin(); it != j.end(); ++it) {
            if (VHIsSecretName(it.key()) && !it.value().is_object() && !it.value().is_array()) {
                it.value() = kRedacted;
            } else {
                redactJson(it.value());
            }
        }
    } else if (j.is_array()) {
        for (auto& item : j) redactJson(item);
    }
}

bool looksLikeText(std::string_view bytes) {
    for (unsigned char c : bytes.substr(0, 512)) {
        if (c == 0 || (c < 0x20 && c != '\n' && c != '\r' && c != '\t')) return false;
    }
    return true;
}

// Header fields that carry a JSON record (the client API's "command" and
// "request") lose their secret keys as a body does.
std::string redactedValue(const std::string& value) {
    if (value.empty() || value.front() != '{') return value;
    auto json = nlohmann::json::parse(value, nullptr, false);
    if (json.is_discarded()) return value;
    redactJson(json);
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace

bool VHIsSecretName(std::string_view name) {
    std::string lower = VHLowercase(name);
    // "jsondata": the text of a direct link's token, which holds the password.
    return VHContains(lower, "password") || VHContains(lower, "token") ||
           VHContains(lower, "cookie") || lower == "authorization" || lower == "jsondata";
}

std::string VHRedactedURL(std::string_view url) {
    size_t query = url.find('?');
    if (query == std::string_view::npos) return std::string(url);
    std::string out(url.substr(0, query + 1));
    auto params = VHSplit(url.substr(query + 1), '&');
    for (size_t i = 0; i < params.size(); ++i) {
        if (i) out += '&';
        size_t equals = params[i].find('=');
        if (equals != std::string::npos && VHIsSecretName(params[i].substr(0, equals))) {
            out += params[i].substr(0, equals + 1) + kRedacted;
        } else {
            out += params[i];
        }
    }
    return out;
}

std::string VHRedactedHeaders(const VHHttpHeaders& headers) {
    std::string out = "{";
    for (size_t i = 0; i < headers.size(); ++i) {
        const auto& [name, value] = headers[i];
        out += (i ? "; " : " ") + name + ": " +
               (VHIsSecretName(name) ? kRedacted : redactedValue(value));
    }
    return out + (headers.empty() ? "}" : " }");
}

std::string VHRedactedBody(std::string_view body, size_t limit) {
    if (body.empty()) return "";
    auto json = nlohmann::json::parse(body.begin(), body.end(), nullptr, false);
    if (!json.is_discarded() && (json.is_object() || json.is_array())) {
        redactJson(json);
        std::string text = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
        return text.size() > limit ? text.substr(0, limit) + "..." : text;
    }
    if (!looksLikeText(body)) return "<" + std::to_string(body.size()) + " bytes>";
    return body.size() > limit ? std::string(body.substr(0, limit)) + "..." : std::string(body);
}

}  // namespace vh
