// The bridge contract, the same file for every system's bridge (Linux, Windows under Wine, Foundation on
// GNUstep): they must agree case by case. Only where the data home comes from differs by system.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "bridge/PlatformBridge.h"
#include "tests/support/TestSystem.h"

namespace fs = std::filesystem;
using brivane_test::Utf8Path;
using ::testing::UnorderedElementsAreArray;

namespace {

constexpr std::string_view kBridge = BRIVANE_BRIDGE_NAME;

std::u16string ToUtf16(const char* text) {
    int32_t count = -1;
    uint16_t* units = ST_Utf8ToUtf16(text, &count);
    std::u16string result;
    if (units != nullptr) result.assign(units, units + count);
    ST_FreeUtf16(units);
    return result;
}

std::string ToUtf8(const std::u16string& text) {
    char* bytes =
        ST_Utf16ToUtf8(reinterpret_cast<const uint16_t*>(text.data()), static_cast<int32_t>(text.size()));
    std::string result = bytes != nullptr ? bytes : "<null>";
    ST_FreeUtf8(bytes);
    return result;
}

// A scratch folder, as UTF-8 text, removed at the end of the test.
class ScratchDir {
public:
    ScratchDir() : path_(brivane_test::Utf8Text(brivane_test::MakeScratchFolder("bridge_test."))) {}
    ~ScratchDir() {
        std::error_code ignored;
        fs::remove_all(Utf8Path(path_), ignored);
    }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

void Touch(const std::string& path) {
    std::ofstream(Utf8Path(path)) << "x";
}

std::string TakeAppSupportPath() {
    char* path = ST_GetAppSupportPath();
    std::string result = path != nullptr ? path : "<null>";
    ST_FreeUtf8(path);
    return result;
}

std::vector<std::string> ListFiles(const std::string& folder, const char* extension) {
    int32_t count = -1;
    uint16_t** files = ST_EnumFiles(folder.c_str(), extension, &count);
    std::vector<std::string> names;
    for (int32_t i = 0; i < count; ++i)
        names.push_back(ToUtf8(std::u16string(reinterpret_cast<char16_t*>(files[i]))));
    ST_FreeEnumFiles(files, count);
    return names;
}

}  // namespace

// The repair itself is checked against ICU for every code point (icu_test); here, that every system's
// bridge hands it out.
TEST(bridge_test, transcoding_repairs_invalid_text_with_replacement_characters_both_ways) {
    EXPECT_EQ(ToUtf16("\xF0\x9F\x98\x80 \xC0\xAF a\xE2\x82 \xE9\x9B\x86"),
              u"\U0001F600 \uFFFD\uFFFD a\uFFFD 集");
    EXPECT_EQ(ToUtf8({u'a', char16_t(0xDC00), u'b', char16_t(0xD83D), char16_t(0xDE00), char16_t(0xD83D)}),
              "a\xEF\xBF\xBD"
              "b\xF0\x9F\x98\x80\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(u""), "");  // zero units: an empty terminated string
}

TEST(bridge_test, null_or_empty_text_negative_counts_and_null_frees_are_refused_or_ignored) {
    int32_t count = -1;
    EXPECT_EQ(ST_Utf8ToUtf16(nullptr, &count), nullptr);
    EXPECT_EQ(ST_Utf8ToUtf16(nullptr, nullptr), nullptr);
    EXPECT_EQ(count, 0);
    count = -1;
    ST_FreeUtf16(ST_Utf8ToUtf16("", &count));
    EXPECT_EQ(count, 0);
    const uint16_t units[] = {u'x'};
    EXPECT_EQ(ST_Utf16ToUtf8(nullptr, 0), nullptr);
    EXPECT_EQ(ST_Utf16ToUtf8(units, -1), nullptr);
    char* empty = ST_Utf16ToUtf8(units, 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty[0], '\0');
    ST_FreeUtf8(empty);
    ST_FreeUtf16(nullptr);
    ST_FreeUtf8(nullptr);
    ST_FreeEnumFiles(nullptr, 5);
}

TEST(bridge_test, folding_follows_unicode_rather_than_ascii) {
    auto fold = [](const std::u16string& text) {
        std::vector<uint16_t> out(text.size() * 3 + 16);
        const int32_t n =
            ST_ToLowerCase(reinterpret_cast<const uint16_t*>(text.data()), static_cast<int32_t>(text.size()),
                           out.data(), static_cast<int32_t>(out.size()));
        return n < 0 ? u"<error>" : std::u16string(out.begin(), out.begin() + n);
    };
    const std::pair<std::u16string, std::u16string> cases[] = {
        {u"Straße", u"strasse"},  // one character becomes two
        {u"ÄÖÜ.INI", u"äöü.ini"},
        {u"ΣΑΣ ς", u"σασ σ"},            // no final-sigma rule: folding ignores context
        {u"İ", u"i\u0307"},              // no Turkish locale
        {u"\u00B5\u017F", u"\u03BCs"},   // micro sign and long s fold to the letters they stand for
        {u"集中線.SVG", u"集中線.svg"},  // no case: unchanged
        {{u'A', char16_t(0xD800)}, u"a\uFFFD"},
    };
    for (const auto& [text, folded] : cases)
        EXPECT_EQ(fold(text), folded) << ToUtf8(text);
}

TEST(bridge_test, folding_fills_a_destination_that_fits_and_leaves_a_short_one_untouched) {
    const uint16_t abc[] = {u'A', u'B', u'C'};
    uint16_t out[3] = {u'?', u'?', u'?'};
    EXPECT_EQ(ST_ToLowerCase(abc, 3, out, 2), ST_ERROR_CAPACITY);
    EXPECT_EQ(std::u16string(out, out + 3), u"???");
    ASSERT_EQ(ST_ToLowerCase(abc, 3, out, 3), 3);
    EXPECT_EQ(std::u16string(out, out + 3), u"abc");
    EXPECT_EQ(ST_ToLowerCase(abc, 0, out, 0), 0);
    EXPECT_EQ(ST_ToLowerCase(abc, 3, nullptr, 8), ST_ERROR_ARGUMENT);
    EXPECT_EQ(ST_ToLowerCase(nullptr, 3, out, 8), ST_ERROR_ARGUMENT);
    EXPECT_EQ(ST_ToLowerCase(abc, -1, out, 8), ST_ERROR_ARGUMENT);
    EXPECT_EQ(ST_ToLowerCase(abc, 3, out, -1), ST_ERROR_ARGUMENT);
}

TEST(bridge_test, app_support_path_is_an_existing_absolute_folder_without_a_trailing_separator) {
    const std::string path = TakeAppSupportPath();
    ASSERT_NE(path, "<null>");
    EXPECT_TRUE(Utf8Path(path).is_absolute()) << path;
    EXPECT_NE(path.back(), '/');
    EXPECT_NE(path.back(), '\\');
    if (kBridge == "windows") {
        EXPECT_EQ(path, std::getenv("APPDATA"));  // the roaming folder
    }
}

TEST(bridge_test, app_support_path_on_linux_is_an_absolute_xdg_data_home_else_under_home) {
    if (kBridge != "linux") GTEST_SKIP() << "the XDG rules are the Linux bridge's own";
    const struct {
        const char* xdg;
        const char* home;
        const char* path;
    } cases[] = {
        {"/srv/data/home/", "/home/someone", "/srv/data/home"},  // without its trailing slash
        {nullptr, "/home/someone", "/home/someone/.local/share"},
        {"", "/home/someone", "/home/someone/.local/share"},
        {"relative/path", "/home/someone", "/home/someone/.local/share"},
        {nullptr, nullptr, "<null>"},  // no home at all
    };
    const char* xdg = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    const std::string oldXdg = xdg ? xdg : "", oldHome = home ? home : "";
    for (const auto& c : cases) {
        brivane_test::SetEnv("XDG_DATA_HOME", c.xdg);
        brivane_test::SetEnv("HOME", c.home);
        EXPECT_EQ(TakeAppSupportPath(), c.path) << (c.xdg ? c.xdg : "(unset)");
    }
    brivane_test::SetEnv("XDG_DATA_HOME", xdg ? oldXdg.c_str() : nullptr);
    brivane_test::SetEnv("HOME", home ? oldHome.c_str() : nullptr);
}

TEST(bridge_test, create_directory_makes_missing_parents_and_accepts_an_existing_folder) {
    ScratchDir dir;
    for (const std::string& nested : {dir / "a/b//c/", dir / "データ/集中線"}) {
        EXPECT_TRUE(ST_CreateDirectory(nested.c_str())) << nested;
        EXPECT_TRUE(fs::is_directory(Utf8Path(nested))) << nested;
        EXPECT_TRUE(ST_CreateDirectory(nested.c_str())) << nested;
    }
    EXPECT_TRUE(ST_CreateDirectory(dir.path().c_str()));
}

TEST(bridge_test, create_directory_fails_below_a_regular_file_and_on_bad_arguments) {
    ScratchDir dir;
    Touch(dir / "file");
    EXPECT_FALSE(ST_CreateDirectory((dir / "file/sub").c_str()));
    EXPECT_FALSE(ST_CreateDirectory((dir / "file").c_str()));
    EXPECT_FALSE(ST_CreateDirectory(nullptr));
    EXPECT_FALSE(ST_CreateDirectory(""));
}

TEST(bridge_test, replacing_moves_a_file_over_another_or_to_a_new_name_and_leaves_both_alone_on_failure) {
    ScratchDir dir;
    std::ofstream(Utf8Path(dir / "new.tmp")) << "new";
    std::ofstream(Utf8Path(dir / "集中線.ini")) << "older";
    EXPECT_TRUE(ST_ReplaceFile((dir / "new.tmp").c_str(), (dir / "集中線.ini").c_str()));
    EXPECT_TRUE(ST_ReplaceFile((dir / "集中線.ini").c_str(), (dir / "moved.ini").c_str()));
    fs::create_directory(Utf8Path(dir / "folder.ini"));
    const std::string moved = dir / "moved.ini", folder = dir / "folder.ini", missing = dir / "missing";
    for (const auto& [from, to] : {std::pair{moved.c_str(), folder.c_str()},
                                   {missing.c_str(), moved.c_str()},
                                   {folder.c_str(), missing.c_str()},
                                   {nullptr, moved.c_str()},
                                   {moved.c_str(), nullptr}})
        EXPECT_FALSE(ST_ReplaceFile(from, to)) << (from ? from : "null") << " -> " << (to ? to : "null");
    EXPECT_EQ(fs::file_size(Utf8Path(moved)), 3u);  // the new one
    EXPECT_TRUE(fs::is_empty(Utf8Path(folder)));
    EXPECT_EQ(std::distance(fs::directory_iterator(Utf8Path(dir.path())), fs::directory_iterator()), 2);
}

TEST(bridge_test, listing_folds_the_extension_case_and_includes_hidden_items_sub_folders_and_any_script) {
    ScratchDir dir;
    ASSERT_TRUE(ST_CreateDirectory((dir / "波線").c_str()));
    const std::string folder = dir / "波線";
    std::vector<std::string> names = {"a.svg", "B.Svg",       "波線.SVG",  "c.txt",
                                      "svg",   ".hidden.ini", "集中線.ini"};
    // Only Linux file names can be bytes that are not UTF-8: they come back repaired.
    if (kBridge == "linux") names.push_back("bad\xFF.ini");
    for (const std::string& name : names)
        Touch(folder + "/" + name);
    fs::create_directory(Utf8Path(folder + "/folder.ini"));
    auto paths = [&folder](std::vector<std::string> names) {
        for (std::string& name : names)
            name = folder + "/" + name;
        return names;
    };
    EXPECT_THAT(ListFiles(folder, ".SVG"), UnorderedElementsAreArray(paths({"a.svg", "B.Svg", "波線.SVG"})));
    // Folder and name are joined with exactly one separator.
    std::vector<std::string> ini = {".hidden.ini", "folder.ini", "集中線.ini"};
    if (kBridge == "linux") ini.push_back("bad\xEF\xBF\xBD.ini");
    EXPECT_THAT(ListFiles(folder + "//", ".ini"), UnorderedElementsAreArray(paths(ini)));
    EXPECT_EQ(ListFiles(folder, "").size(), names.size() + 1);
}

TEST(bridge_test, listing_without_matches_gives_null_and_a_count_of_zero) {
    ScratchDir dir;
    Touch(dir / "a.txt");
    const std::string missing = dir / "missing";
    const std::pair<const char*, const char*> cases[] = {{dir.path().c_str(), ".svg"},
                                                         {missing.c_str(), ".svg"},
                                                         {nullptr, ".svg"},
                                                         {dir.path().c_str(), nullptr}};
    for (const auto& [folder, extension] : cases) {
        int32_t count = -1;
        EXPECT_EQ(ST_EnumFiles(folder, extension, &count), nullptr);
        EXPECT_EQ(count, 0);
    }
}

TEST(bridge_test, page_blocks_come_zeroed_and_writable_from_the_heap_and_from_the_system_alike) {
    EXPECT_EQ(ST_AllocatePages(0), nullptr);
    ST_FreePages(nullptr, 1 << 20);
    // Below, at and well past the size from which the system's pages are used, and one not a page multiple.
    for (const size_t bytes : {size_t{100}, size_t{1} << 20, (size_t{5} << 20) + 12345}) {
        auto* block = static_cast<unsigned char*>(ST_AllocatePages(bytes));
        ASSERT_NE(block, nullptr) << bytes;
        for (size_t i = 0; i < bytes; i += 4093)
            ASSERT_EQ(block[i], 0) << bytes << " at " << i;
        EXPECT_EQ(block[bytes - 1], 0);
        std::memset(block, 0xAB, bytes);
        EXPECT_EQ(block[bytes - 1], 0xAB);
        ST_FreePages(block, bytes);
    }
}

TEST(bridge_death_test, freeing_a_list_with_a_negative_count_stops_the_process) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    uint16_t** list = static_cast<uint16_t**>(std::calloc(1, sizeof(uint16_t*)));
    EXPECT_DEATH(ST_FreeEnumFiles(list, -1), "");
    std::free(list);
}
