#include "VHHubConnections.h"

#include <algorithm>

namespace vh::emulator {

namespace {

// Messages for one connection that were never fetched are dropped beyond this.
constexpr size_t kKeptOwnMessages = 100;

}  // namespace

VHHubConnections::Connection& VHHubConnections::place(const VHHubConnectionInfo& info,
                                                      const VHHubCursor& cursor) {
    Connection& connection = connections_[info.connectionId];
    connection.info = info;
    connection.info.seq = cursor.seq;
    // After a restart the client's cursor is ahead of a fresh count.
    connection.ownCount = std::max(connection.ownCount, cursor.own);
    connection.lastActive = Clock::now();
    return connection;
}

void VHHubConnections::open(const VHHubConnectionInfo& info, const VHHubCursor& cursor) {
    std::lock_guard lock(mutex_);
    forgetIdle();
    connections_.erase(info.connectionId);
    place(info, cursor);
    wake_.notify_all();
}

std::optional<VHHubCursor> VHHubConnections::cursor(const std::string& connectionId) {
    std::lock_guard lock(mutex_);
    auto found = connections_.find(connectionId);
    if (found == connections_.end()) return std::nullopt;
    int64_t own = found->second.messages.empty() ? found->second.ownCount
                                                 : found->second.messages.front().number - 1;
    return VHHubCursor{found->second.info.seq, own};
}

uint64_t VHHubConnections::beginPoll(const VHHubConnectionInfo& info, const VHHubCursor& cursor) {
    std::lock_guard lock(mutex_);
    forgetIdle();
    auto found = connections_.find(info.connectionId);
    Connection& connection =
        found != connections_.end() && found->second.info.domainId == info.domainId
            ? found->second
            : place(info, cursor);
    connection.info.seq = cursor.seq;
    connection.ticket = nextTicket_++;
    connection.lastActive = Clock::now();
    wake_.notify_all();
    return connection.ticket;
}

void VHHubConnections::endPoll(const std::string& connectionId, uint64_t ticket,
                               const VHHubCursor& served) {
    std::lock_guard lock(mutex_);
    auto found = connections_.find(connectionId);
    if (found == connections_.end() || found->second.ticket != ticket) return;
    found->second.ticket = 0;
    found->second.info.seq = served.seq;
    found->second.lastActive = Clock::now();
}

void VHHubConnections::abort(const std::string& connectionId) {
    std::lock_guard lock(mutex_);
    connections_.erase(connectionId);
    wake_.notify_all();
}

void VHHubConnections::stop() {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    wake_.notify_all();
}

uint64_t VHHubConnections::changes() {
    std::lock_guard lock(mutex_);
    return changes_;
}

void VHHubConnections::changed() {
    std::lock_guard lock(mutex_);
    ++changes_;
    wake_.notify_all();
}

VHPollWake VHHubConnections::wait(const std::string& connectionId, uint64_t ticket,
                                  uint64_t seenChanges, Clock::time_point keepAliveAt,
                                  Clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    for (;;) {
        if (stopping_) return VHPollWake::Stopping;
        auto found = connections_.find(connectionId);
        if (found == connections_.end() || found->second.ticket != ticket) return VHPollWake::Ended;
        if (changes_ != seenChanges) return VHPollWake::Changed;
        auto now = Clock::now();
        if (now >= deadline) return VHPollWake::TimedOut;
        if (now >= keepAliveAt) return VHPollWake::KeepAlive;
        wake_.wait_until(lock, std::min(keepAliveAt, deadline));
    }
}

bool VHHubConnections::push(const std::string& connectionId, nlohmann::json message) {
    std::lock_guard lock(mutex_);
    auto found = connections_.find(connectionId);
    if (found == connections_.end()) return false;
    Connection& connection = found->second;
    connection.messages.push_back({++connection.ownCount, std::move(message)});
    if (connection.messages.size() > kKeptOwnMessages) connection.messages.pop_front();
    ++changes_;
    wake_.notify_all();
    return true;
}

std::vector<VHHubOwnMessage> VHHubConnections::messagesAfter(const std::string& connectionId,
                                                             int64_t own) {
    std::lock_guard lock(mutex_);
    auto found = connections_.find(connectionId);
    if (found == connections_.end()) return {};
    auto& messages = found->second.messages;
    while (!messages.empty() && messages.front().number <= own) messages.pop_front();
    return {messages.begin(), messages.end()};
}

std::optional<VHHubSkipRule> VHHubConnections::skipRule(const std::string& domainId) {
    std::lock_guard lock(mutex_);
    auto found = skipRules_.find(domainId);
    if (found == skipRules_.end()) return std::nullopt;
    return found->second;
}

void VHHubConnections::setSkipRule(const std::string& domainId, const VHHubSkipRule& rule) {
    std::lock_guard lock(mutex_);
    skipRules_[domainId] = rule;
}

std::vector<VHHubConnectionInfo> VHHubConnections::list() {
    std::lock_guard lock(mutex_);
    forgetIdle();
    std::vector<VHHubConnectionInfo> result;
    for (const auto& [id, connection] : connections_) {
        result.push_back(connection.info);
        result.back().polling = connection.ticket != 0;
    }
    return result;
}

void VHHubConnections::forgetIdle() {
    auto limit = Clock::now() - std::chrono::duration_cast<Clock::duration>(
                                    std::chrono::duration<double>(timing_.disconnectSeconds()));
    std::erase_if(connections_, [&](const auto& entry) {
        return entry.second.ticket == 0 && entry.second.lastActive < limit;
    });
}

}  // namespace vh::emulator
