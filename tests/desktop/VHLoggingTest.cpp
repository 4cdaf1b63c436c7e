#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "desktop/VHLogging.h"
#include "lib/VHLog.h"
#include "support/VHTestHome.h"

namespace vh {

namespace {

namespace fs = std::filesystem;

// 2024-03-05 10:00:00 in the test's zone (UTC+1, no daylight saving).
constexpr double kMorning = 1709629200.0;
constexpr double kDay = 86400.0;

std::string readFile(const fs::path& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

class VHLoggingTest : public testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "CET-1", 1);
        tzset();
        dir_ = test::VHCurrentTestHome() + "/Logs";
        fs::create_directories(dir_);
        VHSetLogDir(dir_);
        VHSetLogClock([this] { return VHDate{clock_.load()}; });
        // Standard error is the platform log: capture it in a file.
        savedStderr_ = dup(STDERR_FILENO);
        stderrPath_ = test::VHCurrentTestHome() + "/stderr.txt";
        int fd = open(stderrPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, STDERR_FILENO);
        close(fd);
    }

    void TearDown() override {
        VHClose();
        VHSetLogSink({});
        VHSetLogClock({});
        VHSetEnableDBLog(false);
        dup2(savedStderr_, STDERR_FILENO);
        close(savedStderr_);
        unsetenv("TZ");
        tzset();
    }

    std::string log(const std::string& name) { return readFile(fs::path(dir_) / name); }
    std::string stderrText() { return readFile(stderrPath_); }

    std::atomic<double> clock_{kMorning};
    std::string dir_, stderrPath_;
    int savedStderr_ = -1;
};

}  // namespace

TEST_F(VHLoggingTest, EachTypeGoesToItsOwnDailyFileWithThePrefixedLine) {
    VHInitLogs();
    VHLog(kLogMain, "main %d %@", 1, "one");
    VHLog(kLogDrive, "drive %s", "two");
    VHLog(kLogDatabase, "database while its log is off");
    VHLog(2, "type two goes nowhere");
    VHLog(3, "type three goes nowhere");

    std::string prefix = "[" + std::to_string(gettid()) + "] 2024-03-05 10:00:00 +0100 : ";
    EXPECT_EQ(log("2024-03-05-main.log"), prefix + "main 1 one\n");
    EXPECT_EQ(log("2024-03-05-fuse.log"), prefix + "drive two\n");
    EXPECT_FALSE(fs::exists(fs::path(dir_) / "2024-03-05-db.log"));
    EXPECT_EQ(stderrText(), "database while its log is off\n");
    struct stat st {};
    ASSERT_EQ(stat((dir_ + "/2024-03-05-main.log").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    VHSetEnableDBLog(true);
    VHOpenLogs();
    VHLog(kLogDatabase, "database %d", 4);
    EXPECT_EQ(log("2024-03-05-db.log"), prefix + "database 4\n");
    VHClose();
    VHLog(kLogMain, "after close");
    EXPECT_EQ(stderrText(), "database while its log is off\nafter close\n");
}

TEST_F(VHLoggingTest, TheFirstLineAfterMidnightEndsTheOldDayThenTheFilesRollOver) {
    clock_ = kMorning + 14 * 3600 - 1;  // 23:59:59
    VHInitLogs();
    VHLog(kLogMain, "before midnight");
    clock_ = kMorning + 14 * 3600 + 1;  // 00:00:01 next day
    VHLog(kLogMain, "first after midnight");
    VHLog(kLogMain, "second after midnight");
    EXPECT_NE(log("2024-03-05-main.log").find("first after midnight"), std::string::npos);
    EXPECT_EQ(log("2024-03-06-main.log").find("first after midnight"), std::string::npos);
    EXPECT_NE(log("2024-03-06-main.log").find("second after midnight"), std::string::npos);

    clock_ = kMorning + 14 * 3600 - 5;  // the clock went back past midnight
    VHLog(kLogMain, "clock went back");
    VHLog(kLogMain, "back on the old day");
    EXPECT_NE(log("2024-03-06-main.log").find("clock went back"), std::string::npos);
    EXPECT_NE(log("2024-03-05-main.log").find("back on the old day"), std::string::npos);
}

TEST_F(VHLoggingTest, OpeningDeletesLogFilesOlderThanFourteenDaysOnly) {
    auto age = [&](const std::string& name, double days) {
        std::string path = dir_ + "/" + name;
        std::ofstream(path) << "x";
        struct timespec times[2];
        times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(clock_.load() - days * kDay);
        times[0].tv_nsec = times[1].tv_nsec = 0;
        utimensat(AT_FDCWD, path.c_str(), times, 0);
    };
    age("2024-02-19-main.log", 15);
    age("notes.txt", 15);
    age("2024-02-21-fuse.log", 13);
    VHInitLogs();
    EXPECT_FALSE(fs::exists(dir_ + "/2024-02-19-main.log"));
    EXPECT_TRUE(fs::exists(dir_ + "/notes.txt"));
    EXPECT_TRUE(fs::exists(dir_ + "/2024-02-21-fuse.log"));
}

TEST_F(VHLoggingTest, LinesOfConcurrentThreadsNeverInterleave) {
    VHInitLogs();
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 300; ++i)
                VHLog(kLogDrive, "thread %d line %d %@", t, i, std::string(80, 'a' + t));
        });
    }
    for (auto& thread : threads) thread.join();
    std::istringstream lines(log("2024-03-05-fuse.log"));
    std::regex shape(R"(\[\d+\] 2024-03-05 10:00:00 \+0100 : thread (\d) line \d+ ([a-h])\2{79})");
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(line, match, shape)) << line;
        EXPECT_EQ(match[2].str()[0], 'a' + std::stoi(match[1].str()));
    }
    EXPECT_EQ(count, 8 * 300);
}

}  // namespace vh
