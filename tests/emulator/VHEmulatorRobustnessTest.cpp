// The real emulator under parallel transfers and untrusted input, and the
// limits of its links and seeds.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <regex>
#include <thread>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

class EmulatorRobustness : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator.start({VHCompactSeed(), ""}));
        alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
        ASSERT_FALSE(alice.domainToken.empty());
    }

    std::string uploadUrl(const json& item, int type = 0) {
        return VHSendEvent(emulator, alice, "team", type, item).json()["Data"].value("Url", "");
    }

    VHEmulatorReply put(const std::string& url, const std::string& data, uint64_t first,
                        uint64_t length, uint64_t total) {
        return emulator.request("PUT", kFilecache1, url.substr(url.find("/api/")),
                                {{"Content-Range", "bytes " + std::to_string(first) + "-" +
                                                       std::to_string(first + length - 1) + "/" +
                                                       std::to_string(total)}},
                                data.substr(first, length));
    }

    VHEmulatorProcess emulator;
    VHTestSession alice;
};

TEST_F(EmulatorRobustness, ParallelTransfersStayApart) {
    curl_global_init(CURL_GLOBAL_ALL);
    std::string big = *emulator.fileBytes("team", "/big.bin");
    std::string bigName;
    json tree = *emulator.tree("team");
    for (const json& item : tree["items"]) {
        if (item["path"] == "/big.bin") bigName = item["uploadName"];
    }
    const int workers = 16;
    const size_t size = 1 << 20, chunk = 256 * 1024;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < workers; ++i) {
        threads.emplace_back([&, i] {
            std::string data = VHTestBytes(size, i + 10);
            json item = {{"InternalName", "par" + std::to_string(i)},
                         {"ParrentId", "team"},
                         {"PublicName", "par" + std::to_string(i)},
                         {"IsFile", true},
                         {"EndOfFile", size}};
            std::string url = uploadUrl(item);
            for (size_t first = 0; first < size; first += chunk) {
                long expected = first + chunk < size ? 202 : 200;
                if (put(url, data, first, chunk, size).status != expected) ++failures;
                uint64_t offset = (i * 131072 + first) % (big.size() - chunk);
                VHEmulatorReply read =
                    emulator.request("GET", kFilecache1, "/api/shares/team/files/" + bigName,
                                     {{"Authorization", "DomainToken " + alice.domainToken},
                                      {"Content-Range", "bytes " + std::to_string(offset) + "-" +
                                                            std::to_string(offset + chunk) + "/" +
                                                            std::to_string(big.size())}});
                if (read.body != big.substr(offset, chunk)) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    for (int i = 0; i < workers; ++i) {
        EXPECT_EQ(emulator.fileBytes("team", "/par" + std::to_string(i)),
                  VHTestBytes(size, i + 10));
    }
    EXPECT_EQ((*emulator.tree("team"))["tick"], tree["tick"].get<int64_t>() + workers);
}

TEST_F(EmulatorRobustness, RequestsWithNeitherBodyNorLengthAreAnsweredAtOnce) {
    // HTTP/1.1 gives such a request an empty body. A server that waits for
    // the connection to close answers only after its 120 s read time-out,
    // so any answer within the wait below was not held up.
    const long wait = 30;
    VHEmulatorReply catchUp =
        emulator.requestWithoutBody("POST", kGateway1, "/CatchUp7.aspx",
                                    {{"share", "team"},
                                     {"token", VHTestEscaped(VHAclToken(alice, "team"))},
                                     {"tickfrom", "-1"},
                                     {"ticktake", "10000"}},
                                    wait);
    EXPECT_EQ(catchUp.curlCode, 0);
    ASSERT_EQ(catchUp.status, 200);
    EXPECT_FALSE(catchUp.json()["VhVirtualFiles"].empty());

    auto refused = [&](const char* method, const char* host, const std::string& path) {
        VHEmulatorReply reply = emulator.requestWithoutBody(
            method, host, path, VHAuthorization(alice.domainToken), wait);
        EXPECT_EQ(reply.curlCode, 0) << method << " " << path;
        EXPECT_EQ(reply.status, 400) << method << " " << path;
        EXPECT_EQ(reply.json()["Code"], 1) << method << " " << path;
    };
    std::string readme = VHInternalName(emulator, "team", "/readme.txt");
    refused("PUT", kFilecache1, "/api/shares/team/files/" + readme);
    refused("POST", kFilecache1, "/api/shares/team/files");
    refused("POST", kGateway1, "/api/publiclinks");
    std::string url = uploadUrl({{"ParrentId", "team"},
                                 {"PublicName", "pending.bin"},
                                 {"IsFile", true},
                                 {"EndOfFile", 10}});
    ASSERT_FALSE(url.empty());
    refused("PUT", kFilecache1, url.substr(url.find("/api/")));
    EXPECT_EQ(emulator.requestWithoutBody("PATCH", kFilecache1, "/anything", {}, wait).status, 404);
    EXPECT_EQ(emulator.fileBytes("team", "/readme.txt"), "hello");
}

TEST_F(EmulatorRobustness, UntrustedIdsAndNamesNeverReachTheDisk) {
    for (const char* id : {"../../evil", "a/b", "..", "with space"}) {
        json item = {{"InternalName", id},
                     {"ParrentId", "team"},
                     {"PublicName", "fine"},
                     {"IsFile", true},
                     {"EndOfFile", 4}};
        EXPECT_EQ(emulator
                      .request("POST", kFilecache1, "/api/shares/team/files",
                               VHAuthorization(alice.domainToken), VHJournalEvent(0, item).dump())
                      .status,
                  400)
            << id;
    }
    for (const char* name : {"..", ".", "a/b", ""}) {
        json item = {{"ParrentId", "team"}, {"PublicName", name}, {"IsFile", false}};
        EXPECT_EQ(VHSendEvent(emulator, alice, "team", 0, item).status, 400) << name;
    }
    // Whatever was stored lies in the blob folder under names the emulator made.
    std::regex blobName("b[0-9a-f]{32}");
    for (const auto& entry : std::filesystem::directory_iterator(emulator.stateDir() + "/blobs")) {
        EXPECT_TRUE(std::regex_match(entry.path().filename().string(), blobName)) << entry.path();
    }
    EXPECT_FALSE(std::filesystem::exists(emulator.stateDir() + "/../evil"));
}

TEST_F(EmulatorRobustness, LockTakenDuringAnUploadStopsIt) {
    json readme = {{"InternalName", VHInternalName(emulator, "team", "/readme.txt")},
                   {"EndOfFile", 6}};
    std::string url = uploadUrl(readme, 3);
    ASSERT_FALSE(url.empty());
    ASSERT_TRUE(
        emulator.act("team", {{{"action", "lock"}, {"path", "/readme.txt"}}}, "bob@varnholt.test"));
    VHEmulatorReply last = put(url, "newer!", 0, 6, 6);
    EXPECT_EQ(last.status, 423);
    EXPECT_EQ(last.json()["FileLock"]["LockedBy"], "bob@varnholt.test");
    EXPECT_EQ(emulator.fileBytes("team", "/readme.txt"), "hello");
    EXPECT_EQ(put(url, "newer!", 0, 6, 6).status, 404);  // the upload was given up
}

TEST_F(EmulatorRobustness, PublicLinksKeepTheirLimits) {
    auto create = [&](int maxUse, bool withPassword) {
        json request = {{"ShareId", "team"},
                        {"InternalName", VHInternalName(emulator, "team", "/readme.txt")},
                        {"DaysToExpire", 1},
                        {"MaxUse", maxUse},
                        {"Message", ""},
                        {"EnablePassword", withPassword},
                        {"Password", "secret"}};
        std::string link = emulator
                               .request("POST", kGateway1, "/api/publiclinks",
                                        VHAuthorization(alice.domainToken), request.dump())
                               .json()["Data"]["FullLink"];
        return link.substr(link.find("/link/"));
    };
    std::string once = create(1, false);
    EXPECT_EQ(emulator.request("GET", kWebclient1, once).status, 200);
    EXPECT_EQ(emulator.request("GET", kWebclient1, once).status, 410);
    std::string guarded = create(0, true);
    EXPECT_EQ(emulator.request("GET", kWebclient1, guarded).status, 403);
    EXPECT_EQ(emulator.request("GET", kWebclient1, guarded + "?password=secret").body, "hello");
}

TEST(EmulatorSeed, RefusedSeedKeepsTheEmulatorFromStarting) {
    VHEmulatorProcess emulator;
    EXPECT_FALSE(emulator.start(
        {json{{"users", {{{"email", "x@varnholt.test"}, {"primaryDomain", "nowhere.test"}}}}},
         ""}));
    EXPECT_FALSE(emulator.running());
}

}  // namespace
}  // namespace vh::test
