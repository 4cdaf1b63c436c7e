#include "lib/VHCrypto.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <memory>

namespace vh {

std::string VHBase64Encode(std::string_view bytes) {
    std::string out(4 * ((bytes.size() + 2) / 3), '\0');
    int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                            reinterpret_cast<const unsigned char*>(bytes.data()),
                            static_cast<int>(bytes.size()));
    out.resize(n < 0 ? 0 : n);
    return out;
}

std::optional<std::string> VHBase64Decode(std::string_view text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::string out(3 * text.size() / 4, '\0');
    int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                            reinterpret_cast<const unsigned char*>(text.data()),
                            static_cast<int>(text.size()));
    if (n < 0) return std::nullopt;
    // EVP_DecodeBlock counts the padding as zero bytes.
    size_t padding = 0;
    for (size_t i = text.size(); i > 0 && text[i - 1] == '=' && padding < 2; --i) ++padding;
    out.resize(static_cast<size_t>(n) - padding);
    return out;
}

namespace {

std::optional<std::string> aes(bool encrypt, std::string_view in, std::string_view key,
                               std::string_view iv, VHCipherPadding padding, unsigned long* error) {
    if (error) *error = 0;
    if (key.size() != 32 || iv.size() != 16) return std::nullopt;
    if (padding == VHCipherPadding::None && in.size() % 16) return std::nullopt;
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                        EVP_CIPHER_CTX_free);
    auto k = reinterpret_cast<const unsigned char*>(key.data());
    auto v = reinterpret_cast<const unsigned char*>(iv.data());
    if (!ctx ||
        EVP_CipherInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, k, v, encrypt ? 1 : 0) != 1) {
        if (error) *error = ERR_get_error();
        return std::nullopt;
    }
    EVP_CIPHER_CTX_set_padding(ctx.get(), padding == VHCipherPadding::Pkcs7 ? 1 : 0);
    std::string out(in.size() + 32, '\0');
    int len = 0, tail = 0;
    auto o = reinterpret_cast<unsigned char*>(out.data());
    if (EVP_CipherUpdate(ctx.get(), o, &len, reinterpret_cast<const unsigned char*>(in.data()),
                         static_cast<int>(in.size())) != 1 ||
        EVP_CipherFinal_ex(ctx.get(), o + len, &tail) != 1) {
        if (error) *error = ERR_get_error();
        return std::nullopt;
    }
    out.resize(static_cast<size_t>(len + tail));
    return out;
}

}  // namespace

std::optional<std::string> VHAes256CbcEncrypt(std::string_view plain, std::string_view key,
                                              std::string_view iv, VHCipherPadding padding,
                                              unsigned long* error) {
    return aes(true, plain, key, iv, padding, error);
}

std::optional<std::string> VHAes256CbcDecrypt(std::string_view cipher, std::string_view key,
                                              std::string_view iv, VHCipherPadding padding,
                                              unsigned long* error) {
    return aes(false, cipher, key, iv, padding, error);
}

}  // namespace vh
