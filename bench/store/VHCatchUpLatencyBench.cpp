// Latency of drive calls while a catch-up page is applied: 8 threads stat,
// list and write files on a real FUSE mount of the drive, first with nothing
// else going on (the reference), then while one catch-up page of 100,000
// items is applied to the same share. Prints p50/p99/max of each call in both
// runs and their ratio. The kernel's attribute and entry caches are off for
// the mount, so every call reaches the store.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "lib/VHLog.h"
#include "store/VHDatabase.h"
#include "support/VHTestDrive.h"
#include "support/VHTestHome.h"
#include "transfer/VHFileCache.h"

namespace {

using Clock = std::chrono::steady_clock;
using vh::VHVirtualFile;

constexpr int kThreads = 8;
constexpr int kFilesPerFolder = 200;
constexpr int kPageItems = 100'000;
constexpr int kPageFolderSize = 100;
constexpr auto kReferenceRun = std::chrono::seconds(5);

enum Call { kStat, kList, kWrite, kCalls };
const char* const kCallNames[kCalls] = {"stat", "list", "write"};

struct Latencies {
    std::vector<double> ms[kCalls];
    void add(const Latencies& other) {
        for (int c = 0; c < kCalls; ++c)
            ms[c].insert(ms[c].end(), other.ms[c].begin(), other.ms[c].end());
    }
};

struct Summary {
    double p50 = 0, p99 = 0, max = 0;
    size_t count = 0;
};

Summary summarize(std::vector<double> values) {
    Summary s;
    s.count = values.size();
    if (values.empty()) return s;
    std::sort(values.begin(), values.end());
    s.p50 = values[values.size() / 2];
    s.p99 = values[std::min(values.size() - 1, values.size() * 99 / 100)];
    s.max = values.back();
    return s;
}

template <typename Fn>
void timed(std::vector<double>& into, Fn&& call) {
    auto start = Clock::now();
    call();
    into.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
}

std::string folderName(int thread) {
    return "work" + std::to_string(thread);
}

// One thread's loop: stat a file of its folder, list the folder (every
// fourth round), write 4 KiB into its own file, until `stop`.
Latencies work(const std::string& share, int thread, const std::atomic<bool>& stop) {
    Latencies got;
    std::string folder = share + "/" + folderName(thread);
    int fd = ::open((folder + "/written.bin").c_str(), O_RDWR);
    if (fd < 0) std::perror("open on the drive");
    std::vector<char> block(4096, 'x');
    struct stat st {};
    for (int i = 0; !stop; ++i) {
        std::string file = folder + "/f" + std::to_string(i % kFilesPerFolder) + ".txt";
        timed(got.ms[kStat], [&] {
            if (::lstat(file.c_str(), &st) != 0) std::perror("stat on the drive");
        });
        if (i % 4 == 0) {
            timed(got.ms[kList], [&] {
                DIR* dir = ::opendir(folder.c_str());
                while (dir && ::readdir(dir)) {
                }
                if (dir) ::closedir(dir);
            });
        }
        timed(got.ms[kWrite], [&] {
            off_t offset = static_cast<off_t>(i % 256) * 4096;
            if (::pwrite(fd, block.data(), block.size(), offset) < 0) std::perror("write");
        });
    }
    if (fd >= 0) ::close(fd);
    return got;
}

// Runs the 8 threads until `done` turns true; their latencies.
template <typename Done>
Latencies underLoad(const std::string& share, Done&& done) {
    std::atomic<bool> stop{false};
    std::vector<Latencies> each(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] { each[t] = work(share, t, stop); });
    }
    while (!done()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    stop = true;
    for (std::thread& thread : threads) thread.join();
    Latencies all;
    for (const Latencies& one : each) all.add(one);
    return all;
}

std::vector<VHVirtualFile> workingSet() {
    std::vector<VHVirtualFile> items;
    uint64_t tick = 1;
    for (int t = 0; t < kThreads; ++t) {
        std::string folder = folderName(t);
        items.push_back(vh::test::VHTestItem("s1", folder, "s1", folder, std::nullopt, tick++));
        items.push_back(
            vh::test::VHTestItem("s1", folder + "-written", folder, "written.bin", 0, tick++));
        for (int f = 0; f < kFilesPerFolder; ++f) {
            std::string name = "f" + std::to_string(f) + ".txt";
            items.push_back(
                vh::test::VHTestItem("s1", folder + "-" + name, folder, name, 1000, tick++));
        }
    }
    return items;
}

// 100,000 new items: folders of 100 below the share, elsewhere than the work.
vh::OSXCatchUpResponse catchUpPage() {
    vh::OSXCatchUpResponse page;
    page.VhVirtualFiles.emplace();
    uint64_t tick = 100'000;
    for (int folder = 0; page.VhVirtualFiles->size() < size_t(kPageItems); ++folder) {
        std::string id = "page" + std::to_string(folder);
        page.VhVirtualFiles->push_back(
            vh::test::VHTestItem("s1", id, "s1", id, std::nullopt, ++tick));
        for (int f = 1; f < kPageFolderSize; ++f) {
            std::string name = "g" + std::to_string(f) + ".txt";
            page.VhVirtualFiles->push_back(
                vh::test::VHTestItem("s1", id + "-" + name, id, name, 2000, ++tick));
        }
    }
    page.VhVirtualFiles->resize(kPageItems);
    page.LargestTick = static_cast<int64_t>(tick);
    return page;
}

void print(const Latencies& reference, const Latencies& loaded) {
    std::printf("%-6s %9s %9s %9s %9s | %9s %9s %9s %9s | %s\n", "call", "n", "p50 ms", "p99 ms",
                "max ms", "n", "p50 ms", "p99 ms", "max ms", "p99 ratio");
    for (int c = 0; c < kCalls; ++c) {
        Summary a = summarize(reference.ms[c]), b = summarize(loaded.ms[c]);
        std::printf("%-6s %9zu %9.3f %9.3f %9.2f | %9zu %9.3f %9.3f %9.2f | %.2f\n", kCallNames[c],
                    a.count, a.p50, a.p99, a.max, b.count, b.p50, b.p99, b.max,
                    a.p99 > 0 ? b.p99 / a.p99 : 0.0);
    }
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    vh::test::VHTestHome home;
    vh::VHSetLogSink([](int, const std::string&) {});  // the figures only
    vh::VHFileCache::resetForTests();
    vh::test::VHLoadStoreWithShares(R"({"ManagedShares":[{"ShareId":"s1","ShareName":"Bench",
        "AssociationType":2,"Status":0,"ShareChanged":false,"Online":true,"TransmitCounter":0,
        "LastApplyedJournalTick":0,"DomainId":"dom1","GateWayUrl":"d1.varnholt.test"}]})");
    vh::test::VHApplyItems("s1", workingSet());
    vh::OSXCatchUpResponse page = catchUpPage();

    vh::test::VHTestDrive drive(home.root() + "/home/Varnholt",
                                "fsname=Varnholt,subtype=varnholt,attr_timeout=0,entry_timeout=0");
    std::string share = drive.path() + "/Bench";

    auto referenceEnd = Clock::now() + kReferenceRun;
    Latencies reference = underLoad(share, [&] { return Clock::now() >= referenceEnd; });

    vh::VHDatabase& db = vh::VHDatabase::database();
    std::atomic<bool> pageDone{false};
    std::atomic<bool> applied{false};
    auto pageStart = Clock::now();
    Clock::time_point pageEnd;
    db.applyCatchUpPage(page, *db.shareWithId("s1"), [&](bool ok) {
        pageEnd = Clock::now();
        applied = ok;
        pageDone = true;
    });
    Latencies loaded = underLoad(share, [&] { return pageDone.load(); });

    std::printf(
        "drive calls of %d threads (stat, list a folder of %d, write 4 KiB), kernel "
        "caches off\n",
        kThreads, kFilesPerFolder + 1);
    std::printf(
        "left: %.0f s alone (reference); right: while a catch-up page of %d items was "
        "applied (%s in %.1f s)\n",
        std::chrono::duration<double>(kReferenceRun).count(), kPageItems,
        applied ? "committed" : "FAILED",
        std::chrono::duration<double>(pageEnd - pageStart).count());
    print(reference, loaded);
    drive.unmount();
    db.unload();
    return applied ? 0 : 1;
}
