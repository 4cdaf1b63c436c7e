// The admin API's accounts part (paths under "/_emulator/", any host):
// the state overview, domains (each new one gets a certificate at once),
// users, devices, shares and their rights, and domain events.
#pragma once

#include <functional>

#include "VHEmulatorServer.h"
#include "VHEmulatorStore.h"

namespace vh::emulator {

class VHAdminService {
  public:
    // `reissueCertificate` is called, without the database lock, after a
    // domain was added.
    VHAdminService(VHEmulatorStore& store, std::function<bool()> reissueCertificate)
        : store_(store), reissueCertificate_(std::move(reissueCertificate)) {}
    void registerRoutes(VHEmulatorServer& server);

  private:
    void state(VHEmulatorExchange& exchange);
    void addDomain(VHEmulatorExchange& exchange);
    void raiseDomainEvent(VHEmulatorExchange& exchange);
    void listEvents(VHEmulatorExchange& exchange);
    void addUser(VHEmulatorExchange& exchange);
    void describeUser(VHEmulatorExchange& exchange);
    void removeUser(VHEmulatorExchange& exchange);
    void setDevice(VHEmulatorExchange& exchange);
    void addShare(VHEmulatorExchange& exchange);
    void removeShare(VHEmulatorExchange& exchange);
    void renameShare(VHEmulatorExchange& exchange);
    void setAcl(VHEmulatorExchange& exchange);
    void removeAcl(VHEmulatorExchange& exchange);
    nlohmann::json describeShare(const VHEmulatorShare& share);
    // Raises a domain event on the share's domain, so that running clients
    // of its members fetch their share list again; `what` is the key
    // ("New", "Update", "Delete") that names the share. Needs the database
    // lock.
    bool announce(const VHEmulatorShare& share, const char* what);

    VHEmulatorStore& store_;
    std::function<bool()> reissueCertificate_;
};

}  // namespace vh::emulator
