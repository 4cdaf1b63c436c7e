// Changes made elsewhere reach a running client over the realtime channel,
// long before its periodic re-login: each appears on the mount as it would
// after a fresh sign-in. A broadcast the client never got is caught up, also
// after the service was away. Shares granted, renamed or taken away change
// the top of the drive as quickly. The client's own upload coming back as a
// broadcast costs no download.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "support/VHDriveProbe.h"
#include "support/VHShareTree.h"
#include "support/VHTestClient.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

constexpr auto kVisible = 20s;  // a re-login comes only every two hours

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The CPU time a process has used (user and system), in seconds; -1 when
// it cannot be read.
double cpuSeconds(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // The command name may hold blanks and parentheses: fields follow the last ')'.
    auto close = text.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream fields(text.substr(close + 1));
    std::string field;
    for (int number = 3; number < 14; ++number) fields >> field;  // state .. cmajflt
    long long utime = -1, stime = -1;
    fields >> utime >> stime;
    if (!fields) return -1;
    return static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

class VHClientRealtimeTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start({nullptr, "", emulatorArguments()}));
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
        ASSERT_TRUE(client_.waitFor([&] { return fs::exists(drive("")); }, 60s));
        ASSERT_TRUE(client_.waitFor([&] { return connected(); }, 60s)) << VHTail(client_.logs());
    }

    virtual std::vector<std::string> emulatorArguments() const { return {}; }

    std::string drive(const std::string& inShare) const {
        return client_.mountPath() + "/My Files" + inShare;
    }
    // The client holds a poll on the hub.
    bool connected() const {
        std::optional<json> list = emulator_.admin("GET", "hub/connections");
        if (!list) return false;
        for (const json& c : *list) {
            if (c.value("user", "") == "demo@varnholt.test" && c.value("polling", false))
                return true;
        }
        return false;
    }
    // No catch-up request for a second.
    bool catchUpsQuiet() const {
        auto count = [&] {
            int n = 0;
            for (const json& r : emulator_.requests()) {
                n += r.value("path", "").find("CatchUp7") != std::string::npos;
            }
            return n;
        };
        int seen = -1;
        return client_.waitFor(
            [&] {
                int now = count();
                if (now == seen) return true;
                seen = now;
                std::this_thread::sleep_for(1s);
                return false;
            },
            60s);
    }
    void act(const json& action) {
        ASSERT_TRUE(emulator_.act("my-files", json::array({action}))) << action.dump();
    }
    bool visible(const std::function<bool()>& condition) const {
        return client_.waitFor(condition, kVisible);
    }
    // A top-level folder of the drive, by stat and in the listing.
    bool topLevelFolder(const std::string& name) const {
        struct stat st {};
        if (stat((client_.mountPath() + "/" + name).c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            return false;
        }
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(client_.mountPath(), error)) {
            if (entry.path().filename() == name) return true;
        }
        return false;
    }
    bool noTopLevelEntry(const std::string& name) const {
        struct stat st {};
        if (stat((client_.mountPath() + "/" + name).c_str(), &st) == 0) return false;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(client_.mountPath(), error)) {
            if (entry.path().filename() == name) return false;
        }
        return !error;
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

}  // namespace

TEST_F(VHClientRealtimeTest, ChangesMadeElsewhereAppearOnTheMount) {
    act({{"action", "createFolder"}, {"path", "/remote"}});
    act({{"action", "writeFile"}, {"path", "/remote/a.txt"}, {"text", "first"}});
    ASSERT_TRUE(visible([&] { return VHReadWhole(drive("/remote/a.txt")) == "first"; }))
        << VHTail(client_.logs());

    act({{"action", "writeFile"}, {"path", "/remote/a.txt"}, {"text", "second, longer"}});
    EXPECT_TRUE(visible([&] { return VHReadWhole(drive("/remote/a.txt")) == "second, longer"; }))
        << VHTail(client_.logs());

    act({{"action", "move"}, {"path", "/remote/a.txt"}, {"to", "/remote/b.txt"}});
    EXPECT_TRUE(visible([&] {
        struct stat st {};
        return stat(drive("/remote/a.txt").c_str(), &st) != 0 && fs::exists(drive("/remote/b.txt"));
    }));

    act({{"action", "createFolder"}, {"path", "/elsewhere"}});
    act({{"action", "move"}, {"path", "/remote/b.txt"}, {"to", "/elsewhere/b.txt"}});
    EXPECT_TRUE(visible([&] {
        return !fs::exists(drive("/remote/b.txt")) && fs::exists(drive("/elsewhere/b.txt"));
    }));

    act({{"action", "delete"}, {"path", "/elsewhere"}});
    EXPECT_TRUE(visible([&] { return !fs::exists(drive("/elsewhere")); }));
    EXPECT_TRUE(VHServiceMatchesDrive(emulator_, "my-files", drive(""), 30s))
        << VHTail(client_.logs());
    EXPECT_NE(client_.logs().find("Connection to SignalR service for file cache"),
              std::string::npos);
}

TEST_F(VHClientRealtimeTest, ABroadcastThatNeverCameIsCaughtUp) {
    // A catch-up still under way would fetch the skipped change before the
    // gap shows: let the sign-in's and the first change's catch-ups end.
    act({{"action", "writeFile"}, {"path", "/first.txt"}, {"text", "first"}});
    ASSERT_TRUE(visible([&] { return VHReadWhole(drive("/first.txt")) == "first"; }));
    ASSERT_TRUE(catchUpsQuiet());
    ASSERT_TRUE(
        emulator_.admin("POST", "hub/skip", {{"domain", "d1.varnholt.test"}, {"count", 1}}));
    act({{"action", "writeFile"}, {"path", "/skipped.txt"}, {"text", "never broadcast"}});
    act({{"action", "writeFile"}, {"path", "/next.txt"}, {"text", "broadcast"}});
    EXPECT_TRUE(visible([&] { return VHReadWhole(drive("/skipped.txt")) == "never broadcast"; }))
        << VHTail(client_.logs());
    EXPECT_NE(client_.logs().find("Lost some SignalR messages for share"), std::string::npos)
        << VHTail(client_.logs());
    EXPECT_TRUE(VHServiceMatchesDrive(emulator_, "my-files", drive(""), 30s))
        << VHTail(client_.logs());
}

TEST_F(VHClientRealtimeTest, AFileOpenWhileChangedElsewhereShowsTheChangeOnceClosed) {
    act({{"action", "writeFile"}, {"path", "/held.txt"}, {"text", "old"}});
    act({{"action", "writeFile"}, {"path", "/marker.txt"}, {"text", "1"}});
    ASSERT_TRUE(visible([&] { return VHReadWhole(drive("/held.txt")) == "old"; }));
    ASSERT_TRUE(visible([&] { return VHReadWhole(drive("/marker.txt")) == "1"; }));
    {
        std::ifstream held(drive("/held.txt"));
        ASSERT_TRUE(held.is_open());
        // One batch: once the marker shows, the store has the new text too.
        ASSERT_TRUE(emulator_.act(
            "my-files",
            json::array({{{"action", "writeFile"}, {"path", "/held.txt"}, {"text", "new, longer"}},
                         {{"action", "writeFile"}, {"path", "/marker.txt"}, {"text", "22"}}})));
        ASSERT_TRUE(visible([&] { return VHReadWhole(drive("/marker.txt")) == "22"; }))
            << VHTail(client_.logs());
    }
    // Well within the kernel's own cache time-out, the closed file is fresh.
    EXPECT_TRUE(
        client_.waitFor([&] { return VHReadWhole(drive("/held.txt")) == "new, longer"; }, 3s))
        << VHReadWhole(drive("/held.txt"));
}

TEST_F(VHClientRealtimeTest, TheServiceAwayForTwentySecondsIsCaughtUpWithoutSpinning) {
    act({{"action", "writeFile"}, {"path", "/before.txt"}, {"text", "before"}});
    ASSERT_TRUE(visible([&] { return VHReadWhole(drive("/before.txt")) == "before"; }));
    ASSERT_TRUE(catchUpsQuiet());

    double cpuBefore = cpuSeconds(client_.pid());
    ASSERT_GE(cpuBefore, 0);
    Clock::time_point away = Clock::now();
    emulator_.stop();
    // Changes the client can only learn of from its cursor or a catch-up:
    // made while its port has no service.
    std::this_thread::sleep_for(5s);
    ASSERT_TRUE(emulator_.restartAside());
    ASSERT_TRUE(emulator_.act(
        "my-files",
        json::array({{{"action", "writeFile"}, {"path", "/away.txt"}, {"text", "made away"}},
                     {{"action", "delete"}, {"path", "/before.txt"}}})));
    emulator_.stop();
    std::this_thread::sleep_until(away + 20s);
    double cpuAway = cpuSeconds(client_.pid()) - cpuBefore;
    double outage = secondsSince(away);

    ASSERT_TRUE(emulator_.restart());
    Clock::time_point back = Clock::now();
    act({{"action", "writeFile"}, {"path", "/back.txt"}, {"text", "made once back"}});
    ASSERT_TRUE(client_.waitFor([&] { return connected(); }, 60s)) << VHTail(client_.logs());
    double reconnect = secondsSince(back);
    EXPECT_TRUE(visible([&] { return VHReadWhole(drive("/away.txt")) == "made away"; }))
        << VHTail(client_.logs());
    double caughtUp = secondsSince(back);
    EXPECT_TRUE(visible([&] { return VHReadWhole(drive("/back.txt")) == "made once back"; }))
        << VHTail(client_.logs());
    EXPECT_TRUE(visible([&] { return !fs::exists(drive("/before.txt")); }));
    std::printf(
        "outage %.1f s: client CPU %.2f s; after the restart polling again in %.1f s, the change "
        "made away shown in %.1f s\n",
        outage, cpuAway, reconnect, caughtUp);
    // An idle client uses a few tens of ms; one thread spinning, many seconds.
    EXPECT_LT(cpuAway, 1.0);
    EXPECT_NE(client_.logs().find("reconnected"), std::string::npos) << VHTail(client_.logs());
    EXPECT_TRUE(VHServiceMatchesDrive(emulator_, "my-files", drive(""), 30s))
        << VHTail(client_.logs());
}

// The hub's keep-alive of 2 s makes the client give its connection up 6 s
// into an outage, as the default times do after 30 s.
class VHClientRealtimeShortTimesTest : public VHClientRealtimeTest {
  protected:
    std::vector<std::string> emulatorArguments() const override { return {"--hub-keepalive", "2"}; }
};

TEST_F(VHClientRealtimeShortTimesTest, AConnectionGivenUpInALongOutageIsMadeAgain) {
    emulator_.stop();
    ASSERT_TRUE(
        client_.waitFor([&] { return client_.logs().find("closed.") != std::string::npos; }, 30s))
        << VHTail(client_.logs());
    std::this_thread::sleep_for(5s);
    ASSERT_TRUE(emulator_.restart());
    act({{"action", "writeFile"}, {"path", "/after.txt"}, {"text", "after the outage"}});
    EXPECT_TRUE(client_.waitFor([&] { return connected(); }, 60s)) << VHTail(client_.logs());
    EXPECT_TRUE(visible([&] { return VHReadWhole(drive("/after.txt")) == "after the outage"; }))
        << VHTail(client_.logs());
    // Made again, a change travels over the channel, not with a re-login.
    act({{"action", "writeFile"}, {"path", "/later.txt"}, {"text", "later"}});
    EXPECT_TRUE(visible([&] { return VHReadWhole(drive("/later.txt")) == "later"; }));
    EXPECT_NE(client_.logs().find("connecting again in"), std::string::npos);
}

TEST_F(VHClientRealtimeTest, SharesGrantedOrAddedShowAtTheTopOfTheDriveWithinTwoSeconds) {
    std::string added = "Added While Running";
    ASSERT_FALSE(topLevelFolder(added));
    Clock::time_point asked = Clock::now();
    ASSERT_TRUE(emulator_.addShare(
        {{"shareId", "added-while-running"},
         {"name", added},
         {"domain", "d1.varnholt.test"},
         {"owner", "partner@varnholt.test"},
         {"acl", json::array({{{"email", "demo@varnholt.test"}, {"aclType", 1}}})},
         {"actions",
          json::array({{{"action", "writeFile"}, {"path", "/inside.txt"}, {"text", "inside"}}})}}));
    ASSERT_TRUE(client_.waitFor([&] { return topLevelFolder(added); }, 10s))
        << VHTail(client_.logs());
    double addedAfter = secondsSince(asked);
    EXPECT_TRUE(visible([&] {
        return VHReadWhole(client_.mountPath() + "/" + added + "/inside.txt") == "inside";
    }));

    std::string renamed = "Renamed While Running";
    asked = Clock::now();
    ASSERT_TRUE(emulator_.renameShare("added-while-running", renamed));
    ASSERT_TRUE(
        client_.waitFor([&] { return topLevelFolder(renamed) && noTopLevelEntry(added); }, 10s))
        << VHTail(client_.logs());
    double renamedAfter = secondsSince(asked);

    // A right on a share the user could not see before.
    std::string granted = "Partner Archive";
    ASSERT_FALSE(topLevelFolder(granted));
    asked = Clock::now();
    ASSERT_TRUE(emulator_.setAcl("partner-archive", "demo@varnholt.test", 0));
    ASSERT_TRUE(client_.waitFor([&] { return topLevelFolder(granted); }, 10s))
        << VHTail(client_.logs());
    double grantedAfter = secondsSince(asked);

    // And taken away again.
    asked = Clock::now();
    ASSERT_TRUE(emulator_.removeAcl("partner-archive", "demo@varnholt.test"));
    ASSERT_TRUE(client_.waitFor([&] { return noTopLevelEntry(granted); }, 10s))
        << VHTail(client_.logs());
    double removedAfter = secondsSince(asked);
    std::printf(
        "share added: %.2f s, renamed: %.2f s, right granted: %.2f s, right removed: %.2f s\n",
        addedAfter, renamedAfter, grantedAfter, removedAfter);
    EXPECT_LT(addedAfter, 2.0);
    EXPECT_LT(renamedAfter, 2.0);
    EXPECT_LT(grantedAfter, 2.0);
    EXPECT_LT(removedAfter, 2.0);
}

TEST_F(VHClientRealtimeTest, TheOwnUploadComesBackAsABroadcastWithoutASecondDownload) {
    std::string bytes;
    for (int i = 0; bytes.size() < 200'000; ++i) bytes += "line " + std::to_string(i) + "\n";
    int64_t after = VHLastRequestSeq(emulator_);
    {
        std::ofstream file(drive("/own.txt"), std::ios::binary);
        file << bytes;
        ASSERT_TRUE(file.good());
    }
    std::string sha = VHSha256Hex(bytes);
    json item;
    ASSERT_TRUE(client_.waitFor(
        [&] {
            item = VHTreeItem(emulator_, "my-files", "/own.txt");
            return !item.is_null() && item.value("sha256", "") == sha;
        },
        60s))
        << VHTail(client_.logs());
    std::string id = item.value("internalName", "");
    ASSERT_FALSE(id.empty());
    ASSERT_TRUE(client_.waitFor([&] { return VHRecordStatus(id) == 0; }, 30s))
        << VHTail(client_.logs());

    // The broadcast of the upload's tick reached the client's poll...
    int64_t tick = item.value("tick", int64_t(0));
    int64_t seq = 0;
    for (const json& event : emulator_.events("d1.varnholt.test").value_or(json::array())) {
        json message = json::parse(event.value("message", ""), nullptr, false);
        if (event.value("messageType", 0) == 3 && message.is_object() &&
            message.value("ShareId", "") == "my-files" && message.value("ShareTick", 0) == tick) {
            seq = event.value("seq", int64_t(0));
        }
    }
    ASSERT_GT(seq, 0);
    ASSERT_TRUE(client_.waitFor(
        [&] {
            for (const json& c :
                 emulator_.admin("GET", "hub/connections").value_or(json::array())) {
                if (c.value("seq", int64_t(0)) >= seq) return true;
            }
            return false;
        },
        30s));
    // ... and was taken in; the pages the write left are dropped, so the read
    // below reaches the client.
    ASSERT_TRUE(catchUpsQuiet());
    {
        int fd = open(drive("/own.txt").c_str(), O_RDONLY);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED), 0);
        close(fd);
    }
    EXPECT_EQ(VHReadWhole(drive("/own.txt")), bytes);
    EXPECT_EQ(VHRecordStatus(id), 0);

    json requests = emulator_.requests(after);
    int uploads = 0;
    for (const json& r : requests) {
        std::string method = r.value("method", ""), path = r.value("path", "");
        uploads += method != "GET" && path.starts_with("/api/");
        EXPECT_FALSE(method == "GET" && path.starts_with("/api/shares/my-files/files/"))
            << "downloaded again: " << r.dump();
    }
    EXPECT_GT(uploads, 0) << requests.dump();
}

}  // namespace vh::test
