#include <gtest/gtest.h>

#include "lib/VHCrypto.h"
#include "lib/VHStrings.h"

namespace vh {

TEST(VHCrypto, Base64AndAesRoundTripAndRejectBadInput) {
    for (const std::string& bytes :
         std::vector<std::string>{"", "p", "pa", "pas", std::string("\0\xff\x10 binary", 10)}) {
        EXPECT_EQ(VHBase64Decode(VHBase64Encode(bytes)), bytes);
    }
    EXPECT_EQ(VHBase64Encode("pässwörd"), "cMOkc3N3w7ZyZA==");
    EXPECT_FALSE(VHBase64Decode("abc"));
    EXPECT_FALSE(VHBase64Decode("ab!="));

    std::string key(32, 'k'), iv(16, 'i');
    auto cipher = VHAes256CbcEncrypt("user@example.com|share|file", key, iv);
    ASSERT_TRUE(cipher);
    EXPECT_EQ(cipher->size() % 16, 0u);
    EXPECT_EQ(VHAes256CbcDecrypt(*cipher, key, iv), "user@example.com|share|file");
    EXPECT_FALSE(VHAes256CbcDecrypt(*cipher, std::string(32, 'x'), iv));  // padding check fails
    EXPECT_FALSE(VHAes256CbcEncrypt("x", "short", iv));

    // Without padding, whole blocks in give as many bytes out; a partial block is refused.
    auto block = VHAes256CbcEncrypt(std::string(16, 'b'), key, iv, VHCipherPadding::None);
    ASSERT_TRUE(block);
    EXPECT_EQ(block->size(), 16u);
    EXPECT_EQ(VHAes256CbcDecrypt(*block, key, iv, VHCipherPadding::None), std::string(16, 'b'));
    EXPECT_FALSE(VHAes256CbcEncrypt(std::string(17, 'b'), key, iv, VHCipherPadding::None));
}

TEST(VHStrings, UnicodeFormsEscapingAndGuids) {
    EXPECT_EQ(VHDecomposed("Caf\u00e9"), "Cafe\u0301");
    EXPECT_EQ(VHLowercase("\u00c9T\u00c9"), "\u00e9t\u00e9");
    EXPECT_EQ(VHTrimmed(" \t name \n"), "name");
    EXPECT_EQ(VHEscapeURLValue("a b/c+d=é"), "a%20b%2Fc%2Bd%3D%C3%A9");
    EXPECT_EQ(VHRemovePercentEscapes("a%2Fb%zz%4"), "a/b%zz%4");
    std::string guid = VHGenerateGUID();
    EXPECT_EQ(guid.size(), 36u);
    EXPECT_EQ(guid.find_first_not_of("0123456789ABCDEF-"), std::string::npos);
    EXPECT_NE(guid, VHGenerateGUID());
}

}  // namespace vh
