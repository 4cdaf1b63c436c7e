// Deletes, renames and moves made on the drive while the service is down wait
// in the upload queue and reach the service once it is back: in an order it
// accepts, nothing lost, moved items keeping their identity.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <thread>

#include "support/VHDriveProbe.h"
#include "support/VHShareTree.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

// A loopback port free right now: the emulator must come back on the port
// the client was started with.
int freePort() {
    int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    int port = 0;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) == 0) {
        port = ntohs(address.sin_port);
    }
    close(fd);
    return port;
}

const std::vector<std::string> kSeedFiles = {"/offline/keep.txt",      "/offline/rename-me.txt",
                                             "/offline/delete-me.txt", "/offline/move-me.txt",
                                             "/offline/Old/inner.txt", "/offline/Old/Deep/deep.txt",
                                             "/offline/doomed/a.txt",  "/offline/doomed/b.txt",
                                             "/offline/swap-a.txt",    "/offline/swap-b.txt"};

// Change requests of the file API (events), oldest first.
std::vector<json> changeRequests(const VHEmulatorProcess& emulator) {
    std::vector<json> changes;
    for (const json& r : emulator.requests()) {
        if (r.value("method", "") != "GET" && r.value("path", "").starts_with("/api/shares/")) {
            changes.push_back(r);
        }
    }
    return changes;
}

// The position of the first answered request with `method` whose path ends
// with `suffix`; -1 when there is none.
int positionOf(const std::vector<json>& changes, const std::string& method,
               const std::string& suffix = "") {
    for (size_t i = 0; i < changes.size(); ++i) {
        const json& r = changes[i];
        if (r.value("method", "") == method && r.value("status", 0) / 100 == 2 &&
            r.value("path", "").ends_with(suffix)) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

class VHClientOfflineTest : public testing::Test {
  protected:
    void SetUp() override {
        int port = freePort();
        ASSERT_GT(port, 0);
        ASSERT_TRUE(
            emulator_.start({nullptr, "", {"--listen", "127.0.0.1:" + std::to_string(port)}}));
        json actions = json::array();
        for (const std::string& path : kSeedFiles) {
            actions.push_back({{"action", "writeFile"}, {"path", path}, {"text", "was " + path}});
        }
        ASSERT_TRUE(emulator_.act("my-files", actions));
        for (const std::string& path : kSeedFiles) ids_[path] = internalName(path);
        ids_["/offline/Old"] = internalName("/offline/Old");
        ids_["/offline/doomed"] = internalName("/offline/doomed");
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << VHTail(client_.logs());
        ASSERT_TRUE(client_.waitFor([&] { return fs::exists(drive(kSeedFiles.back())); }, 60s))
            << VHTail(client_.logs());
    }

    std::string drive(const std::string& inShare) const {
        return client_.mountPath() + "/My Files" + inShare;
    }
    std::string internalName(const std::string& inShare) const {
        json item = VHTreeItem(emulator_, "my-files", inShare);
        return item.is_null() ? "" : item.value("internalName", "");
    }
    void rename(const std::string& from, const std::string& to) const {
        ASSERT_EQ(::rename(drive(from).c_str(), drive(to).c_str()), 0)
            << from << " -> " << to << ": " << std::strerror(errno);
    }
    // Whether the service keeps the item only as deleted.
    bool deletedOnService(const std::string& id) const {
        json tree = emulator_.tree("my-files", true).value_or(json::object());
        for (const json& item : tree.value("items", json::array())) {
            if (item.value("internalName", "") == id) return item.value("deleted", false);
        }
        return false;
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
    std::map<std::string, std::string> ids_;
};

}  // namespace

TEST_F(VHClientOfflineTest, ChangesMadeWhileTheServiceIsDownArriveInOrderOnceItIsBack) {
    emulator_.stop();
    rename("/offline/rename-me.txt", "/offline/renamed.txt");
    ASSERT_EQ(unlink(drive("/offline/delete-me.txt").c_str()), 0) << std::strerror(errno);
    ASSERT_EQ(mkdir(drive("/offline/New").c_str(), 0755), 0) << std::strerror(errno);
    rename("/offline/move-me.txt", "/offline/New/moved.txt");
    rename("/offline/Old", "/offline/New/Inner");
    // A file saved out of a folder that is then removed.
    rename("/offline/doomed/a.txt", "/offline/rescued.txt");
    ASSERT_EQ(unlink(drive("/offline/doomed/b.txt").c_str()), 0) << std::strerror(errno);
    ASSERT_EQ(rmdir(drive("/offline/doomed").c_str()), 0) << std::strerror(errno);
    // Two names swapped through a third.
    rename("/offline/swap-a.txt", "/offline/swap-c.txt");
    rename("/offline/swap-b.txt", "/offline/swap-a.txt");
    rename("/offline/swap-c.txt", "/offline/swap-b.txt");
    // A few polling passes of the upload queue fail meanwhile.
    std::this_thread::sleep_for(8s);
    ASSERT_TRUE(emulator_.restart());

    EXPECT_TRUE(VHServiceMatchesDrive(emulator_, "my-files", drive(""), 120s))
        << VHTail(client_.logs());
    std::map<std::string, std::string> kept = {
        {"/offline/renamed.txt", "/offline/rename-me.txt"},
        {"/offline/New/moved.txt", "/offline/move-me.txt"},
        {"/offline/New/Inner", "/offline/Old"},
        {"/offline/New/Inner/inner.txt", "/offline/Old/inner.txt"},
        {"/offline/New/Inner/Deep/deep.txt", "/offline/Old/Deep/deep.txt"},
        {"/offline/rescued.txt", "/offline/doomed/a.txt"},
        {"/offline/swap-a.txt", "/offline/swap-b.txt"},
        {"/offline/swap-b.txt", "/offline/swap-a.txt"}};
    for (const auto& [now, before] : kept) {
        EXPECT_EQ(internalName(now), ids_[before]) << now << " was " << before;
        if (before.ends_with(".txt")) {
            EXPECT_EQ(VHReadWhole(drive(now)), "was " + before);
        }
    }
    for (const char* gone :
         {"/offline/delete-me.txt", "/offline/doomed/b.txt", "/offline/doomed"}) {
        EXPECT_TRUE(deletedOnService(ids_[gone])) << gone;
    }

    // Sent out of order, a change is refused (a name still taken, a parent not
    // yet made or already gone); none may be.
    std::vector<json> changes = changeRequests(emulator_);
    ASSERT_FALSE(changes.empty());
    for (const json& r : changes) {
        EXPECT_EQ(r.value("status", 0) / 100, 2)
            << r.value("method", "") << " " << r.value("path", "") << ": " << r.value("status", 0);
    }
    int created = positionOf(changes, "POST");
    EXPECT_GE(created, 0);
    EXPECT_LT(created, positionOf(changes, "PUT", ids_["/offline/move-me.txt"]));
    EXPECT_LT(created, positionOf(changes, "PUT", ids_["/offline/Old"]));
    int rescued = positionOf(changes, "PUT", ids_["/offline/doomed/a.txt"]);
    EXPECT_GE(rescued, 0);
    EXPECT_LT(rescued, positionOf(changes, "DELETE", ids_["/offline/doomed"]));
}

}  // namespace vh::test
