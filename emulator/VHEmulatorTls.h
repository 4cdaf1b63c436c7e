// The emulator's certificates: a CA made at first start and kept in the
// state folder, and a server certificate for every host name of the state,
// issued again at each start and whenever a domain is added.
//
// New names take effect without a restart: every handshake is handed the
// current certificate through the server-name callback, so connections
// already open keep theirs and new ones get the new one.
#pragma once

#include <openssl/ssl.h>

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "VHTestCertificates.h"

namespace vh::emulator {

class VHEmulatorTls {
  public:
    VHEmulatorTls() = default;
    ~VHEmulatorTls();
    VHEmulatorTls(const VHEmulatorTls&) = delete;
    VHEmulatorTls& operator=(const VHEmulatorTls&) = delete;

    // Loads the CA from `dir` or makes it there, and issues a server
    // certificate for `hostNames`; false on failure.
    bool setUp(const std::string& dir, const std::vector<std::string>& hostNames);
    // The CA certificate file clients trust.
    std::string caFile() const { return dir_ + "/ca.pem"; }
    // A new server certificate for `hostNames`, used by later handshakes.
    bool reissue(const std::vector<std::string>& hostNames);
    // Prepares the server's own context (called once by the server).
    bool configure(SSL_CTX& context);

  private:
    static int onServerName(SSL* ssl, int* alert, void* self);
    bool install(const VHTestCertificates& certificates);

    std::string dir_;
    std::mutex mutex_;
    std::optional<VHTestCertificates> certificates_;  // guarded by mutex_
    SSL_CTX* current_ = nullptr;                      // guarded by mutex_
};

}  // namespace vh::emulator
