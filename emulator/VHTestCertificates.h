// A certificate authority made at start-up and a server certificate signed
// by it, so that the emulator (and tests) serve real HTTPS that clients
// trust only through that CA.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vh {

struct VHTestCertificates {
    std::string caCertificatePem;
    std::string serverCertificatePem;
    std::string serverKeyPem;
    // The CA's private key; empty only in a value made by hand.
    std::string caKeyPem;

    // `hostNames` go into the server certificate's subject alternative names;
    // they may be wildcards ("*.example.test") or IP addresses.
    static std::optional<VHTestCertificates> generate(const std::vector<std::string>& hostNames);

    // The same CA with a new server key and certificate for `hostNames`;
    // nothing without the CA key or when signing fails.
    std::optional<VHTestCertificates> reissued(const std::vector<std::string>& hostNames) const;

    // Writes "ca.pem", "server.pem" and "server-key.pem" (0600) into `dir`,
    // and "ca-key.pem" (0600) when the CA key is known.
    bool writeTo(const std::string& dir) const;
    // Reads what writeTo wrote; nothing when a file is missing.
    static std::optional<VHTestCertificates> readFrom(const std::string& dir);
};

}  // namespace vh
