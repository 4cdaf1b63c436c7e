#include "VHEmulatorServer.h"

#include <chrono>
#include <thread>

#include "VHEmulatorDates.h"
#include "VHEmulatorRecords.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

void pause(int milliseconds) {
    if (milliseconds > 0) std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void truncateProvidedBody(httplib::Response& response, size_t keep) {
    auto provider = response.content_provider_;
    response.content_provider_ = [provider, keep](size_t offset, size_t length,
                                                  httplib::DataSink& sink) {
        if (offset >= keep) return false;
        size_t position = offset;
        bool cut = false;
        httplib::DataSink limited;
        limited.is_writable = sink.is_writable;
        limited.done = sink.done;
        limited.write = [&](const char* data, size_t size) {
            size_t allowed = std::min(size, keep - position);
            bool ok = sink.write(data, allowed);
            position += allowed;
            cut = allowed < size;
            return ok && !cut;
        };
        return provider(offset, length, limited) && !cut;
    };
}

// Announces the whole length and sends only `keep` bytes of it.
void truncateBody(httplib::Response& response, size_t keep) {
    if (response.content_provider_) return truncateProvidedBody(response, keep);
    auto body = std::make_shared<std::string>(std::move(response.body));
    if (keep >= body->size()) {
        response.body = std::move(*body);
        return;
    }
    std::string type = response.get_header_value("Content-Type");
    response.headers.erase("Content-Type");
    response.body.clear();
    response.set_content_provider(body->size(), type,
                                  [body, keep](size_t, size_t, httplib::DataSink& sink) {
                                      sink.write(body->data(), keep);
                                      return false;
                                  });
}

void applyFault(VHEmulatorExchange& exchange, const VHFaultAction& fault) {
    exchange.drainBody();
    exchange.response.content_provider_ = nullptr;
    exchange.reply(fault.status, VHApiResponse(fault.code, fault.message));
}

}  // namespace

VHEmulatorServer::VHEmulatorServer(VHEmulatorTls& tls, VHEmulatorFaults& faults,
                                   VHEmulatorRequestLog& log, std::string globalHost)
    : faults_(faults), log_(log), globalHost_(VHAsciiLowercase(globalHost)) {
    server_ = std::make_unique<httplib::SSLServer>(
        [&tls](SSL_CTX& context) { return tls.configure(context); });
    server_->new_task_queue = [] { return new httplib::ThreadPool(kServerThreads); };
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(100000);
    server_->set_keep_alive_timeout(5);
    server_->set_read_timeout(kReadTimeoutSeconds);
    server_->set_write_timeout(120);
    auto plain = [this](const httplib::Request& request, httplib::Response& response) {
        dispatch(request, response, nullptr);
    };
    auto withBody = [this](const httplib::Request& request, httplib::Response& response,
                           const httplib::ContentReader& reader) {
        dispatch(request, response, &reader);
    };
    server_->Get(".*", plain);
    server_->Post(".*", withBody);
    server_->Put(".*", withBody);
    server_->Patch(".*", withBody);
    server_->Delete(".*", withBody);
    server_->Options(".*", plain);
}

VHEmulatorServer::~VHEmulatorServer() {
    stop();
}

void VHEmulatorServer::route(VHHostKind kind, const std::string& method, const std::string& pattern,
                             Handler handler) {
    routes_.push_back({kind, method,
                       std::regex(pattern, std::regex::ECMAScript | std::regex::icase),
                       std::move(handler)});
}

int VHEmulatorServer::bind(const std::string& host, int port) {
    if (!server_->is_valid()) return -1;
    if (port == 0) return server_->bind_to_any_port(host);
    return server_->bind_to_port(host, port) ? port : -1;
}

void VHEmulatorServer::run() {
    server_->listen_after_bind();
}

void VHEmulatorServer::stop() {
    if (server_) server_->stop();
}

void VHEmulatorServer::classifyHost(VHEmulatorExchange& exchange, VHHostKind& kind) const {
    kind = VHHostKind::Any;
    if (exchange.host == globalHost_) {
        kind = VHHostKind::Global;
        return;
    }
    const std::pair<std::string_view, VHHostKind> prefixes[] = {
        {kGatewayPrefix, VHHostKind::Gateway},
        {kFilecachePrefix, VHHostKind::Filecache},
        {kWebclientPrefix, VHHostKind::Webclient}};
    for (const auto& [prefix, prefixKind] : prefixes) {
        if (VHHasPrefix(exchange.host, prefix) && exchange.host.size() > prefix.size()) {
            kind = prefixKind;
            exchange.domainUrl = exchange.host.substr(prefix.size());
            return;
        }
    }
}

void VHEmulatorServer::runHandler(VHEmulatorExchange& exchange, VHHostKind kind) {
    const std::string& path = exchange.request.path;
    for (const Route& route : routes_) {
        if (route.method != exchange.request.method) continue;
        if (route.kind != VHHostKind::Any && route.kind != kind) continue;
        std::smatch match;
        if (!std::regex_match(path, match, route.pattern)) continue;
        for (size_t i = 1; i < match.size(); ++i) exchange.params.push_back(match[i].str());
        try {
            route.handler(exchange);
        } catch (const std::exception& error) {
            VHEmulatorLog(exchange.request.method + " " + path + " failed: " + error.what());
            exchange.reply(500, VHApiResponse(kCodeBadRequest, error.what()));
        }
        return;
    }
    exchange.reply(404, VHApiResponse(kCodeBadRequest, "No such endpoint: " + path));
}

void VHEmulatorServer::dispatch(const httplib::Request& request, httplib::Response& response,
                                const httplib::ContentReader* reader) {
    VHEmulatorExchange exchange(request, response, reader);
    VHHostKind kind;
    classifyHost(exchange, kind);
    bool admin = VHHasPrefix(request.path, kAdminPrefix);
    auto fault = admin ? std::nullopt : faults_.take(request.method, exchange.host, request.path);
    int64_t faultId = fault ? fault->ruleId : 0;
    bool before = fault && !fault->afterHandler;
    if (before) pause(fault->delayMs);
    if (before && fault->drop) {
        exchange.dropConnection();
    } else if (before && fault->status > 0) {
        applyFault(exchange, *fault);
    } else {
        runHandler(exchange, kind);
        exchange.drainBody();
        if (fault && fault->afterHandler) {
            pause(fault->delayMs);
            if (fault->drop) exchange.dropConnection();
            if (!fault->drop && fault->status > 0) applyFault(exchange, *fault);
        }
    }
    if (fault && !fault->drop && fault->truncateAt >= 0) {
        truncateBody(response, static_cast<size_t>(fault->truncateAt));
    }
    if (!admin) logRequest(exchange, faultId, fault && fault->drop);
}

void VHEmulatorServer::logRequest(const VHEmulatorExchange& exchange, int64_t faultId,
                                  bool dropped) {
    VHRequestRecord record;
    record.time = VHNowSeconds();
    record.method = exchange.request.method;
    record.host = exchange.host;
    record.path = exchange.request.path;
    auto question = exchange.request.target.find('?');
    if (question != std::string::npos) record.query = exchange.request.target.substr(question + 1);
    for (const auto& [name, value] : exchange.request.headers) record.headers[name] = value;
    record.bodyBytes = exchange.bodyBytes() + exchange.request.body.size();
    record.status = dropped ? 0 : exchange.response.status;
    record.faultId = faultId;
    log_.add(std::move(record));
}

}  // namespace vh::emulator
