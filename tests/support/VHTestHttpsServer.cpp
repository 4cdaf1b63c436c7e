#include "support/VHTestHttpsServer.h"

#include <chrono>
#include <stdexcept>

#include "VHTestCertificates.h"
#include "support/VHTestHome.h"

namespace vh::test {

VHTestHttpsServer::VHTestHttpsServer(const std::vector<std::string>& hostNames) {
    dir_ = VHMakeTempFolder("varnholt-tls");
    auto certificates = VHTestCertificates::generate(hostNames);
    if (!certificates || !certificates->writeTo(dir_)) {
        throw std::runtime_error("cannot make test certificates");
    }
    caFile_ = dir_ + "/ca.pem";
    server_ = std::make_unique<httplib::SSLServer>((dir_ + "/server.pem").c_str(),
                                                   (dir_ + "/server-key.pem").c_str());
    // Clients keep connections alive; a short time-out lets stop() return soon.
    server_->set_keep_alive_timeout(1);
}

VHTestHttpsServer::~VHTestHttpsServer() {
    server_->stop();
    if (thread_.joinable()) thread_.join();
    VHRemoveTree(dir_);
}

void VHTestHttpsServer::start() {
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    while (!server_->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

std::string VHTestHttpsServer::connectTo() const {
    return "127.0.0.1:" + std::to_string(port_);
}

}  // namespace vh::test
