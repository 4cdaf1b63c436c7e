// The real client ended at random moments, by SIGKILL and by SIGTERM: while
// it mounts, while programs read through the drive, during a catch-up, while
// it shuts down and right after the drive was unmounted from outside. No
// process may hang, a kill must leave nothing the next start cannot clear,
// and a SIGTERM must always end in order with the drive unmounted.
//
// The moments come from a seeded generator; the seed is printed, and
// VH_KILL_SEED=<seed> replays a run.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "support/VHTestClient.h"
#include "support/VHTestHome.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

enum class Moment { Mounting, Reading, CatchingUp, ShuttingDown, AfterOutsideUnmount };

const char* nameOf(Moment moment) {
    switch (moment) {
        case Moment::Mounting:
            return "mounting";
        case Moment::Reading:
            return "reading";
        case Moment::CatchingUp:
            return "catching up";
        case Moment::ShuttingDown:
            return "shutting down";
        case Moment::AfterOutsideUnmount:
            return "after an outside unmount";
    }
    return "";
}

uint64_t runSeed() {
    const char* given = std::getenv("VH_KILL_SEED");
    uint64_t seed = given ? std::strtoull(given, nullptr, 10) : std::random_device{}();
    std::printf("VH_KILL_SEED=%llu\n", static_cast<unsigned long long>(seed));
    return seed;
}

// Programs reading whole files through the drive, as child processes.
class Readers {
  public:
    explicit Readers(const std::vector<std::string>& paths) {
        for (const std::string& path : paths) {
            pid_t pid = fork();
            if (pid == 0) {
                execl("/bin/sh", "sh", "-c", ("cat '" + path + "' > /dev/null").c_str(), nullptr);
                _exit(127);
            }
            pids_.push_back(pid);
        }
    }
    ~Readers() { waitAll(); }
    // True when every reader has ended (whatever its result) within the time.
    bool waitAll(std::chrono::seconds timeout = 60s) {
        bool ended = VHTestClient::waitFor(
            [&] {
                std::erase_if(pids_,
                              [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) == pid; });
                return pids_.empty();
            },
            timeout);
        for (pid_t pid : pids_) kill(pid, SIGKILL);
        return ended;
    }

  private:
    std::vector<pid_t> pids_;
};

class VHClientKillTest : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator_.start());
        // Enough items that a catch-up takes several pages.
        json actions = json::array();
        for (int i = 0; i < 12000; ++i) {
            actions.push_back(
                {{"action", "writeFile"}, {"path", "/many/f" + std::to_string(i)}, {"text", "x"}});
        }
        actions.push_back({{"action", "writeFile"}, {"path", "/big.bin"}, {"size", 48 << 20}});
        ASSERT_TRUE(emulator_.act("my-files", actions));
        // Signed in once; every later start uses the stored credentials and view.
        ASSERT_TRUE(client_.start());
        ASSERT_TRUE(client_.waitForMount()) << client_.logs() << client_.standardError();
        ASSERT_TRUE(
            client_.waitFor([&] { return fs::exists(share("My Files") + "/many/f11999"); }, 120s));
        client_.signal(SIGTERM);
        ASSERT_EQ(client_.waitForExit(60s), 0);
    }

    std::string share(const std::string& name) const { return client_.mountPath() + "/" + name; }
    std::vector<std::string> readPaths() const {
        return {share("My Files") + "/big.bin", share("Team Documents") + "/Media/video.bin",
                share("Team Documents") + "/readme.txt", share("My Files") + "/welcome.txt"};
    }

    bool startStored() {
        VHTestClient::Options stored;
        stored.user.clear();
        return client_.start(stored);
    }

    // Waits for the moment; false when the client ended before it.
    bool reach(Moment moment, std::mt19937_64& random) {
        // Half of the pauses are short: the moments just after a step are the
        // ones most likely to find a step half done.
        auto pause = [&](int maxMs) {
            int limit = random() % 2 ? maxMs : 50;
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % (limit + 1)));
        };
        switch (moment) {
            case Moment::Mounting:
                if (!client_.waitFor([&] { return client_.handlesTermination(); }, 60s))
                    return false;
                pause(1500);
                return true;
            case Moment::Reading:
                if (!client_.waitForMount()) return false;
                readers_ = std::make_unique<Readers>(readPaths());
                pause(2000);
                return true;
            case Moment::CatchingUp:
                if (!emulator_.act("my-files",
                                   json::array({{{"action", "writeFile"},
                                                 {"path", "/many/g" + std::to_string(random())},
                                                 {"text", "y"}}}))) {
                    return false;
                }
                if (!client_.waitForMount()) return false;
                pause(1500);
                return true;
            case Moment::ShuttingDown:
                if (!client_.waitForMount()) return false;
                client_.signal(SIGTERM);
                pause(400);
                return true;
            case Moment::AfterOutsideUnmount:
                if (!client_.waitForMount()) return false;
                pause(1000);
                std::system(("fusermount3 -u '" + client_.mountPath() + "' 2>/dev/null").c_str());
                pause(100);
                return true;
        }
        return false;
    }

    // The mount table's lines for the drive's folder.
    std::string mountLines() const {
        std::ifstream mounts("/proc/self/mountinfo");
        std::string found;
        for (std::string line; std::getline(mounts, line);) {
            if (line.find(" " + client_.mountPath() + " ") != std::string::npos)
                found += line + "\n";
        }
        return found;
    }

    VHEmulatorProcess emulator_;
    VHTestClient client_{emulator_};
    std::unique_ptr<Readers> readers_;
};

}  // namespace

TEST_F(VHClientKillTest, FiftyKillsLeaveNoHangingProcessAndTheNextStartMountsAgain) {
    std::mt19937_64 random(runSeed());
    const Moment moments[] = {Moment::Mounting, Moment::Reading, Moment::CatchingUp,
                              Moment::ShuttingDown};
    for (int run = 0; run < 50; ++run) {
        Moment moment = moments[random() % std::size(moments)];
        SCOPED_TRACE(testing::Message() << "kill " << run << " " << nameOf(moment));
        ASSERT_TRUE(startStored());
        ASSERT_TRUE(reach(moment, random)) << client_.logs() << client_.standardError();
        client_.signal(SIGKILL);
        // A process hanging in the kernel on its own mount never ends.
        ASSERT_TRUE(client_.waitForExit(60s)) << "thread states " << client_.threadStates();
        if (readers_) {
            ASSERT_TRUE(readers_->waitAll());
        }
        readers_.reset();
    }
    ASSERT_TRUE(startStored());
    ASSERT_TRUE(client_.waitForMount()) << client_.logs();
    EXPECT_TRUE(client_.waitFor(
        [&] {
            std::error_code error;
            return fs::exists(share("Team Documents/readme.txt"), error);
        },
        60s));
    client_.signal(SIGTERM);
    EXPECT_EQ(client_.waitForExit(60s), 0);
    // Layers left below ours by earlier runs would show here too.
    EXPECT_FALSE(client_.mounted()) << mountLines() << client_.logs();
}

TEST_F(VHClientKillTest, TwentySigtermsEachEndInOrderWithTheDriveUnmounted) {
    std::mt19937_64 random(runSeed());
    const Moment moments[] = {Moment::Mounting, Moment::Reading, Moment::CatchingUp,
                              Moment::AfterOutsideUnmount};
    for (int run = 0; run < 20; ++run) {
        Moment moment = moments[random() % std::size(moments)];
        SCOPED_TRACE(testing::Message() << "SIGTERM " << run << " " << nameOf(moment));
        ASSERT_TRUE(startStored());
        ASSERT_TRUE(reach(moment, random)) << client_.logs() << client_.standardError();
        client_.signal(SIGTERM);
        std::optional<int> status = client_.waitForExit(60s);
        ASSERT_TRUE(status) << "thread states " << client_.threadStates() << client_.logs();
        EXPECT_EQ(*status, 0) << client_.logs() << client_.standardError();
        if (readers_) {
            ASSERT_TRUE(readers_->waitAll());
        }
        readers_.reset();
        ASSERT_FALSE(client_.mounted()) << client_.logs();
    }
}

}  // namespace vh::test
