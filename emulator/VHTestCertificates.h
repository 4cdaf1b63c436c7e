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

    // `hostNames` go into the server certificate's subject alternative names;
    // they may be wildcards ("*.example.test") or IP addresses.
    static std::optional<VHTestCertificates> generate(const std::vector<std::string>& hostNames);

    // Writes "ca.pem", "server.pem" and "server-key.pem" (0600) into `dir`.
    bool writeTo(const std::string& dir) const;
};

}  // namespace vh
