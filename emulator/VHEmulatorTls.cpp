#include "VHEmulatorTls.h"

#include <openssl/pem.h>

#include <filesystem>
#include <memory>

#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

bool useCertificate(SSL_CTX* context, const VHTestCertificates& certificates) {
    std::unique_ptr<BIO, decltype(&BIO_free)> certBio(
        BIO_new_mem_buf(certificates.serverCertificatePem.data(),
                        static_cast<int>(certificates.serverCertificatePem.size())),
        BIO_free);
    std::unique_ptr<BIO, decltype(&BIO_free)> keyBio(
        BIO_new_mem_buf(certificates.serverKeyPem.data(),
                        static_cast<int>(certificates.serverKeyPem.size())),
        BIO_free);
    std::unique_ptr<X509, decltype(&X509_free)> cert(
        PEM_read_bio_X509(certBio.get(), nullptr, nullptr, nullptr), X509_free);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
        PEM_read_bio_PrivateKey(keyBio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
    return cert && key && SSL_CTX_use_certificate(context, cert.get()) == 1 &&
           SSL_CTX_use_PrivateKey(context, key.get()) == 1 &&
           SSL_CTX_check_private_key(context) == 1;
}

void setCommonOptions(SSL_CTX* context) {
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_options(context, SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION);
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS);
}

}  // namespace

VHEmulatorTls::~VHEmulatorTls() {
    if (current_) SSL_CTX_free(current_);
}

bool VHEmulatorTls::setUp(const std::string& dir, const std::vector<std::string>& hostNames) {
    dir_ = dir;
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    auto existing = VHTestCertificates::readFrom(dir);
    auto certificates =
        existing ? existing->reissued(hostNames) : VHTestCertificates::generate(hostNames);
    if (!certificates || !certificates->writeTo(dir)) {
        VHEmulatorLog("cannot make certificates in " + dir);
        return false;
    }
    return install(*certificates);
}

bool VHEmulatorTls::reissue(const std::vector<std::string>& hostNames) {
    std::optional<VHTestCertificates> certificates;
    {
        std::lock_guard guard(mutex_);
        if (certificates_) certificates = certificates_->reissued(hostNames);
    }
    if (!certificates || !certificates->writeTo(dir_)) return false;
    return install(*certificates);
}

bool VHEmulatorTls::install(const VHTestCertificates& certificates) {
    SSL_CTX* context = SSL_CTX_new(TLS_server_method());
    if (!context) return false;
    setCommonOptions(context);
    if (!useCertificate(context, certificates)) {
        SSL_CTX_free(context);
        return false;
    }
    std::lock_guard guard(mutex_);
    if (current_) SSL_CTX_free(current_);  // handshakes that took it hold their own reference
    current_ = context;
    certificates_ = certificates;
    return true;
}

bool VHEmulatorTls::configure(SSL_CTX& context) {
    setCommonOptions(&context);
    std::lock_guard guard(mutex_);
    if (!certificates_ || !useCertificate(&context, *certificates_)) return false;
    SSL_CTX_set_tlsext_servername_callback(&context, &VHEmulatorTls::onServerName);
    SSL_CTX_set_tlsext_servername_arg(&context, this);
    return true;
}

int VHEmulatorTls::onServerName(SSL* ssl, int*, void* self) {
    auto* tls = static_cast<VHEmulatorTls*>(self);
    std::lock_guard guard(tls->mutex_);
    if (tls->current_) SSL_set_SSL_CTX(ssl, tls->current_);
    return SSL_TLSEXT_ERR_OK;
}

}  // namespace vh::emulator
