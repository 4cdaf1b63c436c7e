// The commands that leave the drive, given through varnholtctl to a running
// client: public links served by the service, e-mails and the web client
// handed to a real xdg-open whose browser is a script of the test, and locks
// that reach the service and come back from other users.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "lib/VHPaths.h"
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

class VHClientLinksTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        VHTestClient::Options options;
        options.environment = browser_.environment();
        ASSERT_TRUE(client_.start(options));
        ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
        ASSERT_TRUE(client_.waitFor(
            [&] {
                return fs::exists(drive("/My Files/welcome.txt")) &&
                       fs::exists(drive("/Team Documents/Projects/Beta/plan.txt"));
            },
            60s));
    }

    std::string drive(const std::string& path) const { return client_.mountPath() + path; }

    VHEmulatorReply fetch(const std::string& url) const {
        return VHFetchServiceURL(emulator_, url);
    }
    json treeItem(const std::string& share, const std::string& path) const {
        return VHTreeItem(emulator_, share, path);
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
    VHRecordingBrowser browser_;
};

}  // namespace

TEST_F(VHClientLinksTest, PublicLinksServeTheFileAndTravelByEmail) {
    VHControlResult link = VHRunControlTool({"link", drive("/My Files/welcome.txt")});
    ASSERT_EQ(link.status, 0) << link.err << VHTail(client_.logs());
    ASSERT_TRUE(VHStartsWith(link.out, "https://")) << link.out;
    std::optional<std::string> bytes = emulator_.fileBytes("my-files", "/welcome.txt");
    ASSERT_TRUE(bytes && !bytes->empty());
    VHEmulatorReply served = fetch(link.out);
    EXPECT_EQ(served.status, 200);
    EXPECT_EQ(served.body, *bytes);
    EXPECT_NE(client_.logs().find("Creating the file public link for file welcome.txt..."),
              std::string::npos);

    VHControlResult mail = VHRunControlTool({"email-link", drive("/Team Documents/readme.txt")});
    ASSERT_EQ(mail.status, 0) << mail.err;
    std::string opened = browser_.nextURL();
    EXPECT_EQ(opened, mail.out);
    const std::string prefix = "mailto:?subject=File%20link&body=";
    ASSERT_TRUE(VHStartsWith(opened, prefix)) << opened;
    std::string mailed = VHRemovePercentEscapes(opened.substr(prefix.size()));
    EXPECT_EQ(fetch(mailed).body, emulator_.fileBytes("team-documents", "/readme.txt"));

    // What cannot be linked is said, with status 1; usage errors give 64.
    VHControlResult folder = VHRunControlTool({"link", drive("/My Files/Photos")});
    EXPECT_EQ(folder.status, 1);
    EXPECT_NE(folder.err.find("no file at /My Files/Photos"), std::string::npos) << folder.err;
    EXPECT_EQ(VHRunControlTool({"link", "/etc/passwd"}).status, 1);
    EXPECT_EQ(VHRunControlTool({"link"}).status, 64);
    EXPECT_EQ(VHRunControlTool({"frobnicate", drive("/My Files")}).status, 64);
    VHControlResult alone = VHRunControlTool({"link", drive("/My Files/welcome.txt")},
                                             {{"XDG_RUNTIME_DIR", VHPaths::home() + "/elsewhere"}});
    EXPECT_EQ(alone.status, 69);
    EXPECT_NE(alone.err.find("not running"), std::string::npos) << alone.err;
}

TEST_F(VHClientLinksTest, TheWebClientOpensSignedInAtTheAskedPage) {
    struct Case {
        std::vector<std::string> arguments;
        std::string page;
    };
    for (const Case& c : {Case{{"web"}, "*LOGIN"}, Case{{"new-share"}, "*NEWSHARE"},
                          Case{{"web", drive("/Team Documents")}, "team-documents"}}) {
        VHControlResult opened = VHRunControlTool(c.arguments);
        ASSERT_EQ(opened.status, 0) << opened.err << VHTail(client_.logs());
        std::string url = browser_.nextURL();
        ASSERT_TRUE(VHStartsWith(url, "https://webclient.d1.varnholt.test/default.aspx?sas="))
            << url;
        VHEmulatorReply page = fetch(url);
        EXPECT_EQ(page.status, 200) << page.body;
        EXPECT_NE(page.body.find("Signed in as demo@varnholt.test"), std::string::npos);
        EXPECT_NE(page.body.find("Page: " + c.page), std::string::npos) << page.body;
        // A direct link opens once.
        EXPECT_EQ(fetch(url).status, 403);
    }
    EXPECT_NE(client_.logs().find("Opening Web client for function 2 with param *NEWSHARE..."),
              std::string::npos);
    EXPECT_EQ(VHRunControlTool({"web", drive("/Team Documents/readme.txt")}).status, 1);
    // The password travels inside the request; the log keeps it out.
    EXPECT_EQ(client_.logs().find("\"B\":\"demo\""), std::string::npos);
}

TEST_F(VHClientLinksTest, LocksReachTheServiceAndOtherUsersLocksKeepTheFileReadOnly) {
    const std::string plan = drive("/Team Documents/Projects/Beta/plan.txt");
    VHControlResult locked = VHRunControlTool({"lock", plan});
    ASSERT_EQ(locked.status, 0) << locked.err;
    EXPECT_EQ(locked.out, "locked");
    ASSERT_TRUE(client_.waitFor(
        [&] {
            json item = treeItem("team-documents", "/Projects/Beta/plan.txt");
            return item.value("locked", false) &&
                   item.value("lockedBy", "") == "demo@varnholt.test";
        },
        20s))
        << VHTail(client_.logs());
    EXPECT_EQ(VHRunControlTool({"lock", plan}).out, "already locked");
    // The drive tells a file manager it is this user's lock.
    char byte = -1;
    EXPECT_EQ(getxattr(plan.c_str(), "user.com.varnholt.clouddrive-osx.lockstatus", &byte, 1), 1);
    EXPECT_EQ(byte, 1);
    // Once the service has confirmed the lock, it can be undone.
    std::string id =
        treeItem("team-documents", "/Projects/Beta/plan.txt").value("internalName", "");
    ASSERT_TRUE(client_.waitFor([&] { return VHRecordStatus(id) == 0; }, 20s));
    ASSERT_EQ(VHRunControlTool({"unlock", plan}).status, 0);
    ASSERT_TRUE(client_.waitFor(
        [&] {
            return !treeItem("team-documents", "/Projects/Beta/plan.txt").value("locked", true);
        },
        20s))
        << VHTail(client_.logs(), 80);

    // Another user's lock arrives over the realtime channel: no write bits,
    // no writing, and no unlocking by this user.
    const std::string readme = drive("/Team Documents/readme.txt");
    ASSERT_TRUE(emulator_.act("team-documents",
                              json::array({{{"action", "lock"}, {"path", "/readme.txt"}}}),
                              "partner@varnholt.test", "partner-laptop"));
    ASSERT_TRUE(client_.waitFor(
        [&] {
            struct stat st {};
            return stat(readme.c_str(), &st) == 0 && (st.st_mode & 0222) == 0;
        },
        10s));
    int fd = open(readme.c_str(), O_WRONLY | O_APPEND);
    EXPECT_EQ(fd, -1);
    EXPECT_EQ(errno, EACCES);
    if (fd != -1) close(fd);
    VHControlResult refused = VHRunControlTool({"unlock", readme});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("locked by another user"), std::string::npos) << refused.err;

    // A lock taken elsewhere that this client has not heard of: the service
    // refuses this user's lock and the user is told who holds it.
    ASSERT_TRUE(
        emulator_.admin("POST", "hub/skip", {{"domain", "d1.varnholt.test"}, {"count", 1}}));
    ASSERT_TRUE(emulator_.act("team-documents",
                              json::array({{{"action", "lock"}, {"path", "/empty.txt"}}}),
                              "partner@varnholt.test", "partner-laptop"));
    EXPECT_EQ(VHRunControlTool({"lock", drive("/Team Documents/empty.txt")}).status, 0);
    EXPECT_TRUE(client_.waitFor(
        [&] {
            return client_.logs().find("This file is already locked by partner@varnholt.test.") !=
                   std::string::npos;
        },
        30s))
        << VHTail(client_.logs());

    ASSERT_TRUE(emulator_.act("team-documents",
                              json::array({{{"action", "unlock"}, {"path", "/readme.txt"}}}),
                              "partner@varnholt.test", "partner-laptop"));
    EXPECT_TRUE(client_.waitFor(
        [&] {
            int writable = open(readme.c_str(), O_WRONLY | O_APPEND);
            if (writable == -1) return false;
            close(writable);
            return true;
        },
        10s));
}

}  // namespace vh::test
