#include "VHHubDelivery.h"

#include <limits>

#include "VHEmulatorDates.h"

namespace vh::emulator {

namespace {

constexpr size_t kEventsPerAnswer = 1000;

}  // namespace

VHHubDelivery::Batch VHHubDelivery::collect(const VHHubConnectionInfo& connection,
                                            const VHHubCursor& from, bool subscribed) {
    Batch batch;
    batch.cursor = from;
    auto guard = store_.db.lock();
    auto rule = connections_.skipRule(connection.domainId);
    int64_t skipUntil = 0;
    if (rule) {
        auto last = store_.events.nthAfter(connection.domainId, kMessageBroadcast, rule->afterSeq,
                                           rule->count);
        skipUntil = last.value_or(std::numeric_limits<int64_t>::max());
    }
    // Pages that hold only events held back move the cursor on and go on.
    for (size_t page = kEventsPerAnswer; page == kEventsPerAnswer && batch.messages.empty();) {
        auto events = store_.events.after(connection.domainId, batch.cursor.seq, kEventsPerAnswer);
        page = events.size();
        for (const VHEmulatorEvent& event : events) {
            batch.cursor.seq = event.seq;
            bool skipped = rule && event.messageType == kMessageBroadcast &&
                           event.seq > rule->afterSeq && event.seq <= skipUntil;
            if (!subscribed || skipped) continue;
            batch.messages.push_back(invocation(
                envelope(event.messageType, "", event.sender, event.message, event.time)));
        }
    }
    for (VHHubOwnMessage& own : connections_.messagesAfter(connection.connectionId, from.own)) {
        batch.cursor.own = own.number;
        if (subscribed) batch.messages.push_back(std::move(own.message));
    }
    return batch;
}

void VHHubDelivery::skipBroadcasts(const std::string& domainId, int64_t count) {
    auto guard = store_.db.lock();
    auto rule = connections_.skipRule(domainId);
    // A rule still waiting for its broadcasts holds back more of them.
    if (rule && !store_.events.nthAfter(domainId, kMessageBroadcast, rule->afterSeq, rule->count)) {
        rule->count += count;
    } else {
        rule = VHHubSkipRule{store_.events.latest(domainId), count};
    }
    connections_.setSkipRule(domainId, *rule);
}

nlohmann::json VHHubDelivery::envelope(int messageType, const std::string& receiver,
                                       const std::string& sender, const std::string& message,
                                       double time) {
    std::string date = VHServiceDateText(time);
    return {{"MessageType", messageType},
            {"RnaReciver", receiver},
            {"RnaSender", sender},
            {"SendTime", date},
            {"ReSendTime", date},
            {"ReSendInterval", 0},
            {"ReSendCount", 0},
            {"Message", message},
            {"Origin", 0},
            {"ChannelId", ""}};
}

nlohmann::json VHHubDelivery::invocation(nlohmann::json envelope) {
    return {{"H", kHubName}, {"M", "ReciveEnvelope"}, {"A", nlohmann::json::array({envelope})}};
}

}  // namespace vh::emulator
