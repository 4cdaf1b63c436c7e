// The control tool's side of the client's file-manager socket: one command
// sent, its reply lines read until "ok" or "error".
#pragma once

#include <functional>
#include <string>

namespace vh {

class VHControlClient {
  public:
    // Exit statuses of varnholtctl.
    static constexpr int kExitFailed = 1;       // the client refused or the command failed
    static constexpr int kExitUsage = 64;       // wrong usage
    static constexpr int kExitNotRunning = 69;  // no client answers on the socket

    // Sends "ctl-<command>" with `parameter` to the client of this user's
    // session; each "item" line goes to `item`, the final text to `result`.
    // Returns 0 on "ok", else one of the statuses above. Waits at most
    // `timeoutMs` for the whole exchange.
    static int run(const std::string& command, const std::string& parameter,
                   const std::function<void(const std::string&)>& item, std::string& result,
                   int timeoutMs);
};

}  // namespace vh
