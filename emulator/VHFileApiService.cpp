#include "VHFileApiService.h"

#include "VHEmulatorAccess.h"
#include "VHEmulatorRecords.h"
#include "VHJournalEventRequest.h"

namespace vh::emulator {

void VHFileApiService::registerRoutes(VHEmulatorServer& server) {
    auto handler = [this](VHEmulatorExchange& exchange) { handle(exchange); };
    server.route(VHHostKind::Filecache, "POST", "/api/shares/([^/]+)/files", handler);
    server.route(VHHostKind::Filecache, "PUT", "/api/shares/([^/]+)/files/([^/]+)", handler);
    server.route(VHHostKind::Filecache, "DELETE", "/api/shares/([^/]+)/files/([^/]+)", handler);
}

void VHFileApiService::handle(VHEmulatorExchange& exchange) {
    auto body = exchange.jsonBody();
    if (!body) return exchange.replyFailure(VHFail(400, kCodeBadRequest, "Not a journal event"));
    auto event = VHReadJournalEvent(*body, exchange.request.method,
                                    exchange.params.size() > 1 ? exchange.params[1] : "");
    if (!event) return exchange.replyFailure(event.failure());
    std::unique_lock guard = store_.db.lock();
    auto access = VHAuthorizeShare(store_, exchange, exchange.params[0], true);
    if (!access) return exchange.replyFailure(access.failure());
    event->origin.user = access->user.email;
    const VHShareView& view = access->view;
    const std::string& id = event->fields.internalName;
    auto& journal = store_.journal;
    switch (event->type) {
        case kEventCreate:
            if (!event->fields.isFile) {
                return answer(exchange, *event, store_.atomically([&] {
                    return journal.createFolder(view, event->fields, event->origin);
                }));
            }
            return writeContent(exchange, guard, view, access->domain, *event);
        case kEventUpdate:
            return writeContent(exchange, guard, view, access->domain, *event);
        case kEventMove:
            return answer(exchange, *event, store_.atomically([&] {
                return journal.move(view, id, event->fields.parentId, event->fields.name,
                                    event->origin);
            }));
        case kEventDelete:
            return answer(exchange, *event, store_.atomically([&] {
                return journal.remove(view, id, event->origin);
            }));
        default:
            return answer(exchange, *event, store_.atomically([&] {
                return journal.setLock(view, id, event->type == kEventLock, event->origin);
            }));
    }
}

void VHFileApiService::writeContent(VHEmulatorExchange& exchange,
                                    std::unique_lock<std::mutex>& guard, const VHShareView& view,
                                    const VHEmulatorDomain& domain,
                                    const VHJournalEventRequest& event) {
    bool mustExist = event.type == kEventUpdate;
    if (event.size == 0) {
        return answer(exchange, event, store_.atomically([&] {
            VHContentVersion empty{"", 0, kEmptySha256, ""};
            return store_.journal.writeContent(view, event.fields, empty, event.origin, mustExist);
        }));
    }
    auto plan = store_.journal.planWrite(view, event.fields, event.origin, mustExist);
    if (!plan) return exchange.replyFailure(plan.failure());
    beginUpload(exchange, guard, view, domain, event, *plan);
}

void VHFileApiService::beginUpload(VHEmulatorExchange& exchange,
                                   std::unique_lock<std::mutex>& guard, const VHShareView& view,
                                   const VHEmulatorDomain& domain,
                                   const VHJournalEventRequest& event, const VHPlannedWrite& plan) {
    VHItemFields fields = event.fields;
    fields.internalName = plan.item.internalName;
    auto upload = store_.atomically([&] {
        return store_.uploads.begin(view.share.shareId, fields, event.size, event.type,
                                    event.origin);
    });
    if (!upload) return exchange.replyFailure(upload.failure());
    guard.unlock();
    // Allocating a large blob takes a while: never under the lock.
    if (upload->reserved > 0 && !store_.blobs.reserve(upload->blobId, upload->reserved)) {
        guard.lock();
        store_.abandonUpload(upload->uploadName);
        return exchange.replyFailure(VHFail(507, kCodeBadRequest, "No room for the content"));
    }
    std::string url = "https://" + std::string(kFilecachePrefix) + domain.url + "/api/uploads/" +
                      upload->uploadName + "?token=" + upload->token;
    VHEmulatorItem pending = plan.item;
    pending.uploadName = upload->uploadName;
    pending.size = event.size;
    pending.user = event.origin.user;
    VHJson data = {{"ClientJournalEvent",
                    VHJournalEventRecord(pending, event.type, event.origin, pending.tick)},
                   {"Url", url},
                   {"CurrentPosition", 0},
                   {"ExpectedLength", event.size}};
    exchange.reply(event.type == kEventCreate ? 201 : 200,
                   VHApiResponse(kCodeOk, "Send the contents to Url", std::move(data)));
}

void VHFileApiService::answer(VHEmulatorExchange& exchange, const VHJournalEventRequest& event,
                              const VHEmulatorResult<VHEmulatorItem>& result) {
    if (!result) return exchange.replyFailure(result.failure());
    VHJson data = {{"ClientJournalEvent",
                    VHJournalEventRecord(*result, event.type, event.origin, result->tick)}};
    exchange.reply(event.type == kEventCreate ? 201 : 200,
                   VHApiResponse(kCodeOk, "OK", std::move(data)));
}

}  // namespace vh::emulator
