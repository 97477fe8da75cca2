// The deterministic renders every build must draw to the byte: one table of digests (tests/data/digest/
// digests.txt), checked here, by this suite's Windows build under Wine and by the page's browser test. A
// change that moves a pixel on purpose updates the table once. BRIVANE_DIGEST_DUMP=folder also writes each
// case's layer there, raw, for counting what differs.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "storage/FileHelpers.h"
#include "storage/Preset.h"
#include "tools/render/EffectLayer.h"

using namespace brivane::tools;

namespace {

// The page the cases draw on (the browser test makes the same): disc, hatching and band of ink, 640 x 480.
PngImage DigestPage() {
    PngImage page{640, 480, 4, 8, std::vector<uint8_t>(640 * 480 * 4, 0)};
    for (int i = 0; i < 640 * 480; ++i) {
        const int x = i % 640, y = i / 640;
        const bool ink = (x - 320) * (x - 320) + (y - 240) * (y - 240) <= 90 * 90 || (x + 2 * y) % 61 < 4 ||
                         (y >= 380 && y < 392);
        page.pixels[i * 4 + 3] = ink ? 255 : 0;
    }
    return page;
}

// FNV-1a, 64 bits, as hex.
std::string Digest(const std::vector<uint8_t>& bytes) {
    uint64_t hash = 0xcbf29ce484222325u;
    for (uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x100000001b3u;
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

}  // namespace

TEST(render_digest_test, every_case_draws_the_bytes_of_the_shared_table) {
    const std::string folder = BRIVANE_TEST_DATA_DIR "/digest/";
    std::istringstream table(ReadAllText(folder + "digests.txt"));
    const PngImage page = DigestPage();
    const char* dump = std::getenv("BRIVANE_DIGEST_DUMP");
    int cases = 0;
    for (std::string line, name, expected; std::getline(table, line);) {
        if (line.empty() || line[0] == '#' || !(std::istringstream(line) >> name >> expected)) continue;
        // As the page takes a preset: over the defaults, with the built-in guide it names.
        MoveEffectIniParam preset;
        MoveEffectIniReadFlag read{};
        ASSERT_TRUE(ParsePresetText(ReadAllText(folder + name + ".ini"), &preset, &read)) << name;
        RenderOptions options;
        GetDefaultPreset(&options.settings);
        ApplyPreset(preset, read, "", options);
        PointTarget target{};
        std::string error;
        ASSERT_TRUE(ResolveTarget(options, page.width, page.height, target, error)) << name << ": " << error;
        PathParser guide;
        guide.LoadFromFile(options.guide == ":S" ? u":S" : u":C");
        PngImage layer;
        ASSERT_TRUE(
            RenderEffectLayer(ToEffectParam(options.settings), target, guide, page, Rgb{}, nullptr, layer));
        EXPECT_EQ(Digest(layer.pixels), expected) << name;
        if (dump) WriteAllText(dump + ("/" + name + ".rgba"), {layer.pixels.begin(), layer.pixels.end()});
        ++cases;
    }
    EXPECT_EQ(cases, 4);
}
