// The effect controller end to end: the built plug-in module loaded into the simulated host, with a
// data home of its own for every test. A few checks of values the host cannot see (the engine
// parameters, the progress steps) drive a ZephrineManager directly through the same simulated host.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>
#include <stdexcept>
#include <string>
#include <vector>

#include "controller/ZephrineManager.h"
#include "tests/storage/TestSupport.h"
#include "tools/host/SimHost.h"

namespace {

namespace fs = std::filesystem;
using brivane::tools::MakeImage;
using brivane::tools::PluginModule;
using brivane::tools::SimHost;
using brivane::tools::SimImage;
using brivane::tools::SimItem;

constexpr int64_t kCanvasWidth = 200;
constexpr int64_t kCanvasHeight = 160;
const std::string kWave = "<svg><path d=\"M 0 0 L 100 20\"/></svg>";

// A canvas-sized layer of opaque black ink everywhere but a margin, so lines from anywhere on the
// canvas find ink. The image starts all zero, so only the alpha byte needs setting.
SimImage MakeInkedLayer(int64_t order, const int64_t (&indices)[4] = {0, 1, 2, 3}) {
    SimImage layer = MakeImage(kCanvasWidth, kCanvasHeight, order, indices);
    const int64_t alpha = order == kHostChannelOrderRgba ? layer.channelIndex[3] : layer.depth - 1;
    for (int64_t y = 10; y < kCanvasHeight - 10; ++y) {
        for (int64_t x = 10; x < kCanvasWidth - 10; ++x)
            layer.At(x, y)[alpha] = 255;
    }
    return layer;
}

// Calls check(pixel) for every pixel whose coverage byte (at index `cover`) is not 0; returns their number.
template <class Check>
int ForEachCovered(const SimImage& image, int64_t cover, Check check) {
    int count = 0;
    for (int64_t y = 0; y < image.height; ++y) {
        for (int64_t x = 0; x < image.width; ++x) {
            const uint8_t* pixel = image.At(x, y);
            if (pixel[cover] == 0) continue;
            ++count;
            check(x, pixel);
        }
    }
    return count;
}

// An item's value whatever its kind; points are checked apart.
double Value(const SimItem& item) {
    switch (item.valueKind) {
        case kHostValueKindInteger:
            return static_cast<double>(item.intValue);
        case kHostValueKindDecimal:
            return item.decValue;
        case kHostValueKindBoolean:
            return item.boolValue;
        default:
            return static_cast<double>(item.enumValue);
    }
}

class controller_test : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(host.Resources().Load(BRIVANE_RESOURCES_FILE, error)) << error;
        host.SetLayer(MakeInkedLayer(kHostChannelOrderRgbAlpha));
        ASSERT_TRUE(module.Load(BRIVANE_PLUGIN_FILE, error)) << error;
        brivane::tools::TakeProtocolErrors();
    }

    void TearDown() override {
        if (module.Slot()) {
            module.Call(kHostSelectorFilterTerminate, host.GetServer());
            module.Call(kHostSelectorModuleTerminate, host.GetServer());
        }
        module.Unload();
        EXPECT_EQ(brivane::tools::TakeProtocolErrors(), std::vector<std::string>());
        // Whatever the test did, a closed session leaves no host object behind.
        const brivane::tools::SimLiveObjects live = brivane::tools::LiveObjects();
        EXPECT_EQ(live.strings, 0);
        EXPECT_EQ(live.bitmaps, 0);
        EXPECT_EQ(live.properties, 0);
    }

    void OpenFilter() {
        ASSERT_EQ(module.Call(kHostSelectorModuleInitialize, host.GetServer()), kHostCallSucceeded);
        ASSERT_EQ(module.Call(kHostSelectorFilterInitialize, host.GetServer()), kHostCallSucceeded);
    }

    // Changes an item as the user would; returns the plug-in's answer (modified or unchanged).
    int64_t Change(int64_t key, const std::string& text) {
        std::string error;
        int64_t result = 0;
        EXPECT_TRUE(host.SetItemValue(key, text, error, &result)) << key << ": " << error;
        return result;
    }

    SimItem& Item(int64_t key) {
        SimItem* item = host.FindItem(key);
        if (!item) throw std::runtime_error("no item " + std::to_string(key));
        return *item;
    }

    HostPoint PointAt(double fx, double fy) const {
        return HostPoint{static_cast<int64_t>(kCanvasWidth * fx), static_cast<int64_t>(kCanvasHeight * fy)};
    }

    // Points 170, 171 and 172 in turn.
    void ExpectPoints(const std::array<HostPoint, 3>& expected) {
        for (int64_t i = 0; i < 3; ++i) {
            EXPECT_EQ(Item(170 + i).pointValue.x, expected[i].x) << "item " << 170 + i;
            EXPECT_EQ(Item(170 + i).pointValue.y, expected[i].y) << "item " << 170 + i;
        }
    }

    void ExpectValues(std::initializer_list<std::pair<int64_t, double>> expected) {
        for (const auto& [key, value] : expected)
            EXPECT_EQ(Value(Item(key)), value) << "item " << key;
    }

    // Puts the three points where the default (radiate) arrangement wants them.
    void PlacePoints() { EXPECT_EQ(Change(150, "0"), kHostPropertyModified); }

    brivane_test::ScratchDataHome home;  // a data home of its own for every test
    SimHost host;
    PluginModule module;
};

// ---- The panel ----

TEST_F(controller_test, guide_and_preset_files_are_listed_once_after_the_fixed_rows) {
    home.WriteGuide("wave", kWave);
    home.Write(home.GuidePath("notes") + ".txt", "not a guide");
    home.WritePreset("speed", "[pen]\nsize=4\n");
    home.Write(home.PresetPath("speed") + ".bak", "[pen]\nsize=4\n");
    OpenFilter();
    ASSERT_EQ(Change(202, "9"), kHostPropertyModified);
    // Opening the filter again lists every row once and starts from the defaults.
    ASSERT_EQ(module.Call(kHostSelectorFilterTerminate, host.GetServer()), kHostCallSucceeded);
    ASSERT_EQ(module.Call(kHostSelectorFilterInitialize, host.GetServer()), kHostCallSucceeded);
    EXPECT_EQ(Item(202).decValue, 2.0);
    ASSERT_EQ(Item(161).rows.size(), 3u);
    EXPECT_EQ(Item(161).rows[2].text, u"wave");
    EXPECT_EQ(Item(161).rows[2].value, 2);
    ASSERT_EQ(Item(140).rows.size(), 2u);
    EXPECT_EQ(Item(140).rows[1].text, u"speed");
    EXPECT_EQ(Item(140).rows[1].value, 1);
    EXPECT_EQ(Change(140, "1"), kHostPropertyModified);
    EXPECT_EQ(Item(202).decValue, 4.0);
}

// ---- Presets ----

TEST_F(controller_test, a_preset_without_type_keeps_the_arrangement_and_applies_only_its_keys) {
    home.WritePreset("partial", "[guide]\np1=0.1,0.2\n[pen]\nsize=7\nin=250\n");
    OpenFilter();
    ASSERT_EQ(Change(150, "1"), kHostPropertyModified);
    ASSERT_EQ(Change(224, "90"), kHostPropertyModified);
    EXPECT_EQ(Change(140, "1"), kHostPropertyModified);
    ExpectValues({{150, 1}, {202, 7}, {205, 250}, {206, 500}, {224, 90}});
    ExpectPoints({PointAt(0.1, 0.2), PointAt(0.25, 0.125), PointAt(0.75, 0.875)});
}

TEST_F(controller_test, a_preset_with_every_key_sets_every_item) {
    home.WriteGuide("wave", kWave);
    home.WritePreset(
        "full",
        "[guide]\ntype=circle\np1=0.1,0.2\np2=0.3,0.4\np3=0.5,0.6\nname=wave\ncurvature=-2.5\n"
        "[pen]\nsize=3.5\nhardness=0.25\nfluction=0.5\nin=100\nout=200\nasdist=true\neasing=true\n"
        "[line]\nposition=-40\nposfluct=0.1\nlength=30\nlenfluct=0.2\nspacing=70\nspcfluct=0.3\n"
        "lengain=4\nspcgain=-5\nconnect=false\n");
    OpenFilter();
    EXPECT_EQ(Change(140, "1"), kHostPropertyModified);
    ExpectPoints({PointAt(0.1, 0.2), PointAt(0.3, 0.4), PointAt(0.5, 0.6)});
    const std::initializer_list<std::pair<int64_t, double>> every = {
        {150, 2},   {161, 2},   {162, -2.5}, {202, 3.5}, {203, 0.25}, {204, 0.5}, {205, 100},
        {206, 200}, {207, 1},   {208, 1},    {220, -40}, {221, 0.1},  {222, 30},  {223, 0.2},
        {224, 70},  {225, 0.3}, {226, 4},    {227, -5},  {228, 0}};
    ExpectValues(every);
}

// A shared preset may hold anything: the panel, and so the drawing, gets values its items can hold.
TEST_F(controller_test, a_preset_out_of_the_panels_ranges_is_held_to_them) {
    home.WritePreset("wild",
                     "[guide]\np1=nan,0.5\np2=1e300,-1e300\np3=0.5,inf\ncurvature=nan\n"
                     "[pen]\nsize=1e9\nhardness=-5\nin=2000000000\nout=-1\n"
                     "[line]\nposition=-2000000000\nlength=2000000000\nspacing=0\nlengain=inf\n"
                     "spcgain=-1e308\n");
    OpenFilter();
    ASSERT_EQ(Change(150, "1"), kHostPropertyModified);  // parallel, its points at their defaults
    const HostPoint p1 = Item(170).pointValue, p3 = Item(172).pointValue;
    const double curvature = Item(162).decValue;
    EXPECT_EQ(Change(140, "1"), kHostPropertyModified);
    const int64_t reach = 4 * std::max(kCanvasWidth, kCanvasHeight);
    ExpectPoints({p1, HostPoint{kCanvasWidth + reach, -reach}, p3});
    // clang-format off
    ExpectValues({{162, curvature}, {202, 50}, {203, 0}, {205, 1000}, {206, 0}, {220, -1000}, {222, 1000}, {224, 1},
                  {226, 100}, {227, -100}});
    // clang-format on
}

TEST_F(controller_test, an_unreadable_preset_changes_nothing) {
    home.WritePreset("empty", "");
    OpenFilter();
    ASSERT_EQ(Change(202, "9"), kHostPropertyModified);
    EXPECT_EQ(Change(140, "1"), kHostPropertyUnchanged);
    EXPECT_EQ(Item(202).decValue, 9.0);
}

TEST_F(controller_test, the_defaults_row_resets_every_item_and_the_points) {
    home.WritePreset("wide", "[guide]\ntype=parallel\n[pen]\nsize=20\n");
    OpenFilter();
    ASSERT_EQ(Change(140, "1"), kHostPropertyModified);
    const std::pair<int64_t, const char*> changes[] = {
        {161, "1"},    {162, "3"},    {203, "0.5"}, {204, "0.5"}, {205, "10"},    {206, "20"},
        {207, "true"}, {208, "true"}, {220, "5"},   {221, "0.5"}, {222, "50"},    {223, "0.5"},
        {224, "5"},    {225, "0.5"},  {226, "1"},   {227, "1"},   {228, "false"}, {170, "1,1"}};
    for (const auto& [key, text] : changes)
        ASSERT_EQ(Change(key, text), kHostPropertyModified) << key;

    EXPECT_EQ(Change(140, "0"), kHostPropertyModified);
    for (const SimItem& item : host.Items()) {
        SCOPED_TRACE(item.key);
        if (item.key == 140) continue;  // the chosen row itself
        EXPECT_EQ(item.enumValue, item.enumDefault);
        EXPECT_EQ(item.intValue, item.intDefault);
        EXPECT_EQ(item.decValue, item.decDefault);
        EXPECT_EQ(item.boolValue, item.boolDefault);
    }
    ExpectPoints({PointAt(0.5, 0.5), PointAt(0.5, 0.325), PointAt(0.5, 0.125)});
}

TEST_F(controller_test, save_on_exit_writes_a_dated_preset_that_is_listed_at_once) {
    OpenFilter();
    PlacePoints();
    ASSERT_EQ(Change(202, "4.5"), kHostPropertyModified);
    host.RunFilter(module);
    EXPECT_TRUE(fs::is_empty(home.root() + "/quorvel/brivane/preset")) << "not without save on exit";
    ASSERT_EQ(Change(141, "true"), kHostPropertyUnchanged);
    host.RunFilter(module);

    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(home.root() + "/quorvel/brivane/preset"))
        files.push_back(entry.path());
    ASSERT_EQ(files.size(), 1u);
    const std::string name = files[0].stem().string();
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(\d{8}-\d{6})"))) << name;
    const std::string text = home.Read(brivane_test::Utf8Text(files[0]));
    EXPECT_NE(text.find("type=radiate\np1=0.5,0.5\np2=0.5,0.325\np3=0.5,0.125\nname=:S\n"), std::string::npos)
        << text;
    EXPECT_NE(text.find("size=4.5\nhardness=1\nfluction=0\nin=500\nout=500\n"), std::string::npos) << text;

    ASSERT_EQ(Item(140).rows.size(), 2u);
    EXPECT_EQ(Item(140).rows[1].text, std::u16string(name.begin(), name.end()));
    EXPECT_EQ(Item(140).rows[1].value, 1);
    EXPECT_EQ(Item(140).enumValue, 0) << "the chosen row stays";
    // The new row loads like any other.
    ASSERT_EQ(Change(202, "8"), kHostPropertyModified);
    EXPECT_EQ(Change(140, "1"), kHostPropertyModified);
    EXPECT_EQ(Item(202).decValue, 4.5);
}

TEST_F(controller_test, a_preset_named_in_japanese_is_listed_applied_and_saved_back_byte_for_byte) {
    // A whole preset as the plug-in writes it, naming a guide in Japanese: the dated copy that save on
    // exit makes must be these bytes on every system.
    const std::string preset =
        "[guide]\ntype=parallel\np1=0.1,0.5\np2=0.9,0.5\np3=0.1,0.9\nname=波線\ncurvature=1\n\n"
        "[pen]\nsize=3\nhardness=1\nfluction=0\nin=500\nout=500\nasdist=false\neasing=false\n\n"
        "[line]\nposition=0\nposfluct=0\nlength=10\nlenfluct=0\nspacing=8\nspcfluct=0\nlengain=0\n"
        "spcgain=0\nconnect=true\n";
    home.WriteGuide("波線", kWave);
    home.WritePreset("集中線", preset);
    OpenFilter();
    EXPECT_EQ(Item(140).rows.at(1).text, u"集中線");
    EXPECT_EQ(Item(161).rows.at(2).text, u"波線");
    EXPECT_EQ(Change(140, "1"), kHostPropertyModified);
    ExpectValues({{150, 1}, {161, 2}, {202, 3}, {224, 8}});
    host.cancelAtStep = 1;
    host.RunFilter(module);
    EXPECT_TRUE(host.Cancelled());
    host.cancelAtStep = -1;
    ASSERT_EQ(Change(141, "true"), kHostPropertyUnchanged);
    host.RunFilter(module);
    const SimImage& drawn = *host.Destination();
    EXPECT_GT(ForEachCovered(drawn, drawn.depth - 1, [](int64_t, const uint8_t*) {}), 0);

    std::vector<fs::path> dated;
    for (const auto& entry :
         fs::directory_iterator(brivane_test::Utf8Path(home.root() + "/quorvel/brivane/preset"))) {
        if (entry.path().filename() != brivane_test::Utf8Path("集中線.ini")) dated.push_back(entry.path());
    }
    ASSERT_EQ(dated.size(), 1u);
    EXPECT_EQ(home.Read(brivane_test::Utf8Text(dated[0])), preset);
}

// ---- Runs ----

TEST_F(controller_test, a_run_draws_the_main_colour_in_rising_progress_steps) {
    host.SetLayer(MakeInkedLayer(kHostChannelOrderRgbAlpha, {2, 1, 0, 3}));
    host.mainColor = HostColor{200, 100, 50};
    OpenFilter();
    EXPECT_EQ(host.Log().canPreview, true);
    PlacePoints();
    host.RunFilter(module);
    EXPECT_GT(ForEachCovered(
                  *host.Destination(), 3,
                  [](int64_t, const uint8_t* pixel) {
                      ASSERT_EQ(std::vector<uint8_t>(pixel, pixel + 3), (std::vector<uint8_t>{50, 100, 200}));
                  }),
              0);
    EXPECT_EQ(host.Log().progressTotals, std::vector<int64_t>{500});
    const std::vector<int64_t>& values = host.Log().progressValues;
    ASSERT_FALSE(values.empty());
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    EXPECT_EQ(std::adjacent_find(values.begin(), values.end()), values.end()) << "no step twice";
    EXPECT_EQ(values.back(), 500);
}

TEST_F(controller_test, cancel_during_a_run_leaves_the_destination_untouched) {
    OpenFilter();
    PlacePoints();
    host.cancelAtStep = 1;
    const std::vector<uint8_t> before = host.Layer()->pixels;
    host.RunFilter(module);
    EXPECT_TRUE(host.Cancelled());
    EXPECT_EQ(host.Destination()->pixels, before);
    EXPECT_TRUE(host.Log().updatedAreas.empty());
    EXPECT_LT(host.Log().progressValues.size(), 500u);
}

TEST_F(controller_test, an_rgba_layer_gets_no_colour_at_all) {
    // RGBA layers (channel order 4) are read as coverage only, and given an all-zero colour.
    host.SetLayer(MakeInkedLayer(kHostChannelOrderRgba, {3, 2, 1, 0}));
    host.mainColor = HostColor{255, 255, 255};
    OpenFilter();
    PlacePoints();
    host.RunFilter(module);
    const std::vector<uint8_t>& pixels = host.Destination()->pixels;
    EXPECT_EQ(std::count(pixels.begin(), pixels.end(), 0), static_cast<long>(pixels.size()));
    EXPECT_EQ(host.Log().updatedAreas.size(), 1u);
}

TEST_F(controller_test, a_mask_layer_is_drawn_white_or_black_by_the_grey_of_the_main_colour) {
    for (const auto& [colour, expected] :
         {std::pair{HostColor{200, 200, 200}, 255}, std::pair{HostColor{100, 100, 100}, 0}}) {
        SCOPED_TRACE(expected);
        host.SetLayer(MakeInkedLayer(kHostChannelOrderMask));
        host.mainColor = colour;
        if (!module.Slot()) OpenFilter();
        PlacePoints();
        host.RunFilter(module);
        EXPECT_GT(ForEachCovered(*host.Destination(), 1,
                                 [&](int64_t, const uint8_t* pixel) { ASSERT_EQ(pixel[0], expected); }),
                  0);
    }
}

TEST_F(controller_test, a_selection_keeps_the_lines_inside_it) {
    SimImage selection = MakeImage(kCanvasWidth, kCanvasHeight, kHostChannelOrderAlpha);
    for (int64_t y = 0; y < kCanvasHeight; ++y)
        std::fill_n(selection.At(0, y), kCanvasWidth / 2, 255);
    host.SetSelection(selection);
    OpenFilter();
    PlacePoints();
    host.RunFilter(module);
    // Soft stroke ends may spill a pen's width past the last inked pixel.
    EXPECT_GT(ForEachCovered(*host.Destination(), 3,
                             [](int64_t x, const uint8_t*) { ASSERT_LT(x, kCanvasWidth / 2 + 8); }),
              0);
}

// ---- What the host cannot see: the manager driven directly ----

class manager_test : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(host.Resources().Load(BRIVANE_RESOURCES_FILE, error)) << error;
        host.SetLayer(MakeInkedLayer(kHostChannelOrderRgbAlpha));
        manager.AttachServer(host.GetServer());
        manager.InitFilter();
        ASSERT_TRUE(manager.OnInitFilter());
    }

    void Change(int64_t key, const std::string& text) {
        std::string error;
        ASSERT_TRUE(host.SetItemValue(key, text, error)) << error;
    }

    brivane_test::ScratchDataHome home;  // a data home of its own for every test
    SimHost host;
    ZephrineManager manager;
};

TEST_F(manager_test, parameters_and_points_come_from_the_panel) {
    manager.OnUpdateParameter();
    EXPECT_EQ(manager.GetParam().in, 0.5) << "taper sliders are fractions";
    EXPECT_EQ(manager.GetParam().out, 0.5);
    Change(207, "true");
    Change(206, "750");
    Change(150, "2");
    Change(171, "-30,40");
    Change(224, "75");
    Change(228, "false");
    for (const auto& [key, text] : {std::pair<int64_t, const char*>{203, "0.25"},
                                    {204, "0.5"},
                                    {221, "0.75"},
                                    {223, "0.125"},
                                    {225, "0.375"},
                                    {226, "3"},
                                    {227, "-4"}})
        Change(key, text);
    manager.OnUpdateParameter();
    const MoveEffectParam& param = manager.GetParam();
    EXPECT_EQ((std::vector<double>{param.hardness, param.fluction, param.posfluct, param.lenfluct,
                                   param.spcfluct, param.lengain, param.spcgain}),
              (std::vector<double>{0.25, 0.5, 0.75, 0.125, 0.375, 3, -4}));
    EXPECT_EQ(param.in, 500.0) << "unless they are distances";
    EXPECT_EQ(param.out, 750.0);
    EXPECT_EQ(param.type, 2);
    EXPECT_EQ(param.spacing, 75);
    EXPECT_FALSE(param.connect);
    EXPECT_EQ(param.size, 2.0);
    EXPECT_EQ(param.length, 10);
    const PointTarget& target = manager.GetTarget();
    EXPECT_EQ(target.x1, kCanvasWidth / 4);
    EXPECT_EQ(target.y1, kCanvasHeight / 2);
    EXPECT_EQ(target.x2, -30);
    EXPECT_EQ(target.y2, 40);
}

// A host may answer what its panel was never given: the drawing still gets values the items can hold.
TEST_F(manager_test, wild_host_answers_are_held_to_the_items_ranges) {
    host.FindItem(202)->decValue = host.FindItem(226)->decValue = std::nan("");
    host.FindItem(203)->decValue = 1e300;
    host.FindItem(222)->intValue = INT64_MAX;
    host.FindItem(224)->intValue = INT64_MIN;
    host.FindItem(171)->pointValue = {INT64_MIN, INT64_MAX};
    for (int64_t key : {202, 203, 222, 224, 226, 171})
        host.Notify(key, kHostNotifyValueChanged);
    manager.OnUpdateParameter();
    const MoveEffectParam& p = manager.GetParam();  // NaN gives the default
    EXPECT_EQ((std::vector<double>{p.size, p.lengain, p.hardness, double(p.length), double(p.spacing)}),
              (std::vector<double>{2, 0, 1, 1000, 1}));
    const int64_t reach = 4 * std::max(kCanvasWidth, kCanvasHeight);
    EXPECT_EQ(manager.GetTarget().x2, -reach);
    EXPECT_EQ(manager.GetTarget().y2, kCanvasHeight + reach);
}

}  // namespace
