#include "VHEmulatorProvisioning.h"

namespace vh::emulator {

namespace {

using VHJson = nlohmann::json;

std::string text(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

bool flag(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_boolean() && it->get<bool>();
}

int integer(const VHJson& object, const char* key, int fallback) {
    auto it = object.find(key);
    return it != object.end() && it->is_number_integer() ? it->get<int>() : fallback;
}

const VHJson& list(const VHJson& object, const char* key) {
    static const VHJson empty = VHJson::array();
    auto it = object.find(key);
    return it != object.end() && it->is_array() ? *it : empty;
}

}  // namespace

VHEmulatorResult<VHEmulatorDomain> VHEmulatorProvisioning::addDomain(const VHJson& description) {
    if (!description.is_object()) return VHFail(400, kCodeBadRequest, "A domain is a JSON object");
    return store_.accounts.addDomain(text(description, "url"), text(description, "name"));
}

VHEmulatorResult<VHEmulatorUser> VHEmulatorProvisioning::addUser(const VHJson& description) {
    if (!description.is_object()) return VHFail(400, kCodeBadRequest, "A user is a JSON object");
    VHEmulatorUser user;
    user.email = text(description, "email");
    user.password = text(description, "password");
    user.name = text(description, "name");
    user.requireKnownDevices = flag(description, "requireKnownDevices");
    std::vector<std::string> domains;
    for (const VHJson& url : list(description, "domains")) {
        if (url.is_string()) domains.push_back(url.get<std::string>());
    }
    std::string primary = text(description, "primaryDomain");
    if (primary.empty() && !domains.empty()) primary = domains.front();
    auto added = store_.accounts.addUser(user, primary, domains);
    if (!added) return added;
    for (const VHJson& device : list(description, "devices")) {
        std::string deviceId = device.is_object() ? text(device, "deviceId") : std::string();
        if (deviceId.empty() ||
            !store_.accounts.setDevice(added->email, deviceId, flag(device, "wipe"))) {
            return VHFail(400, kCodeBadRequest, "A device needs a deviceId");
        }
    }
    return added;
}

VHEmulatorResult<VHEmulatorShare> VHEmulatorProvisioning::addShare(
    const VHJson& description, const VHEmulatorActions& actions) {
    if (!description.is_object()) return VHFail(400, kCodeBadRequest, "A share is a JSON object");
    auto domain = store_.accounts.domainByUrl(text(description, "domain"));
    if (!domain)
        return VHFail(400, kCodeBadRequest, "Unknown domain: " + text(description, "domain"));
    VHEmulatorShare share;
    share.shareId = text(description, "shareId");
    share.name = text(description, "name");
    share.domainId = domain->domainId;
    share.ownerEmail = text(description, "owner");
    share.parentShareId = text(description, "parentShare");
    if (share.name.empty()) return VHFail(400, kCodeBadRequest, "A share needs a name");
    if (share.isSubfolder()) {
        auto parent = store_.accounts.view(share.parentShareId);
        auto folder =
            parent ? store_.journal.itemAtPath(*parent, text(description, "folder")) : std::nullopt;
        if (!folder || folder->isFile) {
            return VHFail(400, kCodeBadRequest, "A subfolder share needs a folder of its share");
        }
        share.rootFolder = folder->internalName;
    }
    auto added = store_.accounts.addShare(share);
    if (!added) return added;
    for (const VHJson& right : list(description, "acl")) {
        if (!right.is_object() || !store_.accounts.setAcl(added->shareId, text(right, "email"),
                                                          integer(right, "aclType", -1))) {
            return VHFail(400, kCodeBadRequest, "Bad right for " + text(right, "email"));
        }
    }
    auto view = store_.accounts.view(added->shareId);
    auto applied = actions.apply(store_, *view, {added->ownerEmail, "emulator-seed", ""});
    if (!applied) return applied.failure();
    return added;
}

}  // namespace vh::emulator
