#include "VHAdminContentService.h"

#include <algorithm>

#include "VHEmulatorActions.h"
#include "VHEmulatorRecords.h"

namespace vh::emulator {

namespace {

const std::string kAdmin(kAdminPrefix);

std::string textOr(const VHJson& object, const char* key, const std::string& fallback) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : fallback;
}

VHJson treeEntry(const VHEmulatorItem& item, const std::string& path) {
    return {{"path", path},
            {"internalName", item.internalName},
            {"parentId", item.parentId},
            {"isFile", item.isFile},
            {"size", item.size},
            {"sha256", item.isFile ? item.hash : ""},
            {"uploadName", item.uploadName},
            {"tick", item.tick},
            {"createTick", item.createTick},
            {"updateTick", item.updateTick},
            {"deleted", item.deleted},
            {"locked", item.locked},
            {"lockedBy", item.lockedBy},
            {"lockDeviceId", item.lockDeviceId}};
}

}  // namespace

void VHAdminContentService::registerRoutes(VHEmulatorServer& server) {
    server.route(VHHostKind::Any, "GET", kAdmin + "shares/([^/]+)/tree",
                 [this](VHEmulatorExchange& exchange) { tree(exchange); });
    server.route(VHHostKind::Any, "GET", kAdmin + "shares/([^/]+)/content",
                 [this](VHEmulatorExchange& exchange) { content(exchange); });
    server.route(VHHostKind::Any, "POST", kAdmin + "shares/([^/]+)/actions",
                 [this](VHEmulatorExchange& exchange) { act(exchange); });
}

void VHAdminContentService::tree(VHEmulatorExchange& exchange) {
    auto guard = store_.db.lock();
    auto view = store_.accounts.view(exchange.params[0]);
    if (!view) return exchange.replyFailure(VHFail(404, kCodeBadRequest, "No such share"));
    bool withDeleted = exchange.query("deleted") == "1";
    VHJson items = VHJson::array();
    for (const VHEmulatorItem& item : store_.journal.itemsInView(*view, withDeleted)) {
        items.push_back(treeEntry(item, store_.journal.pathOf(*view, item)));
    }
    std::sort(items.begin(), items.end(), [](const VHJson& a, const VHJson& b) {
        return a["path"].get<std::string>() < b["path"].get<std::string>();
    });
    exchange.reply(200, {{"shareId", view->share.shareId},
                         {"tick", store_.accounts.share(view->storeShareId)->tick},
                         {"items", std::move(items)}});
}

void VHAdminContentService::content(VHEmulatorExchange& exchange) {
    int fd = -1;
    uint64_t size = 0;
    {
        auto guard = store_.db.lock();
        auto view = store_.accounts.view(exchange.params[0]);
        if (!view) return exchange.replyFailure(VHFail(404, kCodeBadRequest, "No such share"));
        std::string id = exchange.query("id");
        auto item = id.empty() ? store_.journal.itemAtPath(*view, exchange.query("path"))
                               : store_.journal.liveItemInView(*view, id);
        if (!item || !item->isFile) {
            return exchange.replyFailure(VHFail(404, kCodeItemUnknown, "No such file"));
        }
        size = item->size;
        if (!item->blobId.empty()) fd = store_.blobs.openForReading(item->blobId);
    }
    if (size > 0 && fd < 0) {
        return exchange.replyFailure(VHFail(500, kCodeBadRequest, "Content is missing"));
    }
    exchange.replyFile(fd, 0, size);
}

void VHAdminContentService::act(VHEmulatorExchange& exchange) {
    auto body = exchange.jsonBody();
    if (!body || !body->is_object()) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "JSON expected"));
    }
    auto actions =
        VHEmulatorActions::prepare(body->value("actions", VHJson::array()), store_.blobs);
    if (!actions) return exchange.replyFailure(actions.failure());
    auto guard = store_.db.lock();
    auto view = store_.accounts.view(exchange.params[0]);
    if (!view) {
        actions->discardContents(store_.blobs);
        return exchange.replyFailure(VHFail(404, kCodeBadRequest, "No such share"));
    }
    std::string user = textOr(*body, "user", view->share.ownerEmail);
    VHChangeOrigin origin{user, textOr(*body, "deviceId", "emulator-device"), ""};
    auto results = store_.atomically([&] { return actions->apply(store_, *view, origin); });
    if (!results) {
        actions->discardContents(store_.blobs);
        return exchange.replyFailure(results.failure());
    }
    exchange.reply(200, {{"results", std::move(*results)},
                         {"tick", store_.accounts.share(view->storeShareId)->tick}});
}

}  // namespace vh::emulator
