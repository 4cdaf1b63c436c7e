// The file API against the real emulator: journal events, chunked and
// resumed uploads, ranged reads, locks, rights and reason codes.
#include <gtest/gtest.h>

#include <filesystem>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

const std::set<std::string> kResponseKeys = {"Data", "Message", "Code"};
const std::set<std::string> kJournalEventKeys = {
    "TransmitId", "UserOrigin", "ClientJournalEventType", "VhVirtualFile",   "DeviceId",
    "ShareId",    "ShareTick",  "TransmitCounter",        "TransmitTimeout", "CreateTick"};

json newItem(const std::string& name, bool isFile, uint64_t size, const std::string& parent) {
    std::string now = "2024-05-17T08:15:42.250Z";
    std::string id = VHTestInternalName();
    return {{"InternalName", id},  {"ParrentId", parent},   {"PublicName", name},
            {"IsFile", isFile},    {"EndOfFile", size},     {"AllocationSize", size},
            {"CreationTime", now}, {"LastAccessTime", now}, {"LastWriteTime", now},
            {"Tick", 0},           {"ShareTick", 0},        {"UpdateTick", 0},
            {"CreateTick", 0},     {"Local", true},         {"Deleted", false}};
}

std::string range(uint64_t first, uint64_t last, uint64_t total) {
    return "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
           std::to_string(total);
}

class EmulatorFileApi : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator.start({VHCompactSeed(), ""}));
        alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
        ASSERT_FALSE(alice.domainToken.empty());
    }

    VHEmulatorReply putChunk(const std::string& url, const std::string& data, uint64_t first,
                             uint64_t total) {
        std::string rest = url.substr(std::string("https://").size());
        std::string host = rest.substr(0, rest.find('/'));
        EXPECT_EQ(host, kFilecache1);
        return emulator.request("PUT", host, rest.substr(rest.find('/')),
                                {{"Content-Range", range(first, first + data.size() - 1, total)}},
                                data);
    }

    VHEmulatorReply read(const std::string& uploadName, const std::string& contentRange,
                         const std::string& shareId = "team") {
        VHEmulatorHeaders headers = VHAuthorization(alice.domainToken);
        if (!contentRange.empty()) headers.push_back({"Content-Range", contentRange});
        return emulator.request("GET", kFilecache1,
                                "/api/shares/" + shareId + "/files/" + uploadName, headers);
    }

    std::string uploadNameOf(const std::string& shareId, const std::string& path) {
        json tree = *emulator.tree(shareId);
        for (const json& item : tree["items"]) {
            if (item["path"] == path) return item["uploadName"];
        }
        return "";
    }

    VHEmulatorProcess emulator;
    VHTestSession alice;
};

TEST_F(EmulatorFileApi, CreatesFoldersAndEmptyFilesAtOnce) {
    int64_t tick = (*emulator.tree("team"))["tick"];
    json folder = newItem("New Folder", false, 0, "team");
    VHEmulatorReply created = VHSendEvent(emulator, alice, "team", 0, folder);
    ASSERT_EQ(created.status, 201) << created.body;
    json answer = created.json();
    EXPECT_EQ(VHKeys(answer), kResponseKeys);
    EXPECT_EQ(answer["Code"], 0);
    json event = answer["Data"]["ClientJournalEvent"];
    EXPECT_EQ(VHKeys(event), kJournalEventKeys);
    EXPECT_EQ(event["ShareTick"], tick + 1);
    EXPECT_EQ(event["VhVirtualFile"]["InternalName"], folder["InternalName"]);
    EXPECT_EQ(event["VhVirtualFile"]["IsFile"], false);
    EXPECT_EQ(event["VhVirtualFile"]["CreateTick"], tick + 1);

    json empty = newItem("empty.txt", true, 0, folder["InternalName"]);
    VHEmulatorReply file = VHSendEvent(emulator, alice, "team", 0, empty);
    ASSERT_EQ(file.status, 201) << file.body;
    std::string uploadName =
        file.json()["Data"]["ClientJournalEvent"]["VhVirtualFile"]["UploadName"];
    EXPECT_EQ(VHInternalName(emulator, "team", "/New Folder/empty.txt"),
              empty["InternalName"].get<std::string>());
    VHEmulatorReply bytes = read(uploadName, "");
    EXPECT_EQ(bytes.status, 200);
    EXPECT_TRUE(bytes.body.empty());
    // The same create again (a lost answer) changes nothing.
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 0, folder).status, 201);
    EXPECT_EQ((*emulator.tree("team"))["tick"], tick + 2);
    // A second item of the same name is refused.
    EXPECT_EQ(
        VHSendEvent(emulator, alice, "team", 0, newItem("New Folder", false, 0, "team")).status,
        409);
}

TEST_F(EmulatorFileApi, ResumedUploadStoresTheSameBytes) {
    std::string data = VHTestBytes(700 * 1024);
    json item = newItem("upload.bin", true, data.size(), "team");
    VHEmulatorReply started = VHSendEvent(emulator, alice, "team", 0, item);
    ASSERT_EQ(started.status, 201) << started.body;
    std::string url = started.json()["Data"]["Url"];
    EXPECT_EQ(started.json()["Data"]["CurrentPosition"], 0);
    EXPECT_TRUE(VHInternalName(emulator, "team", "/upload.bin").empty());

    const size_t chunk = 256 * 1024;
    EXPECT_EQ(putChunk(url, data.substr(0, chunk), 0, data.size()).status, 202);
    // A client that lost the answer sends the first chunk again.
    VHEmulatorReply again = putChunk(url, data.substr(0, chunk), 0, data.size());
    EXPECT_EQ(again.status, 400);
    EXPECT_EQ(again.json()["Code"], 16);
    EXPECT_EQ(again.json()["Data"]["CurrentPosition"], chunk);
    // The connection stays usable after the refused body.
    VHEmulatorReply second = putChunk(url, data.substr(chunk, chunk), chunk, data.size());
    EXPECT_EQ(second.status, 202);
    EXPECT_EQ(second.json()["Data"]["CurrentPosition"], 2 * chunk);
    EXPECT_EQ(putChunk(url, data.substr(2 * chunk, 10), 2 * chunk, data.size() + 1).status, 400);
    VHEmulatorReply last = putChunk(url, data.substr(2 * chunk), 2 * chunk, data.size());
    ASSERT_EQ(last.status, 200) << last.body;
    json file = last.json()["Data"]["ClientJournalEvent"]["VhVirtualFile"];
    EXPECT_EQ(file["EndOfFile"], data.size());
    EXPECT_EQ(file["FilehHash"], VHSha256(data));
    EXPECT_EQ(emulator.fileBytes("team", "/upload.bin"), data);
    EXPECT_EQ(read(file["UploadName"], "").body, data);
    // The finished upload takes no more chunks.
    EXPECT_EQ(putChunk(url, data.substr(0, 10), 0, data.size()).status, 404);
    EXPECT_EQ(putChunk(url + "x", data.substr(0, 10), 0, data.size()).status, 404);
}

TEST_F(EmulatorFileApi, UpdatesGiveANewUploadName) {
    std::string id = VHInternalName(emulator, "team", "/readme.txt");
    std::string oldName = uploadNameOf("team", "/readme.txt");
    json item = newItem("readme.txt", true, 3, "team");
    item["InternalName"] = id;
    VHEmulatorReply started = VHSendEvent(emulator, alice, "team", 3, item);
    ASSERT_EQ(started.status, 200) << started.body;
    VHEmulatorReply done = putChunk(started.json()["Data"]["Url"], "new", 0, 3);
    ASSERT_EQ(done.status, 200);
    json file = done.json()["Data"]["ClientJournalEvent"]["VhVirtualFile"];
    EXPECT_NE(file["UploadName"], oldName);
    EXPECT_EQ(file["UpdateTick"], file["Tick"]);
    EXPECT_LT(file["CreateTick"].get<int64_t>(), file["Tick"].get<int64_t>());
    EXPECT_EQ(read(oldName, "").status, 404);
    EXPECT_EQ(read(file["UploadName"], "").body, "new");
}

TEST_F(EmulatorFileApi, RangedReadsAtTheEdges) {
    std::string all = *emulator.fileBytes("team", "/big.bin");
    uint64_t n = all.size();
    std::string name = uploadNameOf("team", "/big.bin");
    auto bytes = [&](uint64_t first, uint64_t end) {
        VHEmulatorReply reply = read(name, range(first, end, n));
        EXPECT_EQ(reply.status, 200);
        return reply.body;
    };
    EXPECT_EQ(bytes(0, 1), all.substr(0, 1));
    EXPECT_EQ(bytes(n - 1, n), all.substr(n - 1));
    EXPECT_EQ(bytes(0, n), all);
    EXPECT_EQ(bytes(262144, 262144 + 1048576), all.substr(262144, 1048576));
    EXPECT_EQ(bytes(5, 5), "");
    EXPECT_EQ(bytes(n - 10, n + 100), all.substr(n - 10));
    EXPECT_EQ(read(name, range(n + 1, n + 2, n)).status, 416);
    EXPECT_EQ(read(name, "bytes nonsense").status, 416);
    EXPECT_EQ(read("Unothing", range(0, 1, n)).status, 404);
    EXPECT_EQ(read(name, range(0, 1, n), "mine").status, 404);
    EXPECT_EQ(read(name, range(0, 1, n), "archive").status, 403);
    EXPECT_EQ(emulator.request("GET", kFilecache1, "/api/shares/team/files/" + name).status, 401);
}

TEST_F(EmulatorFileApi, RenameMoveDeleteAndReasonCodes) {
    std::string docs = VHInternalName(emulator, "team", "/docs");
    std::string a = VHInternalName(emulator, "team", "/docs/a.txt");
    json moved = {{"InternalName", a}, {"ParrentId", "team"}, {"PublicName", "renamed.txt"}};
    ASSERT_EQ(VHSendEvent(emulator, alice, "team", 2, moved).status, 200);
    EXPECT_EQ(VHInternalName(emulator, "team", "/renamed.txt"), a);
    json intoItself = {{"InternalName", docs},
                       {"ParrentId", VHInternalName(emulator, "team", "/docs/sub")},
                       {"PublicName", "docs"}};
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 2, intoItself).status, 400);
    json clash = {{"InternalName", docs}, {"ParrentId", "team"}, {"PublicName", "readme.txt"}};
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 2, clash).status, 409);

    json unknown = newItem("ghost.txt", true, 5, "team");
    VHEmulatorReply update = VHSendEvent(emulator, alice, "team", 3, unknown);
    EXPECT_EQ(update.status, 400);
    EXPECT_EQ(update.json()["Code"], 17);
    VHEmulatorReply gone = VHSendEvent(emulator, alice, "team", 1, unknown);
    EXPECT_EQ(gone.status, 400);
    EXPECT_EQ(gone.json()["Code"], 17);
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 1, {{"InternalName", docs}}).status, 200);
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 1, {{"InternalName", docs}}).json()["Code"], 17);
    EXPECT_TRUE(VHInternalName(emulator, "team", "/docs/sub/b.txt").empty());
    // An event whose type does not fit the method is refused.
    EXPECT_EQ(emulator
                  .request("POST", kFilecache1, "/api/shares/team/files",
                           VHAuthorization(alice.domainToken), VHJournalEvent(3, moved).dump())
                  .status,
              400);
}

TEST_F(EmulatorFileApi, LocksRightsAndTokens) {
    VHTestSession bob = VHLogIn(emulator, "bob@varnholt.test", "bob-pw");
    json readme = {{"InternalName", VHInternalName(emulator, "team", "/readme.txt")}};
    VHEmulatorReply locked = VHSendEvent(emulator, alice, "team", 13, readme);
    ASSERT_EQ(locked.status, 200);
    json lock = locked.json()["Data"]["ClientJournalEvent"]["VhVirtualFile"]["FileLock"];
    EXPECT_EQ(lock["IsLocked"], 1);
    EXPECT_EQ(lock["LockedBy"], "alice@varnholt.test");
    EXPECT_EQ(lock["DeviceId"], "test-device");

    VHEmulatorReply refused = VHSendEvent(emulator, bob, "team", 13, readme);
    EXPECT_EQ(refused.status, 423);
    EXPECT_EQ(refused.json()["FileLock"]["LockedBy"], "alice@varnholt.test");
    json update = readme;
    update["EndOfFile"] = 4;
    EXPECT_EQ(VHSendEvent(emulator, bob, "team", 3, update).status, 423);
    EXPECT_EQ(VHSendEvent(emulator, bob, "team", 1, readme).status, 423);
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 14, readme).status, 200);
    EXPECT_EQ(VHSendEvent(emulator, bob, "team", 13, readme).status, 200);

    // Read-only: reading works, changing does not.
    EXPECT_EQ(VHSendEvent(emulator, alice, "ro", 0, newItem("no.txt", false, 0, "ro")).status, 403);
    EXPECT_EQ(read(uploadNameOf("ro", "/r.txt"), "", "ro").body, "read me");
    // No right at all, no token, a wrong token.
    EXPECT_EQ(VHSendEvent(emulator, alice, "archive", 0, newItem("n", false, 0, "archive")).status,
              403);
    VHTestSession nobody{"x", "not-a-token", "", json::object()};
    EXPECT_EQ(VHSendEvent(emulator, nobody, "team", 0, newItem("n", false, 0, "team")).status, 401);
    EXPECT_EQ(emulator
                  .request("POST", kFilecache1, "/api/shares/team/files", {},
                           VHJournalEvent(0, newItem("n", false, 0, "team")).dump())
                  .status,
              401);
}

TEST_F(EmulatorFileApi, UpdatesAndRepeatedCreatesRenameAndMoveLikeARename) {
    std::string id = VHInternalName(emulator, "team", "/readme.txt");
    std::string docs = VHInternalName(emulator, "team", "/docs");
    ASSERT_FALSE(id.empty());
    int64_t before = (*emulator.tree("team"))["tick"];
    // A file renamed while its new contents wait: the update carries the name.
    json update = newItem("renamed.txt", true, 6, docs);
    update["InternalName"] = id;
    VHEmulatorReply started = VHSendEvent(emulator, alice, "team", 3, update);
    ASSERT_EQ(started.status, 200) << started.body;
    VHEmulatorReply done = putChunk(started.json()["Data"]["Url"], "newer!", 0, 6);
    ASSERT_EQ(done.status, 200) << done.body;
    json file = done.json()["Data"]["ClientJournalEvent"]["VhVirtualFile"];
    EXPECT_EQ(file["PublicName"], "renamed.txt");
    EXPECT_EQ(file["ParrentId"], docs);
    EXPECT_EQ(VHInternalName(emulator, "team", "/docs/renamed.txt"), id);
    EXPECT_TRUE(VHInternalName(emulator, "team", "/readme.txt").empty());
    EXPECT_EQ(emulator.fileBytes("team", "/docs/renamed.txt"), "newer!");
    json record = VHCatchUp(emulator, "team", VHAclToken(alice, "team"), before).json();
    ASSERT_EQ(record["VhVirtualFiles"].size(), 1u);
    EXPECT_EQ(record["VhVirtualFiles"][0]["PublicName"], "renamed.txt");
    EXPECT_EQ(record["VhVirtualFiles"][0]["ParrentId"], docs);

    // An empty file takes the new name at once; absent keys keep what is there.
    json emptied = newItem("emptied.txt", true, 0, "team");
    emptied["InternalName"] = id;
    ASSERT_EQ(VHSendEvent(emulator, alice, "team", 3, emptied).status, 200);
    EXPECT_EQ(VHInternalName(emulator, "team", "/emptied.txt"), id);
    ASSERT_EQ(VHSendEvent(emulator, alice, "team", 3, {{"InternalName", id}}).status, 200);
    EXPECT_EQ(VHInternalName(emulator, "team", "/emptied.txt"), id);

    // The same refusals as a rename, and nothing changes.
    int64_t tick = (*emulator.tree("team"))["tick"];
    auto refusal = [&](const json& item, int type) {
        VHEmulatorReply reply = VHSendEvent(emulator, alice, "team", type, item);
        return std::pair(reply.status, reply.json()["Code"]);
    };
    json clash = newItem("big.bin", true, 4, "team");
    clash["InternalName"] = id;
    EXPECT_EQ(refusal(clash, 3), std::pair(409L, json(3)));
    EXPECT_EQ(refusal(clash, 0), std::pair(409L, json(3)));
    json nowhere = newItem("x.txt", true, 4, "no-such-folder");
    nowhere["InternalName"] = id;
    EXPECT_EQ(refusal(nowhere, 3), std::pair(400L, json(17)));
    json badName = newItem("a/b", true, 4, "team");
    badName["InternalName"] = id;
    EXPECT_EQ(refusal(badName, 3), std::pair(400L, json(1)));
    json intoItself = newItem("docs", false, 0, VHInternalName(emulator, "team", "/docs/sub"));
    intoItself["InternalName"] = docs;
    EXPECT_EQ(refusal(intoItself, 0), std::pair(400L, json(1)));
    EXPECT_EQ((*emulator.tree("team"))["tick"], tick);

    // A folder created again under another name is renamed.
    json folder = newItem("Documents", false, 0, "team");
    folder["InternalName"] = docs;
    VHEmulatorReply again = VHSendEvent(emulator, alice, "team", 0, folder);
    ASSERT_EQ(again.status, 201) << again.body;
    EXPECT_EQ(again.json()["Data"]["ClientJournalEvent"]["VhVirtualFile"]["PublicName"],
              "Documents");
    EXPECT_TRUE(VHInternalName(emulator, "team", "/docs").empty());
    EXPECT_FALSE(VHInternalName(emulator, "team", "/Documents/a.txt").empty());
    EXPECT_EQ((*emulator.tree("team"))["tick"], tick + 1);
}

TEST_F(EmulatorFileApi, SizesAndTicksOutsideTheExactRangeAreRefused) {
    int64_t tick = (*emulator.tree("team"))["tick"];
    auto blobs = [&] {
        auto entries = std::filesystem::directory_iterator(emulator.stateDir() + "/blobs");
        return std::distance(begin(entries), end(entries));
    };
    auto blobsBefore = blobs();
    const json badNumbers[] = {-5, 1.5, 9007199254740993ull, 1e30, 9223372036854775808ull, "12"};
    const std::string readme = VHInternalName(emulator, "team", "/readme.txt");
    for (const char* key : {"EndOfFile", "AllocationSize", "Tick", "UpdateTick"}) {
        for (const json& bad : badNumbers) {
            json created = newItem("bad.bin", true, 10, "team");
            created[key] = bad;
            VHEmulatorReply create = VHSendEvent(emulator, alice, "team", 0, created);
            EXPECT_EQ(create.status, 400) << key << " " << bad;
            EXPECT_EQ(create.json()["Code"], 1) << key << " " << bad;
            json update = {{"InternalName", readme}, {"EndOfFile", 3}};
            update[key] = bad;
            EXPECT_EQ(VHSendEvent(emulator, alice, "team", 3, update).json()["Code"], 1)
                << key << " " << bad;
        }
    }
    json event = VHJournalEvent(0, newItem("bad.bin", true, 0, "team"));
    event["ShareTick"] = -1;
    EXPECT_EQ(emulator
                  .request("POST", kFilecache1, "/api/shares/team/files",
                           VHAuthorization(alice.domainToken), event.dump())
                  .status,
              400);
    EXPECT_EQ((*emulator.tree("team"))["tick"], tick);
    EXPECT_EQ(blobs(), blobsBefore);
    EXPECT_EQ(emulator.fileBytes("team", "/readme.txt"), "hello");

    // All bits set is the client's "no tick yet"; 2^53 is the largest size.
    json fresh = newItem("fresh.txt", true, 0, "team");
    for (const char* key : {"Tick", "ShareTick", "UpdateTick", "CreateTick"}) {
        fresh[key] = 18446744073709551615ull;
    }
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 0, fresh).status, 201);
    json whole = newItem("whole.txt", true, 0, "team");
    whole["AllocationSize"] = 0.0;
    whole["Attributes"] = 128.0;
    EXPECT_EQ(VHSendEvent(emulator, alice, "team", 0, whole).status, 201);
}

TEST_F(EmulatorFileApi, SubfolderShareWritesIntoItsFolder) {
    json file = newItem("from-alice.txt", true, 0, "sub");
    ASSERT_EQ(VHSendEvent(emulator, alice, "sub", 0, file).status, 201);
    EXPECT_EQ(VHInternalName(emulator, "archive", "/Shared/from-alice.txt"),
              file["InternalName"].get<std::string>());
    // Items outside the folder are out of reach.
    json outside = {{"InternalName", VHInternalName(emulator, "archive", "/outside.txt")}};
    EXPECT_EQ(VHSendEvent(emulator, alice, "sub", 1, outside).json()["Code"], 17);
}

}  // namespace
}  // namespace vh::test
