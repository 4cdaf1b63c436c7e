#include "VHLinkService.h"

#include <algorithm>
#include <array>

#include "VHDirectLinkCipher.h"
#include "VHEmulatorAccess.h"
#include "VHEmulatorDates.h"
#include "VHEmulatorIds.h"
#include "VHEmulatorRecords.h"

namespace vh::emulator {

namespace {

constexpr double kDay = 86400;

VHJson generalResponse(const std::string& message, bool success) {
    return {{"ResponceMessage", message}, {"responce", success}};
}

std::optional<VHJson> jsonText(const std::string& text) {
    auto json = VHJson::parse(text, nullptr, false);
    if (json.is_discarded() || !json.is_object()) return std::nullopt;
    return json;
}

std::string textOf(const VHJson& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : std::string();
}

int64_t numberOf(const VHJson& object, const char* key, int64_t fallback) {
    auto it = object.find(key);
    return it != object.end() && it->is_number() ? it->get<int64_t>() : fallback;
}

std::string escapeHtml(const std::string& text) {
    std::string escaped;
    for (char c : text) {
        if (c == '<')
            escaped += "&lt;";
        else if (c == '>')
            escaped += "&gt;";
        else if (c == '&')
            escaped += "&amp;";
        else
            escaped += c;
    }
    return escaped;
}

}  // namespace

void VHLinkService::registerRoutes(VHEmulatorServer& server) {
    server.route(VHHostKind::Gateway, "POST", "/api/publiclinks",
                 [this](VHEmulatorExchange& exchange) { createPublicLink(exchange); });
    server.route(VHHostKind::Webclient, "GET", "/link/([^/]+)",
                 [this](VHEmulatorExchange& exchange) { openPublicLink(exchange); });
    server.route(VHHostKind::Gateway, "GET", "/clientapi\\.aspx",
                 [this](VHEmulatorExchange& exchange) { clientApi(exchange); });
    server.route(VHHostKind::Webclient, "GET", "/default\\.aspx",
                 [this](VHEmulatorExchange& exchange) { webClient(exchange); });
}

void VHLinkService::createPublicLink(VHEmulatorExchange& exchange) {
    auto body = exchange.jsonBody();
    if (!body || !body->is_object()) {
        return exchange.replyFailure(VHFail(400, kCodeBadRequest, "Not a link request"));
    }
    auto guard = store_.db.lock();
    auto access = VHAuthorizeShare(store_, exchange, textOf(*body, "ShareId"), false);
    if (!access) return exchange.replyFailure(access.failure());
    std::string internalName = textOf(*body, "InternalName");
    auto item = store_.journal.liveItemInView(access->view, internalName);
    if (!item || !item->isFile) {
        return exchange.replyFailure(VHFail(404, kCodeItemUnknown, "No such file"));
    }
    int64_t days = numberOf(*body, "DaysToExpire", 0);
    auto enable = body->find("EnablePassword");
    bool withPassword = enable != body->end() && enable->is_boolean() && enable->get<bool>();
    std::string linkId = VHRandomHex(12);
    store_.db.run(
        "INSERT INTO publiclinks (linkId, shareId, internalName, email, expires, maxUse, used, "
        "password) VALUES (?, ?, ?, ?, ?, ?, 0, ?)",
        {linkId, access->view.share.shareId, internalName, access->user.email,
         VHNowSeconds() + kDay * (days > 0 ? days : 30), numberOf(*body, "MaxUse", 0),
         withPassword ? textOf(*body, "Password") : std::string()});
    std::string link =
        "https://" + std::string(kWebclientPrefix) + access->domain.url + "/link/" + linkId;
    exchange.reply(201, VHApiResponse(kCodeOk, "Public link created", {{"FullLink", link}}));
}

void VHLinkService::openPublicLink(VHEmulatorExchange& exchange) {
    int fd = -1;
    uint64_t size = 0;
    {
        auto guard = store_.db.lock();
        std::optional<std::array<std::string, 3>> link;
        double expires = 0;
        int64_t maxUse = 0, used = 0;
        store_.db.query(
            "SELECT shareId, internalName, password, expires, maxUse, used FROM publiclinks "
            "WHERE linkId = ?",
            {exchange.params[0]}, [&](const VHEmulatorDatabase::Row& row) {
                link = {row.columnText(0), row.columnText(1), row.columnText(2)};
                expires = row.columnDouble(3);
                maxUse = row.columnInt64(4);
                used = row.columnInt64(5);
            });
        if (!link) return exchange.replyText(404, "No such link");
        if (expires < VHNowSeconds() || (maxUse > 0 && used >= maxUse)) {
            return exchange.replyText(410, "The link has expired");
        }
        if (!(*link)[2].empty() && exchange.query("password") != (*link)[2]) {
            return exchange.replyText(403, "The link needs its password");
        }
        auto view = store_.accounts.view((*link)[0]);
        auto item = view ? store_.journal.liveItemInView(*view, (*link)[1]) : std::nullopt;
        if (!item) return exchange.replyText(404, "The file is gone");
        store_.db.run("UPDATE publiclinks SET used = used + 1 WHERE linkId = ?",
                      {exchange.params[0]});
        size = item->size;
        if (!item->blobId.empty()) fd = store_.blobs.openForReading(item->blobId);
    }
    if (size > 0 && fd < 0) return exchange.replyText(500, "Content is missing");
    exchange.replyFile(fd, 0, size);
}

void VHLinkService::clientApi(VHEmulatorExchange& exchange) {
    auto command = jsonText(exchange.header("command"));
    auto request = jsonText(exchange.header("request"));
    if (!command || !request) {
        return exchange.reply(400, generalResponse("102:Bad request", false));
    }
    if (textOf(*command, "Method") != "CreateDirectLink") {
        return exchange.reply(200, generalResponse("104:Unknown method", false));
    }
    createDirectLink(exchange, *command, *request);
}

void VHLinkService::createDirectLink(VHEmulatorExchange& exchange, const VHJson& command,
                                     const VHJson& request) {
    std::string email = textOf(command, "UserId");
    auto guard = store_.db.lock();
    auto domain = store_.accounts.domainByUrl(exchange.domainUrl);
    auto member =
        domain ? store_.accounts.membershipByToken(domain->domainId, textOf(command, "Token"))
               : std::nullopt;
    auto user = store_.accounts.user(email);
    if (!member || !user || member->email != user->email) {
        return exchange.reply(401, generalResponse("103:Invalid token", false));
    }
    std::string jsonData = textOf(request, "JsonData");
    auto token = jsonText(jsonData);
    if (!token || textOf(*token, "A") != email || textOf(*token, "B") != user->password) {
        return exchange.reply(403, generalResponse("105:Invalid credentials", false));
    }
    std::string linkId = VHNewInternalName();
    int64_t minutes = std::max<int64_t>(1, numberOf(request, "MinutesExpire", 1));
    store_.db.run(
        "INSERT INTO directlinks (linkId, email, domainId, jsonData, expires, maxUse, used) "
        "VALUES (?, ?, ?, ?, ?, ?, 0)",
        {linkId, user->email, domain->domainId, jsonData, VHNowSeconds() + 60.0 * minutes,
         std::max<int64_t>(1, numberOf(request, "MaxUse", 1))});
    VHJson answer = generalResponse("101:Ok", true);
    answer["LinkId"] = linkId;
    exchange.reply(200, answer);
}

void VHLinkService::webClient(VHEmulatorExchange& exchange) {
    std::string sas = exchange.query("sas");
    std::replace(sas.begin(), sas.end(), ' ', '+');  // a "+" the client did not escape
    auto plain = VHDecryptDirectLink(sas, kDirectLinkKey, kDirectLinkIV);
    auto link = plain ? jsonText(*plain) : std::nullopt;
    if (!link) return exchange.replyText(403, "The direct link cannot be read");
    std::string email = textOf(*link, "UserId");
    auto guard = store_.db.lock();
    std::string owner, domainId, jsonData;
    double expires = 0;
    int64_t maxUse = 0, used = 0;
    store_.db.query(
        "SELECT email, domainId, jsonData, expires, maxUse, used FROM directlinks "
        "WHERE linkId = ?",
        {textOf(*link, "DirectLinkId")}, [&](const VHEmulatorDatabase::Row& row) {
            owner = row.columnText(0);
            domainId = row.columnText(1);
            jsonData = row.columnText(2);
            expires = row.columnDouble(3);
            maxUse = row.columnInt64(4);
            used = row.columnInt64(5);
        });
    auto domain = store_.accounts.domainByUrl(exchange.domainUrl);
    auto member =
        domain ? store_.accounts.membershipByToken(domain->domainId, textOf(*link, "DomainToken"))
               : std::nullopt;
    if (owner.empty() || !domain || domainId != domain->domainId || !member ||
        member->email != owner || owner != email) {
        return exchange.replyText(403, "The direct link is not valid here");
    }
    if (expires < VHNowSeconds() || used >= maxUse) {
        return exchange.replyText(403, "The direct link has expired");
    }
    store_.db.run("UPDATE directlinks SET used = used + 1 WHERE linkId = ?",
                  {textOf(*link, "DirectLinkId")});
    auto token = jsonText(jsonData);
    std::string page = token ? textOf(*token, "C") : std::string();
    exchange.replyText(200,
                       "<!DOCTYPE html><html><body><p>Signed in as " + escapeHtml(owner) +
                           "</p><p>Page: " + escapeHtml(page) + "</p></body></html>",
                       "text/html; charset=utf-8");
}

}  // namespace vh::emulator
