#include "VHEmulatorActions.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

using VHJson = nlohmann::json;

constexpr size_t kPatternBlock = 1u << 20;

std::vector<std::string> components(const std::string& path) {
    return VHPathComponents(path);
}

std::string text(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

std::string joined(const std::vector<std::string>& path) {
    std::string text;
    for (const std::string& part : path) text += "/" + part;
    return text.empty() ? "/" : text;
}

bool writeAll(int fd, const std::string& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

}  // namespace

VHEmulatorResult<VHEmulatorActions> VHEmulatorActions::prepare(const VHJson& actions,
                                                               VHEmulatorBlobs& blobs) {
    VHEmulatorActions prepared;
    if (!actions.is_array()) return VHFail(400, kCodeBadRequest, "Actions are a JSON list");
    for (const VHJson& action : actions) {
        auto parsed = parse(action, blobs);
        if (!parsed) {
            prepared.discardContents(blobs);
            return parsed.failure();
        }
        prepared.actions_.push_back(std::move(*parsed));
    }
    return prepared;
}

VHEmulatorResult<VHEmulatorActions::Action> VHEmulatorActions::parse(const VHJson& action,
                                                                     VHEmulatorBlobs& blobs) {
    if (!action.is_object()) return VHFail(400, kCodeBadRequest, "An action is a JSON object");
    Action parsed{text(action, "action"),
                  components(text(action, "path")),
                  components(text(action, "to")),
                  {}};
    static const std::vector<std::string> kinds = {"createFolder", "writeFile", "move",
                                                   "delete",       "lock",      "unlock"};
    if (std::find(kinds.begin(), kinds.end(), parsed.kind) == kinds.end()) {
        return VHFail(400, kCodeBadRequest, "Unknown action: " + parsed.kind);
    }
    if (parsed.path.empty() || (parsed.kind == "move" && parsed.to.empty())) {
        return VHFail(400, kCodeBadRequest, parsed.kind + " needs a path");
    }
    if (parsed.kind == "writeFile") {
        auto content = writeContent(action, blobs);
        if (!content) return content.failure();
        parsed.content = *content;
    }
    return parsed;
}

VHEmulatorResult<VHContentVersion> VHEmulatorActions::writeContent(const VHJson& action,
                                                                   VHEmulatorBlobs& blobs) {
    std::optional<std::string> bytes;
    uint64_t patternSize = 0;
    if (action.contains("text")) bytes = text(action, "text");
    if (action.contains("base64")) bytes = VHBase64Decoded(text(action, "base64"));
    if (action.contains("size")) {
        if (!action["size"].is_number_unsigned()) return VHFail(400, kCodeBadRequest, "Bad size");
        patternSize = action["size"].get<uint64_t>();
    }
    if (!bytes && !action.contains("size")) {
        return VHFail(400, kCodeBadRequest, "writeFile needs text, base64 or size");
    }
    if ((bytes && bytes->empty()) || (!bytes && patternSize == 0)) {
        return VHContentVersion{"", 0, kEmptySha256, ""};
    }
    std::string blobId = blobs.create();
    int fd = ::open(blobs.path(blobId).c_str(), O_WRONLY | O_CLOEXEC);
    bool written = fd >= 0;
    if (bytes && written) written = writeAll(fd, *bytes);
    auto seedField = action.find("seed");
    uint64_t seed = seedField != action.end() && seedField->is_number_unsigned()
                        ? seedField->get<uint64_t>()
                        : 0;
    for (uint64_t offset = 0; !bytes && written && offset < patternSize; offset += kPatternBlock) {
        written = writeAll(
            fd,
            VHPatternBytes(seed, offset, std::min<uint64_t>(kPatternBlock, patternSize - offset)));
    }
    if (fd >= 0) ::close(fd);
    auto hash = written ? blobs.sha256(blobId) : std::nullopt;
    auto size = blobs.size(blobId);
    if (!hash || !size) {
        blobs.remove(blobId);
        return VHFail(500, kCodeBadRequest, "Cannot write the content");
    }
    return VHContentVersion{blobId, *size, *hash, ""};
}

void VHEmulatorActions::discardContents(VHEmulatorBlobs& blobs) const {
    for (const Action& action : actions_) {
        if (!action.content.blobId.empty()) blobs.remove(action.content.blobId);
    }
}

VHEmulatorResult<VHJson> VHEmulatorActions::apply(VHEmulatorStore& store, const VHShareView& view,
                                                  const VHChangeOrigin& origin) const {
    VHJson results = VHJson::array();
    for (const Action& action : actions_) {
        auto item = applyOne(store, view, action, origin);
        if (!item) {
            VHEmulatorFailure failure = item.failure();
            failure.message = action.kind + " " + joined(action.path) + ": " + failure.message;
            return failure;
        }
        results.push_back({{"action", action.kind},
                           {"path", joined(action.path)},
                           {"internalName", item->internalName},
                           {"tick", item->tick}});
    }
    return results;
}

VHEmulatorResult<std::string> VHEmulatorActions::ensureFolders(VHEmulatorStore& store,
                                                               const VHShareView& view,
                                                               const std::vector<std::string>& path,
                                                               size_t count,
                                                               const VHChangeOrigin& origin) const {
    std::string parent = view.rootId;
    for (size_t i = 0; i < count; ++i) {
        auto existing = store.journal.itemAtPath(
            view, joined(std::vector<std::string>(path.begin(), path.begin() + i + 1)));
        if (existing && existing->isFile) {
            return VHFail(409, kCodeNameExists, path[i] + " is a file");
        }
        if (!existing) {
            VHItemFields fields;
            fields.parentId = parent;
            fields.name = path[i];
            fields.isFile = false;
            auto folder = store.journal.createFolder(view, fields, origin);
            if (!folder) return folder.failure();
            existing = *folder;
        }
        parent = existing->internalName;
    }
    return parent;
}

VHEmulatorResult<VHEmulatorItem> VHEmulatorActions::applyOne(VHEmulatorStore& store,
                                                             const VHShareView& view,
                                                             const Action& action,
                                                             const VHChangeOrigin& origin) const {
    auto& journal = store.journal;
    if (action.kind == "createFolder") {
        auto folder = ensureFolders(store, view, action.path, action.path.size(), origin);
        if (!folder) return folder.failure();
        return *journal.item(*folder);
    }
    if (action.kind == "writeFile") {
        auto parent = ensureFolders(store, view, action.path, action.path.size() - 1, origin);
        if (!parent) return parent.failure();
        VHItemFields fields;
        fields.parentId = *parent;
        fields.name = action.path.back();
        if (auto existing = journal.itemAtPath(view, joined(action.path))) {
            fields.internalName = existing->internalName;
        }
        return journal.writeContent(view, fields, action.content, origin, false);
    }
    auto item = journal.itemAtPath(view, joined(action.path));
    if (!item) return VHFail(404, kCodeItemUnknown, "No such item");
    if (action.kind == "delete") return journal.remove(view, item->internalName, origin);
    if (action.kind != "move") {
        return journal.setLock(view, item->internalName, action.kind == "lock", origin);
    }
    auto parent = ensureFolders(store, view, action.to, action.to.size() - 1, origin);
    if (!parent) return parent.failure();
    return journal.move(view, item->internalName, *parent, action.to.back(), origin);
}

}  // namespace vh::emulator
