#include "VHEmulatorText.h"

#include <openssl/evp.h>

#include <cstdio>

namespace vh::emulator {

namespace {

char asciiLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isBase64Character(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
}

}  // namespace

std::string VHAsciiLowercase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower) c = asciiLower(c);
    return lower;
}

bool VHSameAsciiText(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (asciiLower(a[i]) != asciiLower(b[i])) return false;
    }
    return true;
}

bool VHHasPrefix(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::vector<std::string> VHPathComponents(std::string_view path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('/', start);
        if (end == std::string_view::npos) end = path.size();
        if (end > start) parts.emplace_back(path.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

std::string VHPercentDecoded(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        int high = i + 2 < text.size() && text[i] == '%' ? hexValue(text[i + 1]) : -1;
        int low = high >= 0 ? hexValue(text[i + 2]) : -1;
        if (low < 0) {
            decoded += text[i];
            continue;
        }
        decoded += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return decoded;
}

std::string VHBase64Encoded(std::string_view bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                 reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<int>(bytes.size()));
    text.resize(static_cast<size_t>(length));
    return text;
}

std::optional<std::string> VHBase64Decoded(std::string_view text) {
    // EVP_DecodeBlock skips white space and keeps pad bytes, so the text is
    // checked here and the padding taken off afterwards.
    if (text.size() % 4 != 0) return std::nullopt;
    size_t padding = 0;
    while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') {
        ++padding;
    }
    for (size_t i = 0; i < text.size() - padding; ++i) {
        if (!isBase64Character(text[i])) return std::nullopt;
    }
    std::string bytes(text.size() / 4 * 3, '\0');
    int length = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                 reinterpret_cast<const unsigned char*>(text.data()),
                                 static_cast<int>(text.size()));
    if (length < 0 || static_cast<size_t>(length) < padding) return std::nullopt;
    bytes.resize(static_cast<size_t>(length) - padding);
    return bytes;
}

void VHEmulatorLog(const std::string& line) {
    std::fprintf(stderr, "varnholt-emulator: %s\n", line.c_str());
}

}  // namespace vh::emulator
