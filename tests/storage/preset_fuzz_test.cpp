// Robustness of the preset reader and the text conversions against random, mutated and oversized input.
// Every generator has a fixed seed and a bounded number of rounds, so failures reproduce.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "storage/FileHelpers.h"
#include "storage/Preset.h"
#include "tests/storage/TestSupport.h"

using brivane_test::ScratchDataHome;

namespace {

const std::string kSeedFile =
    "[guide]\ntype=circle\np1=0.25,0.875\np2=0.5,0.325\np3=0.5,0.125\nname=wave\ncurvature=-1.5\n\n"
    "[pen]\nsize=2\nhardness=1\nfluction=0.25\nin=500\nout=500\nasdist=true\neasing=false\n\n"
    "[line]\nposition=-3\nposfluct=0\nlength=10\nlenfluct=0\nspacing=50\nspcfluct=0\nlengain=0\n"
    "spcgain=0\nconnect=true\n";

std::string RandomBytes(std::mt19937& random, std::size_t maxLength) {
    std::string bytes(std::uniform_int_distribution<std::size_t>(0, maxLength)(random), '\0');
    for (char& c : bytes)
        c = static_cast<char>(std::uniform_int_distribution<int>(0, 255)(random));
    return bytes;
}

// Replaces, inserts or deletes bytes that matter to the grammar, so that mutations make near-miss lines
// rather than only noise.
std::string Mutate(std::string text, std::mt19937& random) {
    static constexpr char kInteresting[] = "[]=,;#\n\r\t .-+eE0123456789\xEF\xBB\xBF\xFF\x00";
    std::uniform_int_distribution<int> pick(0, sizeof kInteresting - 1);
    for (int n = std::uniform_int_distribution<int>(1, 8)(random); n > 0; --n) {
        const std::size_t at = std::uniform_int_distribution<std::size_t>(0, text.size() - 1)(random);
        switch (std::uniform_int_distribution<int>(0, 2)(random)) {
            case 0:
                text[at] = kInteresting[pick(random)];
                break;
            case 1:
                text.insert(text.begin() + static_cast<std::ptrdiff_t>(at), kInteresting[pick(random)]);
                break;
            default:
                text.erase(at, std::uniform_int_distribution<std::size_t>(1, 12)(random));
                break;
        }
    }
    return text;
}

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

TEST(preset_fuzz_test, random_bytes_and_mutated_presets_never_break_the_reader) {
    ScratchDataHome home;
    std::mt19937 random(12345);
    for (int round = 0; round < 200; ++round)
        LoadAndCheck(home, RandomBytes(random, 2000));
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        LoadAndCheck(home, Mutate(kSeedFile, random));
    }
}

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
