#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <sstream>

#include "engine/MoveEffectFilter.h"
#include "storage/FileHelpers.h"
#include "tests/storage/TestSupport.h"
#include "tools/render/LayerImage.h"
#include "tools/render/PresetFile.h"
#include "tools/render/RenderOptions.h"
#include "tools/render/Renderer.h"
#include "tools/render/SampleLayers.h"

namespace fs = std::filesystem;
using namespace brivane::tools;

namespace {

const std::string kBad = std::string(BRIVANE_TEST_DATA_DIR) + "/render/bad/";
const std::string kSamples = std::string(BRIVANE_SAMPLES_DIR) + "/";

// A fresh folder per test, removed afterwards; it is also the data home, so no test sees the real one.
struct TempFolder : brivane_test::ScratchDataHome {
    std::string operator/(const std::string& name) const { return root() + "/" + name; }
};

PngImage Solid(uint32_t width, uint32_t height, int channels, int bitDepth, uint16_t value, uint16_t alpha) {
    PngImage image;
    image.width = width;
    image.height = height;
    image.channels = channels;
    image.bitDepth = bitDepth;
    image.pixels.resize(image.RowBytes() * height);
    const bool hasAlpha = channels == 2 || channels == 4;
    for (size_t i = 0; i < static_cast<size_t>(width) * height; ++i) {
        for (int c = 0; c < channels; ++c) {
            const uint16_t v = (hasAlpha && c == channels - 1) ? alpha : value;
            if (bitDepth == 8)
                image.pixels[i * channels + c] = static_cast<uint8_t>(v);
            else
                std::memcpy(&image.pixels[(i * channels + c) * 2], &v, 2);
        }
    }
    return image;
}

void Save(const std::string& path, const PngImage& image) {
    std::string error;
    ASSERT_TRUE(WritePng(path, image, error)) << error;
}

PngImage Load(const std::string& path) {
    PngImage image;
    std::string error;
    EXPECT_TRUE(ReadPng(path, image, error)) << error;
    return image;
}

struct ToolRun {
    int status;
    std::string out;
    std::string err;
};

ToolRun RunTool(const std::vector<std::string>& args, RenderEnvironment environment = {}) {
    std::ostringstream out, err;
    const int status = RunRender(args, out, err, environment);
    return {status, out.str(), err.str()};
}

RenderOptions Parse(const std::vector<std::string>& args) {
    RenderOptions options;
    std::string error;
    EXPECT_TRUE(ParseRenderArgs(args, options, error)) << error;
    return options;
}

PointTarget Target(const RenderOptions& options, uint32_t width, uint32_t height) {
    PointTarget target{};
    std::string error;
    EXPECT_TRUE(ResolveTarget(options, width, height, target, error)) << error;
    return target;
}

const auto& ReadText = brivane_test::ScratchDataHome::Read;
const auto& WriteText = brivane_test::ScratchDataHome::Write;

// Arguments written as one line, split at spaces.
std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words;
    std::istringstream in(line);
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

}  // namespace

// --- Options -----------------------------------------------------------------------------------------

// Unset points follow the arrangement's defaults; given ones are pixels or percent of the canvas,
// truncated like the plug-in does.
TEST(render_options_test, resolves_points_in_pixels_and_percent_over_the_arrangement_defaults) {
    const struct {
        const char* args;
        uint32_t width, height;
        PointTarget target;
    } cases[] = {
        {"", 1000, 800, {500, 400, 500, 260, 500, 100}},
        {"--type parallel", 1000, 800, {250, 700, 250, 100, 750, 700}},
        {"--type 2", 1000, 800, {250, 400, 750, 400, 500, 200}},
        {"--p1 50%,25% --p2=10.9,-20 --p3 33.35%,150", 200, 100, {100, 25, 10, -20, 66, 150}},  // 66.7
    };
    for (const auto& c : cases) {
        const PointTarget t =
            Target(Parse(Words(std::string("in.png -o o.png ") + c.args)), c.width, c.height);
        const PointTarget& e = c.target;
        EXPECT_TRUE(t.x1 == e.x1 && t.y1 == e.y1 && t.x2 == e.x2 && t.y2 == e.y2 && t.x3 == e.x3 &&
                    t.y3 == e.y3)
            << c.args << ": " << t.x1 << "," << t.y1 << " " << t.x2 << "," << t.y2 << " " << t.x3 << ","
            << t.y3;
    }
}

TEST(render_options_test, refuses_points_far_off_the_canvas) {
    PointTarget target{};
    std::string error;
    EXPECT_FALSE(ResolveTarget(Parse({"in.png", "-o", "o.png", "--p3", "5000%,0"}), 100, 100, target, error));
    EXPECT_NE(error.find("p3"), std::string::npos) << error;
}

// Each row: the arguments after "in.png -o o.png", the setting they change and its value. Bool
// settings take their value only when one follows.
TEST(render_options_test, reads_every_setting_under_its_preset_key) {
    using Get = double (*)(const RenderOptions&);
    const struct {
        const char* args;
        Get get;
        double value;
    } cases[] = {
        {"--curvature -2.5", [](auto& o) { return o.settings.curvature; }, -2.5},
        {"--size 3", [](auto& o) { return o.settings.size; }, 3},
        {"--hardness 0.5", [](auto& o) { return o.settings.hardness; }, 0.5},
        {"--fluction 0.25", [](auto& o) { return o.settings.fluction; }, 0.25},
        {"--in 300", [](auto& o) { return double(o.settings.in); }, 300},
        {"--out=700", [](auto& o) { return double(o.settings.out); }, 700},
        {"--asdist", [](auto& o) { return double(o.settings.asdist); }, 1},
        {"--asdist 0", [](auto& o) { return double(o.settings.asdist); }, 0},
        {"--easing false", [](auto& o) { return double(o.settings.easing); }, 0},
        {"--position -12", [](auto& o) { return double(o.settings.position); }, -12},
        {"--posfluct 0.1", [](auto& o) { return o.settings.posfluct; }, 0.1},
        {"--length 40", [](auto& o) { return double(o.settings.length); }, 40},
        {"--lenfluct 0.75", [](auto& o) { return o.settings.lenfluct; }, 0.75},
        {"--spacing 20", [](auto& o) { return double(o.settings.spacing); }, 20},
        {"--spcfluct 0.5", [](auto& o) { return o.settings.spcfluct; }, 0.5},
        {"--lengain -3", [](auto& o) { return o.settings.lengain; }, -3},
        {"--spcgain +4", [](auto& o) { return o.settings.spcgain; }, 4},
        {"--no-connect", [](auto& o) { return double(o.settings.connect); }, 0},
        {"--connect=off", [](auto& o) { return double(o.settings.connect); }, 0},
        {"--easing --size 3", [](auto& o) { return double(o.settings.easing); }, 1},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.get(Parse(Words(std::string("in.png -o o.png ") + c.args))), c.value) << c.args;
    // A bool option before the input does not take the input's name as its value.
    const RenderOptions o = Parse({"--easing", "in.png", "-o", "o.png"});
    EXPECT_TRUE(o.settings.easing);
    EXPECT_EQ(o.input, "in.png");
}

TEST(render_options_test, settings_after_a_preset_win_and_settings_before_it_yield) {
    TempFolder temp;
    WriteText(temp / "p.ini", "[pen]\nsize=9\n[line]\nspacing=70\n");
    const RenderOptions o = Parse({"in.png", "-o", "o.png", "--size", "3", "--length", "99", "--preset",
                                   temp / "p.ini", "--spacing", "5"});
    EXPECT_EQ(o.settings.size, 9);        // the preset's, given after --size
    EXPECT_EQ(o.settings.spacing, 5);     // given after the preset
    EXPECT_EQ(o.settings.length, 99);     // not in the preset: kept
    EXPECT_EQ(o.settings.hardness, 1.0);  // not anywhere: the default
}

// --- Bad input: one line on standard error and exit status 2 ----------------------------------------

TEST(render_tool_test, reports_bad_arguments_and_files_in_one_line) {
    TempFolder temp;
    const std::string in = temp / "tiny.png";
    Save(in, Solid(16, 16, 1, 8, 0, 0));
    const std::string out = temp / "out.png";
    WriteText(temp / "large.ini", "[pen]\nsize=3\n" + std::string(kPresetMaxBytes, ';'));
    struct Case {
        std::vector<std::string> args;
        std::string message;
    };
    const Case cases[] = {
        {{"-o", out}, "no input layer given"},
        {{in}, "no output file given"},
        {{in, in, "-o", out}, "more than one input layer"},
        {{in, "-o", out, "--sise", "3"}, "unknown option --sise"},
        {{in, "-o", out, "--size", "abc"}, "--size: 'abc' is not a number"},
        {{in, "-o", out, "--in", "12.5"}, "--in: '12.5' is not a whole number"},
        {{in, "-o", out, "--spacing", "99999999999"}, "is not a whole number"},
        {{in, "-o", out, "--size", "80"}, "size 80 is outside the plug-in's range 1 to 50"},
        {{in, "-o", out, "--size"}, "--size: missing value"},
        {{in, "-o", out, "--over=yes"}, "--over: takes no value"},
        {{in, "-o", out, "--type", "spiral"}, "--type: 'spiral' is not radiate"},
        {{in, "-o", out, "--p1", "10"}, "--p1: '10' is not a point"},
        {{in, "-o", out, "--p2", "1,2%%"}, "--p2: '1,2%%' is not a point"},
        {{in, "-o", out, "--color", "#12345g"}, "--color: '#12345g' is not a colour"},
        {{in, "-o", out, "--asdist=maybe"}, "--asdist: 'maybe' is not true or false"},
        {{kBad + "missing.png", "-o", out}, "missing.png: cannot open"},
        {{kBad + "not_a_png.png", "-o", out}, "not_a_png.png: not a PNG file"},
        {{kBad + "truncated.png", "-o", out}, "truncated.png: damaged PNG file"},
        {{in, "-o", out, "--preset", kBad + "missing.ini"}, "missing.ini: cannot open"},
        {{in, "-o", out, "--preset", kBad + "empty.ini"}, "empty.ini: empty preset file"},
        {{in, "-o", out, "--preset", temp / "large.ini"}, "large.ini: not a preset file: larger than 64 KiB"},
        {{in, "-o", out, "--preset", temp.root()}, ": cannot open: is a folder"},
        {{in, "-o", out, "--preset", kBad + "size_out_of_range.ini"}, "size 80 is outside"},
        {{in, "-o", out, "--guide", kBad + "malformed_number.svg"},
         "malformed_number.svg: bad guide file: malformed number in the path data"},
        {{in, "-o", out, "--guide", kBad + "no_path.svg"}, "no_path.svg: bad guide file: no path"},
        {{in, "-o", out, "--guide", kBad + "empty.svg"}, "empty.svg: bad guide file: empty"},
        {{in, "-o", out, "--guide", kBad + "no_width.svg"}, "no_width.svg: bad guide file: the path has no"},
        {{in, "-o", out, "--guide", kBad + "nowhere.svg"}, "guide '" + kBad + "nowhere.svg' not found"},
        {{in, "-o", temp / "no/such/folder/out.png"}, "out.png: cannot create"},
        {{in, "-o", in}, "refusing to overwrite"},
        {{in, "-o", out, "--save-preset", out}, "name the same file"},
    };
    for (const Case& c : cases) {
        const ToolRun run = RunTool(c.args);
        std::string joined;
        for (const std::string& a : c.args)
            joined += a + " ";
        EXPECT_EQ(run.status, kExitBadInput) << joined;
        EXPECT_EQ(run.err.rfind("brivane-render: ", 0), 0u) << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << "args: " << joined << "\nerr: " << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
        EXPECT_FALSE(fs::exists(out)) << joined;
    }
}

// --- Guides --------------------------------------------------------------------------------------------

TEST(render_guide_test, matches_a_preset_guide_name_as_the_plugin_does_without_letter_case) {
    TempFolder temp;
    WriteText(temp / "Wave.SVG", ReadText(kSamples + "wave.svg"));
    WriteText(temp / "p.ini", "[guide]\nname=wAVE\n");
    RenderOptions options = Parse({"in.png", "-o", "o.png", "--preset", temp / "p.ini"});
    PathParser guide;
    std::string error, file;
    ASSERT_TRUE(LoadGuide(options, guide, error, &file)) << error;
    EXPECT_EQ(file, temp / "Wave.SVG");
    EXPECT_STREQ(options.settings.name, "wAVE");  // saved again as the preset gave it

    WriteText(temp / "p.ini", "[guide]\nname=:c\n");
    options = Parse({"in.png", "-o", "o.png", "--preset", temp / "p.ini"});
    EXPECT_EQ(options.guide, ":C");

    WriteText(temp / "p.ini", "[guide]\nname=\n");
    options = Parse({"in.png", "-o", "o.png", "--guide", ":C", "--preset", temp / "p.ini"});
    EXPECT_EQ(options.guide, ":C");  // an empty name matches no guide: the current one stays
}

// --- Layer mapping -------------------------------------------------------------------------------------

TEST(render_layer_test, every_png_layout_reads_as_ink_where_dark_and_opaque) {
    for (int channels = 1; channels <= 4; ++channels) {
        for (int depth : {8, 16}) {
            const uint16_t full = depth == 8 ? 255 : 65535;
            const bool hasAlpha = channels == 2 || channels == 4;
            struct {
                uint16_t value, alpha;
                int depth;
            } cases[] = {{0, full, 255}, {full, full, 0}, {0, 0, hasAlpha ? 0 : 255}};
            for (const auto& c : cases) {
                const PngImage png = Solid(3, 2, channels, depth, c.value, c.alpha);
                EngineLayer layer(png);
                const MoveEffectImageParam image = layer.Describe();
                EXPECT_EQ(image.colorModel, channels <= 2 || depth == 8 ? 1 : 0);
                EXPECT_EQ(image.sampleFormat, depth == 16 ? 1 : 0);
                MoveEffectFilter filter(ToEffectParam(Parse({"i.png", "-o", "o.png"}).settings));
                filter.SetBaseImage(&image);
                EXPECT_EQ(filter.GetPixelDepth(2, 1), c.depth)
                    << channels << " channels, " << depth << " bits, value " << c.value << " alpha "
                    << c.alpha;
                EXPECT_EQ(filter.GetPixelDepth(3, 1), -1);
            }
        }
    }
}

TEST(render_layer_test, converts_any_layout_to_rgba8_and_composites_straight_alpha) {
    const PngImage grey16 = Solid(2, 1, 2, 16, 65535, 32896);  // white, alpha about half
    std::vector<uint8_t> rgba(8);
    ToRgba8Row(grey16, grey16.pixels.data(), rgba.data());
    EXPECT_EQ(rgba, (std::vector<uint8_t>{255, 255, 255, 128, 255, 255, 255, 128}));
    const struct {
        uint16_t below, belowAlpha, line, lineAlpha;
        std::vector<uint8_t> result;
    } cases[] = {
        {255, 255, 0, 255, {0, 0, 0, 255}},      // opaque black over opaque white
        {255, 0, 0, 102, {0, 0, 0, 102}},        // nothing below: the line as it is
        {200, 255, 0, 0, {200, 200, 200, 255}},  // no line: untouched
    };
    for (const auto& c : cases) {
        PngImage below = Solid(1, 1, 4, 8, c.below, c.belowAlpha);
        CompositeOver(below, Solid(1, 1, 4, 8, c.line, c.lineAlpha));
        EXPECT_EQ(below.pixels, c.result) << c.below << " under alpha " << c.lineAlpha;
    }
    PngImage half = Solid(1, 1, 4, 8, 0, 128);
    FlattenRow(half.pixels.data(), 1, Rgb{255, 255, 255});
    EXPECT_EQ(half.pixels, (std::vector<uint8_t>{127, 127, 127, 255}));
}

// --- Rendering -----------------------------------------------------------------------------------------

TEST(render_tool_test, draws_lines_in_the_colour_only_where_the_layer_is_inked) {
    TempFolder temp;
    PngImage page = Solid(160, 120, 3, 8, 255, 0);  // white RGB page ...
    for (uint32_t y = 0; y < 120; ++y)
        for (uint32_t x = 0; x < 80; ++x)  // ... inked on its left half
            std::memset(&page.pixels[(y * 160 + x) * 3], 0, 3);
    Save(temp / "page.png", page);
    const ToolRun run = RunTool({temp / "page.png", "-o", temp / "out.png", "--type", "parallel", "--p1",
                                 "0,0", "--p2", "100%,0", "--p3", "0,100%", "--spacing", "10", "--length",
                                 "0", "--size", "3", "--color", "#c03010"});
    ASSERT_EQ(run.status, kExitOk) << run.err;
    EXPECT_EQ(run.err, "");
    const PngImage out = Load(temp / "out.png");
    ASSERT_EQ(out.channels, 4);
    ASSERT_EQ(out.width, 160u);
    int covered = 0;
    for (uint32_t y = 0; y < out.height; ++y) {
        for (uint32_t x = 0; x < out.width; ++x) {
            const uint8_t* p = &out.pixels[(y * out.width + x) * 4];
            if (p[3] == 0) continue;
            ++covered;
            EXPECT_EQ(p[0], 0xc0);
            EXPECT_EQ(p[1], 0x30);
            EXPECT_EQ(p[2], 0x10);
            EXPECT_LT(x, 84u) << "a line reaches into the uninked half at y " << y;
        }
    }
    EXPECT_GT(covered, 160 * 120 / 20);
}

TEST(render_tool_test, an_interrupted_run_writes_nothing) {
    TempFolder temp;
    Save(temp / "page.png", Solid(300, 300, 1, 8, 0, 0));
    const volatile std::sig_atomic_t interrupted = 1;
    RenderEnvironment environment;
    environment.interrupted = &interrupted;
    const ToolRun run =
        RunTool({temp / "page.png", "-o", temp / "out.png", "--save-preset", temp / "p.ini"}, environment);
    EXPECT_EQ(run.status, kExitInterrupted);
    EXPECT_NE(run.err.find("interrupted"), std::string::npos);
    EXPECT_FALSE(fs::exists(temp / "out.png"));
    EXPECT_FALSE(fs::exists(temp / "p.ini"));
}

TEST(render_tool_test, shows_progress_only_on_a_terminal_and_clears_it) {
    TempFolder temp;
    Save(temp / "page.png", Solid(300, 300, 1, 8, 0, 0));
    RenderEnvironment terminal;
    terminal.errIsTerminal = true;
    const ToolRun shown = RunTool({temp / "page.png", "-o", temp / "a.png"}, terminal);
    ASSERT_EQ(shown.status, kExitOk);
    EXPECT_NE(shown.err.find("\rrendering ["), std::string::npos);
    EXPECT_EQ(shown.err.back(), '\r');  // the bar is wiped before the shell prompt returns
    EXPECT_EQ(RunTool({temp / "page.png", "-o", temp / "b.png", "-q"}, terminal).err, "");
    EXPECT_EQ(RunTool({temp / "page.png", "-o", temp / "c.png"}).err, "");
}

// --- Samples ---------------------------------------------------------------------------------------------

TEST(render_samples_test, bundled_layers_are_what_the_generator_draws) {
    for (const SampleLayer& sample : MakeSampleLayers()) {
        const PngImage file = Load(kSamples + sample.fileName);
        EXPECT_EQ(file.width, sample.image.width) << sample.fileName;
        EXPECT_EQ(file.channels, sample.image.channels) << sample.fileName;
        EXPECT_EQ(file.bitDepth, sample.image.bitDepth) << sample.fileName;
        EXPECT_TRUE(file.pixels == sample.image.pixels) << sample.fileName << " differs: run make samples";
    }
}
