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

TEST(bridge_test, a_four_byte_character_becomes_a_surrogate_pair) {
    EXPECT_EQ(ToUtf16("\xF0\x9F\x98\x80"), u"\U0001F600");
    EXPECT_EQ(ToUtf16("\xF0\x9F\x98\x80").size(), 2u);
}

TEST(bridge_test, a_lone_invalid_byte_becomes_one_replacement_character) {
    int32_t count = -1;
    uint16_t* units = ST_Utf8ToUtf16("\xFF", &count);
    ASSERT_NE(units, nullptr);
    ASSERT_EQ(count, 1);
    EXPECT_EQ(units[0], 0xFFFD);
    ST_FreeUtf16(units);
}

TEST(bridge_test, invalid_utf8_sequences_are_repaired_in_place) {
    EXPECT_EQ(ToUtf16("a\xE2\x82"
                      "b"),
              u"a\uFFFDb");                                       // truncated sequence: one replacement
    EXPECT_EQ(ToUtf16("\xC0\xAF"), u"\uFFFD\uFFFD");              // overlong form: each byte replaced
    EXPECT_EQ(ToUtf16("\xED\xA0\x80x"), u"\uFFFD\uFFFD\uFFFDx");  // encoded surrogate
    EXPECT_EQ(ToUtf16("Gr\xC3\xBC\xC3\x9F"), u"Grüß");
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

TEST(bridge_test, a_lone_high_surrogate_becomes_the_three_bytes_of_the_replacement_character) {
    const uint16_t lone[] = {0xD800};
    char* bytes = ST_Utf16ToUtf8(lone, 1);
    ASSERT_NE(bytes, nullptr);
    EXPECT_STREQ(bytes, "\xEF\xBF\xBD");
    ST_FreeUtf8(bytes);
}

TEST(bridge_test, utf16_encoding_repairs_every_unpaired_surrogate_and_keeps_pairs) {
    EXPECT_EQ(ToUtf8(u"\U0001F600"), "\xF0\x9F\x98\x80");
    const std::u16string broken = {u'a', char16_t(0xDC00), u'b', char16_t(0xD83D), u'c', char16_t(0xD83D)};
    EXPECT_EQ(ToUtf8(broken),
              "a\xEF\xBF\xBD"
              "b\xEF\xBF\xBD"
              "c\xEF\xBF\xBD");
    EXPECT_EQ(ToUtf8(u"é€"), "\xC3\xA9\xE2\x82\xAC");
}

TEST(bridge_test, utf16_encoding_of_zero_units_is_an_empty_terminated_string) {
    const uint16_t unused[] = {u'x'};
    char* bytes = ST_Utf16ToUtf8(unused, 0);
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(bytes[0], '\0');
    ST_FreeUtf8(bytes);
}

TEST(bridge_test, utf16_encoding_rejects_null_units_and_negative_counts) {
    const uint16_t units[] = {u'x'};
    EXPECT_EQ(ST_Utf16ToUtf8(nullptr, 0), nullptr);
    EXPECT_EQ(ST_Utf16ToUtf8(units, -1), nullptr);
}

TEST(bridge_test, free_functions_ignore_null) {
    ST_FreeUtf16(nullptr);
    ST_FreeUtf8(nullptr);
    ST_FreeEnumFiles(nullptr, 5);
}

TEST(bridge_test, folding_fills_the_destination_when_it_fits) {
    const uint16_t abc[] = {u'A', u'B', u'C'};
    uint16_t out[3] = {};
    ASSERT_EQ(ST_ToLowerCase(abc, 3, out, 3), 3);
    EXPECT_EQ(std::u16string(out, out + 3), u"abc");
}

TEST(bridge_test, folding_into_a_short_destination_fails_and_leaves_it_untouched) {
    const uint16_t abc[] = {u'A', u'B', u'C'};
    uint16_t out[2] = {u'?', u'?'};
    EXPECT_EQ(ST_ToLowerCase(abc, 3, out, 2), ST_ERROR_CAPACITY);
    EXPECT_EQ(out[0], u'?');
    EXPECT_EQ(out[1], u'?');
}

TEST(bridge_test, folding_rejects_null_buffers_and_negative_counts) {
    const uint16_t abc[] = {u'A', u'B', u'C'};
    uint16_t out[8];
    EXPECT_EQ(ST_ToLowerCase(abc, 3, nullptr, 8), ST_ERROR_ARGUMENT);
    EXPECT_EQ(ST_ToLowerCase(nullptr, 3, out, 8), ST_ERROR_ARGUMENT);
    EXPECT_EQ(ST_ToLowerCase(abc, -1, out, 8), ST_ERROR_ARGUMENT);
    EXPECT_EQ(ST_ToLowerCase(abc, 3, out, -1), ST_ERROR_ARGUMENT);
    EXPECT_EQ(ST_ToLowerCase(abc, 0, out, 0), 0);
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

TEST(bridge_test, app_support_path_is_the_xdg_data_home_without_its_trailing_slash) {
    EnvOverride data("XDG_DATA_HOME", "/srv/data/home/");
    EXPECT_EQ(TakeAppSupportPath(), "/srv/data/home");
}

TEST(bridge_test, app_support_path_falls_back_to_the_local_share_folder_of_home) {
    EnvOverride home("HOME", "/home/someone");
    {
        EnvOverride data("XDG_DATA_HOME", nullptr);
        EXPECT_EQ(TakeAppSupportPath(), "/home/someone/.local/share");
    }
    {
        EnvOverride data("XDG_DATA_HOME", "");
        EXPECT_EQ(TakeAppSupportPath(), "/home/someone/.local/share");
    }
    {
        EnvOverride data("XDG_DATA_HOME", "relative/path");
        EXPECT_EQ(TakeAppSupportPath(), "/home/someone/.local/share");
    }
}

TEST(bridge_test, app_support_path_is_null_without_any_home) {
    EnvOverride data("XDG_DATA_HOME", nullptr);
    EnvOverride home("HOME", nullptr);
    EXPECT_EQ(ST_GetAppSupportPath(), nullptr);
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

TEST(bridge_test, listing_matches_the_extension_whatever_its_letter_case) {
    ScratchDir dir;
    Touch(dir / "a.svg");
    Touch(dir / "B.Svg");
    Touch(dir / "c.txt");
    Touch(dir / "svg");
    EXPECT_THAT(ListFiles(dir.path(), ".SVG"), UnorderedElementsAre(dir / "a.svg", dir / "B.Svg"));
}

TEST(bridge_test, listing_includes_hidden_items_and_sub_folders) {
    ScratchDir dir;
    Touch(dir / ".hidden.ini");
    fs::create_directory(dir / "folder.ini");
    Touch(dir / "other");
    EXPECT_THAT(ListFiles(dir.path(), ".ini"), UnorderedElementsAre(dir / ".hidden.ini", dir / "folder.ini"));
    EXPECT_THAT(ListFiles(dir.path(), ""),
                UnorderedElementsAre(dir / ".hidden.ini", dir / "folder.ini", dir / "other"));
}

TEST(bridge_test, listing_joins_folder_and_name_with_exactly_one_slash) {
    ScratchDir dir;
    Touch(dir / "a.ini");
    EXPECT_THAT(ListFiles(dir.path() + "//", ".ini"), UnorderedElementsAre(dir / "a.ini"));
}

TEST(bridge_test, listing_repairs_names_that_are_not_utf8) {
    ScratchDir dir;
    Touch(dir / "bad\xFF.ini");
    EXPECT_THAT(ListFiles(dir.path(), ".ini"), UnorderedElementsAre(dir / "bad\xEF\xBF\xBD.ini"));
}

TEST(bridge_test, listing_without_matches_gives_null_and_a_count_of_zero) {
    ScratchDir dir;
    Touch(dir / "a.txt");
    int32_t count = -1;
    EXPECT_EQ(ST_EnumFiles(dir.path().c_str(), ".svg", &count), nullptr);
    EXPECT_EQ(count, 0);
    count = -1;
    EXPECT_EQ(ST_EnumFiles((dir / "missing").c_str(), ".svg", &count), nullptr);
    EXPECT_EQ(count, 0);
    count = -1;
    EXPECT_EQ(ST_EnumFiles(nullptr, ".svg", &count), nullptr);
    EXPECT_EQ(count, 0);
    count = -1;
    EXPECT_EQ(ST_EnumFiles(dir.path().c_str(), nullptr, &count), nullptr);
    EXPECT_EQ(count, 0);
}

TEST(bridge_death_test, freeing_a_list_with_a_negative_count_stops_the_process) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    uint16_t** list = static_cast<uint16_t**>(std::calloc(1, sizeof(uint16_t*)));
    EXPECT_DEATH(ST_FreeEnumFiles(list, -1), "");
    std::free(list);
}
