#include "VHDirectLinkCipher.h"

#include <openssl/evp.h>

#include <memory>

#include "VHEmulatorText.h"

namespace vh::emulator {

std::optional<std::string> VHDecryptDirectLink(std::string_view base64, std::string_view key,
                                               std::string_view iv) {
    auto cipher = VHBase64Decoded(base64);
    if (!cipher || cipher->empty() || cipher->size() % 16 != 0 || key.size() != 32 ||
        iv.size() != 16) {
        return std::nullopt;
    }
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context(EVP_CIPHER_CTX_new(),
                                                                            EVP_CIPHER_CTX_free);
    auto bytes = [](std::string_view text) {
        return reinterpret_cast<const unsigned char*>(text.data());
    };
    std::string plain(cipher->size(), '\0');
    int length = 0, tail = 0;
    auto* out = reinterpret_cast<unsigned char*>(plain.data());
    if (!context ||
        EVP_DecryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, bytes(key), bytes(iv)) != 1 ||
        EVP_CIPHER_CTX_set_padding(context.get(), 0) != 1 ||
        EVP_DecryptUpdate(context.get(), out, &length, bytes(*cipher),
                          static_cast<int>(cipher->size())) != 1 ||
        EVP_DecryptFinal_ex(context.get(), out + length, &tail) != 1) {
        return std::nullopt;
    }
    plain.resize(static_cast<size_t>(length + tail));
    while (!plain.empty() && plain.back() == '\0') plain.pop_back();
    return plain;
}

}  // namespace vh::emulator
