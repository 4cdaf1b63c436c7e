// Records of the gateway's client API ("clientapi.aspx") that open the web
// client signed in: the direct-link request and its answer, and the text
// encrypted into the web client's address. Keys keep the service's spelling.
#pragma once

#include <optional>
#include <string>

#include "lib/VHJsonRecord.h"

namespace vh {

// The "command" header of a client API call.
struct RequestCommand {
    std::optional<std::string> Token;  // the primary domain's UserDomainToken
    std::optional<std::string> UserId;
    std::optional<std::string> Method;
    std::optional<std::string> DeviceId;
    std::optional<std::string> Ip;

    static auto jsonKeys() {
        using R = RequestCommand;
        return std::tuple{VHKey{"Token", &R::Token}, VHKey{"UserId", &R::UserId},
                          VHKey{"Method", &R::Method}, VHKey{"DeviceId", &R::DeviceId},
                          VHKey{"Ip", &R::Ip}};
    }
};

// What a direct link signs in with ("JsonData" of the request).
struct ShareAShareToken {
    std::optional<std::string> A;  // user name
    std::optional<std::string> B;  // password
    std::optional<std::string> C;  // web-client page: "*LOGIN", "*NEWSHARE" or a share id
    std::optional<std::string> D;  // time stamp in the service's own epoch
    std::optional<std::string> F;

    static auto jsonKeys() {
        using R = ShareAShareToken;
        return std::tuple{VHKey{"A", &R::A}, VHKey{"B", &R::B}, VHKey{"C", &R::C},
                          VHKey{"D", &R::D}, VHKey{"F", &R::F}};
    }
};

// The "request" header of CreateDirectLink.
struct CreateDirectLinkRequest {
    std::optional<int32_t> LinkType;
    std::optional<int32_t> MinutesExpire;
    std::optional<int32_t> MaxUse;
    std::string JsonData;

    static auto jsonKeys() {
        using R = CreateDirectLinkRequest;
        return std::tuple{VHKey{"LinkType", &R::LinkType},
                          VHKey{"MinutesExpire", &R::MinutesExpire}, VHKey{"MaxUse", &R::MaxUse},
                          VHKey{"JsonData", &R::JsonData}};
    }
};

// The answer of CreateDirectLink; "ResponceMessage" is "101:Ok" on success.
struct CreateDirectLinkResponce {
    std::string ResponceMessage;
    bool responce = false;
    std::optional<std::string> LinkId;

    static auto jsonKeys() {
        using R = CreateDirectLinkResponce;
        return std::tuple{VHKey{"ResponceMessage", &R::ResponceMessage},
                          VHKey{"responce", &R::responce}, VHKey{"LinkId", &R::LinkId}};
    }
};

// The clear text encrypted into the web client's "sas" parameter.
struct DirectLinkUrl {
    std::string DomainToken;
    std::string DirectLinkId;
    std::string UserId;

    static auto jsonKeys() {
        using R = DirectLinkUrl;
        return std::tuple{VHKey{"DomainToken", &R::DomainToken},
                          VHKey{"DirectLinkId", &R::DirectLinkId}, VHKey{"UserId", &R::UserId}};
    }
};

}  // namespace vh
