#include "VHEmulatorIds.h"

#include <openssl/rand.h>

#include <random>

#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

std::string randomBytes(size_t count) {
    std::string bytes(count, '\0');
    if (RAND_bytes(reinterpret_cast<unsigned char*>(bytes.data()), static_cast<int>(count)) != 1) {
        // Without the system's randomness, ids must still differ.
        static thread_local std::mt19937_64 generator{std::random_device{}()};
        for (char& byte : bytes) byte = static_cast<char>(generator() & 0xff);
    }
    return bytes;
}

std::string hexOf(const std::string& bytes, bool upper) {
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string text;
    for (char byte : bytes) {
        auto value = static_cast<unsigned char>(byte);
        text += digits[value >> 4];
        text += digits[value & 15];
    }
    return text;
}

// A random (version 4) GUID in upper case with dashes.
std::string newGuid() {
    std::string bytes = randomBytes(16);
    bytes[6] = static_cast<char>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<char>((bytes[8] & 0x3f) | 0x80);
    std::string hex = hexOf(bytes, true);
    return hex.substr(0, 8) + "-" + hex.substr(8, 4) + "-" + hex.substr(12, 4) + "-" +
           hex.substr(16, 4) + "-" + hex.substr(20);
}

}  // namespace

std::string VHRandomHex(size_t bytes) {
    return hexOf(randomBytes(bytes), false);
}

std::string VHRandomBase64(size_t bytes) {
    return VHBase64Encoded(randomBytes(bytes));
}

std::string VHNewInternalName() {
    std::string guid = VHAsciiLowercase(newGuid());
    std::erase(guid, '-');
    return guid;
}

std::string VHNewUploadName() {
    return "U" + newGuid() + newGuid();
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
