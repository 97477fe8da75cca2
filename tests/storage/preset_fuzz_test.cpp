// Robustness of the preset reader against oversized input.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "storage/FileHelpers.h"
#include "storage/Preset.h"
#include "tests/storage/TestSupport.h"

using brivane_test::ScratchDataHome;

namespace {

// Loads the text and checks what must hold after any load, whatever the file held.
void LoadAndCheck(const ScratchDataHome& home, const std::string& text) {
    home.WritePreset("fuzz", text);
    MoveEffectIniParam param;
    MoveEffectIniReadFlag flags{};
    ASSERT_EQ(LoadPreset(u"fuzz", &param, &flags), !text.empty());
    if (text.empty()) return;
    EXPECT_LT(strnlen(param.name, sizeof param.name), sizeof param.name);
    EXPECT_TRUE(!flags.type || (param.type >= 0 && param.type <= 2)) << param.type;
    EXPECT_TRUE(!flags.name || std::strlen(param.name) <= kIniNameMaxLength) << std::strlen(param.name);
}

}  // namespace

// Files longer than the reader's 1 MiB slice are read to their last line.
TEST(preset_fuzz_test, lines_of_a_million_characters_are_read_or_rejected) {
    ScratchDataHome home;
    const std::size_t kHuge = 1'000'000;
    for (const std::string& text :
         {"[guide]\nname=" + std::string(kHuge, 'a') + "\n",
          "[pen]\nsize=0." + std::string(kHuge, '0') + "1\n", "[pen]\nin=" + std::string(kHuge, '7') + "\n",
          "[" + std::string(kHuge, '[') + "\nsize=1\n", "[guide]\np1=" + std::string(kHuge, ',') + "\n",
          std::string(kHuge, '\r')})
        LoadAndCheck(home, text);

    home.WritePreset("long", "[pen]\nsize=" + std::string(kHuge, ' ') +
                                 "3\n[guide]\nname=" + std::string(kHuge, 'a') + "\n[line]\nspacing=77");
    MoveEffectIniParam param;
    MoveEffectIniReadFlag flags{};
    ASSERT_TRUE(LoadPreset(u"long", &param, &flags));
    EXPECT_DOUBLE_EQ(param.size, 3.0);
    EXPECT_FALSE(flags.name);
    EXPECT_EQ(param.spacing, 77);
}
