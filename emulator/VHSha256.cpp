#include "VHSha256.h"

#include <openssl/evp.h>

namespace vh::emulator {

VHSha256::VHSha256() : context_(EVP_MD_CTX_new()) {
    EVP_DigestInit_ex(context_, EVP_sha256(), nullptr);
}

VHSha256::VHSha256(const VHSha256& other) : context_(EVP_MD_CTX_new()) {
    EVP_MD_CTX_copy_ex(context_, other.context_);
}

VHSha256& VHSha256::operator=(const VHSha256& other) {
    if (this != &other) EVP_MD_CTX_copy_ex(context_, other.context_);
    return *this;
}

VHSha256::~VHSha256() {
    EVP_MD_CTX_free(context_);
}

void VHSha256::update(const char* data, size_t length) {
    EVP_DigestUpdate(context_, data, length);
}

std::string VHSha256::hex() const {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> copy(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_MD_CTX_copy_ex(copy.get(), context_);
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(copy.get(), digest, &length);
    static const char* digits = "0123456789abcdef";
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        text += digits[digest[i] >> 4];
        text += digits[digest[i] & 15];
    }
    return text;
}

}  // namespace vh::emulator
