// Public links of files and the web client opened signed in through a
// one-time direct link. Requests run on the link queue; the URL opener and
// the handlers run on the main thread.
#include <QThreadPool>
#include <chrono>
#include <cstdio>

#include "lib/VHCrypto.h"
#include "lib/VHFormat.h"
#include "lib/VHHttp.h"
#include "lib/VHLog.h"
#include "lib/VHSettings.h"
#include "lib/VHStrings.h"
#include "service/VHClientApiRecords.h"
#include "service/VHConnector.h"
#include "service/VHHostName.h"
#include "store/VHDatabase.h"
#include "transfer/VHNewAPI.h"

namespace vh {

namespace {

// The service counts time from its own epoch, in units of 100 ns; the
// offset is what it expects, not a calendar epoch.
constexpr double kServiceEpochOffset = 11676009472.0;

std::string serviceTimeStamp() {
    double seconds =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    char text[64];
    std::snprintf(text, sizeof text, "%.0f", (seconds + kServiceEpochOffset) * 10000000.0);
    return text;
}

// Key and IV are deployment configuration, given as Base64.
std::string configuredBytes(const char* envName, const char* key, size_t size) {
    auto bytes = VHBase64Decode(VHSettings::overridable(envName, key));
    if (!bytes || bytes->size() != size) return "";
    return *bytes;
}

std::string urlOf(const UserDomain& domain) {
    return domain.Domain ? domain.Domain->Url.value_or("") : "";
}

}  // namespace

std::string VHConnector::directLinkKey() {
    return configuredBytes("VARNHOLT_DIRECT_LINK_KEY", "VHDirectLinkKey", 32);
}

std::string VHConnector::encryptDirectLink(const std::string& text, const std::string& key) {
    std::string padded = text;
    if (padded.size() % 16) padded.append(16 - padded.size() % 16, '\0');
    std::string iv = configuredBytes("VARNHOLT_DIRECT_LINK_IV", "VHDirectLinkIV", 16);
    unsigned long status = 0;
    auto cipher = VHAes256CbcEncrypt(padded, key, iv, VHCipherPadding::None, &status);
    if (!cipher) {
        VHLog(kLogMain, "Failed to encrypted direct link data: error %d", status);
        return "";
    }
    return VHBase64Encode(*cipher);
}

void VHConnector::openWebClient(Opened opened) {
    openWebClientFor(2, "*LOGIN", std::move(opened));
}

void VHConnector::openShareInWebClient(const std::optional<ManagedShare>& share, Opened opened) {
    openWebClientFor(2, share ? share->shareId() : "*NEWSHARE", std::move(opened));
}

void VHConnector::openWebClientFor(int function, const std::string& param, Opened opened) {
    VHLog(kLogMain, "Opening Web client for function %d with param %@...", function, param);
    DirectLinkInput input{
        username(), password(), deviceId(), param,
        globalLoginResponce() ? globalLoginResponce()->PrimaryUserDomain : std::nullopt};
    linkOperationQueue_->start([this, input, opened = std::move(opened)] {
        std::optional<std::string> url = requestDirectLink(input);
        onMain([this, url, opened] {
            if (url && urlOpener_) urlOpener_(*url);
            if (opened) opened(url);
        });
    });
}

std::optional<std::string> VHConnector::requestDirectLink(const DirectLinkInput& input) {
    if (!input.domain || !VHIsHostName(urlOf(*input.domain))) {
        VHLog(kLogMain,
              "Warning! No web client: the primary domain's address is unknown or unsafe.");
        return std::nullopt;
    }
    const std::string host = urlOf(*input.domain);
    const std::string token = input.domain->UserDomainToken.value_or("");
    RequestCommand command{token, input.username, "CreateDirectLink", input.deviceId, ""};
    ShareAShareToken link{input.username, input.password, input.param, serviceTimeStamp(),
                          std::nullopt};
    CreateDirectLinkRequest request{2, 1, 1, VHSerializeRecord(link)};
    VHHttpRequest http;
    http.url = VHFormat("https://clientgateway.%@/clientapi.aspx", host);
    http.headers = {{"command", VHSerializeRecord(command)},
                    {"request", VHSerializeRecord(request)}};
    VHHttpResponse response = VHHttp::send(http);
    std::optional<std::string> linkId = directLinkIdOf(response);
    if (!linkId) return std::nullopt;
    std::string sas = encryptDirectLink(
        VHSerializeRecord(DirectLinkUrl{token, *linkId, input.username}), directLinkKey());
    if (sas.empty()) return std::nullopt;
    return VHFormat("https://webclient.%@/default.aspx?sas=%@", host, VHEscapeURLValue(sas));
}

std::optional<std::string> VHConnector::directLinkIdOf(const VHHttpResponse& response) {
    if (response.body.empty() || response.status != 200) {
        VHLog(kLogMain,
              "Failed to receive reply for web client DirectLink request. HTTP status code: %d.",
              static_cast<int>(response.status));
        return std::nullopt;
    }
    auto answer = VHParseRecord<CreateDirectLinkResponce>(response.body);
    if (!answer) {
        VHLog(kLogMain, "Failed to parse reply for web client DirectLink request: %@",
              response.body);
        return std::nullopt;
    }
    if (!VHStartsWith(answer->ResponceMessage, "101:Ok")) {
        VHLog(kLogMain, "Error in web client DirectLink request: %@", answer->ResponceMessage);
        return std::nullopt;
    }
    return answer->LinkId.value_or("");
}

void VHConnector::createFilePublicLink(const VHFile& file, LinkHandler handler,
                                       LinkFailure failed) {
    VHLog(kLogMain, "Creating the file public link for file %@...", file.publicName);
    linkOperationQueue_->start(
        [this, file, handler = std::move(handler), failed = std::move(failed)] {
            std::string why;
            std::optional<std::string> link = requestPublicLink(file, why);
            onMain([link, why, handler, failed] {
                if (link && handler) handler(*link);
                if (!link && failed) failed(why);
            });
        });
}

std::optional<std::string> VHConnector::requestPublicLink(const VHFile& file, std::string& why) {
    std::optional<ManagedShare> share = VHDatabase::database().shareForFile(file);
    std::optional<UserDomain> domain =
        share ? userDomainWithId(share->DomainId.value_or("")) : std::nullopt;
    if (!domain) {
        why =
            VHFormat("createFilePublicLink for %@ : cannot retrieve user domain.", file.publicName);
        VHLog(kLogMain, "%@", why);
        return std::nullopt;
    }
    VHNewAPICreatePublicLink link;
    link.ShareId = share->shareId();
    link.InternalName = file.internalName;
    auto request = VHNewAPI::newApiCreateLinkRequest(link, *domain);
    if (!request) {
        why = "the share's domain has no usable address";
        return std::nullopt;
    }
    return publicLinkOf(file, VHHttp::send(*request), why);
}

std::optional<std::string> VHConnector::publicLinkOf(const VHFile& file,
                                                     const VHHttpResponse& response,
                                                     std::string& why) {
    if (response.body.empty()) {
        why = VHFormat(
            "Failed to receive reply for create public link request. HTTP status "
            "code: %d.",
            static_cast<int>(response.status));
        VHLog(kLogMain, "%@", why);
        return std::nullopt;
    }
    auto answer = VHParseRecord<VHNewAPICreatePublicLinkResponce>(response.body);
    if (!answer) {
        why = VHFormat("Cannot parse create public link responce for %@: %@", file.publicName,
                       response.body);
        VHLog(kLogMain, "%@", why);
        return std::nullopt;
    }
    std::optional<std::string> link = answer->Data ? answer->Data->FullLink : std::nullopt;
    if (response.status != 201 || !link) {
        why = VHFormat("createFilePublicLink for %@ : error %d, message %@", file.publicName,
                       static_cast<int>(response.status), answer->Message.value_or(""));
        VHLog(kLogMain, "%@", why);
        return std::nullopt;
    }
    return link;
}

}  // namespace vh
