#include <gtest/gtest.h>

#include "lib/VHNameRules.h"
#include "lib/VHPathUtils.h"

namespace vh {

TEST(VHPathUtils, ComponentRulesOfDrivePaths) {
    EXPECT_EQ(VHPathComponents("/a/b/"), (std::vector<std::string>{"/", "a", "b"}));
    EXPECT_EQ(VHPathComponents("a//b"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(VHPathWithComponents({"/", "a", "b"}), "/a/b");
    EXPECT_EQ(VHLastPathComponent("/Share/"), "Share");
    EXPECT_EQ(VHLastPathComponent("/"), "/");
    EXPECT_EQ(VHDeletingLastPathComponent("/Share/x.txt"), "/Share");
    EXPECT_EQ(VHDeletingLastPathComponent("/Share"), "/");
    EXPECT_EQ(VHPathExtension("/a.b/archive.tar.gz"), "gz");
    EXPECT_EQ(VHPathExtension("/a.b/README"), "");
    EXPECT_EQ(VHDeletingPathExtension("/a/report.pdf"), "/a/report");
    EXPECT_EQ(VHAppendingPathComponent("/", "Share"), "/Share");
    EXPECT_EQ(VHAppendingPathComponent("/Share/", "/x"), "/Share/x");
}

TEST(VHNameRules, TemporaryIgnoredAndInvalidNames) {
    EXPECT_TRUE(VHIsTempFolder("report.docx.sb-1a2b3c"));
    EXPECT_TRUE(VHIsTempFolder("(A Document Being Saved By Writer)"));
    EXPECT_TRUE(VHIsTempFolder("movie.download"));
    EXPECT_FALSE(VHIsTempFolder("Downloads"));
    EXPECT_TRUE(VHIsInTempArea("/.TempFiles/x.sb-1"));
    EXPECT_FALSE(VHIsInTempArea("/Share/.TempFiles"));

    for (const char* ignored : {"", ".", "/S/~$report.docx", "/S/.hidden", "/S/a.tmp",
                                "/S/film.download", "/S/Icon\r", "/S/x.sb-12/y"}) {
        EXPECT_TRUE(VHIsPathIgnored(ignored)) << ignored;
    }
    for (const char* kept : {"/S/report.docx", "/S/tmp", "/S/a.tmp.txt", "/S/Icon"}) {
        EXPECT_FALSE(VHIsPathIgnored(kept)) << kept;
    }
    EXPECT_EQ(VHFixInvalidCharacters("a:b?c\\d/e*f\"g<h>i|j"), "a_b_c_d_e_f_g_h_i_j");
    EXPECT_EQ(VHFixInvalidCharacters("plain name.txt"), "plain name.txt");
    EXPECT_TRUE(VHContainsInvalidCharacters("what?"));
    EXPECT_FALSE(VHContainsInvalidCharacters("fine (1).txt"));
    EXPECT_FALSE(VHIsSafePathComponent(".."));
    EXPECT_FALSE(VHIsSafePathComponent("a/b"));
    EXPECT_FALSE(VHIsSafePathComponent(std::string("a\0b", 3)));
    EXPECT_TRUE(VHIsSafePathComponent("0a1b2c"));
}

}  // namespace vh
