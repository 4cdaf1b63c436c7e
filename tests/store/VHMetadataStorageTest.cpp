// The stored shares: unique display names, remote renames, journal positions
// across logins, shares.db on disk and the delayed save.
#include <gtest/gtest.h>

#include <filesystem>

#include "store/VHMetadataStorage.h"
#include "store/VHPropertyList.h"
#include "support/VHStoreTestSupport.h"
#include "support/VHTestWait.h"

namespace vh::test {
namespace {

ClientLoginResponse loginWith(std::vector<ManagedShare> shares) {
    ClientLoginResponse response;
    response.ManagedShares = std::move(shares);
    return response;
}

std::string displayName(const VHMetadataStorage& storage, const std::string& id) {
    std::optional<ManagedShare> share = storage.shareWithId(id);
    return share ? share->displayName() : "<none>";
}

TEST(VHMetadataStorage, DisplayNamesStayUnique) {
    VHMetadataStorage storage;
    storage.updateShares(loginWith({makeShare("a", "Docs"), makeShare("b", "Docs")}),
                         makeDomain("d1"));
    storage.updateShares(loginWith({makeShare("c", "docs")}), makeDomain("d2"));
    EXPECT_EQ(displayName(storage, "a"), "Docs");
    EXPECT_EQ(displayName(storage, "b"), "Docs (2)");
    EXPECT_EQ(displayName(storage, "c"), "docs (3)");
    EXPECT_EQ(storage.shareWithPath("/DOCS (2)")->shareId(), "b");
    EXPECT_EQ(storage.shareWithFilePath("/Docs (2)/x/y")->shareId(), "b");
    EXPECT_EQ(storage.shareWithPath("/.TempFiles")->shareId(), "tmp");

    EXPECT_FALSE(storage.renameShare("a", "  \t "));
    EXPECT_EQ(displayName(storage, "a"), "Docs");
    EXPECT_TRUE(storage.renameShare("a", " Docs (2) "));
    EXPECT_EQ(displayName(storage, "a"), "Docs (2)2");
    EXPECT_FALSE(storage.shareWithPath("/Docs"));
}

TEST(VHMetadataStorage, RemoteRenamesAndRemovals) {
    VHMetadataStorage storage;
    storage.updateShares(
        loginWith({makeShare("a", "Plans"), makeShare("b", "Budget"), makeShare("c", "Old")}),
        makeDomain("d1"));
    storage.renameShare("b", "Mine");
    storage.updateShares(loginWith({makeShare("z", "Taken")}), makeDomain("d2"));

    VHLogRecorder log;
    storage.updateShares(loginWith({makeShare("a", "Taken"), makeShare("b", "Budget 2024")}),
                         makeDomain("d1"));
    EXPECT_EQ(displayName(storage, "a"), "Taken (2)");
    EXPECT_EQ(displayName(storage, "b"), "Mine (Budget 2024)");
    EXPECT_EQ(displayName(storage, "c"), "<none>");
    EXPECT_EQ(displayName(storage, "z"), "Taken");  // another domain's share stays
    EXPECT_TRUE(log.contains("Share Plans renamed remotely - renaming to Taken (2)."));
    EXPECT_TRUE(log.contains("Share Old deleted remotely - cleaning up all share data."));

    GlobalLoginResponce global;
    global.PrimaryUserDomain = makeDomain("d1");
    storage.deleteDomainShares(global);
    EXPECT_EQ(displayName(storage, "z"), "<none>");
    EXPECT_EQ(displayName(storage, "a"), "Taken (2)");
    EXPECT_FALSE(storage.storageEmpty());
}

TEST(VHMetadataStorage, JournalPositionSurvivesLogins) {
    VHMetadataStorage storage;
    ManagedShare fresh = makeShare("a", "Docs");
    fresh.LastApplyedJournalTick = 500;  // what the server claims does not count
    fresh.ShareAcl = ShareACL{};
    fresh.ShareAcl->AclToken = "a%2Fb";
    storage.updateShares(loginWith({fresh}), makeDomain("d1"));
    EXPECT_EQ(storage.shareWithId("a")->LastApplyedJournalTick, -1);
    EXPECT_EQ(storage.shareWithId("a")->AclToken, "a/b");
    EXPECT_EQ(storage.shareWithId("a")->GateWayUrl, "d1.example");
    storage.setShareJournalTick("a", 77, VHDate{5});
    storage.updateShares(loginWith({fresh}), makeDomain("d1"));
    EXPECT_EQ(storage.shareWithId("a")->LastApplyedJournalTick, 77);
    EXPECT_EQ(storage.shareWithId("a")->ModificationDate, VHDate{5});
}

TEST(VHMetadataStorage, StoredFileRoundTripSkipsUnreadableEntries) {
    {
        VHMetadataStorage storage;
        ManagedShare share = makeShare("a", "Caf\xC3\xA9");
        share.TransmitCounter = 3;
        storage.updateShares(loginWith({share, makeShare("b", "Other")}), makeDomain("d1"));
        storage.renameShare("b", "Renamed");
        storage.setShareJournalTick("a", 12, VHDate{99});
        storage.setGlobalLoginResponce(R"({"Wipe":false,"ErrorCode":"U100"})");
    }
    std::optional<VHPropertyList> file = VHPropertyList::read(VHMetadataStorage::storagePath());
    ASSERT_TRUE(file);
    ASSERT_EQ(file->arrays["shares"].size(), 2u);  // the temporary share is not stored
    file->arrays["shares"].push_back("{ not json");
    file->arrays["shares"].push_back(R"({"AssociationType":0,"Status":0,"ShareChanged":false,)"
                                     R"("Online":false,"TransmitCounter":0,)"
                                     R"("LastApplyedJournalTick":0})");
    ASSERT_TRUE(file->write(VHMetadataStorage::storagePath()));

    VHLogRecorder log;
    VHMetadataStorage storage;
    storage.load();
    EXPECT_TRUE(log.contains("Warning! Cannot deserialize share from metadata storage."));
    EXPECT_TRUE(log.contains("Warning! Deserialized share doesn't have share id!"));
    EXPECT_EQ(storage.shares().size(), 3u);  // a, b and the temporary share
    std::optional<ManagedShare> a = storage.shareWithId("a");
    EXPECT_EQ(a->displayName(), "Cafe\xCC\x81");
    EXPECT_EQ(a->LastApplyedJournalTick, 12);
    EXPECT_EQ(a->TransmitCounter, 0);
    EXPECT_EQ(a->DomainId, "d1");
    EXPECT_EQ(storage.shareWithPath("/caf\xC3\xA9")->shareId(), "a");
    EXPECT_EQ(displayName(storage, "b"), "Renamed");
    EXPECT_EQ(storage.globalLoginResponce(), R"({"Wipe":false,"ErrorCode":"U100"})");

    storage.clear();
    EXPECT_FALSE(std::filesystem::exists(VHMetadataStorage::storagePath()));
    EXPECT_TRUE(storage.storageEmpty());
}

TEST(VHMetadataStorage, DelayedSavesAreCoalesced) {
    VHLogRecorder log;
    VHMetadataStorage storage;
    for (int i = 0; i < 5; ++i) {
        storage.updateShares(loginWith({makeShare("s" + std::to_string(i), "Share")}),
                             makeDomain("d" + std::to_string(i)));
    }
    EXPECT_FALSE(std::filesystem::exists(VHMetadataStorage::storagePath()));
    EXPECT_TRUE(VHWaitUntil([&] { return log.contains("Saving file metadata..."); },
                            std::chrono::seconds(15)));
    VHWaitUntil([] { return false; }, std::chrono::seconds(1));
    EXPECT_EQ(log.count("Saving file metadata..."), 1);
    EXPECT_EQ(VHPropertyList::read(VHMetadataStorage::storagePath())->arrays["shares"].size(), 5u);

    storage.shutdown().beginTermination();
    storage.saveDelayed();
    EXPECT_EQ(log.count("Saving file metadata..."), 2);
}

}  // namespace
}  // namespace vh::test
