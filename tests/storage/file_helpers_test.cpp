#include "storage/FileHelpers.h"

#include <gtest/gtest.h>

#include "tests/storage/TestSupport.h"

TEST(file_helpers_test, data_paths_lie_under_the_data_home) {
    brivane_test::ScratchDataHome home;
    EXPECT_EQ(Utf16ToUtf8(GetAppDirectory()), home.root());
    EXPECT_EQ(Utf16ToUtf8(GetPluginDir(true)), home.root() + "/quorvel/brivane/preset/");
    EXPECT_EQ(Utf16ToUtf8(GetPluginDataPath(u"abc", false)), home.GuidePath("abc"));
    EXPECT_EQ(Utf16ToUtf8(GetIniFilePath(u"abc")), home.PresetPath("abc"));
}

TEST(file_helpers_test, names_drop_folders_and_only_the_last_extension) {
    EXPECT_EQ(GetFileNameWithoutExt(u"a/b\\c.d.ini"), u"c.d");
    EXPECT_EQ(GetFileNameWithoutExt(u"guide/.ini"), u".ini");
    EXPECT_EQ(GetFileNameWithoutExt(u"wave"), u"wave");
}
