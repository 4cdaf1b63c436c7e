#include "VHFileApiService.h"

#include "VHEmulatorAccess.h"
#include "VHEmulatorDates.h"
#include "VHEmulatorRecords.h"

namespace vh::emulator {

namespace {

std::optional<double> dateField(const VHJson& file, const char* key) {
    auto it = file.find(key);
    if (it == file.end() || !it->is_string()) return std::nullopt;
    return VHParseServiceDate(it->get_ref<const std::string&>());
}

template <typename T>
std::optional<T> numberField(const VHJson& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || !it->is_number()) return std::nullopt;
    return static_cast<T>(it->get<double>());
}

std::string textField(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool flagField(const VHJson& object, const char* key, bool fallback) {
    auto it = object.find(key);
    if (it == object.end()) return fallback;
    if (it->is_boolean()) return it->get<bool>();
    return it->is_number() ? it->get<double>() != 0 : fallback;
}

VHItemFields fieldsOf(const VHJson& file) {
    VHItemFields fields;
    fields.internalName = textField(file, "InternalName");
    fields.parentId = textField(file, "ParrentId");
    fields.name = textField(file, "PublicName");
    fields.isFile = flagField(file, "IsFile", true);
    fields.createTime = dateField(file, "CreationTime");
    fields.accessTime = dateField(file, "LastAccessTime");
    fields.writeTime = dateField(file, "LastWriteTime");
    fields.attributes = numberField<int64_t>(file, "Attributes");
    fields.permissions = numberField<int64_t>(file, "POSIXPermissions");
    return fields;
}

bool typeFitsMethod(int type, const std::string& method) {
    if (method == "POST") return type == kEventCreate;
    if (method == "DELETE") return type == kEventDelete;
    return type == kEventMove || type == kEventUpdate || type == kEventLock || type == kEventUnlock;
}

}  // namespace

void VHFileApiService::registerRoutes(VHEmulatorServer& server) {
    auto handler = [this](VHEmulatorExchange& exchange) { handle(exchange); };
    server.route(VHHostKind::Filecache, "POST", "/api/shares/([^/]+)/files", handler);
    server.route(VHHostKind::Filecache, "PUT", "/api/shares/([^/]+)/files/([^/]+)", handler);
    server.route(VHHostKind::Filecache, "DELETE", "/api/shares/([^/]+)/files/([^/]+)", handler);
}

std::optional<VHFileApiService::Event> VHFileApiService::readEvent(VHEmulatorExchange& exchange) {
    auto body = exchange.jsonBody();
    if (!body || !body->is_object()) return std::nullopt;
    auto type = numberField<int>(*body, "ClientJournalEventType");
    if (!type || !typeFitsMethod(*type, exchange.request.method)) return std::nullopt;
    Event event;
    event.type = *type;
    auto file = body->find("VhVirtualFile");
    if (file != body->end() && file->is_object()) {
        event.fields = fieldsOf(*file);
        auto end = numberField<uint64_t>(*file, "EndOfFile").value_or(0);
        auto allocation = numberField<uint64_t>(*file, "AllocationSize").value_or(0);
        event.size = std::max(end, allocation);
    }
    if (exchange.params.size() > 1) {
        const std::string& id = exchange.params[1];
        if (!event.fields.internalName.empty() && event.fields.internalName != id) {
            return std::nullopt;
        }
        event.fields.internalName = id;
    }
    event.origin.deviceId = textField(*body, "DeviceId");
    event.origin.transmitId = textField(*body, "TransmitId");
    return event;
}

void VHFileApiService::handle(VHEmulatorExchange& exchange) {
    auto event = readEvent(exchange);
    if (!event) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "Not a journal event"));
    }
    auto guard = store_.db.lock();
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
            return writeContent(exchange, view, access->domain, *event);
        case kEventUpdate:
            return writeContent(exchange, view, access->domain, *event);
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

void VHFileApiService::writeContent(VHEmulatorExchange& exchange, const VHShareView& view,
                                    const VHEmulatorDomain& domain, const Event& event) {
    bool mustExist = event.type == kEventUpdate;
    if (event.size == 0) {
        return answer(exchange, event, store_.atomically([&] {
            VHContentVersion empty{"", 0, kEmptySha256, ""};
            return store_.journal.writeContent(view, event.fields, empty, event.origin, mustExist);
        }));
    }
    auto plan = store_.journal.planWrite(view, event.fields, event.origin, mustExist);
    if (!plan) return exchange.replyFailure(plan.failure());
    beginUpload(exchange, view, domain, event, *plan);
}

void VHFileApiService::beginUpload(VHEmulatorExchange& exchange, const VHShareView& view,
                                   const VHEmulatorDomain& domain, const Event& event,
                                   const VHPlannedWrite& plan) {
    VHItemFields fields = event.fields;
    fields.internalName = plan.item.internalName;
    auto upload =
        store_.uploads.begin(view.share.shareId, fields, event.size, event.type, event.origin);
    if (!upload) return exchange.replyFailure(upload.failure());
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

void VHFileApiService::answer(VHEmulatorExchange& exchange, const Event& event,
                              const VHEmulatorResult<VHEmulatorItem>& result) {
    if (!result) return exchange.replyFailure(result.failure());
    VHJson data = {{"ClientJournalEvent",
                    VHJournalEventRecord(*result, event.type, event.origin, result->tick)}};
    exchange.reply(event.type == kEventCreate ? 201 : 200,
                   VHApiResponse(kCodeOk, "OK", std::move(data)));
}

}  // namespace vh::emulator
