// The brivane-host program end to end: PNG in, the built module run, PNG out; and its one-line errors
// with exit status 2 for bad input.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>

#include "tools/common/PngImage.h"

using brivane::tools::PngImage;
using brivane::tools::ReadPng;
using brivane::tools::WritePng;

namespace {

struct Outcome {
    int status = -1;
    std::string output;  // stdout and stderr together
};

Outcome RunHost(const std::string& args) {
    Outcome outcome;
    const std::string command = std::string("'") + BRIVANE_HOST_PROGRAM + "' " + args + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return outcome;
    char buffer[4096];
    size_t got;
    while ((got = fread(buffer, 1, sizeof buffer, pipe)) > 0)
        outcome.output.append(buffer, got);
    const int wait = pclose(pipe);
    outcome.status = WIFEXITED(wait) ? WEXITSTATUS(wait) : -1;
    return outcome;
}

class host_tool_test : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        dir = std::filesystem::temp_directory_path() / ("brivane_host_tool_test_" + std::to_string(getpid()));
        std::filesystem::create_directories(dir);
        std::string error;
        PngImage layer = Image(8, 3, 255);
        ASSERT_TRUE(WritePng(Path("layer.png"), layer, error)) << error;
        PngImage selection = Image(8, 1, 0);
        for (int y = 0; y < 4; ++y)
            selection.pixels[y * 8 + 7] = 255;  // the right column
        ASSERT_TRUE(WritePng(Path("selection.png"), selection, error)) << error;
        ASSERT_TRUE(WritePng(Path("small.png"), Image(4, 1, 0), error)) << error;
    }
    // A 4 rows high image of one value.
    static PngImage Image(int width, int channels, uint8_t value) {
        PngImage image;
        image.width = width;
        image.height = 4;
        image.channels = channels;
        image.pixels.assign(image.RowBytes() * image.height, value);
        return image;
    }
    static PngImage ReadOut(const std::string& path) {
        PngImage image;
        std::string error;
        EXPECT_TRUE(ReadPng(path, image, error)) << error;
        return image;
    }
    static void TearDownTestSuite() { std::filesystem::remove_all(dir); }
    static std::string Path(const std::string& name) { return (dir / name).string(); }

    static std::filesystem::path dir;
};

std::filesystem::path host_tool_test::dir;

const std::string kBad = std::string(BRIVANE_TEST_DATA_DIR) + "/host/bad/";
// The stand-in manager draws exactly predictable pixels: the main colour over the selection.
const std::string kStandIn = std::string(" --module '") + BRIVANE_PLUGIN_MODULE + "'";

TEST_F(host_tool_test, fills_the_selection_of_a_layer_and_writes_it_out) {
    const std::string out = Path("out.png");
    const Outcome run = RunHost("-i " + Path("layer.png") + " -s " + Path("selection.png") + " -o " + out +
                                " --color 0a141f --runs 2 --restart 1 -q" + kStandIn);
    ASSERT_EQ(run.status, 0) << run.output;
    const PngImage image = ReadOut(out);
    ASSERT_EQ(image.channels, 4);
    const uint8_t* right = &image.pixels[(2 * 8 + 7) * 4];
    const uint8_t* left = &image.pixels[(2 * 8 + 0) * 4];
    EXPECT_EQ(std::vector<uint8_t>(right, right + 4), (std::vector<uint8_t>{10, 20, 31, 255}));
    EXPECT_EQ(std::vector<uint8_t>(left, left + 4), (std::vector<uint8_t>{255, 255, 255, 255}));
}

// A clear grey layer takes the main colour's grey, (77 R + 150 G + 29 B) >> 8 as the engine weighs it, made
// opaque. The colour is chosen so that a weight one off either way, or another shift, gives another grey.
TEST_F(host_tool_test, a_clear_grey_layer_gets_the_grey_of_the_main_colour_made_opaque) {
    std::string error;
    ASSERT_TRUE(WritePng(Path("clear.png"), Image(8, 2, 0), error)) << error;
    const std::string out = Path("grey.png");
    const Outcome run = RunHost("-i " + Path("clear.png") + " -o " + out + " --color c8b4dc -q" + kStandIn);
    ASSERT_EQ(run.status, 0) << run.output;
    std::vector<uint8_t> expected;
    for (int i = 0; i < 8 * 4; ++i)
        expected.insert(expected.end(), {190, 255});
    EXPECT_EQ(ReadOut(out).pixels, expected);
}

TEST_F(host_tool_test, a_cancelled_run_writes_the_layer_unchanged) {
    const std::string out = Path("cancelled.png");
    const Outcome run = RunHost("-i " + Path("layer.png") + " -o " + out + " --cancel-at 1" + kStandIn);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("run 1 cancelled"), std::string::npos) << run.output;
    EXPECT_EQ(ReadOut(out).pixels, std::vector<uint8_t>(8 * 4 * 4, 255));
}

TEST_F(host_tool_test, bad_input_gives_one_line_and_status_2) {
    struct Case {
        std::string args;
        std::string message;
    };
    const std::string layer = " -i " + Path("layer.png");
    const Case cases[] = {
        {"", "nothing to do"},
        {"--frobnicate", "unknown option '--frobnicate'"},
        {"-i", "option -i needs a value"},
        {layer + " --set 224", "expected KEY=VALUE"},
        {layer + " --set 999=1", "the panel has no item 999"},
        {layer + " --press 999", "the panel has no such item"},
        {layer + " --runs 0", "not a whole number of at least 1"},
        {layer + " --cancel-at -1", "not a whole number of at least 0"},
        {layer + " --color red", "expected six hex digits"},
        {layer + " --dpi -3", "expected a positive number"},
        {layer + " --layer-kind cmyk", "unknown layer kind 'cmyk'"},
        {layer + " --layer-kind rgba", "the filter does not work on rgba layers"},
        {"-o " + Path("x.png"), "--output needs an --input layer"},
        {"-i " + Path("missing.png"), "cannot open"},
        {"-i " + kBad + "not_a_png.png", "not a PNG file"},
        {"-i " + kBad + "truncated.png", "truncated.png"},
        {layer + " -s " + Path("small.png"), "selection is 4x4, the layer 8x4"},
        {layer + " --module " + Path("layer.png"), "cannot load module"},
        {layer + " --resources " + kBad + "resources_without_equals.txt", ":2: expected 'id = text'"},
    };
    for (const Case& c : cases) {
        const Outcome run = RunHost(c.args);
        EXPECT_EQ(run.status, 2) << c.args << "\n" << run.output;
        EXPECT_NE(run.output.find("brivane-host: error: "), std::string::npos) << c.args << "\n"
                                                                               << run.output;
        EXPECT_NE(run.output.find(c.message), std::string::npos) << c.args << "\n" << run.output;
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << c.args << "\n" << run.output;
    }
}

}  // namespace
