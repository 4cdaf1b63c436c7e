// Shared set-up of the store's tests: a loaded database in the test's own
// HOME with one share, server records to feed it, and a log recorder.
#pragma once

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "lib/VHLog.h"
#include "lib/VHSqlite.h"
#include "store/VHDatabase.h"
#include "store/VHStoreHooks.h"

namespace vh::test {

// Records every log line while it lives.
class VHLogRecorder {
  public:
    VHLogRecorder() {
        VHSetLogSink([this](int, const std::string& line) {
            std::lock_guard lock(mutex_);
            lines_.push_back(line);
        });
    }
    ~VHLogRecorder() { VHSetLogSink({}); }
    int count(const std::string& text) const {
        std::lock_guard lock(mutex_);
        int n = 0;
        for (const std::string& line : lines_) n += line.find(text) != std::string::npos;
        return n;
    }
    bool contains(const std::string& text) const { return count(text) > 0; }
    // The first line holding `text`; empty when none does.
    std::string first(const std::string& text) const {
        std::lock_guard lock(mutex_);
        for (const std::string& line : lines_) {
            if (line.find(text) != std::string::npos) return line;
        }
        return "";
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

inline ManagedShare makeShare(const std::string& id, const std::string& name) {
    ManagedShare share;
    share.ShareId = id;
    share.ShareName = name;
    share.InternalName = id + "-root";
    return share;
}

inline UserDomain makeDomain(const std::string& id) {
    UserDomain domain;
    domain.Domain = Domain{};
    domain.Domain->DomainId = id;
    domain.Domain->Url = id + ".example";
    return domain;
}

// The server's record of an item.
inline VHVirtualFile serverItem(const std::string& id, const std::string& parentId,
                                const std::string& name, bool isFile = true, uint64_t tick = 1,
                                double modifyTime = 1000) {
    VHVirtualFile item;
    item.InternalName = id;
    item.ParrentId = parentId;
    item.PublicName = name;
    item.ShareId = "s1";
    item.IsFile = isFile;
    item.Tick = item.ShareTick = item.UpdateTick = item.CreateTick = tick;
    item.EndOfFile = isFile ? 10 : 0;
    item.LastWriteTime = VHDate{modifyTime};
    return item;
}

// A loaded database with the share "s1" named "Share" (path "/Share").
class VHStoreTest : public testing::Test {
  protected:
    void SetUp() override {
        db().load();
        ClientLoginResponse response;
        response.ManagedShares = std::vector<ManagedShare>{makeShare("s1", "Share")};
        db().updateShares(response, makeDomain("d1"));
    }
    void TearDown() override {
        db().setStatementFaultForTesting({});
        db().setSliceGateForTesting({});
        db().unload();
        VHStoreHooks::setUploads(nullptr);
        VHStoreHooks::setOpenFiles(nullptr);
        VHStoreHooks::setApp(nullptr);
    }
    static VHDatabase& db() { return VHDatabase::database(); }
    static ManagedShare share() { return *db().shareWithId("s1"); }

    // Applies server records to the share "s1".
    static void apply(const std::vector<VHVirtualFile>& items) { db().updateFiles(items, share()); }
    static VHFile synced(const std::string& id, const std::string& parentId,
                         const std::string& name, bool isFile = true) {
        apply({serverItem(id, parentId, name, isFile)});
        return *db().fileWithId(id);
    }

    // The statuses of every row of an item, read with a connection of our own.
    static std::vector<int64_t> statuses(const std::string& id) {
        VHSqlite sql;
        EXPECT_TRUE(sql.open(db().databasePath(), VHSqlite::Mode::ReadOnly));
        std::vector<int64_t> found;
        VHSqliteStatement* s =
            sql.prepare("SELECT status FROM files WHERE internalName = ? ORDER BY status", {id});
        while (s && s->step() == VHSqliteStatement::Step::Row) found.push_back(s->columnInt64(0));
        return found;
    }
};

}  // namespace vh::test
