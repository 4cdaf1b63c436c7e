#include <gtest/gtest.h>

#include "lib/VHJsonRecord.h"
#include "lib/VHLog.h"

namespace vh {

namespace {

struct Lock {
    std::optional<std::string> LockedBy;
    bool IsLocked = false;
    static auto jsonKeys() {
        return std::tuple{VHKey{"LockedBy", &Lock::LockedBy}, VHKey{"IsLocked", &Lock::IsLocked}};
    }
};

struct Item {
    std::string PublicName;
    uint64_t Tick = 0;
    int32_t Status = 0;
    std::optional<double> EndOfFile;
    std::optional<VHDate> LastWriteTime;
    std::optional<Lock> FileLock;
    std::optional<std::vector<Lock>> History;
    std::optional<VHJson> Extra;
    static auto jsonKeys() {
        return std::tuple{VHKey{"PublicName", &Item::PublicName},
                          VHKey{"Tick", &Item::Tick},
                          VHKey{"Status", &Item::Status},
                          VHKey{"EndOfFile", &Item::EndOfFile},
                          VHKey{"LastWriteTime", &Item::LastWriteTime},
                          VHKey{"FileLock", &Item::FileLock},
                          VHKey{"History", &Item::History},
                          VHKey{"Extra", &Item::Extra}};
    }
};

std::string parseError(std::string_view text) {
    std::string error;
    EXPECT_FALSE(VHParseRecord<Item>(text, &error)) << text;
    return error;
}

}  // namespace

TEST(VHJsonRecord, ParsesNestedRecordsAndIgnoresUnknownKeys) {
    auto item = VHParseRecord<Item>(R"({"PublicName":"a.txt","Tick":18446744073709551615,
        "Status":2,"EndOfFile":12.5,"LastWriteTime":"2024-03-05T14:03:22.250Z",
        "FileLock":{"IsLocked":1,"LockedBy":"bob"},"History":[{"IsLocked":false}],
        "Extra":[1,"x"],"Unknown":{"deep":[1,2]},"EndOfFileX":null})");
    ASSERT_TRUE(item);
    EXPECT_EQ(item->Tick, 18446744073709551615ull);
    EXPECT_EQ(item->Status, 2);
    EXPECT_EQ(item->EndOfFile, 12.5);
    EXPECT_DOUBLE_EQ(item->LastWriteTime->seconds, 1709647402.25);
    EXPECT_TRUE(item->FileLock->IsLocked);
    EXPECT_EQ(item->FileLock->LockedBy, "bob");
    EXPECT_FALSE((*item->History)[0].IsLocked);
    EXPECT_EQ(item->Extra->dump(), R"([1,"x"])");
}

TEST(VHJsonRecord, TicksRoundTripExactlyAndAbsentOptionalsStayAbsent) {
    Item item;
    item.PublicName = "b";
    item.Tick = 18446744073709551615ull;
    item.Status = -1;
    std::string text = VHSerializeRecord(item);
    EXPECT_EQ(text, R"({"PublicName":"b","Status":-1,"Tick":18446744073709551615})");
    auto back = VHParseRecord<Item>(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->Tick, item.Tick);
    EXPECT_FALSE(back->FileLock);
    // A negative tick from the service means the same bit pattern.
    EXPECT_EQ(VHParseRecord<Item>(R"({"PublicName":"","Tick":-1,"Status":0})")->Tick,
              18446744073709551615ull);
}

TEST(VHJsonRecord, FailsTheWholeRecordNamingTheKey) {
    EXPECT_EQ(parseError(R"({"Tick":1,"Status":0})"), "PublicName: missing required key");
    EXPECT_EQ(parseError(R"({"PublicName":null,"Tick":1,"Status":0})"),
              "PublicName: missing required key");
    EXPECT_EQ(parseError(R"({"PublicName":"a","Tick":"1","Status":0})"),
              "Tick: expected an integer");
    EXPECT_EQ(parseError(R"({"PublicName":"a","Tick":1,"Status":4294967296})"),
              "Status: integer out of range");
    EXPECT_EQ(parseError(R"({"PublicName":"a","Tick":1,"Status":0,"FileLock":{"LockedBy":"x"}})"),
              "FileLock.IsLocked: missing required key");
    EXPECT_EQ(
        parseError(
            R"({"PublicName":"a","Tick":1,"Status":0,"History":[{"IsLocked":true},{"IsLocked":"no"}]})"),
        "History[1].IsLocked: expected a boolean");
    EXPECT_EQ(parseError(R"({"PublicName":"a","Tick":1.5,"Status":0})"),
              "Tick: expected an integer");
    EXPECT_EQ(parseError(R"([1,2])"), "record: expected an object");
    EXPECT_EQ(parseError(R"({"PublicName":"a",)"), "not valid JSON");
}

TEST(VHJsonRecord, AnUnreadableDateIsNotAParseFailure) {
    std::vector<std::string> logged;
    VHSetLogSink([&](int, const std::string& m) { logged.push_back(m); });
    auto item =
        VHParseRecord<Item>(R"({"PublicName":"a","Tick":1,"Status":0,"LastWriteTime":"soon"})");
    VHSetLogSink({});
    ASSERT_TRUE(item);
    EXPECT_EQ(*item->LastWriteTime, VHDate::distantPast());
    EXPECT_EQ(logged, std::vector<std::string>{"Warning! Failed to parse date: soon"});
}

}  // namespace vh
