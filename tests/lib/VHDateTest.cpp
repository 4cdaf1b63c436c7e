#include <gtest/gtest.h>

#include "lib/VHDate.h"
#include "lib/VHLog.h"

namespace vh {

namespace {

// 2024-03-05T14:03:22Z
constexpr double kBase = 1709647402.0;

struct CapturedLog {
    CapturedLog() {
        VHSetLogSink([this](int, const std::string& m) { lines.push_back(m); });
    }
    ~CapturedLog() { VHSetLogSink({}); }
    std::vector<std::string> lines;
};

}  // namespace

TEST(VHDate, ReadsTheThreeServiceFormats) {
    CapturedLog log;
    EXPECT_DOUBLE_EQ(VHDateFromJsonText("2024-03-05T14:03:22.250Z").seconds, kBase + 0.25);
    EXPECT_DOUBLE_EQ(VHDateFromJsonText("2024-03-05T14:03:22Z").seconds, kBase);
    // Long fractions are cut to milliseconds; the zone after them is kept.
    EXPECT_DOUBLE_EQ(VHDateFromJsonText("2024-03-05T14:03:22.1234567Z").seconds, kBase + 0.123);
    EXPECT_DOUBLE_EQ(VHDateFromJsonText("2024-03-05T16:03:22.5+02:00").seconds, kBase + 0.5);
    EXPECT_DOUBLE_EQ(VHDateFromJsonText("2024-03-05T09:03:22.999999-05:00").seconds, kBase + 0.999);
    EXPECT_TRUE(log.lines.empty());
}

TEST(VHDate, UnreadableTextsWarnAndBecomeTheDistantPast) {
    CapturedLog log;
    for (const char* text : {"", "yesterday", "2024-03-05 14:03:22", "2024-13-05T14:03:22Z",
                             "2024-02-30T10:00:00Z", "2024-03-05T14:03:22+02:00"}) {
        EXPECT_EQ(VHDateFromJsonText(text), VHDate::distantPast()) << text;
    }
    ASSERT_EQ(log.lines.size(), 6u);
    EXPECT_EQ(log.lines[1], "Warning! Failed to parse date: yesterday");
}

TEST(VHDate, WritesMillisecondsInUtcAndReadsItsOwnTextBack) {
    EXPECT_EQ(VHDateToJsonText(VHDate{kBase + 0.25}), "2024-03-05T14:03:22.250Z");
    EXPECT_EQ(VHDateToJsonText(VHDate{kBase + 0.9996}), "2024-03-05T14:03:23.000Z");
    EXPECT_EQ(VHDateToJsonText(VHDate::distantPast()), "0001-01-01T00:00:00.000Z");
    EXPECT_EQ(VHDateToJsonText(VHDate{-1.5}), "1969-12-31T23:59:58.500Z");
    VHDate now{std::floor(VHDate::now().seconds * 1000) / 1000};
    EXPECT_NEAR(VHDateFromJsonText(VHDateToJsonText(now)).seconds, now.seconds, 1e-6);
}

}  // namespace vh
