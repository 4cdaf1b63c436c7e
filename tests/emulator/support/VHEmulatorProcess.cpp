#include "VHEmulatorProcess.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <thread>

namespace vh::test {

namespace {

using Clock = std::chrono::steady_clock;

size_t collectBody(char* data, size_t size, size_t count, void* reply) {
    static_cast<VHEmulatorReply*>(reply)->body.append(data, size * count);
    return size * count;
}

size_t collectHeader(char* data, size_t size, size_t count, void* reply) {
    std::string line(data, size * count);
    auto colon = line.find(':');
    if (colon != std::string::npos) {
        std::string name = line.substr(0, colon);
        for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        std::string value = line.substr(colon + 1);
        value.erase(0, value.find_first_not_of(" \t"));
        value.erase(value.find_last_not_of("\r\n") + 1);
        static_cast<VHEmulatorReply*>(reply)->headers[name] = value;
    }
    return size * count;
}

std::string escaped(const std::string& text) {
    char* escaped = curl_easy_escape(nullptr, text.c_str(), static_cast<int>(text.size()));
    std::string result = escaped ? escaped : "";
    curl_free(escaped);
    return result;
}

// Reads lines from `fd` until both values are seen or the time is up.
bool readReadyLines(int fd, int& port, std::string& caFile) {
    auto deadline = Clock::now() + std::chrono::seconds(60);
    std::string pending;
    while (port == 0 || caFile.empty()) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd poller{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&poller, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        char buffer[512];
        ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got <= 0) return false;
        pending.append(buffer, static_cast<size_t>(got));
        for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n')) {
            std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            if (line.rfind("listening ", 0) == 0)
                port = std::stoi(line.substr(line.rfind(':') + 1));
            if (line.rfind("ca-file ", 0) == 0) caFile = line.substr(8);
        }
    }
    return true;
}

}  // namespace

nlohmann::json VHEmulatorReply::json() const {
    auto parsed = nlohmann::json::parse(body, nullptr, false);
    return parsed.is_discarded() ? nlohmann::json() : parsed;
}

VHEmulatorProcess::~VHEmulatorProcess() {
    stop();
    std::error_code error;
    if (!tempDir_.empty()) std::filesystem::remove_all(tempDir_, error);
}

bool VHEmulatorProcess::start(Options options) {
    stop();
    options_ = std::move(options);
    if (tempDir_.empty()) {
        char pattern[] = "/tmp/varnholt-emulator-test-XXXXXX";
        if (!mkdtemp(pattern)) return false;
        tempDir_ = pattern;
    }
    stateDir_ = options_.stateDir.empty() ? tempDir_ + "/state" : options_.stateDir;
    seedFile_.clear();
    if (!options_.seed.is_null()) {
        seedFile_ = tempDir_ + "/seed.json";
        std::ofstream(seedFile_) << options_.seed.dump(2);
    }
    homePort_ = 0;
    if (!launch(0)) return false;
    homePort_ = port_;
    return true;
}

bool VHEmulatorProcess::launch(int port) {
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return false;
    std::vector<std::string> arguments{VH_EMULATOR_BINARY, "--state", stateDir_, "--listen",
                                       "127.0.0.1:" + std::to_string(port)};
    if (!seedFile_.empty()) arguments.insert(arguments.end(), {"--seed", seedFile_});
    arguments.insert(arguments.end(), options_.arguments.begin(), options_.arguments.end());
    pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) ::_exit(127);
        ::dup2(pipeFds[1], STDOUT_FILENO);
        std::vector<char*> argv;
        for (std::string& argument : arguments) argv.push_back(argument.data());
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    ::close(pipeFds[1]);
    port_ = 0;
    caFile_.clear();
    bool ready = pid_ > 0 && readReadyLines(pipeFds[0], port_, caFile_);
    ::close(pipeFds[0]);
    if (!ready) {
        std::fprintf(stderr, "varnholt-emulator did not start (%s)\n", VH_EMULATOR_BINARY);
        stop();
    }
    return ready;
}

void VHEmulatorProcess::stop() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    auto deadline = Clock::now() + std::chrono::seconds(10);
    int status = 0;
    while (::waitpid(pid_, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    pid_ = -1;
}

bool VHEmulatorProcess::restart() {
    stop();
    return launch(homePort_);
}

bool VHEmulatorProcess::restartAside() {
    stop();
    return launch(0);
}

VHEmulatorReply VHEmulatorProcess::request(const std::string& method, const std::string& host,
                                           const std::string& pathAndQuery,
                                           const VHEmulatorHeaders& headers,
                                           const std::string& body) const {
    bool sendsBody = method != "GET" && (!body.empty() || method != "DELETE");
    return perform(method, host, pathAndQuery, headers, sendsBody ? &body : nullptr, 120);
}

VHEmulatorReply VHEmulatorProcess::requestWithoutBody(const std::string& method,
                                                      const std::string& host,
                                                      const std::string& pathAndQuery,
                                                      const VHEmulatorHeaders& headers,
                                                      long waitSeconds) const {
    return perform(method, host, pathAndQuery, headers, nullptr, waitSeconds);
}

VHEmulatorReply VHEmulatorProcess::perform(const std::string& method, const std::string& host,
                                           const std::string& pathAndQuery,
                                           const VHEmulatorHeaders& headers,
                                           const std::string* body, long waitSeconds) const {
    VHEmulatorReply reply;
    CURL* curl = curl_easy_init();
    if (!curl) return reply;
    std::string url = "https://" + host + pathAndQuery;
    std::string connectTo = "::127.0.0.1:" + std::to_string(port_);
    curl_slist* connect = curl_slist_append(nullptr, connectTo.c_str());
    curl_slist* headerList = curl_slist_append(nullptr, "Expect:");
    for (const auto& [name, value] : headers) {
        headerList = curl_slist_append(headerList, (name + ": " + value).c_str());
    }
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_CONNECT_TO, connect);
    curl_easy_setopt(curl, CURLOPT_CAINFO, caFile_.c_str());
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, method.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headerList);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, waitSeconds);
    if (method == "GET") curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
    if (body) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
    }
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collectBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reply);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, collectHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &reply);
    reply.curlCode = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &reply.status);
    curl_slist_free_all(headerList);
    curl_slist_free_all(connect);
    curl_easy_cleanup(curl);
    return reply;
}

std::optional<nlohmann::json> VHEmulatorProcess::admin(const std::string& method,
                                                       const std::string& path,
                                                       const nlohmann::json& body) const {
    VHEmulatorReply reply =
        request(method, "localhost", "/_emulator/" + path, {{"Content-Type", "application/json"}},
                body.is_null() ? "" : body.dump());
    if (reply.status < 200 || reply.status > 299) return std::nullopt;
    return reply.json();
}

std::optional<nlohmann::json> VHEmulatorProcess::state() const {
    return admin("GET", "state");
}

std::optional<nlohmann::json> VHEmulatorProcess::tree(const std::string& shareId,
                                                      bool withDeleted) const {
    return admin("GET", "shares/" + shareId + "/tree" + (withDeleted ? "?deleted=1" : ""));
}

std::optional<std::string> VHEmulatorProcess::fileBytes(const std::string& shareId,
                                                        const std::string& path) const {
    VHEmulatorReply reply = request(
        "GET", "localhost", "/_emulator/shares/" + shareId + "/content?path=" + escaped(path));
    if (reply.status != 200) return std::nullopt;
    return reply.body;
}

std::optional<nlohmann::json> VHEmulatorProcess::act(const std::string& shareId,
                                                     const nlohmann::json& actions,
                                                     const std::string& user,
                                                     const std::string& deviceId) const {
    nlohmann::json body = {{"actions", actions}};
    if (!user.empty()) body["user"] = user;
    if (!deviceId.empty()) body["deviceId"] = deviceId;
    return admin("POST", "shares/" + shareId + "/actions", body);
}

std::optional<nlohmann::json> VHEmulatorProcess::account(const std::string& email) const {
    return admin("GET", "users/" + escaped(email));
}

bool VHEmulatorProcess::addDomain(const std::string& url, const std::string& name) const {
    return admin("POST", "domains", {{"url", url}, {"name", name}}).has_value();
}

bool VHEmulatorProcess::addUser(const nlohmann::json& description) const {
    return admin("POST", "users", description).has_value();
}

bool VHEmulatorProcess::removeUser(const std::string& email) const {
    return admin("DELETE", "users/" + escaped(email)).has_value();
}

std::optional<nlohmann::json> VHEmulatorProcess::addShare(const nlohmann::json& description) const {
    return admin("POST", "shares", description);
}

bool VHEmulatorProcess::removeShare(const std::string& shareId) const {
    return admin("DELETE", "shares/" + shareId).has_value();
}

bool VHEmulatorProcess::renameShare(const std::string& shareId, const std::string& name) const {
    return admin("PUT", "shares/" + shareId, {{"name", name}}).has_value();
}

bool VHEmulatorProcess::setAcl(const std::string& shareId, const std::string& email,
                               int aclType) const {
    return admin("PUT", "shares/" + shareId + "/acl", {{"email", email}, {"aclType", aclType}})
        .has_value();
}

bool VHEmulatorProcess::removeAcl(const std::string& shareId, const std::string& email) const {
    return admin("DELETE", "shares/" + shareId + "/acl/" + escaped(email)).has_value();
}

bool VHEmulatorProcess::setDevice(const std::string& email, const std::string& deviceId,
                                  bool wipe) const {
    return admin("POST", "devices", {{"email", email}, {"deviceId", deviceId}, {"wipe", wipe}})
        .has_value();
}

std::optional<int64_t> VHEmulatorProcess::raiseDomainEvent(const std::string& domainUrl,
                                                           const nlohmann::json& event) const {
    auto answer = admin("POST", "domains/" + domainUrl + "/events", event);
    if (!answer) return std::nullopt;
    return answer->value("seq", int64_t(0));
}

std::optional<nlohmann::json> VHEmulatorProcess::events(const std::string& domainUrl,
                                                        int64_t after) const {
    return admin("GET", "events?domain=" + escaped(domainUrl) + "&after=" + std::to_string(after));
}

std::optional<int64_t> VHEmulatorProcess::addFault(const nlohmann::json& rule) const {
    auto answer = admin("POST", "faults", rule);
    if (!answer) return std::nullopt;
    return answer->value("id", int64_t(0));
}

bool VHEmulatorProcess::removeFault(int64_t id) const {
    return admin("DELETE", "faults/" + std::to_string(id)).has_value();
}

bool VHEmulatorProcess::clearFaults() const {
    return admin("DELETE", "faults").has_value();
}

nlohmann::json VHEmulatorProcess::requests(int64_t after) const {
    return admin("GET", "requests?after=" + std::to_string(after))
        .value_or(nlohmann::json::array());
}

bool VHEmulatorProcess::clearRequests() const {
    return admin("DELETE", "requests").has_value();
}

}  // namespace vh::test
