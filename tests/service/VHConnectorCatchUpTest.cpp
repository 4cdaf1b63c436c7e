// Catch-up against the real emulator: paging, the hand-over of pages to the
// store, the active and failed shares, and the full refresh after an
// unclean end.
#include <QThread>
#include <filesystem>
#include <set>
#include <thread>

#include "VHConnectorTestSupport.h"
#include "lib/VHFormat.h"
#include "lib/VHSettings.h"
#include "store/VHDatabase.h"
#include "support/VHTestDrive.h"
#include "support/VHTestHome.h"
#include "support/VHTestWait.h"
#include "transfer/VHFileCache.h"

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

// Stands between the connector and the store: records the hand-overs and
// applies each page a moment later on a thread of its own, as the store's
// thread would. With hold(), the next page waits until refuseHeld().
class PageGate {
  public:
    PageGate() {
        VHConnector::defaultConnector().setPageApplier(
            [this](OSXCatchUpResponse page, ManagedShare share, std::function<void(bool)> done) {
                if (QThread::currentThread() == QCoreApplication::instance()->thread()) {
                    onMain_ = true;
                }
                std::lock_guard lock(mutex_);
                events_.push_back("apply " + share.shareId());
                Page entry{std::move(page), std::move(share), std::move(done)};
                if (holding_.exchange(false)) {
                    held_ = std::move(entry);
                } else {
                    finishLater(std::move(entry), true);
                }
            });
    }
    ~PageGate() {
        VHConnector::defaultConnector().setPageApplier({});
        for (std::thread& thread : threads_) thread.join();
    }

    void hold() { holding_ = true; }
    void refuseHeld() {
        std::lock_guard lock(mutex_);
        finishLater(std::move(*held_), false);
        held_.reset();
    }
    bool holding() {
        std::lock_guard lock(mutex_);
        return held_.has_value();
    }
    std::vector<std::string> events() {
        std::lock_guard lock(mutex_);
        return events_;
    }
    bool calledOnMainThread() const { return onMain_; }

  private:
    struct Page {
        OSXCatchUpResponse page;
        ManagedShare share;
        std::function<void(bool)> done;
    };

    // Caller holds mutex_.
    void finishLater(Page entry, bool apply) {
        threads_.emplace_back([this, entry = std::move(entry), apply] {
            auto finish = [this, entry](bool applied) {
                {
                    std::lock_guard lock(mutex_);
                    events_.push_back((applied ? "done " : "refused ") + entry.share.shareId());
                }
                entry.done(applied);
            };
            if (apply) {
                VHDatabase::database().applyCatchUpPage(entry.page, entry.share, finish);
            } else {
                finish(false);
            }
        });
    }

    std::mutex mutex_;
    std::vector<std::string> events_;
    std::optional<Page> held_;
    std::vector<std::thread> threads_;
    std::atomic<bool> holding_{false};
    std::atomic<bool> onMain_{false};
};

class SignedInConnector : public ConnectorTest {
  protected:
    void SetUp() override {
        ConnectorTest::SetUp();
        ASSERT_EQ(signIn(kErin, kErinPassword), Outcome::LoggedIn);
        ASSERT_TRUE(loginBatch());
        for (const char* shareId : {"reports", "team", "reports-two"}) {
            ASSERT_TRUE(caughtUp(shareId, 30s)) << shareId;
        }
        ASSERT_TRUE(idle());
    }
    bool idle() {
        return VHWaitUntil([&] { return connector().activeCatchupShares().empty(); }, 30s);
    }
    bool failed(const std::string& shareId) {
        std::vector<std::string> ids = connector().failedCatchupShares();
        return std::find(ids.begin(), ids.end(), shareId) != ids.end();
    }
};

TEST_F(SignedInConnector, PagesGoToTheStoreOffTheMainThreadOneAfterAnother) {
    int64_t start = storedShare("reports")->LastApplyedJournalTick;
    json actions = json::array();
    for (int i = 0; i < 25000; ++i) {
        actions.push_back({{"action", "writeFile"}, {"path", VHFormat("/bulk/f%d", i)}});
        actions.back()["text"] = "x";
    }
    ASSERT_TRUE(emulator.act("reports", actions));
    ASSERT_TRUE(emulator.clearRequests());
    PageGate gate;
    connector().refresh();
    ASSERT_TRUE(caughtUp("reports", 240s));
    ASSERT_TRUE(idle());
    EXPECT_EQ(ticksAsked(requestsTo(kGateway1, "/CatchUp7.aspx"), "reports"),
              (std::vector<int64_t>{start, start + 10000, start + 20000}));
    // Each page is in the store before the next one is asked for.
    EXPECT_EQ(gate.events(),
              (std::vector<std::string>{"apply reports", "done reports", "apply reports",
                                        "done reports", "apply reports", "done reports"}));
    EXPECT_FALSE(gate.calledOnMainThread());
    VHDatabase& database = VHDatabase::database();
    auto folder = database.fileWithPath("/" + storedShare("reports")->displayName() + "/bulk");
    ASSERT_TRUE(folder);
    EXPECT_EQ(database.filesWithParent(folder->internalName).size(), 25000u);
    EXPECT_TRUE(connector().failedCatchupShares().empty());
}

TEST_F(SignedInConnector, APageInTheStoreKeepsTheShareBusyAndARefusedOneIsFetchedAgain) {
    ManagedShare team = *storedShare("team");
    int64_t tick = team.LastApplyedJournalTick;
    ASSERT_TRUE(emulator.act(
        "team",
        json::array({{{"action", "writeFile"}, {"path", "/docs/b.txt"}, {"text", "from frank"}}}),
        "frank@varnholt.test"));
    ASSERT_TRUE(emulator.clearRequests());
    PageGate gate;
    gate.hold();
    connector().catchUp(team);
    ASSERT_TRUE(VHWaitUntil([&] { return gate.holding(); }, 30s));
    // While its page waits for the store, the share counts as being caught up.
    connector().catchUp(team);
    EXPECT_EQ(logCount(VHFormat("share Team is already being catched up from tick %d.", tick)), 1);
    EXPECT_EQ(connector().activeCatchupShares(), std::vector<std::string>{"team"});

    gate.refuseHeld();
    ASSERT_TRUE(VHWaitUntil(
        [&] { return ticksAsked(requestsTo(kGateway1, "/CatchUp7.aspx"), "team").size() == 2; },
        30s));
    ASSERT_TRUE(caughtUp("team", 30s));
    ASSERT_TRUE(idle());
    EXPECT_EQ(ticksAsked(requestsTo(kGateway1, "/CatchUp7.aspx"), "team"),
              (std::vector<int64_t>{tick, tick}));
    EXPECT_EQ(gate.events(),
              (std::vector<std::string>{"apply team", "refused team", "apply team", "done team"}));
    EXPECT_FALSE(failed("team"));
    EXPECT_TRUE(VHDatabase::database().fileWithPath("/Team/docs/b.txt"));
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

    // A gateway that is no host name gets no request: it would take the token elsewhere.
    ASSERT_TRUE(emulator.clearRequests());
    team.GateWayUrl = "d1.varnholt.test/steal?";
    connector().sendCatchupRequest(team, tick);
    ASSERT_TRUE(VHWaitUntil([&] { return logCount("No catchup request for share team") == 1; }));
    ASSERT_TRUE(idle());
    EXPECT_TRUE(emulator.requests().empty());
    EXPECT_TRUE(failed("team"));
}

class FullRefresh : public ConnectorTest {
    void SetUp() override {
        VHSettings::setValue("needsFullRefresh", true);  // left by a run that did not end cleanly
        VHFileCache::resetForTests();
        ConnectorTest::SetUp();
    }
};

TEST_F(FullRefresh, EveryShareIsReadFromTickZeroAndLaterChangesStillArrive) {
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

    // Another user changes the share afterwards; a catch-up brings it to the drive.
    VHTestDrive drive(VHCurrentTestHome() + "/Varnholt");
    std::string docs = drive.path() + "/Team/docs";
    ASSERT_TRUE(std::filesystem::exists(docs + "/a.txt"));
    ASSERT_TRUE(emulator.act(
        "team",
        json::array(
            {{{"action", "writeFile"}, {"path", "/docs/later.txt"}, {"text", "written later"}},
             {{"action", "delete"}, {"path", "/docs/a.txt"}}}),
        "frank@varnholt.test"));
    connector().catchUp(*storedShare("team"));
    ASSERT_TRUE(caughtUp("team", 30s));
    EXPECT_EQ(logCount("catchUp for share: doing full refresh now, catchup postponed."), 0);
    EXPECT_TRUE(VHWaitUntil([&] { return !std::filesystem::exists(docs + "/a.txt"); }, 10s));
    ASSERT_TRUE(std::filesystem::exists(docs + "/later.txt"));
    EXPECT_EQ(std::filesystem::file_size(docs + "/later.txt"), 13u);
}

}  // namespace
}  // namespace vh::test
