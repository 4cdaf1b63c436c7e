// Requests of the service's file-cache REST API. Pure builders: nothing is
// sent here. Any thread.
#pragma once

#include <optional>
#include <string>

#include "lib/VHHttp.h"
#include "lib/VHJsonRecord.h"
#include "store/VHFile.h"
#include "store/VHLoginRecords.h"
#include "transfer/VHByteRange.h"
#include "transfer/VHNewAPIRecords.h"

namespace vh {

class VHNewAPI {
  public:
    // Seconds a file-cache request may go without progress.
    static constexpr double kRequestTimeout = 10.0;

    // The common request: `method` to `url`, signed with "Authorization"
    // "DomainToken <the domain's UserDomainToken>"; with a body, its JSON text
    // (invalid UTF-8 replaced) as "application/json".
    static VHHttpRequest newApiRequestForURL(const std::string& url, const UserDomain& domain,
                                             const std::string& method,
                                             const std::optional<VHJson>& body = std::nullopt);

    // The ranged GET of a file's contents from its share's file cache. The
    // range travels in "Content-Range" with an exclusive end, as the service
    // expects. Nothing (and a log line) when the share's gateway or id, or the
    // file's upload or internal name, is missing or unsafe.
    static std::optional<VHHttpRequest> newApiDownloadRequestForFile(const VHFile& file,
                                                                     VHByteRange range,
                                                                     const ManagedShare& share,
                                                                     const UserDomain& domain);

    // The request that posts a journal event: a create (0) is POSTed to the
    // share's files, a delete (1) is a DELETE of the item, every other type a
    // PUT to it; the body is the event. Nothing (and a log line) when the
    // gateway, the share id or the item's internal name is missing or unsafe.
    static std::optional<VHHttpRequest> newApiUploadRequestForEvent(
        const VHNewAPIJournalEvent& event, const UserDomain& domain, const ManagedShare& share);

    // The POST of a public-link request to the domain's client gateway;
    // nothing when the domain's Url is missing or unsafe.
    static std::optional<VHHttpRequest> newApiCreateLinkRequest(
        const VHNewAPICreatePublicLink& link, const UserDomain& domain);
};

}  // namespace vh
