#include <gtest/gtest.h>

#include "lib/VHFormat.h"

namespace vh {

struct Pair {
    int a, b;
};
std::string VHDescription(const Pair& p) {
    return std::to_string(p.a) + "/" + std::to_string(p.b);
}

TEST(VHFormat, RendersEachConversionWithTheArgumentsRealType) {
    EXPECT_EQ(VHFormat("Update query %@ failed: %@", std::string("SELECT 1"), "busy"),
              "Update query SELECT 1 failed: busy");
    EXPECT_EQ(VHFormat("(%ld, %ld) tick %d", int64_t{-5}, uint64_t{18446744073709551615ull}, 7),
              "(-5, 18446744073709551615) tick 7");
    EXPECT_EQ(VHFormat("%04d-%02d %08x %.2f %5s|%-3s|", 7, 3, 255u, 2.345, "ab", "c"),
              "0007-03 000000ff 2.35    ab|c  |");
    EXPECT_EQ(VHFormat("100%% of %@ and %@", Pair{1, 2}, QString("q")), "100% of 1/2 and q");
    // A number given where text is expected, and text where a number is: no crash, best effort.
    EXPECT_EQ(VHFormat("%s %d", 42, std::string("17")), "42 17");
}

TEST(VHFormat, ToleratesMissingArgumentsAndTruncatedConversions) {
    EXPECT_EQ(VHFormat("a %@ b %d c"), "a  b  c");
    EXPECT_EQ(VHFormat("ends with %l", 1), "ends with %l");
}

}  // namespace vh
