#include "storage/Preset.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "storage/FileHelpers.h"
#include "tests/storage/TestSupport.h"

using brivane_test::DecimalCommaLocale;
using brivane_test::ScratchDataHome;
using ::testing::MatchesRegex;

namespace {

// The file that SavePreset writes for a fresh default record.
const std::string kDefaultPresetFile =
    "[guide]\ntype=radiate\np1=0.5,0.5\np2=0.5,0.325\np3=0.5,0.125\nname=:S\ncurvature=1\n\n"
    "[pen]\nsize=2\nhardness=1\nfluction=0\nin=500\nout=500\nasdist=false\neasing=false\n\n"
    "[line]\nposition=0\nposfluct=0\nlength=10\nlenfluct=0\nspacing=50\nspcfluct=0\nlengain=0\nspcgain=0\n"
    "connect=true\n";

MoveEffectIniParam DefaultPreset() {
    MoveEffectIniParam param;
    GetDefaultPreset(&param);
    return param;
}

MoveEffectIniParam Garbage() {
    MoveEffectIniParam param;
    std::memset(&param, 0x5A, sizeof param);
    return param;
}

MoveEffectIniReadFlag GarbageFlags() {
    MoveEffectIniReadFlag flags;
    std::memset(&flags, 0x5A, sizeof flags);
    return flags;
}

// Items in the preset folder: a save leaves nothing there but the preset.
long PresetFolderItems(const ScratchDataHome& home) {
    return std::distance(
        std::filesystem::directory_iterator(brivane_test::Utf8Path(home.root() + "/quorvel/brivane/preset")),
        {});
}

bool SameBytes(const MoveEffectIniParam& a, const MoveEffectIniParam& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The record of flags is 22 bools, one per key.
static_assert(sizeof(MoveEffectIniReadFlag) == 22);
int CountFlags(const MoveEffectIniReadFlag& flags) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&flags);
    return static_cast<int>(
        std::count_if(bytes, bytes + sizeof flags, [](unsigned char b) { return b != 0; }));
}

// Loads the given file content under the name "t".
struct Loaded {
    bool ok;
    MoveEffectIniParam param;
    MoveEffectIniReadFlag flags;
};

Loaded LoadText(const ScratchDataHome& home, const std::string& text) {
    home.WritePreset("t", text);
    Loaded loaded{false, Garbage(), GarbageFlags()};
    loaded.ok = LoadPreset(u"t", &loaded.param, &loaded.flags);
    return loaded;
}

}  // namespace

// Byte-exact comparison is stricter than field by field: LoadPreset and GetDefaultPreset both clear the
// whole record first, padding and the rest of the name included.
TEST(preset_test, default_preset_is_written_byte_for_byte_over_an_older_file_and_reads_back) {
    ScratchDataHome home;
    home.WritePreset("default", std::string(5000, 'x'));
    const MoveEffectIniParam saved = DefaultPreset();
    ASSERT_TRUE(SavePreset(u"default", &saved));
    EXPECT_EQ(ScratchDataHome::Read(home.PresetPath("default")), kDefaultPresetFile);
    EXPECT_EQ(PresetFolderItems(home), 1);
    MoveEffectIniParam loaded = Garbage();
    MoveEffectIniReadFlag flags = GarbageFlags();
    ASSERT_TRUE(LoadPreset(u"default", &loaded, &flags));
    EXPECT_TRUE(SameBytes(loaded, saved));
    EXPECT_EQ(CountFlags(flags), 22);
}

TEST(preset_test, a_save_that_cannot_complete_leaves_the_old_file_byte_for_byte_and_nothing_else) {
    ScratchDataHome home;
    const std::string old = "[pen]\nsize=7\n";
    home.WritePreset("old", old);
    std::filesystem::create_directory(brivane_test::Utf8Path(home.PresetPath("folder")));
    const MoveEffectIniParam param = DefaultPreset();
    EXPECT_FALSE(SavePreset(u"folder", &param));  // a folder in the preset's place is never replaced
    {
        brivane_test::FileSizeLimit fullDisk(kDefaultPresetFile.size() / 2);
        if (!fullDisk.active()) GTEST_SKIP() << "no file size limit on this system";
        EXPECT_FALSE(SavePreset(u"old", &param));
    }
    EXPECT_EQ(ScratchDataHome::Read(home.PresetPath("old")), old);
    EXPECT_EQ(PresetFolderItems(home), 2);
}

TEST(preset_test, a_missing_empty_or_too_large_file_fails_and_leaves_record_and_flags_alone) {
    ScratchDataHome home;
    std::string atLimit = "[pen]\nsize=3\n";
    atLimit.resize(kPresetMaxBytes, ';');  // a comment to the limit
    EXPECT_DOUBLE_EQ(LoadText(home, atLimit).param.size, 3.0);
    MoveEffectIniParam param = Garbage();
    MoveEffectIniReadFlag flags = GarbageFlags();
    EXPECT_FALSE(LoadPreset(u"missing", &param, &flags));
    home.WritePreset("empty", "");
    EXPECT_FALSE(LoadPreset(u"empty", &param, &flags));
    home.WritePreset("large", atLimit + ";");
    EXPECT_FALSE(LoadPreset(u"large", &param, &flags));
    EXPECT_TRUE(SameBytes(param, Garbage()));
    const MoveEffectIniReadFlag untouched = GarbageFlags();
    EXPECT_EQ(std::memcmp(&flags, &untouched, sizeof flags), 0);
    EXPECT_FALSE(LoadPreset(u"missing", nullptr, nullptr));
}

// Each text is loaded from the preset folder and its record and flags checked.
TEST(preset_test, reads_each_line_form_as_documented) {
    using Check = void (*)(const MoveEffectIniParam& p, const MoveEffectIniReadFlag& f);
    const struct {
        std::string text;
        Check check;
    } cases[] = {
        // Category headers are trimmed but case-sensitive; text after the bracket is ignored.
        {"  [ pen ]  \nsize=3\n", [](auto& p, auto& f) { EXPECT_TRUE(f.size && p.size == 3.0); }},
        // A header without its closing bracket keeps the current category.
        {"[pen]\n[line\nsize=3\nspacing=9\n", [](auto&, auto& f) { EXPECT_TRUE(f.size && !f.spacing); }},
        // Keys before any header, in the wrong or an unknown category, or in another case are ignored.
        {"size=1\n[guide]\nsize=2\n[colour]\nsize=3\n[pen]\nSize=4\nsize\nhardness=0.5\n",
         [](auto& p, auto& f) {
             EXPECT_TRUE(!f.size && p.size == 0.0 && f.hardness);
             EXPECT_EQ(CountFlags(f), 1);
         }},
        // Comments after a value and further equals signs are part of the value; bytes pass unchanged.
        {"[guide]\nname = my guide ; x=y\n[pen]\nsize = 3.5 ; big\n",
         [](auto& p, auto& f) {
             EXPECT_STREQ(p.name, "my guide ; x=y");
             EXPECT_TRUE(f.size && p.size == 3.5);
         }},
        {"[guide]\nname=\xFF\xFE\xC0\x80 guide\n[pen]\nsize=\xFF"
         "3\n",
         [](auto& p, auto& f) { EXPECT_TRUE(!f.size && std::string(p.name) == "\xFF\xFE\xC0\x80 guide"); }},
        // The last line counts without a line feed.
        {"[line]\nconnect=true", [](auto& p, auto& f) { EXPECT_TRUE(p.connect && f.connect); }},
        // Integers stop at the first non-digit and reject overflow.
        {"[pen]\nin=12.9\nout=abc\n", [](auto& p, auto& f) { EXPECT_TRUE(p.in == 12 && f.in && !f.out); }},
        {"[pen]\nin=99999999999\nout=-2147483648\n",
         [](auto& p, auto& f) { EXPECT_TRUE(!f.in && p.in == 0 && p.out == INT32_MIN); }},
        // Booleans take 1/0 and true/false in any letter case.
        {"[pen]\nasdist=TRUE\neasing=1\n[line]\nconnect=yes\n",
         [](auto& p, auto& f) { EXPECT_TRUE(p.asdist && p.easing && !f.connect); }},
        // Arrangement words in any letter case; no digits.
        {"[guide]\ntype=Circle\n", [](auto& p, auto& f) { EXPECT_TRUE(p.type == 2 && f.type); }},
        {"[guide]\ntype=2\n", [](auto&, auto& f) { EXPECT_FALSE(f.type); }},
        // Points need a comma, and keep x when only y is bad.
        {"[guide]\np1=0.1\np2=0.1,x\np3 = 0.25 , 0.75\n",
         [](auto& p, auto& f) {
             EXPECT_TRUE(!f.p1 && p.p1.x == 0.0);
             EXPECT_TRUE(!f.p2 && p.p2.x == 0.1 && p.p2.y == 0.0);
             EXPECT_TRUE(f.p3 && p.p3.x == 0.25 && p.p3.y == 0.75);
         }},
        // A repeated key keeps the last accepted value and the last verdict.
        {"[pen]\nsize=3\nsize=4\n[line]\nspacing=5\nspacing=big\n",
         [](auto& p, auto& f) { EXPECT_TRUE(p.size == 4.0 && f.size && p.spacing == 5 && !f.spacing); }},
        // Doubles out of range are rejected.
        {"[pen]\nsize=1e400\nhardness=-1e-400\nfluction=2.5e-3\n",
         [](auto& p, auto& f) { EXPECT_TRUE(!f.size && !f.hardness && p.fluction == 0.0025); }},
        // Names of up to 258 bytes.
        {"[guide]\nname=" + std::string(258, 'a') + "\n",
         [](auto& p, auto& f) { EXPECT_TRUE(f.name && std::strlen(p.name) == 258u); }},
        {"[guide]\nname=" + std::string(259, 'a') + "\n",
         [](auto& p, auto& f) { EXPECT_TRUE(!f.name && p.name[0] == '\0'); }},
    };
    ScratchDataHome home;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.text.substr(0, 80));
        const Loaded loaded = LoadText(home, row.text);
        ASSERT_TRUE(loaded.ok);
        row.check(loaded.param, loaded.flags);
    }
}

TEST(preset_test, numbers_use_a_decimal_point_under_a_decimal_comma_locale) {
    ScratchDataHome home;
    DecimalCommaLocale locale;
    if (!locale.active()) GTEST_SKIP() << "no locale with a decimal comma is available";
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 1.5);
    ASSERT_STREQ(probe, "1,5");  // the locale really is in force

    const MoveEffectIniParam param = DefaultPreset();
    ASSERT_TRUE(SavePreset(u"comma", &param));
    EXPECT_EQ(ScratchDataHome::Read(home.PresetPath("comma")), kDefaultPresetFile);
    EXPECT_EQ(_dtos(1234567.25, 2), "1234567.25");

    const Loaded loaded = LoadText(home, "[pen]\nsize=3.5\nin=1000\n[guide]\np1=0.25,0.75\n");
    EXPECT_DOUBLE_EQ(loaded.param.size, 3.5);
    EXPECT_EQ(loaded.param.in, 1000);
    EXPECT_DOUBLE_EQ(loaded.param.p1.y, 0.75);
}

// --- Bad preset files: whether they load and how many keys are taken from them. ---

namespace {

struct BadPreset {
    const char* name;
    bool loads;
    int flagsSet;
};

constexpr BadPreset kBadPresets[] = {
    {"empty", false, 0},
    {"one_byte", true, 0},
    {"binary_junk", true, 0},
    {"only_comments", true, 0},
    {"bom_before_guide", true, 16},  // the first header is hidden, so are the six guide keys
    {"crlf_line_ends", true, 22},
    {"unclosed_header", true, 0},
    {"wrong_case_header", true, 0},
    {"keys_without_header", true, 0},
    {"rejected_values", true, 0},
    {"nul_bytes", true, 1},        // a NUL ruins a value but not the text after a header's "]"
    {"truncated", true, 3},        // cut inside p3, after its ","
    {"mixed_line_ends", true, 1},  // a lone CR does not end a line
};

}  // namespace

TEST(preset_test, bad_preset_files_load_as_documented) {
    ScratchDataHome home;
    const std::filesystem::path folder = std::filesystem::path(BRIVANE_TEST_DATA_DIR) / "preset" / "bad";
    std::size_t listed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        listed += entry.path().extension() == ".ini";
    EXPECT_EQ(listed, std::size(kBadPresets)) << "every file in " << folder << " needs a row in the table";

    for (const BadPreset& bad : kBadPresets) {
        SCOPED_TRACE(bad.name);
        home.WritePreset(bad.name,
                         ScratchDataHome::Read((folder / (std::string(bad.name) + ".ini")).string()));
        MoveEffectIniParam param = Garbage();
        MoveEffectIniReadFlag flags = GarbageFlags();
        EXPECT_EQ(LoadPreset(Utf8ToUtf16(bad.name), &param, &flags), bad.loads);
        if (bad.loads) {
            EXPECT_EQ(CountFlags(flags), bad.flagsSet);
            EXPECT_LT(strnlen(param.name, sizeof param.name), sizeof param.name);
        }
    }
}

TEST(preset_test, default_points_exist_for_the_three_arrangements_only) {
    PathPoint point{7, 7};
    GetDefaultTargetPoint(2, 2, point);
    EXPECT_TRUE(point.x == 0.5 && point.y == 0.25);
    for (const auto& [type, index] : {std::pair{3, 0}, {-1, 0}, {0, 3}, {0, -1}}) {
        point = {7, 7};
        GetDefaultTargetPoint(type, index, point);
        EXPECT_TRUE(point.x == 7 && point.y == 7) << type << " " << index;
    }
}
