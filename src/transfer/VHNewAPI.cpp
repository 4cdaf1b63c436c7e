#include "transfer/VHNewAPI.h"

#include <algorithm>
#include <cctype>

#include "lib/VHFormat.h"
#include "lib/VHLog.h"
#include "lib/VHNameRules.h"
#include "lib/VHStrings.h"

namespace vh {

namespace {

// The gateway is spliced into the host part of the URL: a "/", "@" or "?"
// there would send the domain token elsewhere.
bool isHostSuffix(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return std::isalnum(c) || c == '.' || c == '-' || c == ':';
    });
}

}  // namespace

VHHttpRequest VHNewAPI::newApiRequestForURL(const std::string& url, const UserDomain& domain,
                                            const std::string& method,
                                            const std::optional<VHJson>& body) {
    VHHttpRequest request;
    request.method = method;
    request.url = url;
    request.timeout = kRequestTimeout;
    request.headers.emplace_back("Authorization",
                                 VHFormat("DomainToken %@", domain.UserDomainToken.value_or("")));
    if (body) {
        request.headers.emplace_back("Content-Type", "application/json");
        request.body = body->dump(-1, ' ', false, VHJson::error_handler_t::replace);
    }
    return request;
}

std::optional<VHHttpRequest> VHNewAPI::newApiDownloadRequestForFile(const VHFile& file,
                                                                    VHByteRange range,
                                                                    const ManagedShare& share,
                                                                    const UserDomain& domain) {
    const std::string gateway = share.GateWayUrl.value_or("");
    if (!isHostSuffix(gateway) || !VHIsSafePathComponent(share.shareId()) ||
        !VHIsSafePathComponent(file.uploadName) || !VHIsSafePathComponent(file.internalName)) {
        VHLog(kLogMain,
              "Warning! No download request for file %@: gateway \"%@\", share \"%@\", upload "
              "name \"%@\" or internal name \"%@\" is missing or unsafe.",
              file.publicName, gateway, share.shareId(), file.uploadName, file.internalName);
        return std::nullopt;
    }
    std::string url =
        VHFormat("https://filecache01.%@/api/shares/%@/files/%@", gateway,
                 VHEscapeURLValue(share.shareId()), VHEscapeURLValue(file.uploadName));
    VHHttpRequest request = newApiRequestForURL(url, domain, "GET");
    request.headers.emplace_back(
        "Content-Range", VHFormat("bytes %ld-%ld/%ld", range.location, range.end(), file.fileSize));
    return request;
}

std::optional<VHHttpRequest> VHNewAPI::newApiUploadRequestForEvent(
    const VHNewAPIJournalEvent& event, const UserDomain& domain, const ManagedShare& share) {
    const std::string gateway = share.GateWayUrl.value_or("");
    std::string item;
    if (event.VhVirtualFile) item = event.VhVirtualFile->InternalName.value_or("");
    bool create = event.ClientJournalEventType == kEventCreate;
    if (!isHostSuffix(gateway) || !VHIsSafePathComponent(share.shareId()) ||
        (!create && !VHIsSafePathComponent(item))) {
        VHLog(kLogMain,
              "Warning! No event request of type %d: gateway \"%@\", share \"%@\" or internal "
              "name \"%@\" is missing or unsafe.",
              event.ClientJournalEventType, gateway, share.shareId(), item);
        return std::nullopt;
    }
    std::string url = VHFormat("https://filecache01.%@/api/shares/%@/files", gateway,
                               VHEscapeURLValue(share.shareId()));
    std::string method = "POST";
    if (!create) {
        url += "/" + VHEscapeURLValue(item);
        method = event.ClientJournalEventType == kEventDelete ? "DELETE" : "PUT";
    }
    return newApiRequestForURL(url, domain, method, VHRecordToJson(event));
}

std::optional<VHHttpRequest> VHNewAPI::newApiCreateLinkRequest(const VHNewAPICreatePublicLink& link,
                                                               const UserDomain& domain) {
    const std::string url = domain.Domain ? domain.Domain->Url.value_or("") : "";
    if (!isHostSuffix(url)) {
        VHLog(kLogMain, "Warning! No public link request: domain url \"%@\" is missing or unsafe.",
              url);
        return std::nullopt;
    }
    return newApiRequestForURL(VHFormat("https://clientgateway.%@/api/publiclinks", url), domain,
                               "POST", VHRecordToJson(link));
}

}  // namespace vh
