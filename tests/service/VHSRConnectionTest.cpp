// What the realtime channel does with the envelopes it receives, against the
// real store: a broadcast that follows the share's tick is applied, one that
// leaves a gap asks for a catch-up, an old one is dropped; a domain event
// signs its domain in again; what cannot be read is logged and dropped.
#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "service/VHSRConnection.h"
#include "support/VHStoreTestSupport.h"
#include "support/VHTestWait.h"
#include "transfer/VHNewAPIRecords.h"

namespace vh::test {

namespace {

using namespace std::chrono_literals;

class VHSRConnectionTest : public VHStoreTest {
  protected:
    void SetUp() override {
        VHStoreTest::SetUp();
        VHSRConnection::Actions actions;
        actions.catchUp = [this](const ManagedShare& s) { caughtUp_.push_back(s.shareId()); };
        actions.singleDomainLogin = [this](const UserDomain& d) {
            loggedIn_.push_back(d.Domain->Url.value_or(""));
        };
        actions.userDomainWithId = [](const std::string&) { return makeDomain("d1"); };
        actions.userDomainWithName = [](const std::string& url) -> std::optional<UserDomain> {
            if (url != "d1.example") return std::nullopt;
            return makeDomain("d1");
        };
        connection_ = std::make_unique<VHSRConnection>(actions);
        connection_->setUserDomain(makeDomain("d1"));
        ClientLoginResponse answer;
        answer.ManagedShares = std::vector<ManagedShare>{makeShare("s1", "Share")};
        connection_->setLoginResponce(answer);
    }
    void TearDown() override {
        connection_.reset();
        VHStoreTest::TearDown();
    }

    static VHJson envelope(int type, const std::string& message, const std::string& sender = "") {
        Envelope e;
        e.MessageType = type;
        e.RnaSender = sender;
        e.Message = message;
        return VHRecordToJson(e);
    }
    void broadcast(const std::string& id, uint64_t tick) {
        ClientJournalEvent event;
        event.ShareId = "s1";
        event.ShareTick = tick;
        event.VhVirtualFile = serverItem(id, "s1", id + ".txt", true, tick);
        connection_->onReceiveEnvelope(envelope(kSRBroadCast, VHSerializeRecord(event)));
    }
    // Runs what the connection handed to the main thread.
    static void settle() {
        VHWaitUntil([] { return false; }, 200ms);
    }

    std::unique_ptr<VHSRConnection> connection_;
    std::vector<std::string> caughtUp_, loggedIn_;
};

}  // namespace

TEST_F(VHSRConnectionTest, BroadcastsFollowTheSharesTick) {
    VHLogRecorder log;
    const int64_t start = share().LastApplyedJournalTick;
    broadcast("next", start + 1);
    settle();
    ASSERT_TRUE(db().fileWithId("next"));
    EXPECT_EQ(share().LastApplyedJournalTick, start + 1);
    EXPECT_TRUE(caughtUp_.empty());

    broadcast("gap", start + 3);
    settle();
    EXPECT_FALSE(db().fileWithId("gap"));
    EXPECT_EQ(caughtUp_, std::vector<std::string>{"s1"});
    EXPECT_TRUE(log.contains("Lost some SignalR messages for share Share: got tick"));

    broadcast("old", start + 1);
    settle();
    EXPECT_FALSE(db().fileWithId("old"));
    EXPECT_EQ(caughtUp_.size(), 1u);
}

TEST_F(VHSRConnectionTest, DomainEventsSignInAgainAndUnreadableMessagesAreDropped) {
    VHLogRecorder log;
    connection_->onReceiveEnvelope(
        envelope(kSRDomainEvent, R"({"DomainEventType":5})", "d1.example"));
    connection_->onReceiveEnvelope(
        envelope(kSRDomainEvent, R"({"DomainEventType":1})", "elsewhere.example"));
    connection_->onReceiveEnvelope(envelope(kSRBroadCast, "not json"));
    connection_->onReceiveEnvelope(VHJson{{"MessageType", "three"}});
    connection_->onReceiveEnvelope(envelope(8, "{}"));
    settle();
    EXPECT_EQ(loggedIn_, std::vector<std::string>{"d1.example"});
    EXPECT_TRUE(log.contains("Unknown domain event type: 5, envelope"));
    EXPECT_TRUE(log.contains("Anyway refreshing share list."));
    EXPECT_TRUE(
        log.contains("Warning! Received DomainEvent for unknown domain: elsewhere.example"));
    EXPECT_TRUE(log.contains("Warning! Cannot parse BroadCast SignalR message, error"));
    EXPECT_TRUE(log.contains("Cannot parse SignalR envelope:"));
    EXPECT_TRUE(log.contains("Warning! Unknown SignalR message type: ShareAdded, envelope"));
    EXPECT_TRUE(caughtUp_.empty());
}

TEST_F(VHSRConnectionTest, TheOnlineMessageDescribesThisClient) {
    Envelope online = connection_->onlineMessage();
    EXPECT_EQ(online.MessageType, kSRMOnline);
    std::optional<ClientInfo> info = VHParseRecord<ClientInfo>(online.Message);
    ASSERT_TRUE(info);
    EXPECT_EQ(info->ClientType, 2);
    EXPECT_EQ(info->ConnectionUrl, "https://clientgateway.d1.example/");
    EXPECT_EQ(info->ShareList, std::vector<std::string>{"s1"});
    ASSERT_TRUE(info->DomainFilecaches && info->DomainFilecaches->count("d1"));
    int64_t ticks = *info->DomainFilecaches->at("d1").LastUsedTick;
    EXPECT_NEAR(VHDateFromTicks(ticks).seconds, VHDate::now().seconds, 5);
}

}  // namespace vh::test
