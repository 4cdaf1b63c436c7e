// Fault rules that tests install through the admin API: a rule matches a
// request by method, path and host (ECMAScript patterns searched in the
// text) and then delays it, answers with its own status and "Code", drops
// the connection, or cuts the response body short, before or after the
// real handler ran. Thread-safe.
#pragma once

#include <cstdint>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "VHEmulatorTypes.h"

namespace vh::emulator {

// What one firing of a rule does to a request.
struct VHFaultAction {
    int64_t ruleId = 0;
    int delayMs = 0;
    bool drop = false;
    int status = 0;  // 0: the handler's answer stands
    int code = 0;
    std::string message;
    int64_t truncateAt = -1;  // bytes of the body to send, -1: all
    bool afterHandler = false;
};

class VHEmulatorFaults {
  public:
    // Parses and adds a rule (keys in the README); returns its id.
    VHEmulatorResult<int64_t> add(const nlohmann::json& rule);
    bool remove(int64_t id);
    void clear();
    nlohmann::json list();
    // The first rule that fires for the request, counted as fired.
    std::optional<VHFaultAction> take(const std::string& method, const std::string& host,
                                      const std::string& path);

  private:
    struct Rule {
        nlohmann::json source;
        std::string method;
        std::optional<std::regex> path, host;
        VHFaultAction action;
        double probability = 1.0;
        int64_t remaining = -1;  // -1: no limit
        int64_t skip = 0;
        int64_t fired = 0;
    };
    bool fires(Rule& rule);

    std::mutex mutex_;
    std::vector<Rule> rules_;                         // guarded by mutex_
    int64_t nextId_ = 1;                              // guarded by mutex_
    std::mt19937_64 random_{std::random_device{}()};  // guarded by mutex_
};

}  // namespace vh::emulator
