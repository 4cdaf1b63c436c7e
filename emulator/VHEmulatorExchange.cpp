#include "VHEmulatorExchange.h"

#include <sys/socket.h>
#include <unistd.h>

#include <memory>

#include "VHEmulatorRecords.h"
#include "VHEmulatorText.h"

namespace vh::emulator {

namespace {

constexpr size_t kReadBlock = 256u * 1024;

bool announcesBody(const httplib::Request& request) {
    if (request.has_header("Content-Length")) return true;
    std::string coding = VHAsciiLowercase(request.get_header_value("Transfer-Encoding"));
    return coding.find("chunked") != std::string::npos;
}

}  // namespace

VHEmulatorExchange::VHEmulatorExchange(const httplib::Request& request, httplib::Response& response,
                                       const httplib::ContentReader* reader)
    : request(request), response(response), reader_(reader) {
    host = VHAsciiLowercase(request.get_header_value("Host"));
    if (auto colon = host.rfind(':'); colon != std::string::npos && host.find(']') == host.npos) {
        host.resize(colon);
    }
    // Without a length the library would read until the client closes.
    announcesBody_ = reader_ && announcesBody(request);
    if (!announcesBody_) bodyTaken_ = true;
}

std::string VHEmulatorExchange::header(const std::string& name) const {
    return request.get_header_value(name);
}

std::string VHEmulatorExchange::query(const std::string& name) const {
    return request.get_param_value(name);
}

bool VHEmulatorExchange::streamBody(const std::function<bool(const char*, size_t)>& sink) {
    if (reader_ && !announcesBody_) return true;
    if (bodyTaken_) return false;
    bodyTaken_ = true;
    return (*reader_)([&](const char* data, size_t length) {
        bodyBytes_ += length;
        return sink(data, length);
    });
}

std::optional<std::string> VHEmulatorExchange::body(size_t limit) {
    if (!announcesBody_) return request.body;
    std::string text;
    bool complete = streamBody([&](const char* data, size_t length) {
        if (text.size() + length > limit) return false;
        text.append(data, length);
        return true;
    });
    if (!complete) return std::nullopt;
    return text;
}

std::optional<nlohmann::json> VHEmulatorExchange::jsonBody() {
    auto text = body();
    if (!text) return std::nullopt;
    auto json = nlohmann::json::parse(*text, nullptr, false);
    if (json.is_discarded()) return std::nullopt;
    return json;
}

void VHEmulatorExchange::drainBody() {
    if (!bodyTaken_) streamBody([](const char*, size_t) { return true; });
}

void VHEmulatorExchange::reply(int status, const nlohmann::json& json) {
    replyText(status, json.dump(), "application/json; charset=utf-8");
}

void VHEmulatorExchange::replyText(int status, const std::string& text, const std::string& type) {
    response.status = status;
    response.headers.erase("Content-Type");
    response.set_content(text, type);
}

void VHEmulatorExchange::replyFile(int fd, uint64_t offset, uint64_t length) {
    auto file = std::shared_ptr<int>(new int(fd), [](int* descriptor) {
        if (*descriptor >= 0) ::close(*descriptor);
        delete descriptor;
    });
    response.status = 200;
    response.headers.erase("Content-Type");
    response.set_content_provider(
        length, "application/octet-stream",
        [file, offset](size_t done, size_t left, httplib::DataSink& sink) {
            static thread_local std::unique_ptr<char[]> buffer(new char[kReadBlock]);
            ssize_t got = ::pread(*file, buffer.get(), std::min(left, kReadBlock),
                                  static_cast<off_t>(offset + done));
            return got > 0 && sink.write(buffer.get(), static_cast<size_t>(got));
        });
}

void VHEmulatorExchange::replyFailure(const VHEmulatorFailure& failure) {
    reply(failure.status, VHApiFailure(failure));
}

void VHEmulatorExchange::dropConnection() {
    bodyTaken_ = true;
    if (request.ssl) ::shutdown(SSL_get_fd(request.ssl), SHUT_RDWR);
    response.status = 500;
    response.set_header("Connection", "close");
}

}  // namespace vh::emulator
