#include "lib/VHStrings.h"

#include <QString>
#include <QUuid>

namespace vh {

std::string VHGenerateGUID() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toStdString();
}

std::string VHDecomposed(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
        .normalized(QString::NormalizationForm_D)
        .toStdString();
}

std::string VHLowercase(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
        .toLower()
        .toStdString();
}

std::string VHTrimmed(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()))
        .trimmed()
        .toStdString();
}

std::string VHEscapeURLValue(std::string_view text) {
    return VHPercentEscape(text, "");
}

std::string VHPercentEscape(std::string_view text, std::string_view kept) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size() * 3);
    for (unsigned char c : text) {
        bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
                          (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' || c == '~';
        if (unreserved || (c < 0x80 && kept.find(static_cast<char>(c)) != std::string_view::npos)) {
            out += static_cast<char>(c);
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    return out;
}

std::string VHRemovePercentEscapes(std::string_view text) {
    auto hex = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    };
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hex(text[i + 1]) >= 0 &&
            hex(text[i + 2]) >= 0) {
            out += static_cast<char>(hex(text[i + 1]) * 16 + hex(text[i + 2]));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

std::vector<std::string> VHSplit(std::string_view text, char separator) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (true) {
        size_t end = text.find(separator, start);
        parts.emplace_back(text.substr(start, end - start));
        if (end == std::string_view::npos) break;
        start = end + 1;
    }
    return parts;
}

bool VHStartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool VHEndsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool VHContains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

}  // namespace vh
