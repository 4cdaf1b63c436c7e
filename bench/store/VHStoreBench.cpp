// Figures of the metadata store, each with a reference measured in the same
// run on the same files.db through a connection of our own:
//   - one catch-up page of 100,000 items applied to an empty share, against
//     the same rows inserted in one transaction;
//   - path lookups of depth 8, cold (no cached path) and cached, against the
//     same walk as bare statements;
//   - listing a folder of 10,000 children, against the bare SELECT.
// Runs in a temporary HOME of its own, removed afterwards.
#include <QCoreApplication>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "lib/VHLog.h"
#include "lib/VHPaths.h"
#include "lib/VHSqlite.h"
#include "store/VHDatabase.h"
#include "store/VHDatabaseSchema.h"

namespace fs = std::filesystem;
using namespace vh;

namespace {

constexpr int kBatchItems = 100'000;
constexpr int kFilesPerFolder = 100;
constexpr int kDepth = 8;
constexpr int kLookups = 2'000;
constexpr int kListingChildren = 10'000;
constexpr int kListings = 20;

double secondsOf(const std::function<void()>& work) {
    auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string makeHome() {
    char pattern[] = "/tmp/varnholt-bench-XXXXXX";
    if (!mkdtemp(pattern)) std::exit(1);
    std::string root = pattern;
    setenv("HOME", root.c_str(), 1);
    setenv("XDG_STATE_HOME", (root + "/state").c_str(), 1);
    setenv("XDG_DATA_HOME", (root + "/data").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (root + "/config").c_str(), 1);
    return root;
}

VHVirtualFile item(const std::string& id, const std::string& parent, const std::string& name,
                   bool isFile) {
    VHVirtualFile file;
    file.InternalName = id;
    file.ParrentId = parent;
    file.PublicName = name;
    file.ShareId = "s1";
    file.IsFile = isFile;
    file.Tick = file.ShareTick = file.UpdateTick = file.CreateTick = 1;
    file.EndOfFile = isFile ? 1000 : 0;
    file.LastWriteTime = VHDate{1'700'000'000};
    return file;
}

// Folders of 100 files each below the share, 100,000 items in all.
OSXCatchUpResponse catchUpPage() {
    OSXCatchUpResponse page;
    page.VhVirtualFiles.emplace();
    for (int folder = 0; page.VhVirtualFiles->size() < size_t(kBatchItems); ++folder) {
        std::string folderId = "d" + std::to_string(folder);
        page.VhVirtualFiles->push_back(item(folderId, "s1", folderId, false));
        for (int f = 0; f < kFilesPerFolder - 1; ++f) {
            std::string id = folderId + "f" + std::to_string(f);
            page.VhVirtualFiles->push_back(item(id, folderId, id + ".txt", true));
        }
    }
    page.VhVirtualFiles->resize(kBatchItems);
    page.LargestTick = 1;
    return page;
}

double rawInsertSeconds(const OSXCatchUpResponse& page, const std::string& path) {
    VHDatabaseSchema::createDatabase(path);
    VHSqlite db;
    db.open(path, VHSqlite::Mode::ReadWrite);
    return secondsOf([&] {
        db.execScript("BEGIN EXCLUSIVE TRANSACTION");
        for (const VHVirtualFile& file : *page.VhVirtualFiles) {
            VHFile f = VHFile::fromVirtualFile(file);
            db.run(
                "INSERT INTO files (publicName, internalName, parentId, shareId, tick, "
                "fileSize, modifyTime, isFile, status) VALUES (?, ?, ?, ?, ?, ?, ?, ?, 0)",
                {f.publicName, f.internalName, f.parentId, f.shareId, f.tick, f.fileSize,
                 f.modifyTime.seconds, int64_t{f.isFile}});
        }
        db.execScript("COMMIT TRANSACTION");
    });
}

// A chain of 7 folders below the share with the files at depth 8.
std::vector<std::string> deepPaths(VHDatabase& db, const ManagedShare& share) {
    std::vector<VHVirtualFile> items;
    std::string parent = "s1", path = "/Bench";
    for (int level = 1; level < kDepth; ++level) {
        std::string id = "deep" + std::to_string(level);
        items.push_back(item(id, parent, "level" + std::to_string(level), false));
        parent = id;
        path += "/level" + std::to_string(level);
    }
    std::vector<std::string> paths;
    for (int f = 0; f < 100; ++f) {
        std::string name = "leaf" + std::to_string(f) + ".txt";
        items.push_back(item("leaf" + std::to_string(f), parent, name, true));
        paths.push_back(path + "/" + name);
    }
    db.updateFiles(items, share);
    return paths;
}

double rawWalkSeconds(const std::string& dbPath, const std::vector<std::string>& paths) {
    VHSqlite db;
    db.open(dbPath, VHSqlite::Mode::ReadOnly);
    return secondsOf([&] {
        for (int i = 0; i < kLookups; ++i) {
            std::string parent = "s1";
            std::string rest = paths[i % paths.size()].substr(std::string("/Bench/").size());
            for (size_t start = 0, end; start <= rest.size(); start = end + 1) {
                end = rest.find('/', start);
                if (end == std::string::npos) end = rest.size();
                VHSqliteStatement* s = db.prepare(
                    "SELECT internalName FROM files WHERE parentId = ? AND publicName = ? AND "
                    "status != 5 LIMIT 0, 1",
                    {parent, rest.substr(start, end - start)});
                if (s->step() == VHSqliteStatement::Step::Row) parent = s->columnText(0);
                s->reset();
            }
        }
    });
}

void printRate(const char* what, int count, double seconds, double reference) {
    std::printf("%-44s %10.0f /s  %8.3f s  ratio to bare SQLite %.2f\n", what, count / seconds,
                seconds, seconds / reference);
}

}  // namespace

int main(int argc, char** argv) {
    std::string home = makeHome();
    QCoreApplication app(argc, argv);
    VHSetLogSink([](int, const std::string&) {});  // the figures only
    VHDatabase& db = VHDatabase::database();
    db.load();
    ManagedShare share;
    share.ShareId = "s1";
    share.ShareName = "Bench";
    ClientLoginResponse login;
    login.ManagedShares = std::vector<ManagedShare>{share};
    UserDomain domain;
    domain.Domain = Domain{};
    domain.Domain->DomainId = "d";
    db.updateShares(login, domain);
    share = *db.shareWithId("s1");

    OSXCatchUpResponse page = catchUpPage();
    double batch = secondsOf([&] { db.updateFiles(page, share); });
    double rawBatch = rawInsertSeconds(page, home + "/reference.db");
    printRate("catch-up page of 100,000 items, items", kBatchItems, batch, rawBatch);

    std::vector<std::string> paths = deepPaths(db, share);
    double rawWalk = rawWalkSeconds(db.databasePath(), paths);
    double cold = secondsOf([&] {
        for (int i = 0; i < kLookups; ++i) {
            db.clearAllPathCaches();
            db.fileWithPath(paths[i % paths.size()]);
        }
    });
    double cached = secondsOf([&] {
        for (int i = 0; i < kLookups; ++i) db.fileWithPath(paths[i % paths.size()]);
    });
    printRate("path lookups, depth 8, cold", kLookups, cold, rawWalk);
    printRate("path lookups, depth 8, cached", kLookups, cached, rawWalk);

    std::vector<VHVirtualFile> children{item("big", "s1", "big", false)};
    for (int i = 0; i < kListingChildren; ++i) {
        children.push_back(item("c" + std::to_string(i), "big", "child" + std::to_string(i), true));
    }
    db.updateFiles(children, share);
    double listing = secondsOf([&] {
        for (int i = 0; i < kListings; ++i) db.fileNamesListWithParent("big");
    });
    VHSqlite raw;
    raw.open(db.databasePath(), VHSqlite::Mode::ReadOnly);
    double rawListing = secondsOf([&] {
        for (int i = 0; i < kListings; ++i) {
            VHSqliteStatement* s = raw.prepare(
                "SELECT publicName FROM files WHERE parentId = ? AND status != 5 AND NOT deleted",
                {std::string("big")});
            while (s->step() == VHSqliteStatement::Step::Row) s->columnText(0);
        }
    });
    printRate("listings of a folder of 10,000 children", kListings, listing, rawListing);

    db.unload();
    fs::remove_all(home);
    return 0;
}
