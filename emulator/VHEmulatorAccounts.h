// Domains, users, their memberships and devices, shares and access rights.
// Every method requires the database lock (VHEmulatorDatabase::lock()).
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VHEmulatorDatabase.h"
#include "VHEmulatorTypes.h"

namespace vh::emulator {

class VHEmulatorAccounts {
  public:
    explicit VHEmulatorAccounts(VHEmulatorDatabase& db) : db_(db) {}

    std::vector<VHEmulatorDomain> domains();
    std::optional<VHEmulatorDomain> domainByUrl(const std::string& url);
    std::optional<VHEmulatorDomain> domainById(const std::string& domainId);
    // A new domain with a host-name `url`; refused when the url is taken.
    VHEmulatorResult<VHEmulatorDomain> addDomain(const std::string& url, const std::string& name);

    std::vector<VHEmulatorUser> users();
    std::optional<VHEmulatorUser> user(const std::string& email);
    // A new user (userId and companyId made when empty) with a membership in
    // the primary domain and in each of `domainUrls`.
    VHEmulatorResult<VHEmulatorUser> addUser(VHEmulatorUser user, const std::string& primaryUrl,
                                             const std::vector<std::string>& domainUrls);
    // Removes the user with memberships, devices and access rights.
    bool removeUser(const std::string& email);
    void recordLogin(const std::string& email);

    std::vector<VHEmulatorMembership> memberships(const std::string& email);
    std::optional<VHEmulatorMembership> membership(const std::string& email,
                                                   const std::string& domainId);
    std::optional<VHEmulatorMembership> membershipByToken(const std::string& domainId,
                                                          const std::string& token);
    std::optional<VHEmulatorMembership> membershipByCookie(const std::string& domainId,
                                                           const std::string& cookie);

    std::optional<VHEmulatorDevice> device(const std::string& email, const std::string& deviceId);
    bool setDevice(const std::string& email, const std::string& deviceId, bool wipe);

    std::vector<VHEmulatorShare> shares();
    std::optional<VHEmulatorShare> share(const std::string& shareId);
    // Stores a new share (shareId made when empty) and gives its owner the
    // owner's right; a subfolder share must name a share that holds items.
    VHEmulatorResult<VHEmulatorShare> addShare(VHEmulatorShare share);
    // Removes the share row and its rights (not its items).
    bool removeShare(const std::string& shareId);
    bool renameShare(const std::string& shareId, const std::string& name);
    // The subfolder shares that show folders of `shareId`.
    std::vector<std::string> subfolderShares(const std::string& shareId);
    // How the share's items are reached; nothing for an unknown share.
    std::optional<VHShareView> view(const std::string& shareId);
    // Advances the share's journal and returns the new tick.
    std::optional<int64_t> nextTick(const std::string& storeShareId);

    std::optional<VHEmulatorAcl> acl(const std::string& shareId, const std::string& email);
    std::vector<VHEmulatorAcl> acls(const std::string& shareId);
    // The user's shares in a domain with the user's right on each, by name.
    std::vector<std::pair<VHEmulatorShare, VHEmulatorAcl>> sharesOf(const std::string& email,
                                                                    const std::string& domainId);
    // Sets a right, keeping the token of an existing one.
    bool setAcl(const std::string& shareId, const std::string& email, int aclType);
    bool removeAcl(const std::string& shareId, const std::string& email);

  private:
    bool addMembership(const std::string& email, const std::string& domainId);
    std::vector<VHEmulatorShare> selectShares(const std::string& where,
                                              const std::vector<VHEmulatorValue>& values);
    std::vector<VHEmulatorAcl> selectAcls(const std::string& where,
                                          const std::vector<VHEmulatorValue>& values);
    VHEmulatorDatabase& db_;
};

}  // namespace vh::emulator
