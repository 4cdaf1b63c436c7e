// File-manager plug-ins on the running client's socket, several at once:
// their badges follow downloads, local changes, uploads and locks; each
// command acts on the service; peers that misbehave leave the client serving
// the others. And varnholtctl's view of the same states.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "lib/VHStrings.h"
#include "support/VHControlTool.h"
#include "support/VHDriveProbe.h"
#include "support/VHShareTree.h"
#include "support/VHTestClient.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

class VHClientFinderTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        VHTestClient::Options options;
        options.environment = browser_.environment();
        ASSERT_TRUE(client_.start(options));
        ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
        ASSERT_TRUE(client_.waitFor(
            [&] { return fs::exists(drive("/Team Documents/Projects/Beta/plan.txt")); }, 60s));
    }

    std::string drive(const std::string& path) const { return client_.mountPath() + path; }

    // A plug-in that said hello and was greeted.
    std::unique_ptr<VHPluginSocket> plugin(const std::string& id) {
        auto socket = std::make_unique<VHPluginSocket>(id);
        EXPECT_TRUE(socket->connected());
        socket->send("hello");
        EXPECT_EQ(socket->nextLine(), "hej:" + client_.mountPath());
        EXPECT_EQ(socket->nextLine(), "lang:en");
        return socket;
    }
    bool inLog(const std::string& text, std::chrono::seconds timeout = 20s) {
        return client_.waitFor([&] { return client_.logs().find(text) != std::string::npos; },
                               timeout);
    }
    json item(const std::string& share, const std::string& path) const {
        return VHTreeItem(emulator_, share, path);
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
    VHRecordingBrowser browser_;
};

}  // namespace

TEST_F(VHClientFinderTest, BadgesFollowDownloadsChangesUploadsAndLocks) {
    auto a = plugin("instance-a");
    auto b = plugin("instance-b");
    const std::string folder = drive("/Team Documents/Projects/Beta");
    const std::string plan = folder + "/plan.txt";
    for (auto* p : {a.get(), b.get()}) {
        p->send("observe", folder);
        p->send("badge", plan);
        EXPECT_TRUE(p->waitForLine("overlay(2):" + plan));  // not downloaded
    }

    // A slowed download shows as a transfer, then as complete.
    auto slow = emulator_.addFault({{"method", "GET"}, {"path", "/files/"}, {"delayMs", 1500}});
    ASSERT_TRUE(slow);
    ASSERT_EQ(VHRunControlTool({"download", plan}).status, 0);
    EXPECT_TRUE(a->waitForLine("overlay(3):" + plan));
    EXPECT_TRUE(a->waitForLine("overlay(1):" + plan));
    EXPECT_TRUE(b->waitForLine("overlay(1):" + plan));
    emulator_.removeFault(*slow);

    // Changed here: waiting for its upload until the service confirms it.
    std::ofstream(plan, std::ios::app) << "one more line\n";
    EXPECT_TRUE(a->waitForLine("overlay(3):" + plan));
    EXPECT_TRUE(a->waitForLine("overlay(1):" + plan, 60s)) << a->transcript();
    std::optional<std::string> bytes =
        emulator_.fileBytes("team-documents", "/Projects/Beta/plan.txt");
    ASSERT_TRUE(bytes);
    EXPECT_TRUE(VHEndsWith(*bytes, "one more line\n"));

    // The lock travels like a change; the emulator holds it.
    a->send("togglelock", plan);
    EXPECT_TRUE(client_.waitFor(
        [&] { return item("team-documents", "/Projects/Beta/plan.txt").value("locked", false); },
        30s));

    // Once "a" no longer shows the folder, only "b" hears of the next change.
    a->send("unobserve", folder);
    ASSERT_TRUE(emulator_.act(
        "team-documents",
        json::array({{{"action", "writeFile"}, {"path", "/Projects/Beta/other.txt"}, {"text", "x"}},
                     {{"action", "writeFile"}, {"path", "/readme.txt"}, {"text", "changed"}}}),
        "partner@varnholt.test", "partner-laptop"));
    auto c = plugin("instance-c");
    c->send("badge", drive("/Team Documents/readme.txt"));
    EXPECT_TRUE(c->waitForLine("overlay(2):" + drive("/Team Documents/readme.txt")));
    while (!a->nextLine(2s).empty()) {
    }
    size_t before = a->lines().size();
    std::ofstream(plan, std::ios::app) << "and another\n";
    EXPECT_TRUE(b->waitForLine("overlay(3):" + plan));
    a->nextLine(2s);
    EXPECT_EQ(a->lines().size(), before);
}

TEST_F(VHClientFinderTest, EveryCommandActsOnTheServiceOrTheDesktop) {
    auto p = plugin("commands");
    const std::string readme = drive("/Team Documents/readme.txt");
    std::optional<std::string> readmeBytes = emulator_.fileBytes("team-documents", "/readme.txt");
    ASSERT_TRUE(readmeBytes && !readmeBytes->empty());

    // Headless, the link goes to the log and a notification.
    p->send("createlink", readme);
    ASSERT_TRUE(inLog("Public link of readme.txt: https://")) << VHTail(client_.logs());
    std::string logs = client_.logs();
    size_t start = logs.find("https://", logs.find("Public link of readme.txt: "));
    std::string link = logs.substr(start, logs.find('\n', start) - start);
    EXPECT_EQ(VHFetchServiceURL(emulator_, link).body, *readmeBytes);

    p->send("emaillink", readme);
    EXPECT_TRUE(VHStartsWith(browser_.nextURL(), "mailto:?subject=File%20link&body=https"));
    p->send("newshare");
    EXPECT_NE(VHFetchServiceURL(emulator_, browser_.nextURL()).body.find("Page: *NEWSHARE"),
              std::string::npos);
    p->send("shareashare", drive("/Team Documents"));
    EXPECT_NE(VHFetchServiceURL(emulator_, browser_.nextURL()).body.find("Page: team-documents"),
              std::string::npos);
    p->send("openroot");
    EXPECT_EQ(browser_.nextURL(), client_.mountPath());
    p->send("openshare", drive("/My Files"));
    EXPECT_EQ(browser_.nextURL(), drive("/My Files"));

    // Downloads and kept-offline folders leave complete copies here.
    p->send("downloadfile", drive("/Team Documents/Projects/Alpha/notes.txt"));
    p->send("downloadfolder", drive("/Team Documents/Projects/Alpha/Deep"));
    p->send("togglesync", drive("/My Files/Photos"));
    auto states = [&](const std::string& path) { return VHRunControlTool({"status", path}).out; };
    EXPECT_TRUE(client_.waitFor(
        [&] {
            return states(drive("/Team Documents/Projects/Alpha")).find("downloaded\tnotes.txt") !=
                       std::string::npos &&
                   states(drive("/Team Documents/Projects/Alpha/Deep/Deeper"))
                           .find("downloaded\tleaf.txt") != std::string::npos &&
                   states(drive("/My Files/Photos")).find("downloaded\tholiday.bin") !=
                       std::string::npos;
        },
        30s));
    EXPECT_NE(states(drive("/My Files")).find("kept offline\tPhotos/"), std::string::npos)
        << states(drive("/My Files"));

    p->send("togglelock", readme);
    EXPECT_TRUE(client_.waitFor(
        [&] {
            return item("team-documents", "/readme.txt").value("lockedBy", "") ==
                   "demo@varnholt.test";
        },
        30s));

    int64_t seen = VHLastRequestSeq(emulator_);
    p->send("refresh", drive("/Team Documents"));
    EXPECT_TRUE(client_.waitFor(
        [&] {
            for (const json& r : emulator_.requests(seen)) {
                if (r.value("path", "").find("CatchUp7") != std::string::npos) return true;
            }
            return false;
        },
        20s));
    p->send("refresh", "/");
    EXPECT_TRUE(client_.waitFor(
        [&] {
            for (const json& r : emulator_.requests(seen)) {
                if (r.value("path", "").find("login2.aspx") != std::string::npos) return true;
            }
            return false;
        },
        20s));

    // What a plug-in asks of nothing is logged, not acted on.
    p->send("downloadfile", drive("/Team Documents/no such file"));
    p->send("downloadfile", drive("/Team Documents/Projects"));
    p->send("launchrockets", readme);
    EXPECT_TRUE(inLog("parseRemoteCommand: Warning! Cannot obtain file for path " +
                      drive("/Team Documents/no such file")));
    EXPECT_TRUE(inLog("Wrong parameter for downloadfile command - it is folder."));
    EXPECT_TRUE(inLog("Warning! Failed to parse remote command: commands:launchrockets:"));
}

TEST_F(VHClientFinderTest, PeersThatMisbehaveAreDroppedAndOthersStillServed) {
    auto garbage = std::make_unique<VHPluginSocket>("garbage");
    garbage->sendRaw("no colon at all\n\xff\xfe\xfd:hello:\n:::\n");
    auto huge = std::make_unique<VHPluginSocket>("huge");
    huge->sendRaw("huge:badge:" + std::string(1 << 20, 'x') + "\n");
    // Asks for a flood of badges and never reads the answers.
    auto deaf = std::make_unique<VHPluginSocket>("deaf");
    deaf->send("hello");
    std::string flood;
    for (int i = 0; i < 20000; ++i)
        flood += "deaf:badge:" + drive("/Team Documents/item-" + std::to_string(i)) + "\n";
    deaf->sendRaw(flood);
    EXPECT_TRUE(inLog("Failed to send findercommand", 60s)) << VHTail(client_.logs());
    EXPECT_TRUE(huge->closedByPeer(20s));
    EXPECT_TRUE(deaf->closedByPeer(20s));

    auto fine = plugin("fine");
    fine->send("badge", drive("/My Files/welcome.txt"));
    EXPECT_TRUE(fine->waitForLine("overlay(2):" + drive("/My Files/welcome.txt")));
    EXPECT_EQ(VHReadWhole(drive("/My Files/welcome.txt")),
              emulator_.fileBytes("my-files", "/welcome.txt"));
    EXPECT_TRUE(client_.running());
}

TEST_F(VHClientFinderTest, StatusListsEachItemAndEveryCommandSaysHowItEnded) {
    ASSERT_FALSE(VHReadWhole(drive("/My Files/welcome.txt")).empty());
    VHControlResult folder = VHRunControlTool({"status", drive("/My Files")});
    ASSERT_EQ(folder.status, 0) << folder.err;
    EXPECT_NE(folder.out.find("downloaded\twelcome.txt"), std::string::npos) << folder.out;
    EXPECT_NE(folder.out.find("folder\tPhotos/"), std::string::npos) << folder.out;
    VHControlResult handbook =
        VHRunControlTool({"status", drive("/Company Handbook/handbook.txt")});
    EXPECT_EQ(handbook.out, "online only, read-only\thandbook.txt");
    VHControlResult client = VHRunControlTool({"status"});
    EXPECT_NE(client.out.find("signed in as demo@varnholt.test"), std::string::npos) << client.out;
    EXPECT_NE(client.out.find("share Company Handbook (read-only)"), std::string::npos);

    struct Case {
        std::vector<std::string> arguments;
        int status;
    };
    const std::string file = drive("/My Files/welcome.txt");
    for (const Case& c : std::vector<Case>{
             {{"status", drive("/My Files/nothing here")}, 1},
             {{"status", "/etc"}, 1},
             {{"keep-offline", drive("/My Files")}, 0},
             {{"online-only", drive("/My Files")}, 0},
             {{"keep-offline", file}, 1},
             {{"download", drive("/My Files/Photos")}, 0},
             {{"download", drive("/My Files/none")}, 1},
             {{"refresh"}, 0},
             {{"refresh", drive("/My Files")}, 0},
             {{"refresh", file}, 1},
             {{"lock"}, 64},
             {{"status", "--bogus", "x"}, 1},
             {{"new-share", file}, 64},
             {{}, 64},
         }) {
        EXPECT_EQ(VHRunControlTool(c.arguments).status, c.status)
            << (c.arguments.empty() ? "" : c.arguments[0]) << " "
            << (c.arguments.size() > 1 ? c.arguments[1] : "");
    }
    EXPECT_EQ(VHRunControlTool({"--help"}).status, 0);
}

}  // namespace vh::test
