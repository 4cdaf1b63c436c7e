// The real varnholt executable as a child process of a test, pointed at a
// running emulator, in the test's own HOME and XDG folders (inherited from
// the test process). Stopped (SIGKILL) and its mount detached when the object
// goes, also when a test fails.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "emulator/support/VHEmulatorProcess.h"

namespace vh::test {

class VHTestClient {
  public:
    struct Options {
        // Credentials given with --user/--password-stdin; an empty user gives none.
        std::string user = "demo@varnholt.test";
        std::string password = "demo";
        std::vector<std::string> arguments;  // more command-line arguments
        std::map<std::string, std::string> environment;
    };

    explicit VHTestClient(const VHEmulatorProcess& emulator);
    ~VHTestClient();
    VHTestClient(const VHTestClient&) = delete;
    VHTestClient& operator=(const VHTestClient&) = delete;

    // Starts `varnholt --headless` with the options (killing a client of this
    // object that still runs); false when it cannot start.
    bool start(const Options& options);
    bool start() { return start(Options{}); }
    bool running();
    pid_t pid() const { return pid_; }

    // ~/Varnholt of the test's HOME.
    std::string mountPath() const;
    // A drive is mounted there, served or dead.
    bool mounted() const;
    // Waits for a drive that answers (a dead one left by a killed client does not).
    bool waitForMount(std::chrono::seconds timeout = std::chrono::seconds(60)) const;
    bool waitForUnmount(std::chrono::seconds timeout = std::chrono::seconds(30)) const;
    // Waits until `condition` holds (polling), or the time is up.
    static bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout);

    // Sends a signal; waitForExit gives the exit status (nothing on time-out;
    // 128 + n for death by signal n).
    void signal(int number) const;
    // Whether the running client has its SIGTERM handler in place (from then
    // on a SIGTERM ends it in order).
    bool handlesTermination() const;
    std::optional<int> waitForExit(std::chrono::seconds timeout = std::chrono::seconds(30));
    // The states of the running client's threads, e.g. "DSS" when one hangs
    // in uninterruptible sleep.
    std::string threadStates() const;

    // Everything the client wrote to its log files and to standard error.
    std::string logs() const;
    std::string standardError() const;
    static std::string settingsText();

  private:
    // Kills a client still running.
    void stop();

    const VHEmulatorProcess& emulator_;
    pid_t pid_ = -1;
    int exitStatus_ = -1;
    std::string stderrPath_;
};

// Starts a program with its output discarded; its pid (-1 on failure).
pid_t VHSpawnQuietly(const std::vector<std::string>& arguments);
// Runs a shell command; whether it exited with 0.
bool VHRunShell(const std::string& command);
// `path` in single quotes for the shell (paths of tests hold no quote).
std::string VHShellQuoted(const std::string& path);

// The folder tree below `root` as "relative/path size" lines, sorted; folders
// end with "/".
std::string VHTreeListing(const std::string& root);

}  // namespace vh::test
