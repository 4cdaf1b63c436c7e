// Catch-up against the real emulator: paging, the active and failed shares,
// and the full refresh after an unclean end.
#include <set>

#include "VHConnectorTestSupport.h"
#include "lib/VHFormat.h"
#include "lib/VHSettings.h"
#include "store/VHDatabase.h"
#include "support/VHTestWait.h"

namespace vh::test {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

// The "tickfrom" of each catch-up request of the share, in arrival order.
std::vector<int64_t> ticksAsked(const std::vector<json>& requests, const std::string& shareId) {
    std::vector<int64_t> ticks;
    for (const json& request : requests) {
        const json& headers = request["headers"];
        if (headers["share"] != shareId) continue;
        EXPECT_EQ(headers["tickstart"], headers["tickfrom"]);
        EXPECT_EQ(headers["ticktake"], "10000");
        ticks.push_back(std::stoll(headers["tickfrom"].get<std::string>()));
    }
    return ticks;
}

class SignedInConnector : public ConnectorTest {
  protected:
    void SetUp() override {
        ConnectorTest::SetUp();
        ASSERT_EQ(signIn(kErin, kErinPassword), Outcome::LoggedIn);
        ASSERT_TRUE(loginBatch());
        for (const char* shareId : {"reports", "team", "reports-two"}) {
            ASSERT_TRUE(caughtUp(shareId, 30s)) << shareId;
        }
    }
    bool idle() {
        return VHWaitUntil([&] { return connector().activeCatchupShares().empty(); }, 30s);
    }
    bool failed(const std::string& shareId) {
        std::vector<std::string> ids = connector().failedCatchupShares();
        return std::find(ids.begin(), ids.end(), shareId) != ids.end();
    }
};

TEST_F(SignedInConnector, TwentyFiveThousandChangesArriveInPagesAppliedInOrder) {
    int64_t start = storedShare("reports")->LastApplyedJournalTick;
    json actions = json::array();
    for (int i = 0; i < 25000; ++i) {
        actions.push_back({{"action", "writeFile"}, {"path", VHFormat("/bulk/f%d", i)}});
        actions.back()["text"] = "x";
    }
    ASSERT_TRUE(emulator.act("reports", actions));
    ASSERT_TRUE(emulator.clearRequests());
    connector().refresh();
    ASSERT_TRUE(caughtUp("reports", 240s));
    EXPECT_EQ(ticksAsked(requestsTo(kGateway1, "/CatchUp7.aspx"), "reports"),
              (std::vector<int64_t>{start, start + 10000, start + 20000}));
    VHDatabase& database = VHDatabase::database();
    auto folder = database.fileWithPath("/" + storedShare("reports")->displayName() + "/bulk");
    ASSERT_TRUE(folder);
    EXPECT_EQ(database.filesWithParent(folder->internalName).size(), 25000u);
    ASSERT_TRUE(idle());
    EXPECT_TRUE(connector().failedCatchupShares().empty());
}

TEST_F(SignedInConnector, ShareStaysFailedUntilAPageArrivesAndRequestsDoNotPileUp) {
    ManagedShare team = *storedShare("team");
    int64_t tick = team.LastApplyedJournalTick;
    ASSERT_TRUE(emulator.addFault({{"path", "CatchUp7"}, {"delayMs", 1500}}));
    ASSERT_TRUE(emulator.clearRequests());
    connector().catchUp(team);
    connector().catchUp(team);
    EXPECT_EQ(logCount(VHFormat("share Team is already being catched up from tick %d.", tick)), 1);
    connector().sendCatchupRequest(team, tick - 1);
    ASSERT_TRUE(idle());
    std::vector<int64_t> asked = ticksAsked(requestsTo(kGateway1, "/CatchUp7.aspx"), "team");
    EXPECT_EQ(std::multiset<int64_t>(asked.begin(), asked.end()),
              (std::multiset<int64_t>{tick - 1, tick}));

    ASSERT_TRUE(emulator.clearFaults());
    ASSERT_TRUE(emulator.addFault({{"path", "CatchUp7"}, {"status", 500}}));
    connector().catchUp(team);
    ASSERT_TRUE(idle());
    EXPECT_TRUE(failed("team"));
    ASSERT_TRUE(emulator.clearFaults());
    connector().catchUp(team);  // an empty page completes it
    ASSERT_TRUE(idle());
    EXPECT_FALSE(failed("team"));
    EXPECT_EQ(storedShare("team")->LastApplyedJournalTick, tick);
}

class FullRefresh : public ConnectorTest {
    void SetUp() override {
        VHSettings::setValue("needsFullRefresh", true);  // left by a run that did not end cleanly
        ConnectorTest::SetUp();
    }
};

TEST_F(FullRefresh, EveryShareIsReadFromTickZeroAndTheMarkGoes) {
    EXPECT_TRUE(connector().needsFullRefresh());
    ASSERT_EQ(signIn(kErin, kErinPassword), Outcome::LoggedIn);
    ASSERT_TRUE(loginBatch());
    ASSERT_TRUE(VHWaitUntil([] { return !VHSettings::contains("needsFullRefresh"); }, 30s));
    EXPECT_FALSE(connector().needsFullRefresh());
    for (const char* shareId : {"reports", "team", "reports-two"}) {
        EXPECT_TRUE(caughtUp(shareId, 5s)) << shareId;
    }
    std::vector<json> requests = requestsTo(kGateway1, "/CatchUp7.aspx");
    requests.push_back(requestsTo(kGateway2, "/CatchUp7.aspx").at(0));
    ASSERT_EQ(requests.size(), 3u);
    for (const json& request : requests) EXPECT_EQ(request["headers"]["tickfrom"], "0");
    connector().catchUp(*storedShare("team"));
    EXPECT_EQ(logCount("catchUp for share: doing full refresh now, catchup postponed."), 1);
}

}  // namespace
}  // namespace vh::test
