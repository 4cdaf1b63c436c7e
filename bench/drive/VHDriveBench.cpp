// Attribute and listing speed of the mounted drive for one folder of 10,000
// files, against the same operations on a plain local folder (the kernel's
// own file system) measured in the same run.
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/VHTestDrive.h"
#include "support/VHTestHome.h"
#include "transfer/VHFileCache.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kFiles = 10000;

double seconds(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double statsPerSecond(const std::string& folder, const std::vector<std::string>& names) {
    auto start = Clock::now();
    struct stat st {};
    for (const std::string& name : names) {
        if (lstat((folder + "/" + name).c_str(), &st) != 0) std::perror(name.c_str());
    }
    return static_cast<double>(names.size()) / seconds(start);
}

double listSeconds(const std::string& folder) {
    auto start = Clock::now();
    vh::test::VHRun("ls -l '" + folder + "' > /dev/null");
    return seconds(start);
}

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    vh::test::VHTestHome home;
    vh::VHFileCache::resetForTests();
    std::string local = home.root() + "/local";
    std::filesystem::create_directories(local);

    std::vector<std::string> names;
    std::vector<vh::VHVirtualFile> items;
    for (int i = 0; i < kFiles; ++i) {
        names.push_back("file-" + std::to_string(i) + ".txt");
        std::ofstream(local + "/" + names.back()) << "x";
        items.push_back(vh::test::VHTestItem("s1", "i" + std::to_string(i), "s1", names.back(), 1,
                                             static_cast<uint64_t>(i + 1)));
    }
    vh::test::VHLoadStoreWithShares(R"({"ManagedShares":[{"ShareId":"s1","ShareName":"Bench",
        "AssociationType":2,"Status":0,"ShareChanged":false,"Online":true,"TransmitCounter":0,
        "LastApplyedJournalTick":0,"DomainId":"dom1","GateWayUrl":"d1.varnholt.test"}]})");
    vh::test::VHApplyItems("s1", items);

    vh::test::VHTestDrive drive(home.root() + "/home/Varnholt");
    std::string folder = drive.path() + "/Bench";
    double driveCold = statsPerSecond(folder, names);
    double driveAgain = statsPerSecond(folder, names);
    double localStats = statsPerSecond(local, names);
    double driveList = listSeconds(folder);
    double localList = listSeconds(local);

    std::printf("drive: one folder of %d files\n", kFiles);
    std::printf("stat, first pass:   %9.0f calls/s (local folder %9.0f; ratio %.3f)\n", driveCold,
                localStats, driveCold / localStats);
    std::printf("stat, second pass:  %9.0f calls/s (ratio %.3f)\n", driveAgain,
                driveAgain / localStats);
    std::printf("ls -l:              %9.3f s       (local folder %9.3f s; ratio %.2f)\n", driveList,
                localList, driveList / localList);
    return 0;
}
