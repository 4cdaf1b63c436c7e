// The client's socket as the tests use it: the real varnholtctl as a child
// process, and a file-manager plug-in instance speaking the line protocol.
#pragma once

#include <QLocalSocket>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "emulator/support/VHEmulatorProcess.h"

namespace vh::test {

// GET of a service address ("https://host/path?query") through the emulator.
VHEmulatorReply VHFetchServiceURL(const VHEmulatorProcess& emulator, const std::string& url);

struct VHControlResult {
    int status = -1;  // the exit status
    std::string out, err;
};

// Runs varnholtctl with `arguments`, in the test's environment plus `env`.
VHControlResult VHRunControlTool(const std::vector<std::string>& arguments,
                                 const std::map<std::string, std::string>& env = {});

// One plug-in instance on the client's socket ($XDG_RUNTIME_DIR of the test).
class VHPluginSocket {
  public:
    explicit VHPluginSocket(std::string instanceId);
    bool connected() const;
    // Sends "<instance>:<command>:<parameter>".
    void send(const std::string& command, const std::string& parameter = "");
    // Sends raw bytes.
    void sendRaw(const std::string& bytes);
    // The next line received; empty when none came in time.
    std::string nextLine(std::chrono::milliseconds timeout = std::chrono::seconds(10));
    // Reads lines until one equals `line`; false when it did not come in time.
    bool waitForLine(const std::string& line,
                     std::chrono::milliseconds timeout = std::chrono::seconds(30));
    // Every line received so far, in order.
    const std::vector<std::string>& lines() const { return lines_; }
    // Those lines joined, for failure messages.
    std::string transcript() const;
    // Whether the client closed this connection (waits up to `timeout`).
    bool closedByPeer(std::chrono::milliseconds timeout);

  private:
    void readAvailable();

    std::string instanceId_;
    std::unique_ptr<QLocalSocket> socket_;
    std::vector<std::string> lines_;
    size_t consumed_ = 0;
};

// A browser for a real xdg-open: a script that records each address given.
class VHRecordingBrowser {
  public:
    VHRecordingBrowser();  // writes the script into the test's HOME
    // What makes xdg-open, as on a desktop it does not know, use the script.
    std::map<std::string, std::string> environment() const;
    // The next address not yet taken; empty when none came in time.
    std::string nextURL(std::chrono::milliseconds timeout = std::chrono::seconds(20));

  private:
    std::string script_, log_;
    size_t taken_ = 0;
};

}  // namespace vh::test
