// The real varnholt-emulator as a child process of a test: started with a
// fresh state folder (and an optional seed), reached over HTTPS on
// loopback, driven through its admin API, and stopped when the object goes
// (also when the test fails). Start, stop and restart belong to one
// thread; request() and the admin calls may run on several threads at once
// while the emulator runs (after curl_global_init).
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vh::test {

using VHEmulatorHeaders = std::vector<std::pair<std::string, std::string>>;

struct VHEmulatorReply {
    long status = 0;  // 0 when no answer arrived (see curlCode)
    std::string body;
    std::map<std::string, std::string> headers;  // names in lower case
    int curlCode = 0;

    // The body as JSON; null when it is not JSON.
    nlohmann::json json() const;
};

class VHEmulatorProcess {
  public:
    struct Options {
        Options(nlohmann::json seed = nullptr, std::string stateDir = "",
                std::vector<std::string> arguments = {})
            : seed(std::move(seed)),
              stateDir(std::move(stateDir)),
              arguments(std::move(arguments)) {}

        // A seed document; null: the built-in demo account.
        nlohmann::json seed;
        // Empty: a fresh temporary folder, removed with this object.
        std::string stateDir;
        // Further command-line arguments ("--upload-ttl", "0").
        std::vector<std::string> arguments;
    };

    VHEmulatorProcess() = default;
    ~VHEmulatorProcess();
    VHEmulatorProcess(const VHEmulatorProcess&) = delete;
    VHEmulatorProcess& operator=(const VHEmulatorProcess&) = delete;

    // Starts the emulator and waits (60 s at most) for its "listening" and
    // "ca-file" lines; false, with the reason on stderr, when it fails.
    bool start(Options options = {});
    // Ends the process (SIGTERM, SIGKILL after 10 s) and waits for it.
    void stop();
    // Stops and starts again on the same state folder and on the port of the
    // first start, which clients were given.
    bool restart();
    // Stops and starts again on the same state folder but on another free
    // port: for clients given the first port the service stays away, while
    // the admin API can change what they will find once it is back.
    bool restartAside();

    bool running() const { return pid_ > 0; }
    int port() const { return port_; }
    // "127.0.0.1:<port>", the value for VARNHOLT_CONNECT_TO.
    std::string connectTo() const { return "127.0.0.1:" + std::to_string(port_); }
    // The CA file, the value for VARNHOLT_CA_FILE.
    const std::string& caFile() const { return caFile_; }
    const std::string& stateDir() const { return stateDir_; }

    // One HTTPS request to `host` (a service host name, or any name for the
    // admin API), connected to the emulator's port.
    VHEmulatorReply request(const std::string& method, const std::string& host,
                            const std::string& pathAndQuery, const VHEmulatorHeaders& headers = {},
                            const std::string& body = "") const;
    // The same with neither a body nor "Content-Length", waiting at most
    // `waitSeconds` for the answer (curlCode 28 when none came).
    VHEmulatorReply requestWithoutBody(const std::string& method, const std::string& host,
                                       const std::string& pathAndQuery,
                                       const VHEmulatorHeaders& headers, long waitSeconds) const;
    // An admin request; its JSON answer when the status is 2xx, else nothing.
    std::optional<nlohmann::json> admin(const std::string& method, const std::string& path,
                                        const nlohmann::json& body = nullptr) const;

    std::optional<nlohmann::json> state() const;
    // {"shareId", "tick", "items": [{"path", "internalName", "size", "sha256", "tick", ...}]}
    std::optional<nlohmann::json> tree(const std::string& shareId, bool withDeleted = false) const;
    // A file's bytes by its path in the share.
    std::optional<std::string> fileBytes(const std::string& shareId, const std::string& path) const;
    // Changes made as another device (actions as in the README).
    std::optional<nlohmann::json> act(const std::string& shareId, const nlohmann::json& actions,
                                      const std::string& user = "",
                                      const std::string& deviceId = "") const;
    // A user's tokens, cookies and shares.
    std::optional<nlohmann::json> account(const std::string& email) const;
    bool addDomain(const std::string& url, const std::string& name = "") const;
    bool addUser(const nlohmann::json& description) const;
    bool removeUser(const std::string& email) const;
    std::optional<nlohmann::json> addShare(const nlohmann::json& description) const;
    bool removeShare(const std::string& shareId) const;
    bool renameShare(const std::string& shareId, const std::string& name) const;
    bool setAcl(const std::string& shareId, const std::string& email, int aclType) const;
    bool removeAcl(const std::string& shareId, const std::string& email) const;
    bool setDevice(const std::string& email, const std::string& deviceId, bool wipe) const;
    std::optional<int64_t> raiseDomainEvent(const std::string& domainUrl,
                                            const nlohmann::json& event) const;
    std::optional<nlohmann::json> events(const std::string& domainUrl, int64_t after = 0) const;
    std::optional<int64_t> addFault(const nlohmann::json& rule) const;
    bool removeFault(int64_t id) const;
    bool clearFaults() const;
    // Requests received after sequence number `after`, oldest first.
    nlohmann::json requests(int64_t after = 0) const;
    bool clearRequests() const;

  private:
    // Starts the process listening on `port` (0: any free port).
    bool launch(int port);
    VHEmulatorReply perform(const std::string& method, const std::string& host,
                            const std::string& pathAndQuery, const VHEmulatorHeaders& headers,
                            const std::string* body, long waitSeconds) const;

    Options options_;
    std::string tempDir_;  // made here, removed with the object
    std::string stateDir_;
    std::string seedFile_;
    std::string caFile_;
    pid_t pid_ = -1;
    int port_ = 0;      // where it listens now
    int homePort_ = 0;  // where the first start listened
};

}  // namespace vh::test
