#include "VHEmulatorAccounts.h"

#include <algorithm>

#include "VHEmulatorDates.h"
#include "VHEmulatorDefaults.h"
#include "VHEmulatorIds.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

using Row = VHEmulatorDatabase::Row;

const char* kDomainColumns = "domainId, url, name, resellerId";
const char* kUserColumns =
    "userId, email, password, name, companyId, primaryDomainId, requireKnownDevices, "
    "createTime, lastLoginTime";
const char* kMembershipColumns = "email, domainId, token, cookie";
const char* kShareColumns =
    "shareId, domainId, name, companyId, vshareId, ownerEmail, parentShareId, rootFolder, tick, "
    "createTime, modifyTime";
const char* kAclColumns = "shareId, email, aclType, token";

std::string select(const char* columns, const char* table, const std::string& where) {
    return std::string("SELECT ") + columns + " FROM " + table + " " + where;
}

VHEmulatorDomain domainFromRow(const Row& row) {
    return {row.columnText(0), row.columnText(1), row.columnText(2), row.columnText(3)};
}

VHEmulatorUser userFromRow(const Row& row) {
    VHEmulatorUser user;
    user.userId = row.columnText(0);
    user.email = row.columnText(1);
    user.password = row.columnText(2);
    user.name = row.columnText(3);
    user.companyId = row.columnText(4);
    user.primaryDomainId = row.columnText(5);
    user.requireKnownDevices = row.columnInt64(6) != 0;
    user.createTime = row.columnDouble(7);
    user.lastLoginTime = row.columnDouble(8);
    return user;
}

VHEmulatorMembership membershipFromRow(const Row& row) {
    return {row.columnText(0), row.columnText(1), row.columnText(2), row.columnText(3)};
}

VHEmulatorShare shareFromRow(const Row& row) {
    VHEmulatorShare share;
    share.shareId = row.columnText(0);
    share.domainId = row.columnText(1);
    share.name = row.columnText(2);
    share.companyId = row.columnText(3);
    share.vshareId = row.columnText(4);
    share.ownerEmail = row.columnText(5);
    share.parentShareId = row.columnText(6);
    share.rootFolder = row.columnText(7);
    share.tick = row.columnInt64(8);
    share.createTime = row.columnDouble(9);
    share.modifyTime = row.columnDouble(10);
    return share;
}

VHEmulatorAcl aclFromRow(const Row& row) {
    return {row.columnText(0), row.columnText(1), static_cast<int>(row.columnInt64(2)),
            row.columnText(3)};
}

bool isHostName(const std::string& url) {
    if (url.empty() || url.size() > 200 || url.front() == '.' || url.back() == '.') return false;
    if (url.find('.') == std::string::npos || url.find("..") != std::string::npos) return false;
    return url.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789.-") == std::string::npos;
}

bool isEmail(const std::string& email) {
    auto at = email.find('@');
    return at != std::string::npos && at > 0 && at + 1 < email.size() && email.size() <= 200 &&
           email.find_first_of(" \t\r\n/\\") == std::string::npos;
}

}  // namespace

std::vector<VHEmulatorDomain> VHEmulatorAccounts::domains() {
    std::vector<VHEmulatorDomain> result;
    db_.query(select(kDomainColumns, "domains", "ORDER BY url"), {},
              [&](const Row& row) { result.push_back(domainFromRow(row)); });
    return result;
}

std::optional<VHEmulatorDomain> VHEmulatorAccounts::domainByUrl(const std::string& url) {
    std::optional<VHEmulatorDomain> result;
    db_.query(select(kDomainColumns, "domains", "WHERE url = ?"), {url},
              [&](const Row& row) { result = domainFromRow(row); });
    return result;
}

std::optional<VHEmulatorDomain> VHEmulatorAccounts::domainById(const std::string& domainId) {
    std::optional<VHEmulatorDomain> result;
    db_.query(select(kDomainColumns, "domains", "WHERE domainId = ?"), {domainId},
              [&](const Row& row) { result = domainFromRow(row); });
    return result;
}

VHEmulatorResult<VHEmulatorDomain> VHEmulatorAccounts::addDomain(const std::string& url,
                                                                 const std::string& name) {
    std::string host = VHAsciiLowercase(url);
    if (!isHostName(host)) return VHFail(400, kCodeBadRequest, "Not a host name: " + url);
    if (domainByUrl(host)) return VHFail(409, kCodeNameExists, "Domain exists: " + host);
    VHEmulatorDomain domain{VHNewInternalName(), host, name.empty() ? host : name,
                            VHNewInternalName()};
    if (!db_.run("INSERT INTO domains (domainId, url, name, resellerId) VALUES (?, ?, ?, ?)",
                 {domain.domainId, domain.url, domain.name, domain.resellerId})) {
        return VHFail(500, kCodeBadRequest, db_.lastError());
    }
    return domain;
}

std::vector<VHEmulatorUser> VHEmulatorAccounts::users() {
    std::vector<VHEmulatorUser> result;
    db_.query(select(kUserColumns, "users", "ORDER BY email"), {},
              [&](const Row& row) { result.push_back(userFromRow(row)); });
    return result;
}

std::optional<VHEmulatorUser> VHEmulatorAccounts::user(const std::string& email) {
    std::optional<VHEmulatorUser> result;
    db_.query(select(kUserColumns, "users", "WHERE email = ?"), {email},
              [&](const Row& row) { result = userFromRow(row); });
    return result;
}

VHEmulatorResult<VHEmulatorUser> VHEmulatorAccounts::addUser(
    VHEmulatorUser user, const std::string& primaryUrl,
    const std::vector<std::string>& domainUrls) {
    if (!isEmail(user.email)) return VHFail(400, kCodeBadRequest, "Not an e-mail: " + user.email);
    if (this->user(user.email)) return VHFail(409, kCodeNameExists, "User exists: " + user.email);
    auto primary = domainByUrl(primaryUrl);
    if (!primary) return VHFail(400, kCodeBadRequest, "Unknown domain: " + primaryUrl);
    if (user.userId.empty()) user.userId = VHNewInternalName();
    if (user.companyId.empty()) user.companyId = VHNewInternalName();
    if (user.name.empty()) user.name = user.email;
    user.primaryDomainId = primary->domainId;
    user.createTime = VHNowSeconds();
    bool stored = db_.run(
        "INSERT INTO users (userId, email, password, name, companyId, primaryDomainId, "
        "requireKnownDevices, createTime, lastLoginTime) VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0)",
        {user.userId, user.email, user.password, user.name, user.companyId, user.primaryDomainId,
         int64_t(user.requireKnownDevices), user.createTime});
    if (!stored || !addMembership(user.email, primary->domainId)) {
        return VHFail(500, kCodeBadRequest, db_.lastError());
    }
    for (const std::string& url : domainUrls) {
        auto domain = domainByUrl(url);
        if (!domain) return VHFail(400, kCodeBadRequest, "Unknown domain: " + url);
        if (!membership(user.email, domain->domainId) &&
            !addMembership(user.email, domain->domainId)) {
            return VHFail(500, kCodeBadRequest, db_.lastError());
        }
    }
    return user;
}

bool VHEmulatorAccounts::removeUser(const std::string& email) {
    if (!user(email)) return false;
    return db_.run("DELETE FROM users WHERE email = ?", {email}) &&
           db_.run("DELETE FROM memberships WHERE email = ?", {email}) &&
           db_.run("DELETE FROM devices WHERE email = ?", {email}) &&
           db_.run("DELETE FROM acls WHERE email = ?", {email});
}

void VHEmulatorAccounts::recordLogin(const std::string& email) {
    db_.run("UPDATE users SET lastLoginTime = ? WHERE email = ?", {VHNowSeconds(), email});
}

bool VHEmulatorAccounts::addMembership(const std::string& email, const std::string& domainId) {
    return db_.run("INSERT INTO memberships (email, domainId, token, cookie) VALUES (?, ?, ?, ?)",
                   {email, domainId, VHRandomHex(16), VHRandomHex(24)});
}

std::vector<VHEmulatorMembership> VHEmulatorAccounts::memberships(const std::string& email) {
    std::vector<VHEmulatorMembership> result;
    db_.query(select(kMembershipColumns, "memberships", "WHERE email = ? ORDER BY domainId"),
              {email}, [&](const Row& row) { result.push_back(membershipFromRow(row)); });
    return result;
}

std::optional<VHEmulatorMembership> VHEmulatorAccounts::membership(const std::string& email,
                                                                   const std::string& domainId) {
    std::optional<VHEmulatorMembership> result;
    db_.query(select(kMembershipColumns, "memberships", "WHERE email = ? AND domainId = ?"),
              {email, domainId}, [&](const Row& row) { result = membershipFromRow(row); });
    return result;
}

std::optional<VHEmulatorMembership> VHEmulatorAccounts::membershipByToken(
    const std::string& domainId, const std::string& token) {
    std::optional<VHEmulatorMembership> result;
    if (token.empty()) return result;
    db_.query(select(kMembershipColumns, "memberships", "WHERE domainId = ? AND token = ?"),
              {domainId, token}, [&](const Row& row) { result = membershipFromRow(row); });
    return result;
}

std::optional<VHEmulatorMembership> VHEmulatorAccounts::membershipByCookie(
    const std::string& domainId, const std::string& cookie) {
    std::optional<VHEmulatorMembership> result;
    if (cookie.empty()) return result;
    db_.query(select(kMembershipColumns, "memberships", "WHERE domainId = ? AND cookie = ?"),
              {domainId, cookie}, [&](const Row& row) { result = membershipFromRow(row); });
    return result;
}

std::optional<VHEmulatorDevice> VHEmulatorAccounts::device(const std::string& email,
                                                           const std::string& deviceId) {
    std::optional<VHEmulatorDevice> result;
    db_.query("SELECT deviceId, email, wipe FROM devices WHERE email = ? AND deviceId = ?",
              {email, deviceId}, [&](const Row& row) {
                  result = VHEmulatorDevice{row.columnText(0), row.columnText(1),
                                            row.columnInt64(2) != 0};
              });
    return result;
}

bool VHEmulatorAccounts::setDevice(const std::string& email, const std::string& deviceId,
                                   bool wipe) {
    return db_.run("INSERT OR REPLACE INTO devices (deviceId, email, wipe) VALUES (?, ?, ?)",
                   {deviceId, email, int64_t(wipe)});
}

std::vector<VHEmulatorShare> VHEmulatorAccounts::selectShares(
    const std::string& where, const std::vector<VHEmulatorValue>& values) {
    std::vector<VHEmulatorShare> result;
    db_.query(select(kShareColumns, "shares", where), values,
              [&](const Row& row) { result.push_back(shareFromRow(row)); });
    return result;
}

std::vector<VHEmulatorShare> VHEmulatorAccounts::shares() {
    return selectShares("ORDER BY name", {});
}

std::optional<VHEmulatorShare> VHEmulatorAccounts::share(const std::string& shareId) {
    auto found = selectShares("WHERE shareId = ?", {shareId});
    if (found.empty()) return std::nullopt;
    return found.front();
}

VHEmulatorResult<VHEmulatorShare> VHEmulatorAccounts::addShare(VHEmulatorShare share) {
    if (share.shareId.empty()) share.shareId = VHNewInternalName();
    if (!VHIsPlainId(share.shareId)) return VHFail(400, kCodeBadRequest, "Bad share id");
    if (this->share(share.shareId)) return VHFail(409, kCodeNameExists, "Share exists");
    if (!domainById(share.domainId)) return VHFail(400, kCodeBadRequest, "Unknown domain");
    auto owner = user(share.ownerEmail);
    if (!owner) return VHFail(400, kCodeBadRequest, "Unknown owner: " + share.ownerEmail);
    if (share.isSubfolder()) {
        auto parent = this->share(share.parentShareId);
        if (!parent || parent->isSubfolder() || parent->domainId != share.domainId) {
            return VHFail(400, kCodeBadRequest, "A subfolder share needs a share of its domain");
        }
    }
    if (share.companyId.empty()) share.companyId = owner->companyId;
    if (share.vshareId.empty()) share.vshareId = VHNewInternalName();
    share.createTime = share.modifyTime = VHNowSeconds();
    bool stored = db_.run(
        "INSERT INTO shares (shareId, domainId, name, companyId, vshareId, ownerEmail, "
        "parentShareId, rootFolder, tick, createTime, modifyTime) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0, ?, ?)",
        {share.shareId, share.domainId, share.name, share.companyId, share.vshareId,
         share.ownerEmail, share.parentShareId, share.rootFolder, share.createTime,
         share.modifyTime});
    if (!stored || !setAcl(share.shareId, share.ownerEmail, kAclOwner)) {
        return VHFail(500, kCodeBadRequest, db_.lastError());
    }
    return share;
}

bool VHEmulatorAccounts::removeShare(const std::string& shareId) {
    return db_.run("DELETE FROM shares WHERE shareId = ?", {shareId}) &&
           db_.run("DELETE FROM acls WHERE shareId = ?", {shareId});
}

bool VHEmulatorAccounts::renameShare(const std::string& shareId, const std::string& name) {
    return db_.run("UPDATE shares SET name = ? WHERE shareId = ?", {name, shareId});
}

std::vector<std::string> VHEmulatorAccounts::subfolderShares(const std::string& shareId) {
    std::vector<std::string> result;
    for (const auto& share : selectShares("WHERE parentShareId = ?", {shareId})) {
        result.push_back(share.shareId);
    }
    return result;
}

std::optional<VHShareView> VHEmulatorAccounts::view(const std::string& shareId) {
    auto found = share(shareId);
    if (!found) return std::nullopt;
    if (!found->isSubfolder()) return VHShareView{*found, found->shareId, found->shareId};
    return VHShareView{*found, found->parentShareId, found->rootFolder};
}

std::optional<int64_t> VHEmulatorAccounts::nextTick(const std::string& storeShareId) {
    if (!db_.run("UPDATE shares SET tick = tick + 1, modifyTime = ? WHERE shareId = ?",
                 {VHNowSeconds(), storeShareId}) ||
        db_.changes() != 1) {
        return std::nullopt;
    }
    return db_.integer("SELECT tick FROM shares WHERE shareId = ?", {storeShareId});
}

std::vector<VHEmulatorAcl> VHEmulatorAccounts::selectAcls(
    const std::string& where, const std::vector<VHEmulatorValue>& values) {
    std::vector<VHEmulatorAcl> result;
    db_.query(select(kAclColumns, "acls", where), values,
              [&](const Row& row) { result.push_back(aclFromRow(row)); });
    return result;
}

std::optional<VHEmulatorAcl> VHEmulatorAccounts::acl(const std::string& shareId,
                                                     const std::string& email) {
    auto found = selectAcls("WHERE shareId = ? AND email = ?", {shareId, email});
    if (found.empty()) return std::nullopt;
    return found.front();
}

std::vector<VHEmulatorAcl> VHEmulatorAccounts::acls(const std::string& shareId) {
    return selectAcls("WHERE shareId = ? ORDER BY email", {shareId});
}

std::vector<std::pair<VHEmulatorShare, VHEmulatorAcl>> VHEmulatorAccounts::sharesOf(
    const std::string& email, const std::string& domainId) {
    std::vector<std::pair<VHEmulatorShare, VHEmulatorAcl>> result;
    for (const VHEmulatorAcl& right : selectAcls("WHERE email = ?", {email})) {
        auto found = share(right.shareId);
        if (found && found->domainId == domainId) result.emplace_back(*found, right);
    }
    std::sort(result.begin(), result.end(),
              [](const auto& a, const auto& b) { return a.first.name < b.first.name; });
    return result;
}

bool VHEmulatorAccounts::setAcl(const std::string& shareId, const std::string& email, int aclType) {
    if (aclType < kAclReadOnly || aclType > kAclOwner || !user(email)) return false;
    if (acl(shareId, email)) {
        return db_.run("UPDATE acls SET aclType = ? WHERE shareId = ? AND email = ?",
                       {int64_t(aclType), shareId, email});
    }
    return db_.run("INSERT INTO acls (shareId, email, aclType, token) VALUES (?, ?, ?, ?)",
                   {shareId, email, int64_t(aclType), VHRandomBase64(18)});
}

bool VHEmulatorAccounts::removeAcl(const std::string& shareId, const std::string& email) {
    return db_.run("DELETE FROM acls WHERE shareId = ? AND email = ?", {shareId, email}) &&
           db_.changes() == 1;
}

}  // namespace vh::emulator
