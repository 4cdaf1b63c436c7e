#include "VHAdminHubService.h"

#include "VHEmulatorRecords.h"

namespace vh::emulator {

void VHAdminHubService::registerRoutes(VHEmulatorServer& server) {
    const std::string prefix = std::string(kAdminPrefix) + "hub/";
    server.route(VHHostKind::Any, "GET", prefix + "connections",
                 [this](VHEmulatorExchange& exchange) { listConnections(exchange); });
    server.route(VHHostKind::Any, "POST", prefix + "skip",
                 [this](VHEmulatorExchange& exchange) { skipBroadcasts(exchange); });
}

void VHAdminHubService::listConnections(VHEmulatorExchange& exchange) {
    VHJson list = VHJson::array();
    for (const VHHubConnectionInfo& connection : connections_.list()) {
        list.push_back({{"connectionId", connection.connectionId},
                        {"user", connection.email},
                        {"domain", connection.domainUrl},
                        {"seq", connection.seq},
                        {"polling", connection.polling}});
    }
    exchange.reply(200, list);
}

void VHAdminHubService::skipBroadcasts(VHEmulatorExchange& exchange) {
    VHJson description = exchange.jsonBody().value_or(VHJson());
    VHJson url = description.is_object() ? description.value("domain", VHJson()) : VHJson();
    VHJson count = description.is_object() ? description.value("count", VHJson(1)) : VHJson();
    if (!url.is_string() || !count.is_number_integer() || count.get<int64_t>() < 1) {
        return exchange.replyFailure(
            VHFail(400, kCodeBadRequest, "A domain and a count of 1 or more are needed"));
    }
    std::optional<VHEmulatorDomain> domain;
    {
        auto guard = store_.db.lock();
        domain = store_.accounts.domainByUrl(url.get<std::string>());
    }
    if (!domain) return exchange.replyFailure(VHFail(404, kCodeBadRequest, "No such domain"));
    delivery_.skipBroadcasts(domain->domainId, count.get<int64_t>());
    exchange.reply(200, {{"done", true}});
}

}  // namespace vh::emulator
