// Path classification and the redirection of temporary save folders.
#include <gtest/gtest.h>

#include "drive/VHFusePathMapping.h"
#include "drive/VHFuseUtils.h"
#include "store/VHDatabase.h"

namespace vh {

TEST(VHFusePaths, TemporarySaveFoldersLiveInTheTempArea) {
    EXPECT_EQ(keyFromPath("/Share/docs/report.docx.sb-a1b2/report.docx"),
              "report.docx.sb-a1b2/report.docx");
    EXPECT_EQ(keyFromPath("/Share/(A Document Being Saved By Writer)"),
              "(A Document Being Saved By Writer)");
    EXPECT_EQ(keyFromPath("/Share/docs/report.docx"), "");

    VHStringMap& archive = VHDatabase::database().archiveMap();
    archive.set("report.docx.sb-a1b2", "/.TempFiles/report.docx.sb-a1b2");
    // The folder itself, and an item inside it, map into the temp area.
    EXPECT_EQ(finalPath("/Share/docs/report.docx.sb-a1b2"), "/.TempFiles/report.docx.sb-a1b2");
    EXPECT_EQ(finalPath("/Share/docs/report.docx.sb-a1b2/report.docx"),
              "/.TempFiles/report.docx.sb-a1b2/report.docx");
    // Anything else stays where it is, the root included.
    EXPECT_EQ(finalPath("/Share/docs/report.docx"), "/Share/docs/report.docx");
    EXPECT_EQ(finalPath("/Share/docs/other.sb-ffff/x"), "/Share/docs/other.sb-ffff/x");
    EXPECT_EQ(finalPath("/"), "/");
    archive.clear();
}

TEST(VHFusePaths, RootShareAndItemPaths) {
    EXPECT_TRUE(VHFuseUtils::isRootPath("/"));
    EXPECT_TRUE(VHFuseUtils::isRootPath(""));
    EXPECT_TRUE(VHFuseUtils::isSharePath("/Share"));
    EXPECT_TRUE(VHFuseUtils::isSharePath("/Share/"));
    EXPECT_TRUE(VHFuseUtils::isSharePath("/S"));
    EXPECT_FALSE(VHFuseUtils::isSharePath("/Share/item"));
    EXPECT_FALSE(VHFuseUtils::isSharePath("/Share/item/"));
    EXPECT_TRUE(VHFuseUtils::isPathInFolder("/Share/a", "/Share"));
    EXPECT_TRUE(VHFuseUtils::isPathInFolder("/Share", "/Share"));
    EXPECT_FALSE(VHFuseUtils::isPathInFolder("/Shared/a", "/Share"));
    EXPECT_FALSE(VHFuseUtils::isPathInFolder("/Share/a", ""));
    EXPECT_EQ(VHFuseUtils::filenameFromPath("/Share/report.final.pdf"), "report.final");

    VHFuseUtils::setMountPath("/home/u/Varnholt");
    EXPECT_EQ(VHFuseUtils::fullPathToRelative("/home/u/Varnholt/Share/A.txt"), "/Share/A.txt");
    EXPECT_EQ(VHFuseUtils::fullPathToRelative("/home/u/Varnholt"), "/");
    // Another case, or a longer name, is another folder.
    EXPECT_EQ(VHFuseUtils::fullPathToRelative("/HOME/u/varnholt/Share/A.txt"), "");
    EXPECT_EQ(VHFuseUtils::fullPathToRelative("/home/u/Varnholt2/Share"), "");
    EXPECT_EQ(VHFuseUtils::fullPathToRelative("/home/u/Other/x"), "");
    EXPECT_EQ(VHFuseUtils::relativePathToFull("/Share/A.txt"), "/home/u/Varnholt/Share/A.txt");
}

}  // namespace vh
