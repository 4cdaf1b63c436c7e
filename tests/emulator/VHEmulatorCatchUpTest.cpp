// Catch-up against the real emulator: record keys, token checks, paging
// the way the client pages, deletions, and subfolder shares.
#include <gtest/gtest.h>

#include <map>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

const std::set<std::string> kCatchUpKeys = {"VhVirtualFiles", "ShareTick", "LargestTick"};
const std::set<std::string> kVirtualFileKeys = {
    "ShareId",        "UploadUrl",      "UploadName",    "ArchivedFullName",
    "InternalName",   "ParrentId",      "ParentShareId", "PublicName",
    "User",           "LastUploadName", "FilehHash",     "Tick",
    "ShareTick",      "UpdateTick",     "CreateTick",    "EndOfFile",
    "AllocationSize", "Attributes",     "CreationTime",  "LastAccessTime",
    "LastWriteTime",  "FileLock",       "Local",         "Deleted",
    "IsFile"};
const std::set<std::string> kFileLockKeys = {"DeviceId", "IsLocked", "LockTime", "LockedBy"};

class EmulatorCatchUp : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator.start({VHCompactSeed(), ""}));
        alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
        ASSERT_FALSE(alice.managedShares.empty());
    }

    json page(const std::string& shareId, long tickFrom, long take = 10000) {
        VHEmulatorReply reply =
            VHCatchUp(emulator, shareId, VHAclToken(alice, shareId), tickFrom, take);
        EXPECT_EQ(reply.status, 200) << reply.body;
        return reply.json();
    }

    VHEmulatorProcess emulator;
    VHTestSession alice;
};

TEST_F(EmulatorCatchUp, PageHoldsTheLatestRecordsInTickOrder) {
    json answer = page("team", -1);
    EXPECT_EQ(VHKeys(answer), kCatchUpKeys);
    const json& files = answer["VhVirtualFiles"];
    ASSERT_EQ(files.size(), 6u);  // readme, docs, a.txt, sub, b.txt, big.bin
    int64_t previous = 0;
    for (const json& file : files) {
        std::set<std::string> keys = VHKeys(file);
        keys.erase("POSIXPermissions");
        EXPECT_EQ(keys, kVirtualFileKeys);
        EXPECT_EQ(VHKeys(file["FileLock"]), kFileLockKeys);
        EXPECT_GT(file["Tick"].get<int64_t>(), previous);
        previous = file["Tick"];
        EXPECT_EQ(file["ShareTick"], file["Tick"]);
        EXPECT_EQ(file["ShareId"], "team");
    }
    EXPECT_EQ(answer["LargestTick"], previous);
    EXPECT_EQ(answer["ShareTick"], previous);
    json big = files[files.size() - 1];
    EXPECT_EQ(big["PublicName"], "big.bin");
    EXPECT_EQ(big["EndOfFile"], 3 << 20);
    EXPECT_EQ(big["FilehHash"], VHSha256(*emulator.fileBytes("team", "/big.bin")));
    EXPECT_EQ(big["UploadName"].get<std::string>().front(), 'U');
    EXPECT_EQ(files[0]["ParrentId"], "team");  // top level: the share itself

    json rest = page("team", previous - 2);
    EXPECT_EQ(rest["VhVirtualFiles"].size(), 2u);
    json none = page("team", previous);
    EXPECT_TRUE(none["VhVirtualFiles"].empty());
    EXPECT_EQ(none["LargestTick"], previous);
    EXPECT_EQ(page("team", -1, 3)["VhVirtualFiles"].size(), 3u);
}

TEST_F(EmulatorCatchUp, TokensAreChecked) {
    EXPECT_EQ(VHCatchUp(emulator, "team", "", -1).status, 401);
    EXPECT_EQ(VHCatchUp(emulator, "team", "not-the-token", -1).status, 403);
    EXPECT_EQ(VHCatchUp(emulator, "team", VHAclToken(alice, "ro"), -1).status, 403);
    EXPECT_EQ(VHCatchUp(emulator, "nothing", VHAclToken(alice, "ro"), -1).status, 404);
    // The token travels percent-escaped; the raw text is accepted too.
    VHEmulatorReply raw = emulator.request("POST", kGateway1, "/CatchUp7.aspx",
                                           {{"share", "ro"},
                                            {"token", VHAclToken(alice, "ro")},
                                            {"tickfrom", "-1"},
                                            {"tickstart", "-1"},
                                            {"ticktake", "10000"}});
    EXPECT_EQ(raw.status, 200);
    // A token of d1 does not open a share of d2.
    EXPECT_EQ(emulator
                  .request("POST", "clientgateway.d2.varnholt.test", "/CatchUp7.aspx",
                           {{"share", "team"},
                            {"token", VHAclToken(alice, "team")},
                            {"tickfrom", "-1"},
                            {"ticktake", "10"}})
                  .status,
              404);
}

TEST_F(EmulatorCatchUp, PagesThroughTwentyFiveThousandChanges) {
    json actions = json::array();
    for (int i = 0; i < 25000; ++i) {
        actions.push_back({{"action", "writeFile"},
                           {"path", "/bulk/f" + std::to_string(i)},
                           {"text", std::to_string(i)}});
    }
    ASSERT_TRUE(emulator.act("mine", actions));
    // The client's paging: a full page asks again from start + page size.
    std::map<std::string, int64_t> latest;
    long start = -1;
    int pages = 0;
    for (bool more = true; more; ++pages) {
        json answer = page("mine", start);
        const json& files = answer["VhVirtualFiles"];
        for (size_t i = 0; i < files.size(); ++i) {
            if (i > 0) {
                EXPECT_GT(files[i]["Tick"], files[i - 1]["Tick"]);
            }
            latest[files[i]["InternalName"]] = files[i]["Tick"];
        }
        more = files.size() >= 10000;
        start += 10000;
        ASSERT_LT(pages, 10);
    }
    EXPECT_EQ(pages, 3);
    EXPECT_EQ(latest.size(), 25002u);  // x.txt, the folder "bulk" and its files
    EXPECT_EQ(page("mine", -1)["ShareTick"], 25002);
}

TEST_F(EmulatorCatchUp, DeletionsStayAsDeletedRecords) {
    int64_t before = page("team", -1)["ShareTick"];
    ASSERT_TRUE(
        emulator.act("team", {{{"action", "delete"}, {"path", "/docs"}}}, "bob@varnholt.test"));
    json answer = page("team", before);
    std::set<std::string> names;
    for (const json& file : answer["VhVirtualFiles"]) {
        EXPECT_EQ(file["Deleted"], true);
        EXPECT_EQ(file["User"], "bob@varnholt.test");
        names.insert(file["PublicName"]);
    }
    EXPECT_EQ(names, (std::set<std::string>{"docs", "a.txt", "sub", "b.txt"}));
    EXPECT_EQ(answer["ShareTick"], before + 4);
}

TEST_F(EmulatorCatchUp, SubfolderShareShowsItsFolderOnly) {
    std::string folder = VHInternalName(emulator, "archive", "/Shared");
    json answer = page("sub", -1);
    std::map<std::string, json> byName;
    for (const json& file : answer["VhVirtualFiles"]) byName[file["PublicName"]] = file;
    EXPECT_EQ(byName.size(), 3u);
    ASSERT_TRUE(byName.count("s1.txt"));
    EXPECT_EQ(byName["s1.txt"]["ParrentId"], folder);
    EXPECT_TRUE(byName.count("deeper") && byName.count("s2.txt"));
    EXPECT_FALSE(byName.count("outside.txt"));
    // A change outside the folder moves the share's tick, not the view.
    int64_t tick = answer["ShareTick"];
    ASSERT_TRUE(emulator.act(
        "archive", {{{"action", "writeFile"}, {"path", "/outside.txt"}, {"text", "changed"}}}));
    json after = page("sub", tick);
    EXPECT_TRUE(after["VhVirtualFiles"].empty());
    EXPECT_EQ(after["ShareTick"], tick + 1);
}

TEST_F(EmulatorCatchUp, ItemsMovingAcrossASubfolderSharesFolderComeAndGo) {
    auto move = [&](const char* from, const char* to) {
        auto done = emulator.act("archive", {{{"action", "move"}, {"path", from}, {"to", to}}});
        EXPECT_TRUE(done) << from;
        return done ? (*done)["tick"].get<int64_t>() : int64_t(-1);
    };
    // The page after `tick`, by name: ticks ascending, one record per tick.
    auto changes = [&](int64_t tick) {
        std::map<std::string, json> byName;
        int64_t previous = tick;
        json answer = page("sub", tick);
        for (const json& file : answer["VhVirtualFiles"]) {
            EXPECT_GT(file["Tick"].get<int64_t>(), previous) << file["PublicName"];
            previous = file["Tick"];
            EXPECT_EQ(file["ShareTick"], file["Tick"]);
            byName[file["PublicName"]] = file;
        }
        return byName;
    };
    std::string s1 = VHInternalName(emulator, "archive", "/Shared/s1.txt");
    int64_t start = page("sub", -1)["ShareTick"];

    int64_t out = move("/Shared/s1.txt", "/s1-out.txt");
    auto gone = changes(start);
    ASSERT_EQ(gone.size(), 1u);
    EXPECT_EQ(gone.begin()->second["InternalName"], s1);
    EXPECT_EQ(gone.begin()->second["Deleted"], true);
    EXPECT_EQ(gone.begin()->second["Tick"], out);

    int64_t folderOut = move("/Shared/deeper", "/deeper-out");
    auto folder = changes(out);
    ASSERT_EQ(folder.size(), 2u);
    EXPECT_EQ(folder["deeper-out"]["Deleted"], true);
    EXPECT_EQ(folder["s2.txt"]["Deleted"], true);
    EXPECT_GE(folder["s2.txt"]["Tick"].get<int64_t>(), folderOut);

    int64_t in = move("/outside.txt", "/Shared/inside.txt");
    move("/deeper-out", "/Shared/deeper-back");
    auto back = changes(in - 1);
    ASSERT_EQ(back.size(), 3u);
    for (const char* name : {"inside.txt", "deeper-back", "s2.txt"}) {
        EXPECT_EQ(back[name]["Deleted"], false) << name;
    }
    // Caught up from the start, the share holds what its folder holds now.
    std::map<std::string, bool> everything;
    for (const auto& [name, file] : changes(-1)) everything[name] = file["Deleted"];
    EXPECT_EQ(everything, (std::map<std::string, bool>{{"s1-out.txt", true},
                                                       {"inside.txt", false},
                                                       {"deeper-back", false},
                                                       {"s2.txt", false}}));
    // The share that holds the items saw moves, not deletions.
    json holder = *emulator.tree("archive", true);
    ASSERT_FALSE(holder["items"].empty());
    for (const json& item : holder["items"]) EXPECT_EQ(item["deleted"], false) << item["path"];
}

}  // namespace
}  // namespace vh::test
