#include "VHCatchUpService.h"

#include <charconv>

#include "VHEmulatorRecords.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

std::optional<int64_t> number(const std::string& text) {
    int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

void VHCatchUpService::registerRoutes(VHEmulatorServer& server) {
    server.route(VHHostKind::Gateway, "POST", "/CatchUp7\\.aspx",
                 [this](VHEmulatorExchange& exchange) { catchUp(exchange); });
}

void VHCatchUpService::catchUp(VHEmulatorExchange& exchange) {
    std::string shareId = exchange.header("share");
    std::string token = VHPercentDecoded(exchange.header("token"));
    auto tickFrom = number(exchange.header("tickfrom"));
    auto take = exchange.header("ticktake").empty() ? std::optional<int64_t>(10000)
                                                    : number(exchange.header("ticktake"));
    if (shareId.empty() || token.empty()) return exchange.replyText(401, "Share and token needed");
    if (!tickFrom || !take || *take < 1) return exchange.replyText(400, "Bad tick range");

    auto guard = store_.db.lock();
    auto domain = store_.accounts.domainByUrl(exchange.domainUrl);
    auto view = store_.accounts.view(shareId);
    if (!domain || !view || view->share.domainId != domain->domainId) {
        return exchange.replyText(404, "Unknown share");
    }
    bool granted = false;
    for (const VHEmulatorAcl& acl : store_.accounts.acls(shareId)) granted |= acl.token == token;
    if (!granted) return exchange.replyText(403, "Invalid token");

    auto items = store_.journal.changesAfter(*view, *tickFrom, std::min(*take, kMaxTickTake));
    int64_t shareTick = store_.accounts.share(view->storeShareId)->tick;
    int64_t largest = items.empty() ? shareTick : items.back().tick;
    exchange.reply(200, VHCatchUpRecord(items, shareTick, largest));
}

}  // namespace vh::emulator
