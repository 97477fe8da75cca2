// Robustness of the preset grammar against oversized input: the page parses whatever file it is given.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "storage/Preset.h"

namespace {

// Parses the text and checks what must hold after any parse, whatever the text held.
void ParseAndCheck(const std::string& text) {
    MoveEffectIniParam param;
    MoveEffectIniReadFlag flags{};
    ASSERT_EQ(ParsePresetText(text, &param, &flags), !text.empty());
    if (text.empty()) return;
    EXPECT_LT(strnlen(param.name, sizeof param.name), sizeof param.name);
    EXPECT_TRUE(!flags.type || (param.type >= 0 && param.type <= 2)) << param.type;
    EXPECT_TRUE(!flags.name || std::strlen(param.name) <= kIniNameMaxLength) << std::strlen(param.name);
}

}  // namespace

TEST(preset_fuzz_test, lines_of_a_million_characters_are_read_or_rejected) {
    const std::size_t kHuge = 1'000'000;
    for (const std::string& text :
         {"[guide]\nname=" + std::string(kHuge, 'a') + "\n",
          "[pen]\nsize=0." + std::string(kHuge, '0') + "1\n", "[pen]\nin=" + std::string(kHuge, '7') + "\n",
          "[" + std::string(kHuge, '[') + "\nsize=1\n", "[guide]\np1=" + std::string(kHuge, ',') + "\n",
          std::string(kHuge, '\r')})
        ParseAndCheck(text);

    MoveEffectIniParam param;
    MoveEffectIniReadFlag flags{};
    ASSERT_TRUE(ParsePresetText("[pen]\nsize=" + std::string(kHuge, ' ') +
                                    "3\n[guide]\nname=" + std::string(kHuge, 'a') + "\n[line]\nspacing=77",
                                &param, &flags));
    EXPECT_DOUBLE_EQ(param.size, 3.0);
    EXPECT_FALSE(flags.name);
    EXPECT_EQ(param.spacing, 77);
}
