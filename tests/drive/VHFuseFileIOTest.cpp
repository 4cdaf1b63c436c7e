// The read and release callbacks called as libfuse's threads call them, on a
// store and a content cache of the test's own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "drive/VHFuseFileIO.h"
#include "store/VHDatabase.h"
#include "support/VHTestDrive.h"
#include "support/VHTestWait.h"
#include "transfer/VHFileCache.h"

namespace vh::test {

namespace {

namespace fs = std::filesystem;

constexpr const char* kShare = R"({"ManagedShares":[
  {"ShareId":"s1","ShareName":"Alpha","DisplayName":"Alpha","AssociationType":2,"Status":0,
   "ShareChanged":false,"Online":true,"TransmitCounter":0,"LastApplyedJournalTick":0,
   "ShareAcl":{"AclType":1,"AclToken":"a1"},"DomainId":"dom1","GateWayUrl":"d1.varnholt.test"}]})";

// Descriptors of this process open on `path`.
int descriptorsOn(const std::string& path) {
    int count = 0;
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        count += fs::read_symlink(entry.path(), ignored) == path;
    }
    return count;
}

// Whether the thread is inside an open(2) call now.
bool isOpening(pid_t thread) {
    std::ifstream in("/proc/self/task/" + std::to_string(thread) + "/syscall");
    long number = -1;
    return (in >> number) && number == SYS_openat;
}

}  // namespace

TEST(VHFuseFileIO, ConcurrentFirstReadsThroughOneHandleShareOneDescriptor) {
    VHFileCache::resetForTests();
    VHLoadStoreWithShares(kShare);
    VHApplyItems("s1", {VHTestItem("s1", "i-doc", "s1", "doc.txt", 10, 1)});
    auto file = VHDatabase::database().fileWithPath("/Alpha/doc.txt");
    ASSERT_TRUE(file);
    fuse_file_info fi{};
    fi.flags = O_RDONLY;
    ASSERT_EQ(varnholt_open("/Alpha/doc.txt", &fi), 0);
    // The copy completes after the open, so the first reads open it. It is a
    // pipe: opening it for reading blocks until a writer comes, which holds
    // the first reader inside its open for as long as the test wants.
    const std::string copy = VHFileCache::fileCache().pathForFileCache(*file);
    ASSERT_EQ(mkfifo(copy.c_str(), 0600), 0);
    std::atomic<pid_t> firstThread = 0;
    auto reader = [&](bool first) {
        if (first) firstThread = gettid();
        char buffer[4];
        varnholt_read("/Alpha/doc.txt", buffer, sizeof buffer, 0, &fi);
    };
    std::thread a(reader, true);
    bool firstOpening = VHWaitUntil([&] { return firstThread && isOpening(firstThread); });
    std::thread b(reader, false);
    // Time for the second reader to reach the copy too; none is needed for
    // the test to pass.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    int writer = -1;
    VHWaitUntil(
        [&] { return (writer = ::open(copy.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) >= 0; });
    a.join();
    b.join();
    close(writer);
    EXPECT_TRUE(firstOpening);
    EXPECT_EQ(descriptorsOn(copy), 1);
    EXPECT_EQ(varnholt_release("/Alpha/doc.txt", &fi), 0);
    EXPECT_EQ(descriptorsOn(copy), 0);
    VHDatabase::database().unload();
    VHFileCache::resetForTests();
}

}  // namespace vh::test
