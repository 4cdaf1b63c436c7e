#include "VHEmulatorRecords.h"

#include "VHEmulatorDates.h"
#include "VHEmulatorIds.h"

namespace vh::emulator {

namespace {

VHJson fileLockRecord(const VHEmulatorItem& item) {
    return {{"DeviceId", item.lockDeviceId},
            {"IsLocked", item.locked ? 1 : 0},
            {"LockTime", item.lockTime},
            {"LockedBy", item.lockedBy}};
}

std::string transmitIdOf(const VHChangeOrigin& origin) {
    return origin.transmitId.empty() ? VHNewInternalName() : origin.transmitId;
}

}  // namespace

VHJson VHVirtualFileRecord(const VHEmulatorItem& item) {
    VHJson record = {
        {"ShareId", item.shareId},
        {"UploadUrl", ""},
        {"UploadName", item.uploadName},
        {"ArchivedFullName", ""},
        {"InternalName", item.internalName},
        {"ParrentId", item.parentId},
        {"ParentShareId", ""},
        {"PublicName", item.name},
        {"User", item.user},
        {"LastUploadName", ""},
        {"FilehHash", item.hash},
        {"Tick", item.tick},
        {"ShareTick", item.tick},
        {"UpdateTick", item.updateTick},
        {"CreateTick", item.createTick},
        {"EndOfFile", item.size},
        {"AllocationSize", item.size},
        {"Attributes", item.attributes},
        {"CreationTime", VHServiceDateText(item.createTime)},
        {"LastAccessTime", VHServiceDateText(item.accessTime)},
        {"LastWriteTime", VHServiceDateText(item.writeTime)},
        {"FileLock", fileLockRecord(item)},
        {"Local", false},
        {"Deleted", item.deleted},
        {"IsFile", item.isFile},
    };
    if (item.permissions) record["POSIXPermissions"] = *item.permissions;
    return record;
}

VHJson VHJournalEventRecord(const VHEmulatorItem& item, int eventType, const VHChangeOrigin& origin,
                            int64_t shareTick) {
    return {{"TransmitId", transmitIdOf(origin)},
            {"UserOrigin", origin.user},
            {"ClientJournalEventType", eventType},
            {"VhVirtualFile", VHVirtualFileRecord(item)},
            {"DeviceId", origin.deviceId},
            {"ShareId", item.shareId},
            {"ShareTick", shareTick},
            {"TransmitCounter", 0},
            {"TransmitTimeout", VHServiceDateText(VHNowSeconds() + 60)},
            {"CreateTick", item.createTick}};
}

VHJson VHBroadcastEventRecord(const VHEmulatorItem& item, int eventType,
                              const VHChangeOrigin& origin, int64_t shareTick) {
    return {{"TransmitId", transmitIdOf(origin)},
            {"UserOrigin", origin.user},
            {"clientJournalEventType", eventType},
            {"VShare", ""},
            {"ShareId", item.shareId},
            {"ShareTick", shareTick},
            {"TransmitCounter", 0},
            {"CreateTick", item.createTick},
            {"TransmitTimeout", VHServiceDateText(VHNowSeconds() + 60)},
            {"VhVirtualFile", VHVirtualFileRecord(item)}};
}

VHJson VHApiResponse(int code, const std::string& message, VHJson data) {
    VHJson response = {{"Code", code}, {"Message", message}};
    if (!data.is_null()) response["Data"] = std::move(data);
    return response;
}

VHJson VHApiFailure(const VHEmulatorFailure& failure) {
    VHJson response = VHApiResponse(failure.code, failure.message);
    if (failure.lockedItem) response["FileLock"] = fileLockRecord(*failure.lockedItem);
    return response;
}

VHJson VHDomainRecord(const VHEmulatorDomain& domain) {
    return {{"DomainId", domain.domainId},
            {"Url", domain.url},
            {"DomainName", domain.name},
            {"ResellerId", domain.resellerId}};
}

VHJson VHUserDomainRecord(const VHEmulatorDomain& domain, const VHEmulatorMembership& member) {
    return {{"Domain", VHDomainRecord(domain)}, {"UserDomainToken", member.token}};
}

VHJson VHUserRecord(const VHEmulatorUser& user) {
    return {{"UserId", user.userId},
            {"Email", user.email},
            {"AltMail", ""},
            {"Alias", user.name},
            {"Name", user.name},
            {"ResellerId", ""},
            {"CreateTime", static_cast<int64_t>(user.createTime)},
            {"LastLoginTime", static_cast<int64_t>(user.lastLoginTime)},
            {"Status", 1}};
}

VHJson VHResellerRecord(const VHEmulatorDomain& domain) {
    return {{"ResellerId", domain.resellerId},
            {"ExternalId", ""},
            {"ParrentResellerId", ""},
            {"ProviderId", ""},
            {"Name", domain.name},
            {"SkinVersion", 1},
            {"ResellerHomePageUrl", "https://" + domain.url + "/"},
            {"CompanyHomePageUrl", "https://" + domain.url + "/"},
            {"BrowserClientHomaPage", "https://webclient." + domain.url + "/"},
            {"SkinUrl", ""},
            {"CreateTime", 0}};
}

VHJson VHManagedShareRecord(const VHEmulatorShare& share, const VHEmulatorAcl& acl,
                            const VHEmulatorDomain& domain) {
    VHJson shareAcl = {{"ShareId", share.shareId},
                       {"AclType", acl.aclType},
                       {"ShareShareRights", acl.aclType == kAclOwner ? "rw" : "r"},
                       {"FileShareRights", acl.aclType == kAclReadOnly ? "r" : "rw"},
                       {"AclToken", acl.token}};
    return {{"VshareId", share.vshareId},
            {"ShareId", share.shareId},
            {"CompanyId", share.companyId},
            {"VshareName", share.name},
            {"ShareName", share.name},
            {"TransmitId", ""},
            {"AliasName", ""},
            {"DisplayName", share.name},
            {"ParentShareId", share.parentShareId},
            {"InternalName", share.isSubfolder() ? share.rootFolder : share.shareId},
            {"ShareType", share.isSubfolder() ? 1 : 0},
            {"AssociationType", acl.aclType == kAclOwner ? 2 : 1},
            {"Status", 1},
            {"ShareChanged", false},
            {"Online", true},
            {"TransmitCounter", 0},
            {"LastApplyedJournalTick", 0},
            {"LastUpdate", share.tick},
            {"LastBufferEntry", VHServiceDateText(share.modifyTime)},
            {"ConflicTnternalId", VHJson::array()},
            {"DomainId", domain.domainId},
            {"ShareAcl", shareAcl},
            {"GateWayUrl", domain.url},
            {"NextCathUp", VHServiceDateText(VHNowSeconds())},
            {"CreationDate", VHServiceDateText(share.createTime)},
            {"ModificationDate", VHServiceDateText(share.modifyTime)},
            {"CompanyName", domain.name},
            {"Synchronize", 0}};
}

VHJson VHCatchUpRecord(const std::vector<VHEmulatorItem>& items, int64_t shareTick,
                       int64_t largestTick) {
    VHJson files = VHJson::array();
    for (const VHEmulatorItem& item : items) files.push_back(VHVirtualFileRecord(item));
    return {{"VhVirtualFiles", std::move(files)},
            {"ShareTick", shareTick},
            {"LargestTick", largestTick}};
}

}  // namespace vh::emulator
