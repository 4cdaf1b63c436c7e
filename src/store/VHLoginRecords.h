// The service's records of sign-in and sharing: the global and the gateway
// login answers with the user's domains, shares and their access rights.
// Keys keep the service's own spelling ("Responce", "LoginTokenn",
// "LastApplyedJournalTick"). std::optional members are optional keys; the
// others are required and fail the whole record when missing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lib/VHJsonRecord.h"

namespace vh {

struct Domain {
    std::optional<std::string> DomainId;
    std::optional<std::string> Url;
    std::optional<std::string> DomainName;
    std::optional<std::string> ResellerId;

    static auto jsonKeys() {
        return std::tuple{VHKey{"DomainId", &Domain::DomainId}, VHKey{"Url", &Domain::Url},
                          VHKey{"DomainName", &Domain::DomainName},
                          VHKey{"ResellerId", &Domain::ResellerId}};
    }
};

struct UserDomain {
    std::optional<::vh::Domain> Domain;
    std::optional<std::string> UserDomainToken;

    static auto jsonKeys() {
        return std::tuple{VHKey{"Domain", &UserDomain::Domain},
                          VHKey{"UserDomainToken", &UserDomain::UserDomainToken}};
    }
};

struct MetaDatas {
    std::optional<std::string> Address, ZipCode, City, Country, Phone, HomePage, Fax, NameContact,
        EmailContact, MandrillKey, MailServiceEmail, EmailCountry;

    static auto jsonKeys() {
        using R = MetaDatas;
        return std::tuple{VHKey{"Address", &R::Address},
                          VHKey{"ZipCode", &R::ZipCode},
                          VHKey{"City", &R::City},
                          VHKey{"Country", &R::Country},
                          VHKey{"Phone", &R::Phone},
                          VHKey{"HomePage", &R::HomePage},
                          VHKey{"Fax", &R::Fax},
                          VHKey{"NameContact", &R::NameContact},
                          VHKey{"EmailContact", &R::EmailContact},
                          VHKey{"MandrillKey", &R::MandrillKey},
                          VHKey{"MailServiceEmail", &R::MailServiceEmail},
                          VHKey{"EmailCountry", &R::EmailCountry}};
    }
};

struct Users {
    std::optional<std::string> UserId, Email, AltMail, Alias, Name, ResellerId;
    std::optional<double> CreateTime, LastLoginTime;
    int32_t Status = 0;

    static auto jsonKeys() {
        using R = Users;
        return std::tuple{VHKey{"UserId", &R::UserId},
                          VHKey{"Email", &R::Email},
                          VHKey{"AltMail", &R::AltMail},
                          VHKey{"Alias", &R::Alias},
                          VHKey{"Name", &R::Name},
                          VHKey{"ResellerId", &R::ResellerId},
                          VHKey{"CreateTime", &R::CreateTime},
                          VHKey{"LastLoginTime", &R::LastLoginTime},
                          VHKey{"Status", &R::Status}};
    }
};

struct Resellers {
    std::optional<std::string> ResellerId, ExternalId, ParrentResellerId, ProviderId, Name;
    int32_t SkinVersion = 0;
    std::optional<std::string> ResellerHomePageUrl, CompanyHomePageUrl, BrowserClientHomaPage,
        SkinUrl;
    std::optional<double> CreateTime;
    std::optional<MetaDatas> MetaData;

    static auto jsonKeys() {
        using R = Resellers;
        return std::tuple{VHKey{"ResellerId", &R::ResellerId},
                          VHKey{"ExternalId", &R::ExternalId},
                          VHKey{"ParrentResellerId", &R::ParrentResellerId},
                          VHKey{"ProviderId", &R::ProviderId},
                          VHKey{"Name", &R::Name},
                          VHKey{"SkinVersion", &R::SkinVersion},
                          VHKey{"ResellerHomePageUrl", &R::ResellerHomePageUrl},
                          VHKey{"CompanyHomePageUrl", &R::CompanyHomePageUrl},
                          VHKey{"BrowserClientHomaPage", &R::BrowserClientHomaPage},
                          VHKey{"SkinUrl", &R::SkinUrl},
                          VHKey{"CreateTime", &R::CreateTime},
                          VHKey{"MetaData", &R::MetaData}};
    }
};

struct GlobalLoginResponce {
    std::optional<UserDomain> PrimaryUserDomain;
    std::optional<std::vector<UserDomain>> UserDomains;
    std::optional<std::string> DeviceId;
    std::optional<std::string> ErrorCode;
    std::optional<std::string> ConfirmKey;
    bool Wipe = false;
    std::optional<Users> User;
    std::optional<Resellers> Reseller;

    static auto jsonKeys() {
        using R = GlobalLoginResponce;
        return std::tuple{VHKey{"PrimaryUserDomain", &R::PrimaryUserDomain},
                          VHKey{"UserDomains", &R::UserDomains},
                          VHKey{"DeviceId", &R::DeviceId},
                          VHKey{"ErrorCode", &R::ErrorCode},
                          VHKey{"ConfirmKey", &R::ConfirmKey},
                          VHKey{"Wipe", &R::Wipe},
                          VHKey{"User", &R::User},
                          VHKey{"Reseller", &R::Reseller}};
    }
};

struct SharingCompany {
    std::optional<std::string> CompanyId;
    int32_t AssociationType = 0;

    static auto jsonKeys() {
        return std::tuple{VHKey{"CompanyId", &SharingCompany::CompanyId},
                          VHKey{"AssociationType", &SharingCompany::AssociationType}};
    }
};

struct ShareACL {
    std::optional<std::string> ShareId;
    std::optional<double> AclType;
    std::optional<std::string> ShareShareRights, FileShareRights, AclToken;

    static auto jsonKeys() {
        using R = ShareACL;
        return std::tuple{VHKey{"ShareId", &R::ShareId}, VHKey{"AclType", &R::AclType},
                          VHKey{"ShareShareRights", &R::ShareShareRights},
                          VHKey{"FileShareRights", &R::FileShareRights},
                          VHKey{"AclToken", &R::AclToken}};
    }
};

// One share. The service's keys plus the local fields that the share store
// keeps with it ("AclToken" at the top level is local).
struct ManagedShare {
    std::optional<std::string> VshareId;
    std::optional<std::string> ShareId;
    std::optional<std::string> CompanyId;
    std::optional<std::string> VshareName;
    std::optional<std::string> ShareName;
    std::optional<std::string> TransmitId;
    std::optional<std::string> AliasName;
    std::optional<std::string> DisplayName;
    std::optional<std::string> ParentShareId;
    std::optional<std::string> InternalName;
    std::optional<double> ShareType;
    int32_t AssociationType = 0;
    int32_t Status = 0;
    bool ShareChanged = false;
    bool Online = false;
    int32_t TransmitCounter = 0;
    // Declared 32-bit by the service; kept wider so that no tick is refused.
    int64_t LastApplyedJournalTick = 0;
    std::optional<double> LastUpdate;
    std::optional<VHDate> LastBufferEntry;
    std::optional<VHJson> ConflicTnternalId;
    std::optional<std::string> DomainId;
    std::optional<ShareACL> ShareAcl;
    std::optional<std::string> GateWayUrl;
    std::optional<VHDate> NextCathUp;
    std::optional<VHDate> CreationDate;
    std::optional<VHDate> ModificationDate;
    std::optional<std::string> CompanyName;
    std::optional<double> Synchronize;
    std::optional<std::string> AclToken;

    // "ShareType" is 1.
    bool isSubfolderShare() const { return ShareType && *ShareType == 1; }
    // The ACL's "AclType" is 0.
    bool isReadonlyShare() const {
        return ShareAcl && ShareAcl->AclType && *ShareAcl->AclType == 0;
    }
    // The ACL's "AclType" is 2; without an ACL type, "AssociationType" is 2.
    bool isShareOwner() const {
        if (ShareAcl && ShareAcl->AclType) return *ShareAcl->AclType == 2;
        return AssociationType == 2;
    }
    // Convenience accessors: the value, or the empty string.
    const std::string& shareId() const { return ShareId ? *ShareId : empty(); }
    const std::string& displayName() const { return DisplayName ? *DisplayName : empty(); }
    const std::string& internalName() const { return InternalName ? *InternalName : empty(); }

    static auto jsonKeys() {
        using R = ManagedShare;
        return std::tuple{VHKey{"VshareId", &R::VshareId},
                          VHKey{"ShareId", &R::ShareId},
                          VHKey{"CompanyId", &R::CompanyId},
                          VHKey{"VshareName", &R::VshareName},
                          VHKey{"ShareName", &R::ShareName},
                          VHKey{"TransmitId", &R::TransmitId},
                          VHKey{"AliasName", &R::AliasName},
                          VHKey{"DisplayName", &R::DisplayName},
                          VHKey{"ParentShareId", &R::ParentShareId},
                          VHKey{"InternalName", &R::InternalName},
                          VHKey{"ShareType", &R::ShareType},
                          VHKey{"AssociationType", &R::AssociationType},
                          VHKey{"Status", &R::Status},
                          VHKey{"ShareChanged", &R::ShareChanged},
                          VHKey{"Online", &R::Online},
                          VHKey{"TransmitCounter", &R::TransmitCounter},
                          VHKey{"LastApplyedJournalTick", &R::LastApplyedJournalTick},
                          VHKey{"LastUpdate", &R::LastUpdate},
                          VHKey{"LastBufferEntry", &R::LastBufferEntry},
                          VHKey{"ConflicTnternalId", &R::ConflicTnternalId},
                          VHKey{"DomainId", &R::DomainId},
                          VHKey{"ShareAcl", &R::ShareAcl},
                          VHKey{"GateWayUrl", &R::GateWayUrl},
                          VHKey{"NextCathUp", &R::NextCathUp},
                          VHKey{"CreationDate", &R::CreationDate},
                          VHKey{"ModificationDate", &R::ModificationDate},
                          VHKey{"CompanyName", &R::CompanyName},
                          VHKey{"Synchronize", &R::Synchronize},
                          VHKey{"AclToken", &R::AclToken}};
    }

  private:
    static const std::string& empty() {
        static const std::string value;
        return value;
    }
};

struct ClientLoginResponse {
    std::optional<Users> User;
    std::optional<std::vector<ManagedShare>> ManagedShares;
    std::optional<std::string> LoginTokenn;
    std::optional<std::string> Cookie;
    std::optional<VHJson> FilecacheUrls;
    std::optional<std::vector<SharingCompany>> SharingCompanies;

    static auto jsonKeys() {
        using R = ClientLoginResponse;
        return std::tuple{VHKey{"User", &R::User},
                          VHKey{"ManagedShares", &R::ManagedShares},
                          VHKey{"LoginTokenn", &R::LoginTokenn},
                          VHKey{"Cookie", &R::Cookie},
                          VHKey{"FilecacheUrls", &R::FilecacheUrls},
                          VHKey{"SharingCompanies", &R::SharingCompanies}};
    }
};

}  // namespace vh
