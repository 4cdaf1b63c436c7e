#include "VHAdminDiagnosticsService.h"

#include "VHEmulatorRecords.h"

namespace vh::emulator {

void VHAdminDiagnosticsService::registerRoutes(VHEmulatorServer& server) {
    const std::string admin(kAdminPrefix);
    server.route(VHHostKind::Any, "GET", admin + "faults",
                 [this](VHEmulatorExchange& exchange) { exchange.reply(200, faults_.list()); });
    server.route(VHHostKind::Any, "POST", admin + "faults", [this](VHEmulatorExchange& exchange) {
        auto rule = exchange.jsonBody();
        auto id = rule ? faults_.add(*rule) : VHFail(400, kCodeBadRequest, "JSON expected");
        if (!id) return exchange.replyFailure(id.failure());
        exchange.reply(201, {{"id", *id}});
    });
    server.route(VHHostKind::Any, "DELETE", admin + "faults", [this](VHEmulatorExchange& exchange) {
        faults_.clear();
        exchange.reply(200, {{"done", true}});
    });
    server.route(VHHostKind::Any, "DELETE", admin + "faults/([0-9]+)",
                 [this](VHEmulatorExchange& exchange) {
                     if (faults_.remove(std::stoll(exchange.params[0]))) {
                         return exchange.reply(200, {{"done", true}});
                     }
                     exchange.replyFailure(VHFail(404, kCodeBadRequest, "No such rule"));
                 });
    server.route(VHHostKind::Any, "GET", admin + "requests", [this](VHEmulatorExchange& exchange) {
        std::string after = exchange.query("after");
        exchange.reply(200, log_.after(after.empty() ? 0 : std::stoll(after)));
    });
    server.route(VHHostKind::Any, "DELETE", admin + "requests",
                 [this](VHEmulatorExchange& exchange) {
                     log_.clear();
                     exchange.reply(200, {{"done", true}});
                 });
}

}  // namespace vh::emulator
