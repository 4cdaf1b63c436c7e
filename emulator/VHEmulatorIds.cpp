#include "VHEmulatorIds.h"

#include <random>

#include "lib/VHCrypto.h"
#include "lib/VHStrings.h"

namespace vh::emulator {

namespace {

std::string randomBytes(size_t count) {
    static thread_local std::mt19937_64 generator{std::random_device{}()};
    std::string bytes(count, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator() & 0xff);
    return bytes;
}

}  // namespace

std::string VHRandomHex(size_t bytes) {
    static const char* digits = "0123456789abcdef";
    std::string text;
    for (char byte : randomBytes(bytes)) {
        auto value = static_cast<unsigned char>(byte);
        text += digits[value >> 4];
        text += digits[value & 15];
    }
    return text;
}

std::string VHRandomBase64(size_t bytes) {
    return VHBase64Encode(randomBytes(bytes));
}

std::string VHNewInternalName() {
    std::string guid = VHLowercase(VHGenerateGUID());
    std::erase(guid, '-');
    return guid;
}

std::string VHNewUploadName() {
    return "U" + VHGenerateGUID() + VHGenerateGUID();
}

bool VHIsPlainId(std::string_view id) {
    if (id.empty() || id.size() > 128) return false;
    for (char c : id) {
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                     c == '-' || c == '_';
        if (!plain) return false;
    }
    return true;
}

}  // namespace vh::emulator
