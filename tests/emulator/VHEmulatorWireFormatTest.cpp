// The texts the emulator writes, pinned literally: dates as the service
// writes them and names as JSON escapes them, whatever form they came in.
#include <gtest/gtest.h>

#include "VHEmulatorTestSupport.h"

namespace vh::test {
namespace {

using nlohmann::json;

class EmulatorWireFormat : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(emulator.start({VHCompactSeed(), ""}));
        alice = VHLogIn(emulator, "alice@varnholt.test", "alice-pw");
        ASSERT_FALSE(alice.domainToken.empty());
    }

    // The raw catch-up text of "mine" after `tick`.
    std::string changesAfter(int64_t tick) {
        VHEmulatorReply reply = VHCatchUp(emulator, "mine", VHAclToken(alice, "mine"), tick);
        EXPECT_EQ(reply.status, 200);
        EXPECT_FALSE(reply.body.empty());
        return reply.body;
    }

    VHEmulatorProcess emulator;
    VHTestSession alice;
};

TEST_F(EmulatorWireFormat, DatesAreWrittenInOneFormWhateverFormTheyCameIn) {
    const std::pair<const char*, const char*> dates[] = {
        {"2021-06-30T23:59:59.250Z", "2021-06-30T23:59:59.250Z"},
        {"2021-06-30T23:59:59Z", "2021-06-30T23:59:59.000Z"},
        {"2021-07-01T01:59:59.2509999+02:00", "2021-06-30T23:59:59.250Z"},
        {"2024-02-29T00:00:00.5-0130", "2024-02-29T01:30:00.500Z"},
        {"1969-12-31T23:59:59.999Z", "1969-12-31T23:59:59.999Z"},
        {"0001-01-01T00:00:00.000Z", "0001-01-01T00:00:00.000Z"},
    };
    int64_t tick = (*emulator.tree("mine"))["tick"];
    for (const auto& [sent, written] : dates) {
        json folder = {{"InternalName", VHTestInternalName()},
                       {"ParrentId", "mine"},
                       {"PublicName", std::string("at ") + sent},
                       {"IsFile", false},
                       {"CreationTime", sent},
                       {"LastWriteTime", sent}};
        ASSERT_EQ(VHSendEvent(emulator, alice, "mine", 0, folder).status, 201) << sent;
        std::string text = changesAfter(tick++);
        EXPECT_NE(text.find(std::string("\"CreationTime\":\"") + written + "\""), std::string::npos)
            << sent << " in " << text;
        EXPECT_NE(text.find(std::string("\"LastWriteTime\":\"") + written + "\""),
                  std::string::npos)
            << sent;
    }
}

TEST_F(EmulatorWireFormat, NamesKeepTheirBytesAndTravelEscaped) {
    const std::pair<std::string, std::string> names[] = {
        {"Quote \" back \\ tab\t.txt", R"("PublicName":"Quote \" back \\ tab\t.txt")"},
        {"Gr\xC3\xBC\xC3\x9F"
         "e \xE2\x82\xAC.txt",
         "\"PublicName\":\"Gr\xC3\xBC\xC3\x9F"
         "e \xE2\x82\xAC.txt\""},
        {"colon: star* <angle>|pipe?.txt", R"("PublicName":"colon: star* <angle>|pipe?.txt")"},
        {std::string(255, 'n'), "\"PublicName\":\"" + std::string(255, 'n') + "\""},
    };
    int64_t tick = (*emulator.tree("mine"))["tick"];
    for (const auto& [name, written] : names) {
        json file = {{"InternalName", VHTestInternalName()},
                     {"ParrentId", "mine"},
                     {"PublicName", name},
                     {"IsFile", true},
                     {"EndOfFile", 0}};
        ASSERT_EQ(VHSendEvent(emulator, alice, "mine", 0, file).status, 201) << name;
        EXPECT_NE(changesAfter(tick++).find(written), std::string::npos) << name;
    }
    for (const std::string& refused : {std::string(256, 'n'), std::string("nul\0byte", 8),
                                       std::string("a/b"), std::string(".."), std::string(".")}) {
        json file = {{"ParrentId", "mine"}, {"PublicName", refused}, {"IsFile", true}};
        VHEmulatorReply reply = VHSendEvent(emulator, alice, "mine", 0, file);
        EXPECT_EQ(reply.status, 400) << refused.size();
        EXPECT_EQ(reply.json()["Code"], 1);
    }
    EXPECT_EQ((*emulator.tree("mine"))["tick"], tick);
}

}  // namespace
}  // namespace vh::test
