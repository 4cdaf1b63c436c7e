#include "VHTestCertificates.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <random>
#include <sstream>

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

// Reissued server certificates must not repeat a serial number of the same CA.
long randomSerial() {
    std::random_device device;
    return static_cast<long>(std::uniform_int_distribution<uint32_t>(2, 0x7fffffff)(device));
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

CertPtr certificateFromPem(const std::string& pem) {
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    X509* cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return CertPtr(cert, X509_free);
}

KeyPtr keyFromPem(const std::string& pem) {
    BIO* bio = BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size()));
    EVP_PKEY* key = PEM_read_bio_PrivateKey(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return KeyPtr(key, EVP_PKEY_free);
}

// The server key and certificate for `hostNames`, signed by the CA.
std::optional<std::pair<std::string, std::string>> issueServer(
    X509* ca, EVP_PKEY* caKey, const std::vector<std::string>& hostNames) {
    KeyPtr serverKey = makeKey();
    if (!serverKey || hostNames.empty()) return std::nullopt;
    CertPtr server = makeCertificate(serverKey.get(), hostNames.front(), ca, randomSerial());
    if (!addExtension(server.get(), ca, NID_basic_constraints, "critical,CA:FALSE") ||
        !addExtension(server.get(), ca, NID_ext_key_usage, "serverAuth") ||
        !addExtension(server.get(), ca, NID_subject_alt_name, subjectAltNames(hostNames)) ||
        !addExtension(server.get(), ca, NID_authority_key_identifier, "keyid:always") ||
        X509_sign(server.get(), caKey, EVP_sha256()) == 0) {
        return std::nullopt;
    }
    return std::pair{toPem(server.get()), toPem(serverKey.get())};
}

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
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
    if (!caKey || hostNames.empty()) return std::nullopt;

    CertPtr ca = makeCertificate(caKey.get(), "Varnholt emulator CA", nullptr, 1);
    if (!addExtension(ca.get(), ca.get(), NID_basic_constraints, "critical,CA:TRUE") ||
        !addExtension(ca.get(), ca.get(), NID_key_usage, "critical,keyCertSign,cRLSign") ||
        !addExtension(ca.get(), ca.get(), NID_subject_key_identifier, "hash") ||
        X509_sign(ca.get(), caKey.get(), EVP_sha256()) == 0) {
        return std::nullopt;
    }
    auto server = issueServer(ca.get(), caKey.get(), hostNames);
    if (!server) return std::nullopt;
    return VHTestCertificates{toPem(ca.get()), server->first, server->second, toPem(caKey.get())};
}

std::optional<VHTestCertificates> VHTestCertificates::reissued(
    const std::vector<std::string>& hostNames) const {
    CertPtr ca = certificateFromPem(caCertificatePem);
    KeyPtr caKey = keyFromPem(caKeyPem);
    if (!ca || !caKey) return std::nullopt;
    auto server = issueServer(ca.get(), caKey.get(), hostNames);
    if (!server) return std::nullopt;
    return VHTestCertificates{caCertificatePem, server->first, server->second, caKeyPem};
}

bool VHTestCertificates::writeTo(const std::string& dir) const {
    return writeFile(dir + "/ca.pem", caCertificatePem) &&
           writeFile(dir + "/server.pem", serverCertificatePem) &&
           writeFile(dir + "/server-key.pem", serverKeyPem) &&
           (caKeyPem.empty() || writeFile(dir + "/ca-key.pem", caKeyPem));
}

std::optional<VHTestCertificates> VHTestCertificates::readFrom(const std::string& dir) {
    auto ca = readFile(dir + "/ca.pem");
    auto server = readFile(dir + "/server.pem");
    auto serverKey = readFile(dir + "/server-key.pem");
    auto caKey = readFile(dir + "/ca-key.pem");
    if (!ca || !server || !serverKey || !caKey) return std::nullopt;
    return VHTestCertificates{*ca, *server, *serverKey, *caKey};
}

}  // namespace vh
