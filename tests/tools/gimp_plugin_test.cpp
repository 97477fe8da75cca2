// The GIMP plug-in in a real GIMP: gimp-console runs a batch script that applies plug-in-brivane to the
// samples, and what it adds must be what brivane-render (or, for a preset, the module) draws, byte for
// byte, above the untouched layer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tests/storage/TestSupport.h"
#include "tools/common/PngImage.h"
#include "tools/render/LayerImage.h"
#include "tools/render/Renderer.h"

namespace fs = std::filesystem;
using namespace brivane::tools;

namespace {

const std::string kSamples = std::string(BRIVANE_SAMPLES_DIR) + "/";

struct Scratch : brivane_test::ScratchDataHome {
    std::string operator/(const std::string& name) const { return root() + "/" + name; }
};

// Every pixel as 8-bit RGBA, whatever the file's layout.
std::vector<uint8_t> Rgba(const std::string& path) {
    PngImage image;
    std::string error;
    EXPECT_TRUE(ReadPng(path, image, error)) << error;
    std::vector<uint8_t> rgba(static_cast<size_t>(image.width) * image.height * 4);
    for (uint32_t y = 0; y < image.height; ++y)
        ToRgba8Row(image, image.pixels.data() + y * image.RowBytes(), rgba.data() + y * image.width * 4);
    return rgba;
}

std::string Render(const Scratch& scratch, const std::string& name, std::vector<std::string> args) {
    const std::string out = scratch / (name + "-render.png");
    args.insert(args.end(), {"-o", out, "-q"});
    std::ostringstream ignored, err;
    EXPECT_EQ(RunRender(args, ignored, err, {}), kExitOk) << err.str();
    return out;
}

bool Installed(const char* programs) {
    return std::system(("command -v " + std::string(programs) + " > /dev/null").c_str()) == 0;
}

// Runs the Script-Fu `batch` in a GIMP of its own (settings in the scratch folder) that finds the built
// plug-in, headless, or beside `alongside` (run as "sh -c", within a virtual display).
void RunGimp(const Scratch& scratch, const std::string& batch, const std::string& alongside = "") {
    fs::create_directories(scratch / "gimp/plug-ins/brivane-gimp");
    fs::copy_file(BRIVANE_GIMP_PLUGIN, scratch / "gimp/plug-ins/brivane-gimp/brivane-gimp");
    std::ofstream(scratch / "gimp/gimprc")
        << "(plug-in-path \"${gimp_plug_in_dir}/plug-ins:" << (scratch / "gimp/plug-ins") << "\")\n";
    std::ofstream(scratch / "batch.scm") << batch << " (gimp-quit 0)";
    std::string gimp = "env GIMP2_DIRECTORY='" + (scratch / "gimp") +
                       "' ASAN_OPTIONS=detect_leaks=0 gimp-console -i -d -f -b - < batch.scm > gimp.log 2>&1";
    // `alongside` runs until GIMP is done.
    if (!alongside.empty())
        gimp = "xvfb-run -a sh -c \"" + gimp + " & gimp=\\$!; while kill -0 \\$gimp 2> /dev/null; do " +
               alongside + "; done; wait \\$gimp\"";
    const std::string command = "cd '" + scratch.root() + "' && timeout 120 " + gimp;
    ASSERT_EQ(std::system(command.c_str()), 0) << std::ifstream(scratch / "gimp.log").rdbuf();
}

TEST(GimpPlugin, AddsTheToolsBytesAboveTheUntouchedLayerAndHoldsHostilePresetsAsTheModule) {
    if (!Installed("gimp-console")) GTEST_SKIP() << "gimp-console not installed";
    Scratch scratch;
    // Past every bound the module sets: numbers out of range or NaN, a point far off, a guide past the
    // size a guide may have (drawn straight).
    scratch.WritePreset("hostile",
                        "[guide]\ntype=parallel\np1=nan,0.5\np2=0.25,0.125\np3=9,0.875\nname=HUGE\n"
                        "[pen]\nsize=1e9\nhardness=nan\nin=-5\n[line]\nspacing=100000\nlengain=-1e9\n");
    scratch.WriteGuide("huge", "<svg><path d=\"M0 0 L100 0\"/>" + std::string(1200000, ' ') + "</svg>");

    // Per sample: load, apply, and save the top two layers only when there are exactly two.
    const std::string apply =
        "(define (apply-lines file name preset args)"
        " (let* ((image (car (gimp-file-load RUN-NONINTERACTIVE file file)))"
        "        (layer (car (gimp-image-get-active-layer image))))"
        "  (apply plug-in-brivane (append (list RUN-NONINTERACTIVE image layer preset) args))"
        "  (let ((layers (gimp-image-get-layers image)))"
        "   (if (= (car layers) 2) (begin"
        "    (file-png-save2 1 image (vector-ref (cadr layers) 0) (string-append \"" +
        scratch.root() +
        "/\" name \"-top.png\") name 0 1 0 0 0 0 0 0 1)"
        "    (file-png-save2 1 image (vector-ref (cadr layers) 1) (string-append \"" +
        scratch.root() + "/\" name \"-below.png\") name 0 1 0 0 0 0 0 0 1))))))";
    const std::string batch = apply +
                              " (gimp-context-set-foreground '(200 30 60))"
                              " (apply-lines \"" +
                              kSamples +
                              "focus.png\" \"focus\" \"\" (list 0 TRUE 0 0 0 0 0 0 \":C\" -1"
                              " -2.5 6 0.4 0 300 200 0 0 10 0 9 0 0 0 FALSE TRUE TRUE))"
                              " (apply-lines \"" +
                              kSamples +
                              "speed.png\" \"speed\" \"hostile\" (list 0 TRUE 0 0 0 0 0 0 \":S\" -1"
                              " 1 2 1 0 500 500 0 0 10 0 50 0 0 0 FALSE FALSE TRUE))"
                              " (apply-lines \"" +
                              kSamples +
                              "rings.png\" \"rings\" \"\" (list 2 FALSE 300 500 700 500 500 300"
                              " \":S\" -1 0 4 0.7 0 300 300 0 0 20 0 14 0 0 0 FALSE TRUE TRUE))";
    RunGimp(scratch, batch);
    if (HasFatalFailure()) return;

    const std::string focus =
        Render(scratch, "focus",
               {kSamples + "focus.png", "--guide", ":C", "--curvature", "-2.5", "--size", "6", "--hardness",
                "0.4", "--in", "300", "--out", "200", "--spacing", "9", "--easing", "--color", "#c81e3c"});
    // The hostile preset as the plug-in module takes it, picked in its panel in the simulated host.
    const std::string speed = scratch / "speed-host.png";
    const std::string host = std::string(BRIVANE_HOST) + " -i " + kSamples + "speed.png -o '" + speed +
                             "' --set 140=1 --color c81e3c -q";
    ASSERT_EQ(std::system(host.c_str()), 0);
    const std::string rings = Render(scratch, "rings",
                                     {kSamples + "rings.png",
                                      "--type",
                                      "circle",
                                      "--p1",
                                      "300,500",
                                      "--p2",
                                      "700,500",
                                      "--p3",
                                      "500,300",
                                      "--size",
                                      "4",
                                      "--hardness",
                                      "0.7",
                                      "--in",
                                      "300",
                                      "--out",
                                      "300",
                                      "--length",
                                      "20",
                                      "--spacing",
                                      "14",
                                      "--easing",
                                      "--color",
                                      "#c81e3c"});
    for (const auto& [name, expected] : {std::pair{"focus", focus}, {"speed", speed}, {"rings", rings}}) {
        SCOPED_TRACE(name);
        const std::string top = scratch / (std::string(name) + "-top.png");
        ASSERT_TRUE(fs::exists(top)) << "no new layer on top of the only other one";
        EXPECT_TRUE(Rgba(top) == Rgba(expected));
        EXPECT_TRUE(Rgba(scratch / (std::string(name) + "-below.png")) == Rgba(kSamples + name + ".png"));
    }
}

// The dialog opens with the last run's settings, every one of them away from its default, and OK draws
// exactly what that run drew.
TEST(GimpPlugin, DialogOpensWithTheLastSettingsAndOkDrawsThem) {
    if (!Installed("gimp-console xvfb-run xdotool"))
        GTEST_SKIP() << "gimp-console, xvfb-run or xdotool missing";
    Scratch scratch;
    const std::string save = " (file-png-save2 1 image lines (string-append \"" + scratch.root() +
                             "/\" name) name 0 1 0 0 0 0 0 0 1)";
    const std::string batch = "(define image (car (gimp-file-load 1 \"" + kSamples +
                              "speed.png\" \"speed.png\")))"
                              " (define ink (car (gimp-image-get-active-layer image)))"
                              " (define (draw image args name) (let ((lines (car (apply plug-in-brivane"
                              " (append (list (car args) image ink \"\") (cdr args)))))) " +
                              save +
                              "))"
                              " (draw image (list 1 1 FALSE 40 700 1100 100 100 800 \":C\" -1 -3 5 0.6 0 800 "
                              "100 -20 0 30 0 12 0 5 -5"
                              " TRUE TRUE FALSE) \"batch.png\")"
                              " (draw image (list 0 0 TRUE 0 0 0 0 0 0 \":S\" -1 1 2 1 0 500 500 0 0 10 0 50 "
                              "0 0 0 FALSE FALSE TRUE)"
                              " \"dialog.png\")";
    // Return on the dialog (again, should the first come before it can take keys).
    RunGimp(scratch, batch,
            "sleep 1; xdotool search --name 'Effect lines' windowfocus --sync key Return 2> /dev/null && "
            "touch shown");
    if (HasFatalFailure()) return;
    EXPECT_TRUE(fs::exists(scratch / "shown")) << "no dialog was shown";
    EXPECT_TRUE(Rgba(scratch / "dialog.png") == Rgba(scratch / "batch.png"));
}

}  // namespace
