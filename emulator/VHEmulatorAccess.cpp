#include "VHEmulatorAccess.h"

#include "VHEmulatorText.h"

namespace vh::emulator {

VHEmulatorResult<VHDomainUser> VHAuthorizeDomainUser(VHEmulatorStore& store,
                                                     const VHEmulatorExchange& exchange) {
    static const std::string scheme = "DomainToken ";
    std::string authorization = exchange.header("Authorization");
    if (!VHHasPrefix(authorization, scheme)) {
        return VHFail(401, kCodeAccessDenied, "A DomainToken is needed");
    }
    auto domain = store.accounts.domainByUrl(exchange.domainUrl);
    if (!domain) return VHFail(404, kCodeBadRequest, "Unknown domain: " + exchange.domainUrl);
    auto member =
        store.accounts.membershipByToken(domain->domainId, authorization.substr(scheme.size()));
    auto user = member ? store.accounts.user(member->email) : std::nullopt;
    if (!user) return VHFail(401, kCodeAccessDenied, "Invalid DomainToken");
    return VHDomainUser{*user, *domain};
}

VHEmulatorResult<VHShareAccess> VHAuthorizeShare(VHEmulatorStore& store,
                                                 const VHEmulatorExchange& exchange,
                                                 const std::string& shareId, bool forChange) {
    auto member = VHAuthorizeDomainUser(store, exchange);
    if (!member) return member.failure();
    auto view = store.accounts.view(shareId);
    if (!view || view->share.domainId != member->domain.domainId) {
        return VHFail(404, kCodeBadRequest, "Unknown share: " + shareId);
    }
    auto acl = store.accounts.acl(shareId, member->user.email);
    if (!acl) return VHFail(403, kCodeAccessDenied, "No access to share " + shareId);
    if (forChange && acl->aclType == kAclReadOnly) {
        return VHFail(403, kCodeAccessDenied, "Share " + shareId + " is read-only");
    }
    return VHShareAccess{member->user, member->domain, *view, *acl};
}

}  // namespace vh::emulator
