// A preset file of 100 MB: read to the end, nothing lost or broken. Labelled slow.
#include <gtest/gtest.h>

#include <string>

#include "storage/FileHelpers.h"
#include "storage/Preset.h"
#include "tests/storage/TestSupport.h"

using brivane_test::ScratchDataHome;

namespace {

constexpr std::size_t kFileSize = 100u << 20;

}  // namespace

TEST(preset_large_file_test, a_hundred_megabyte_preset_is_read_to_its_last_line_and_such_a_line_is_no_value) {
    ScratchDataHome home;
    // Junk lines with the odd valid key, then the value that must win at the very end.
    std::string text;
    text.reserve(kFileSize + 64);
    const std::string block = "[pen]\nsize=1\n\xFF\xFE junk = [ ; #\r\n" + std::string(200, 'x') + "\n";
    while (text.size() < kFileSize)
        text += block;
    text += "[line]\nspacing=77";
    home.WritePreset("huge", text);
    EXPECT_EQ(ReadAllText(GetIniFilePath(u"huge")).size(), text.size());

    MoveEffectIniParam param;
    MoveEffectIniReadFlag flags{};
    ASSERT_TRUE(LoadPreset(u"huge", &param, &flags));
    EXPECT_DOUBLE_EQ(param.size, 1.0);
    EXPECT_TRUE(flags.spacing);
    EXPECT_EQ(param.spacing, 77);

    // One line of 100 MB is rejected as a value.
    home.WritePreset("line", "[guide]\nname=" + std::string(kFileSize, 'n'));
    ASSERT_TRUE(LoadPreset(u"line", &param, &flags));
    EXPECT_FALSE(flags.name);
    EXPECT_STREQ(param.name, "");
}
