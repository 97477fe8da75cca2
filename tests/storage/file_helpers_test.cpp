#include "storage/FileHelpers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/storage/TestSupport.h"

namespace fs = std::filesystem;
using brivane_test::ScratchDataHome;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

namespace {

std::u16string U16(const std::string& utf8) {
    return Utf8ToUtf16(utf8);
}

std::vector<std::string> ToUtf8(const std::vector<std::u16string>& paths) {
    std::vector<std::string> result;
    for (const auto& path : paths)
        result.push_back(Utf16ToUtf8(path));
    return result;
}

}  // namespace

TEST(file_helpers_test, data_paths_lie_under_the_data_home) {
    ScratchDataHome home;
    EXPECT_EQ(Utf16ToUtf8(GetAppDirectory()), home.root());
    EXPECT_EQ(Utf16ToUtf8(GetPluginDir(true)), home.root() + "/quorvel/brivane/preset/");
    EXPECT_EQ(Utf16ToUtf8(GetPluginDir(false)), home.root() + "/quorvel/brivane/guide/");
    EXPECT_THAT(Utf16ToUtf8(GetPluginDataPath(u"abc", false)), EndsWith("/quorvel/brivane/guide/abc.svg"));
    EXPECT_EQ(Utf16ToUtf8(GetPluginDataPath(u"abc", true)), home.PresetPath("abc"));
    EXPECT_EQ(GetIniFilePath(u"abc"), GetPluginDataPath(u"abc", true));
}

TEST(file_helpers_test, listing_folds_extension_case_and_keeps_sub_folders) {
    ScratchDataHome home;
    const std::string dir = home.root() + "/list";
    EXPECT_THAT(EnumFiles(U16(dir), u".ini"), IsEmpty());  // no folder yet
    fs::create_directory(dir);
    for (const char* name : {"A.INI", "b.ini", "c.txt"})
        ScratchDataHome::Write(dir + "/" + name, "x");
    fs::create_directory(dir + "/d.ini");
    EXPECT_THAT(ToUtf8(EnumFiles(U16(dir), u".ini")),
                UnorderedElementsAre(dir + "/A.INI", dir + "/b.ini", dir + "/d.ini"));
}

TEST(file_helpers_test, reading_gives_the_bytes_as_they_stand_or_nothing) {
    ScratchDataHome home;
    const std::string path = home.root() + "/bom.ini";
    const std::string bytes("\xEF\xBB\xBF[guide]\r\nname=a\0b\n", 22);
    ScratchDataHome::Write(path, bytes);
    EXPECT_EQ(ReadAllText(path), bytes);
    EXPECT_EQ(ReadAllText(U16(path)), bytes);
    EXPECT_EQ(ReadAllText(path).substr(0, 3), "\xEF\xBB\xBF");

    char* buffer = nullptr;
    ReadAllText(path.c_str(), &buffer);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(std::string(buffer, bytes.size()), bytes);
    delete[] buffer;

    // What cannot be opened gives nothing and leaves the buffer alone; a folder has no bytes to give.
    const std::string missing = home.root() + "/missing.ini";
    EXPECT_EQ(ReadAllText(missing), "");
    EXPECT_EQ(ReadAllText(U16(missing)), "");
    EXPECT_EQ(ReadAllText(home.root()), "");
    char sentinel = 0;
    buffer = &sentinel;
    ReadAllText(missing.c_str(), &buffer);
    EXPECT_EQ(buffer, &sentinel);
    ReadAllText(nullptr, &buffer);
    EXPECT_EQ(buffer, &sentinel);
}

TEST(file_helpers_test, writing_replaces_the_file_with_the_exact_bytes_and_never_makes_folders) {
    ScratchDataHome home;
    const std::string path = home.root() + "/out.ini";
    ScratchDataHome::Write(path, "an older and longer content");
    const std::string bytes("a\r\nb\0c", 6);
    ASSERT_TRUE(WriteAllText(U16(path), bytes));
    EXPECT_EQ(ScratchDataHome::Read(path), bytes);
    EXPECT_FALSE(WriteAllText(U16(home.root() + "/no/such/folder/a.ini"), "x"));
    EXPECT_FALSE(fs::exists(home.root() + "/no"));
    // The binary writer is a stub: it reports success and writes nothing.
    EXPECT_TRUE(WriteBinaryFile((home.root() + "/blob.bin").c_str(), "abc", 3));
    EXPECT_FALSE(fs::exists(home.root() + "/blob.bin"));
}

TEST(file_helpers_test, only_regular_files_exist_and_data_folders_are_created_with_their_parents) {
    ScratchDataHome home;
    ScratchDataHome::Write(home.root() + "/file.ini", "x");
    EXPECT_TRUE(FileExists(U16(home.root() + "/file.ini")));
    EXPECT_FALSE(FileExists(U16(home.root())));
    EXPECT_FALSE(FileExists(U16(home.root() + "/missing")));
    EXPECT_FALSE(FileExists(u""));
    EXPECT_TRUE(fs::is_directory(home.root() + "/quorvel/brivane/preset"));
    EXPECT_TRUE(fs::is_directory(home.root() + "/quorvel/brivane/guide"));
    EXPECT_TRUE(CreateDataDirectory(GetPluginDir(true)));  // already there
    EXPECT_TRUE(CreateDataDirectory(U16(home.root() + "/x/y/z")));
    EXPECT_TRUE(fs::is_directory(home.root() + "/x/y/z"));
    EXPECT_FALSE(CreateDataDirectory(u""));
}
