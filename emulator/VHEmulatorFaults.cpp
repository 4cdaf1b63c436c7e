#include "VHEmulatorFaults.h"

#include "VHEmulatorDefaults.h"

namespace vh::emulator {

namespace {

using VHJson = nlohmann::json;

std::optional<std::regex> pattern(const VHJson& rule, const char* key) {
    std::string text = rule.value(key, "");
    if (text.empty()) return std::nullopt;
    return std::regex(text, std::regex::ECMAScript);
}

}  // namespace

VHEmulatorResult<int64_t> VHEmulatorFaults::add(const VHJson& rule) {
    if (!rule.is_object()) return VHFail(400, kCodeBadRequest, "A rule is a JSON object");
    Rule parsed;
    try {
        parsed.method = rule.value("method", "");
        parsed.path = pattern(rule, "path");
        parsed.host = pattern(rule, "host");
        parsed.action.delayMs = rule.value("delayMs", 0);
        parsed.action.drop = rule.value("drop", false);
        parsed.action.status = rule.value("status", 0);
        parsed.action.code = rule.value("code", kCodeFault);
        parsed.action.message = rule.value("message", "Injected fault");
        parsed.action.truncateAt = rule.value("truncateAt", int64_t(-1));
        parsed.action.afterHandler = rule.value("phase", "before") == "after";
        parsed.probability = rule.value("probability", 1.0);
        parsed.remaining = rule.value("count", int64_t(-1));
        parsed.skip = rule.value("skip", int64_t(0));
    } catch (const std::exception& error) {
        return VHFail(400, kCodeBadRequest, std::string("Bad fault rule: ") + error.what());
    }
    std::lock_guard guard(mutex_);
    parsed.action.ruleId = nextId_++;
    parsed.source = rule;
    parsed.source["id"] = parsed.action.ruleId;
    rules_.push_back(std::move(parsed));
    return rules_.back().action.ruleId;
}

bool VHEmulatorFaults::remove(int64_t id) {
    std::lock_guard guard(mutex_);
    return std::erase_if(rules_, [id](const Rule& rule) { return rule.action.ruleId == id; }) > 0;
}

void VHEmulatorFaults::clear() {
    std::lock_guard guard(mutex_);
    rules_.clear();
}

VHJson VHEmulatorFaults::list() {
    std::lock_guard guard(mutex_);
    VHJson rules = VHJson::array();
    for (const Rule& rule : rules_) {
        VHJson entry = rule.source;
        entry["fired"] = rule.fired;
        rules.push_back(std::move(entry));
    }
    return rules;
}

bool VHEmulatorFaults::fires(Rule& rule) {
    if (rule.remaining == 0) return false;
    if (rule.skip > 0) {
        --rule.skip;
        return false;
    }
    if (rule.probability < 1.0 &&
        std::uniform_real_distribution<double>(0.0, 1.0)(random_) >= rule.probability) {
        return false;
    }
    if (rule.remaining > 0) --rule.remaining;
    ++rule.fired;
    return true;
}

std::optional<VHFaultAction> VHEmulatorFaults::take(const std::string& method,
                                                    const std::string& host,
                                                    const std::string& path) {
    std::lock_guard guard(mutex_);
    for (Rule& rule : rules_) {
        if (!rule.method.empty() && rule.method != method) continue;
        if (rule.path && !std::regex_search(path, *rule.path)) continue;
        if (rule.host && !std::regex_search(host, *rule.host)) continue;
        if (fires(rule)) return rule.action;
    }
    return std::nullopt;
}

}  // namespace vh::emulator
