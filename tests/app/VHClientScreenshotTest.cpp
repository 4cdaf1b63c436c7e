// Screenshot upload of the real client: files that appear in the watched
// folder (also one made after the start) reach the service through the
// drive, byte for byte, and their public link serves them; files already
// there, read-only targets and unknown targets upload nothing. Headless: the
// link is logged, not put on a clipboard.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>

#include "lib/VHSettings.h"
#include "support/VHControlTool.h"
#include "support/VHDriveProbe.h"
#include "support/VHShareTree.h"
#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::string randomBytes(size_t size, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(generator());
    return bytes;
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

void setSetting(const std::string& key, const QVariant& value) {
    VHSettings::setValue(VHSettings::prependAppTitle(key), value);
    VHSettings::sync();
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

class VHClientScreenshotTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        fs::create_directories(pictures());
        setSetting("getUploadScreenshots", true);
        setSetting("getCreateScreenshotLink", true);
    }

    // Starts the client and waits until it watches `folder`.
    void startClient(const std::string& folder) {
        VHTestClient::Options options;
        options.environment = {{"XDG_PICTURES_DIR", pictures()}};
        ASSERT_TRUE(client_.start(options));
        ASSERT_TRUE(client_.waitForMount()) << client_.standardError();
        ASSERT_TRUE(waitForLog(watching(folder), 60s)) << VHTail(client_.logs());
    }

    static std::string pictures() { return VHCurrentTestHome() + "/Pictures"; }
    static std::string screenshots() { return pictures() + "/Screenshots"; }
    static std::string watching(const std::string& folder) {
        return "Watching " + folder + " for new screenshots.";
    }

    bool waitForLog(const std::string& text, std::chrono::seconds timeout) const {
        return client_.waitFor([&] { return client_.logs().find(text) != std::string::npos; },
                               timeout);
    }

    // The rest of the first log line that begins with `prefix`; empty when none.
    std::string logValue(const std::string& prefix) const {
        std::string logs = client_.logs();
        size_t at = logs.find(prefix);
        if (at == std::string::npos) return "";
        at += prefix.size();
        return logs.substr(at, logs.find('\n', at) - at);
    }

    bool serviceHolds(const std::string& share, const std::string& path,
                      const std::string& bytes) const {
        nlohmann::json item = VHTreeItem(emulator_, share, path);
        return !item.is_null() && item.value("sha256", "") == VHSha256Hex(bytes);
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
};

}  // namespace

TEST_F(VHClientScreenshotTest, NewScreenshotsReachTheShareAndTheirLinksServeThem) {
    setSetting("getUploadScreenshotsPath", "team-documents/Screenshots");
    fs::create_directories(screenshots());
    writeFile(screenshots() + "/Screenshot from before.png", randomBytes(5000, 1));
    ASSERT_NO_FATAL_FAILURE(startClient(screenshots()));

    // Written in place, as some tools do, and saved under a hidden name and
    // renamed, as others do.
    const std::string direct = randomBytes(300000, 2), renamed = randomBytes(70000, 3);
    writeFile(screenshots() + "/Screenshot from 10-11-12.png", direct);
    Clock::time_point saved = Clock::now();
    writeFile(screenshots() + "/.goutputstream-QX81", renamed);
    fs::rename(screenshots() + "/.goutputstream-QX81", screenshots() + "/Shot two.png");

    ASSERT_TRUE(client_.waitFor(
        [&] {
            return serviceHolds("team-documents", "/Screenshots/Screenshot from 10-11-12.png",
                                direct) &&
                   serviceHolds("team-documents", "/Screenshots/Shot two.png", renamed);
        },
        30s))
        << VHTail(client_.logs());
    double uploaded = secondsSince(saved);
    ASSERT_TRUE(client_.waitFor(
        [&] {
            return !logValue("Public link of Screenshot from 10-11-12.png: ").empty() &&
                   !logValue("Public link of Shot two.png: ").empty();
        },
        30s))
        << VHTail(client_.logs());
    double linked = secondsSince(saved);
    std::printf("screenshots held by the service %.2f s after saving, links %.2f s\n", uploaded,
                linked);
    EXPECT_LT(linked, 5.0);

    std::string link = logValue("Public link of Screenshot from 10-11-12.png: ");
    EXPECT_EQ(VHFetchServiceURL(emulator_, link).body, direct) << link;
    EXPECT_EQ(VHFetchServiceURL(emulator_, logValue("Public link of Shot two.png: ")).body,
              renamed);
    EXPECT_EQ(VHReadWhole(client_.mountPath() + "/Team Documents/Screenshots/Shot two.png"),
              renamed);
    // Only the two new files, under their final names, went anywhere.
    EXPECT_EQ(VHServiceTree(emulator_, "team-documents").find("goutputstream"), std::string::npos);
    EXPECT_TRUE(VHTreeItem(emulator_, "team-documents", "/Screenshots/Screenshot from before.png")
                    .is_null());
    EXPECT_EQ(client_.logs().find("Screenshot from before.png"), std::string::npos);
}

TEST_F(VHClientScreenshotTest, ReadOnlyAndUnknownTargetsUploadNothing) {
    setSetting("getUploadScreenshotsPath", "company-handbook/Screenshots");
    ASSERT_NO_FATAL_FAILURE(startClient(pictures()));
    // The desktop makes the Screenshots folder with the first screenshot in it.
    fs::create_directories(screenshots());
    writeFile(screenshots() + "/refused.png", randomBytes(4000, 4));
    EXPECT_TRUE(waitForLog(watching(screenshots()), 30s));
    EXPECT_TRUE(waitForLog(
        "Invalid path : You cannot save screenshoots in a readonly folder. Please select another "
        "location!",
        30s))
        << VHTail(client_.logs());

    // The target is read again for every new screenshot.
    setSetting("getUploadScreenshotsPath", "no-such-share/Screenshots");
    writeFile(screenshots() + "/nowhere.png", randomBytes(4000, 5));
    EXPECT_TRUE(
        waitForLog("Detected new screenshots, but upload path is unknown. Ignoring them.", 30s));

    EXPECT_EQ(client_.logs().find("uploading them"), std::string::npos) << VHTail(client_.logs());
    EXPECT_TRUE(VHTreeItem(emulator_, "company-handbook", "/Screenshots").is_null());
    EXPECT_FALSE(fs::exists(client_.mountPath() + "/Company Handbook/Screenshots"));
}

}  // namespace vh::test
