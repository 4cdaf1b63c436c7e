#include "VHTestCertificates.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <memory>

namespace vh {

namespace {

using KeyPtr = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using CertPtr = std::unique_ptr<X509, decltype(&X509_free)>;

KeyPtr makeKey() {
    return KeyPtr(EVP_EC_gen("P-256"), EVP_PKEY_free);
}

bool addExtension(X509* cert, X509* issuer, int nid, const std::string& value) {
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, issuer, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.c_str());
    if (!ext) return false;
    bool ok = X509_add_ext(cert, ext, -1) == 1;
    X509_EXTENSION_free(ext);
    return ok;
}

CertPtr makeCertificate(EVP_PKEY* key, const std::string& commonName, X509* issuer, long serial) {
    CertPtr cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial);
    X509_gmtime_adj(X509_getm_notBefore(cert.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(cert.get()), 60L * 60 * 24 * 365 * 5);
    X509_set_pubkey(cert.get(), key);
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "O", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("Varnholt emulator"), -1, -1,
                               0);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(commonName.c_str()), -1, -1,
                               0);
    X509_set_issuer_name(cert.get(), issuer ? X509_get_subject_name(issuer) : name);
    return cert;
}

std::string toPem(X509* cert) {
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_X509(bio, cert);
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<size_t>(size));
    BIO_free(bio);
    return pem;
}

std::string toPem(EVP_PKEY* key) {
    BIO* bio = BIO_new(BIO_s_mem());
    PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    std::string pem(data, static_cast<size_t>(size));
    BIO_free(bio);
    return pem;
}

std::string subjectAltNames(const std::vector<std::string>& hostNames) {
    std::string list;
    for (const std::string& host : hostNames) {
        bool isAddress =
            !host.empty() && host.find_first_not_of("0123456789.:") == std::string::npos;
        list += (list.empty() ? "" : ",") + std::string(isAddress ? "IP:" : "DNS:") + host;
    }
    return list;
}

bool writeFile(const std::string& path, const std::string& text) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    bool ok = ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    return ::close(fd) == 0 && ok;
}

}  // namespace

std::optional<VHTestCertificates> VHTestCertificates::generate(
    const std::vector<std::string>& hostNames) {
    KeyPtr caKey = makeKey();
    KeyPtr serverKey = makeKey();
    if (!caKey || !serverKey || hostNames.empty()) return std::nullopt;

    CertPtr ca = makeCertificate(caKey.get(), "Varnholt emulator CA", nullptr, 1);
    if (!addExtension(ca.get(), ca.get(), NID_basic_constraints, "critical,CA:TRUE") ||
        !addExtension(ca.get(), ca.get(), NID_key_usage, "critical,keyCertSign,cRLSign") ||
        !addExtension(ca.get(), ca.get(), NID_subject_key_identifier, "hash") ||
        X509_sign(ca.get(), caKey.get(), EVP_sha256()) == 0) {
        return std::nullopt;
    }

    CertPtr server = makeCertificate(serverKey.get(), hostNames.front(), ca.get(), 2);
    if (!addExtension(server.get(), ca.get(), NID_basic_constraints, "critical,CA:FALSE") ||
        !addExtension(server.get(), ca.get(), NID_ext_key_usage, "serverAuth") ||
        !addExtension(server.get(), ca.get(), NID_subject_alt_name, subjectAltNames(hostNames)) ||
        !addExtension(server.get(), ca.get(), NID_authority_key_identifier, "keyid:always") ||
        X509_sign(server.get(), caKey.get(), EVP_sha256()) == 0) {
        return std::nullopt;
    }
    return VHTestCertificates{toPem(ca.get()), toPem(server.get()), toPem(serverKey.get())};
}

bool VHTestCertificates::writeTo(const std::string& dir) const {
    return writeFile(dir + "/ca.pem", caCertificatePem) &&
           writeFile(dir + "/server.pem", serverCertificatePem) &&
           writeFile(dir + "/server-key.pem", serverKeyPem);
}

}  // namespace vh
