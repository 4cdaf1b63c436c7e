// An HTTPS server on loopback with a certificate of its own test CA, for
// tests of the HTTP layer. Register handlers on server() before start().
#pragma once

#include <httplib.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace vh::test {

class VHTestHttpsServer {
  public:
    explicit VHTestHttpsServer(const std::vector<std::string>& hostNames);
    ~VHTestHttpsServer();

    httplib::SSLServer& server() { return *server_; }
    // Binds a free loopback port and serves on a background thread.
    void start();
    int port() const { return port_; }
    // "127.0.0.1:<port>", the value for VARNHOLT_CONNECT_TO.
    std::string connectTo() const;
    // The CA certificate that signed the server certificate (a PEM file).
    const std::string& caFile() const { return caFile_; }

  private:
    std::string dir_;
    std::string caFile_;
    std::unique_ptr<httplib::SSLServer> server_;
    std::thread thread_;
    int port_ = 0;
};

}  // namespace vh::test
