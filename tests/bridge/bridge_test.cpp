#include "bridge/PlatformBridge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using ::testing::UnorderedElementsAre;

namespace {

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

// A scratch folder removed at the end of the test.
class ScratchDir {
public:
    ScratchDir() {
        std::string pattern = (fs::temp_directory_path() / "bridge_test.XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~ScratchDir() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

void Touch(const std::string& path) {
    std::ofstream(path) << "x";
}

// Sets or unsets an environment variable for the life of the object.
class EnvOverride {
public:
    EnvOverride(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) old_ = old;
        if (value != nullptr) {
            setenv(name, value, 1);
        } else {
            unsetenv(name);
        }
    }
    ~EnvOverride() {
        if (old_) {
            setenv(name_.c_str(), old_->c_str(), 1);
        } else {
            unsetenv(name_.c_str());
        }
    }

private:
    std::string name_;
    std::optional<std::string> old_;
};

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

TEST(bridge_test, utf8_decoding_repairs_invalid_sequences_with_replacement_characters) {
    const std::pair<const char*, std::u16string> cases[] = {
        {"\xF0\x9F\x98\x80", u"\U0001F600"},  // a surrogate pair
        {"\xFF", u"\uFFFD"},                  // a lone invalid byte: one replacement
        {"a\xE2\x82"
         "b",
         u"a\uFFFDb"},                              // truncated sequence: one replacement
        {"\xC0\xAF", u"\uFFFD\uFFFD"},              // overlong form: each byte replaced
        {"\xED\xA0\x80x", u"\uFFFD\uFFFD\uFFFDx"},  // encoded surrogate
        {"Gr\xC3\xBC\xC3\x9F", u"Grüß"},
    };
    for (const auto& [utf8, utf16] : cases)
        EXPECT_EQ(ToUtf16(utf8), utf16) << utf8;
    EXPECT_EQ(ToUtf16("\xF0\x9F\x98\x80").size(), 2u);
}

TEST(bridge_test, utf8_decoding_of_null_or_empty_text_gives_a_count_of_zero) {
    int32_t count = -1;
    EXPECT_EQ(ST_Utf8ToUtf16(nullptr, &count), nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(ST_Utf8ToUtf16(nullptr, nullptr), nullptr);
    count = -1;
    uint16_t* units = ST_Utf8ToUtf16("", &count);
    EXPECT_EQ(count, 0);
    ST_FreeUtf16(units);
}

TEST(bridge_test, utf16_encoding_repairs_every_unpaired_surrogate_and_keeps_pairs) {
    const std::pair<std::u16string, const char*> cases[] = {
        {{char16_t(0xD800)}, "\xEF\xBF\xBD"},  // a lone high surrogate
        {u"\U0001F600", "\xF0\x9F\x98\x80"},
        {{u'a', char16_t(0xDC00), u'b', char16_t(0xD83D), u'c', char16_t(0xD83D)},
         "a\xEF\xBF\xBD"
         "b\xEF\xBF\xBD"
         "c\xEF\xBF\xBD"},
        {u"é€", "\xC3\xA9\xE2\x82\xAC"},
        {u"", ""},  // zero units: an empty terminated string
    };
    for (const auto& [utf16, utf8] : cases)
        EXPECT_EQ(ToUtf8(utf16), utf8) << utf8;
}

TEST(bridge_test, null_units_negative_counts_and_null_frees_are_refused_or_ignored) {
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
    EXPECT_EQ(fold(u"Straße"), u"strasse");  // one character becomes two
    EXPECT_EQ(fold(u"ÄÖÜ"), u"äöü");
    EXPECT_EQ(fold(u"ΣΑΣ"), u"σασ");    // no final-sigma rule: folding ignores context
    EXPECT_EQ(fold(u"İ"), u"i\u0307");  // no Turkish locale
    EXPECT_EQ(fold(std::u16string{u'A', char16_t(0xD800)}), u"a\uFFFD");
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

TEST(bridge_test, app_support_path_is_an_absolute_xdg_data_home_else_the_local_share_folder_of_home) {
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
    for (const auto& c : cases) {
        EnvOverride data("XDG_DATA_HOME", c.xdg);
        EnvOverride home("HOME", c.home);
        EXPECT_EQ(TakeAppSupportPath(), c.path) << (c.xdg ? c.xdg : "(unset)");
    }
}

TEST(bridge_test, create_directory_makes_missing_parents_and_accepts_an_existing_folder) {
    ScratchDir dir;
    const std::string nested = dir / "a/b//c/";
    EXPECT_TRUE(ST_CreateDirectory(nested.c_str()));
    EXPECT_TRUE(fs::is_directory(dir / "a/b/c"));
    EXPECT_TRUE(ST_CreateDirectory(nested.c_str()));
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

TEST(bridge_test, listing_folds_the_extension_case_and_includes_hidden_items_and_sub_folders) {
    ScratchDir dir;
    for (const char* name : {"a.svg", "B.Svg", "c.txt", "svg", ".hidden.ini", "bad\xFF.ini"})
        Touch(dir / name);
    fs::create_directory(dir / "folder.ini");
    EXPECT_THAT(ListFiles(dir.path(), ".SVG"), UnorderedElementsAre(dir / "a.svg", dir / "B.Svg"));
    // Folder and name are joined with exactly one slash; names that are not UTF-8 are repaired.
    EXPECT_THAT(ListFiles(dir.path() + "//", ".ini"),
                UnorderedElementsAre(dir / ".hidden.ini", dir / "folder.ini", dir / "bad\xEF\xBF\xBD.ini"));
    EXPECT_THAT(ListFiles(dir.path(), ""),
                UnorderedElementsAre(dir / "a.svg", dir / "B.Svg", dir / "c.txt", dir / "svg",
                                     dir / ".hidden.ini", dir / "bad\xEF\xBF\xBD.ini", dir / "folder.ini"));
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

TEST(bridge_death_test, freeing_a_list_with_a_negative_count_stops_the_process) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    uint16_t** list = static_cast<uint16_t**>(std::calloc(1, sizeof(uint16_t*)));
    EXPECT_DEATH(ST_FreeEnumFiles(list, -1), "");
    std::free(list);
}
