// The admin API, faults, the request log, restarts and the demo account of
// the real emulator.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

class EmulatorAdmin : public testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(emulator.start({VHCompactSeed(), ""})); }

    VHEmulatorReply userDomain() {
        return emulator.request("GET", kGlobal, "/GetUserDomain.aspx?useremail=bob@varnholt.test");
    }

    VHEmulatorProcess emulator;
};

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST_F(EmulatorAdmin, FaultsApplyAndGoAway) {
    auto status = emulator.addFault({{"method", "GET"},
                                     {"path", "^/GetUserDomain"},
                                     {"status", 503},
                                     {"code", 7},
                                     {"count", 2}});
    ASSERT_TRUE(status);
    VHEmulatorReply faulted = userDomain();
    EXPECT_EQ(faulted.status, 503);
    EXPECT_EQ(faulted.json()["Code"], 7);
    EXPECT_EQ(userDomain().status, 503);
    EXPECT_EQ(userDomain().status, 200);  // the count is used up

    auto dropped = emulator.addFault({{"path", "GetUserDomain"}, {"drop", true}, {"skip", 1}});
    EXPECT_EQ(userDomain().status, 200);  // skipped
    VHEmulatorReply drop = userDomain();
    EXPECT_EQ(drop.status, 0);
    EXPECT_NE(drop.curlCode, 0);
    ASSERT_TRUE(emulator.removeFault(*dropped));
    EXPECT_EQ(userDomain().status, 200);

    ASSERT_TRUE(emulator.addFault({{"path", "GetUserDomain"}, {"probability", 0.0}}));
    ASSERT_TRUE(emulator.addFault({{"host", "^global"}, {"delayMs", 300}, {"count", 1}}));
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(userDomain().status, 200);
    EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(250));
    ASSERT_TRUE(emulator.clearFaults());
    EXPECT_TRUE(emulator.admin("GET", "faults")->empty());
}

TEST_F(EmulatorAdmin, TruncatedBodiesAndAnswersLostAfterTheChange) {
    VHTestSession alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
    std::string name;
    json tree = *emulator.tree("team");
    for (const json& item : tree["items"]) {
        if (item["path"] == "/big.bin") name = item["uploadName"];
    }
    ASSERT_TRUE(emulator.addFault(
        {{"method", "GET"}, {"path", "^/api/shares/"}, {"truncateAt", 1000}, {"count", 1}}));
    VHEmulatorReply cut = emulator.request("GET", kFilecache1, "/api/shares/team/files/" + name,
                                           VHAuthorization(alice.domainToken));
    EXPECT_NE(cut.curlCode, 0);
    EXPECT_EQ(cut.body.size(), 1000u);
    EXPECT_EQ(emulator
                  .request("GET", kFilecache1, "/api/shares/team/files/" + name,
                           VHAuthorization(alice.domainToken))
                  .body.size(),
              3u << 20);

    // The change is made, the answer replaced: what a client sees as a lost reply.
    ASSERT_TRUE(emulator.addFault({{"method", "POST"},
                                   {"path", "/files$"},
                                   {"status", 400},
                                   {"code", 7},
                                   {"phase", "after"}}));
    json folder = {{"InternalName", "abc123"},
                   {"ParrentId", "team"},
                   {"PublicName", "made"},
                   {"IsFile", false}};
    VHEmulatorReply reply = VHSendEvent(emulator, alice, "team", 0, folder);
    EXPECT_EQ(reply.status, 400);
    EXPECT_EQ(reply.json()["Code"], 7);
    EXPECT_EQ(VHInternalName(emulator, "team", "/made"), "abc123");
}

TEST_F(EmulatorAdmin, RequestLogShowsWhatClientsSent) {
    ASSERT_TRUE(emulator.clearRequests());
    emulator.request("POST", kGateway1, "/CatchUp7.aspx?x=1",
                     {{"share", "team"}, {"tickfrom", "-1"}, {"Content-Range", "bytes 0-1/2"}});
    emulator.tree("team");  // admin calls are not logged
    json log = emulator.requests();
    ASSERT_EQ(log.size(), 1u);
    EXPECT_EQ(log[0]["method"], "POST");
    EXPECT_EQ(log[0]["host"], kGateway1);
    EXPECT_EQ(log[0]["path"], "/CatchUp7.aspx");
    EXPECT_EQ(log[0]["query"], "x=1");
    EXPECT_EQ(log[0]["status"], 401);
    EXPECT_EQ(log[0]["headers"]["share"], "team");
    EXPECT_EQ(log[0]["headers"]["Content-Range"], "bytes 0-1/2");
    EXPECT_TRUE(emulator.requests(log[0]["seq"]).empty());
}

TEST_F(EmulatorAdmin, StateSurvivesRestart) {
    VHTestSession alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
    std::string data = VHTestBytes(600 * 1024, 5);
    json item = {{"InternalName", "resume1"},
                 {"ParrentId", "team"},
                 {"PublicName", "resume.bin"},
                 {"IsFile", true},
                 {"EndOfFile", data.size()}};
    std::string url = VHSendEvent(emulator, alice, "team", 0, item).json()["Data"]["Url"];
    std::string path = url.substr(url.find("/api/"));
    auto put = [&](uint64_t first, uint64_t length) {
        return emulator.request("PUT", kFilecache1, path,
                                {{"Content-Range", "bytes " + std::to_string(first) + "-" +
                                                       std::to_string(first + length - 1) + "/" +
                                                       std::to_string(data.size())}},
                                data.substr(first, length));
    };
    ASSERT_EQ(put(0, 300 * 1024).status, 202);
    json treeBefore = *emulator.tree("team");
    std::string caBefore = readFile(emulator.caFile());

    ASSERT_TRUE(emulator.restart());
    EXPECT_EQ(readFile(emulator.caFile()), caBefore);
    EXPECT_EQ(*emulator.tree("team"), treeBefore);
    VHTestSession again = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
    EXPECT_EQ(again.domainToken, alice.domainToken);
    EXPECT_EQ(VHAclToken(again, "team"), VHAclToken(alice, "team"));
    // The upload goes on where it stood.
    VHEmulatorReply restarted = put(0, 1024);
    EXPECT_EQ(restarted.status, 400);
    EXPECT_EQ(restarted.json()["Data"]["CurrentPosition"], 300 * 1024);
    VHEmulatorReply done = put(300 * 1024, 300 * 1024);
    ASSERT_EQ(done.status, 200) << done.body;
    EXPECT_EQ(done.json()["Data"]["ClientJournalEvent"]["ShareTick"],
              treeBefore["tick"].get<int64_t>() + 1);
    EXPECT_EQ(emulator.fileBytes("team", "/resume.bin"), data);
}

TEST_F(EmulatorAdmin, DomainAddedAtRunTimeIsServedWithAValidCertificate) {
    const char* gateway = "clientgateway.d3.varnholt.test";
    EXPECT_NE(emulator.request("GET", gateway, "/ClientLogin.aspx").curlCode, 0);
    ASSERT_TRUE(emulator.addDomain("d3.varnholt.test", "Third"));
    ASSERT_TRUE(emulator.addUser({{"email", "dave@varnholt.test"},
                                  {"password", "dave-pw"},
                                  {"primaryDomain", "d3.varnholt.test"}}));
    ASSERT_TRUE(emulator.addShare(
        {{"shareId", "d3share"},
         {"name", "Third"},
         {"domain", "d3.varnholt.test"},
         {"owner", "dave@varnholt.test"},
         {"actions", {{{"action", "writeFile"}, {"path", "/a"}, {"text", "a"}}}}}));
    std::string token = (*emulator.account("dave@varnholt.test"))["domains"][0]["token"];
    VHEmulatorReply login = emulator.request(
        "GET", gateway, "/ClientLogin.aspx?userEmail=dave@varnholt.test&token=" + token);
    ASSERT_EQ(login.curlCode, 0);
    EXPECT_EQ(login.json()["ManagedShares"][0]["ShareId"], "d3share");
    EXPECT_FALSE(emulator.addDomain("d3.varnholt.test"));
    EXPECT_FALSE(emulator.addDomain("not a host"));
}

TEST_F(EmulatorAdmin, ChangesAsAnotherDeviceReachJournalAndEvents) {
    ASSERT_TRUE(emulator.act("team",
                             {{{"action", "writeFile"}, {"path", "/new/n.txt"}, {"text", "n"}},
                              {{"action", "lock"}, {"path", "/new/n.txt"}}},
                             "bob@varnholt.test", "bobs-phone"));
    json tree = *emulator.tree("team");
    json file;
    for (const json& item : tree["items"]) {
        if (item["path"] == "/new/n.txt") file = item;
    }
    EXPECT_EQ(file["locked"], true);
    EXPECT_EQ(file["lockedBy"], "bob@varnholt.test");
    EXPECT_EQ(file["lockDeviceId"], "bobs-phone");
    EXPECT_EQ(file["sha256"], VHSha256("n"));
    // A failing batch changes nothing.
    EXPECT_FALSE(emulator.act("team", {{{"action", "delete"}, {"path", "/readme.txt"}},
                                       {{"action", "delete"}, {"path", "/missing"}}}));
    EXPECT_FALSE(VHInternalName(emulator, "team", "/readme.txt").empty());

    json events = *emulator.events("d1.varnholt.test");
    ASSERT_FALSE(events.empty());
    json last = events[events.size() - 1];
    EXPECT_EQ(last["messageType"], 3);
    json broadcast = json::parse(last["message"].get<std::string>());
    EXPECT_EQ(VHKeys(broadcast),
              (std::set<std::string>{"TransmitId", "UserOrigin", "clientJournalEventType", "VShare",
                                     "ShareId", "ShareTick", "TransmitCounter", "CreateTick",
                                     "TransmitTimeout", "VhVirtualFile"}));
    EXPECT_EQ(broadcast["clientJournalEventType"], 13);
    EXPECT_EQ(broadcast["ShareTick"], tree["tick"]);
    EXPECT_EQ(broadcast["VhVirtualFile"]["PublicName"], "n.txt");
    auto seq = emulator.raiseDomainEvent("d1.varnholt.test", {{"DomainEventType", 3}});
    ASSERT_TRUE(seq);
    json raised = (*emulator.events("d1.varnholt.test", last["seq"]))[0];
    EXPECT_EQ(raised["messageType"], 12);
    EXPECT_EQ(raised["sender"], "d1.varnholt.test");
    json domainEvent = json::parse(raised["message"].get<std::string>());
    EXPECT_EQ(VHKeys(domainEvent),
              (std::set<std::string>{"Update", "Company", "DomainEventType", "Delete", "New"}));
    EXPECT_EQ(domainEvent["DomainEventType"], 3);

    // Rights and shares taken away are gone for the client.
    VHTestSession alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
    ASSERT_TRUE(emulator.removeAcl("team", "alice@varnholt.test"));
    EXPECT_EQ(VHCatchUp(emulator, "team", VHAclToken(alice, "team"), -1).status, 403);
    ASSERT_TRUE(emulator.removeShare("archive"));
    json shares = VHLogIn(emulator, "alice@varnholt.test", "alice-pw").managedShares;
    EXPECT_EQ(VHKeys(shares), (std::set<std::string>{"mine", "ro"}));

    // Each change of the share list is a domain event naming the share.
    ASSERT_TRUE(emulator.setAcl("team", "alice@varnholt.test", 0));
    ASSERT_TRUE(emulator.renameShare("team", "Team, renamed"));
    std::vector<std::string> announced;
    json after = emulator.events("d1.varnholt.test", *seq).value_or(json::array());
    for (const json& event : after) {
        ASSERT_EQ(event["messageType"], 12);
        json message = json::parse(event["message"].get<std::string>());
        EXPECT_EQ(message["DomainEventType"], 1);
        for (const char* key : {"New", "Update", "Delete"}) {
            if (!message[key].get<std::string>().empty())
                announced.push_back(std::string(key) + " " + message[key].get<std::string>());
        }
    }
    EXPECT_EQ(announced, (std::vector<std::string>{"Delete team", "Delete archive", "New team",
                                                   "Update team"}));
}

TEST(EmulatorDemo, DefaultSeedHoldsTheDocumentedAccount) {
    VHEmulatorProcess emulator;
    ASSERT_TRUE(emulator.start());
    VHTestSession demo = VHLogIn(emulator, "demo@varnholt.test", "demo");
    const json& shares = demo.managedShares;
    ASSERT_EQ(VHKeys(shares), (std::set<std::string>{"team-documents", "my-files",
                                                     "company-handbook", "shared-with-demo"}));
    EXPECT_EQ(shares["team-documents"]["ShareAcl"]["AclType"], 1);
    EXPECT_EQ(shares["my-files"]["ShareAcl"]["AclType"], 2);
    EXPECT_EQ(shares["company-handbook"]["ShareAcl"]["AclType"], 0);
    EXPECT_EQ(shares["shared-with-demo"]["ShareType"], 1);
    std::map<std::string, uint64_t> sizes;
    json tree = *emulator.tree("team-documents");
    for (const json& item : tree["items"]) {
        sizes[item["path"]] = item["size"];
    }
    EXPECT_EQ(sizes["/Media/video.bin"], 50000000u);
    EXPECT_EQ(sizes["/empty.txt"], 0u);
    EXPECT_TRUE(sizes.count("/Projects/Alpha/Deep/Deeper/leaf.txt"));
    auto account = emulator.account("demo@varnholt.test");
    ASSERT_TRUE(account);
    bool secondDomain = false;
    for (const json& share : (*account)["shares"])
        secondDomain |= share["shareId"] == "second-domain";
    EXPECT_TRUE(secondDomain);
}

}  // namespace
}  // namespace vh::test
