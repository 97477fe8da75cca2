// Stroke tasks: where strokes appear along a path over the layer, how they taper and merge. Every
// fluctuation is off, so the output is deterministic and checked pixel by pixel.
#include "engine/PathTask.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <vector>

#include "StrokeTestSupport.h"
#include "engine/MoveEffectFilter.h"

namespace {

using namespace stroke_test;

constexpr PointTarget kNoTarget{0, 0, 0, 0, 0, 0};

// A task whose path runs along the pixel-centre row y from x = 0 to x = length.
std::shared_ptr<PathTask> HorizontalTask(MoveEffectFilter& filter, double y, double length) {
    auto task = std::make_shared<PathTask>(&filter, nullptr);
    task->AppendPathSegment(PathSegment{PathSegment::kMoveTo, {{0, y + 0.5}}});
    task->AppendPathSegment(PathSegment{PathSegment::kLineTo, {{length, y + 0.5}}});
    return task;
}

int CountCovered(const MoveEffectFilter& filter) {
    int covered = 0;
    for (int32_t y = 0; y < filter.GetHeight(); ++y) {
        for (int32_t x = 0; x < filter.GetWidth(); ++x)
            covered += CoverageAt(filter, x, y) > 0 ? 1 : 0;
    }
    return covered;
}

// Rows (at column x) with full coverage: the stroke's thickness there.
int Thickness(const MoveEffectFilter& filter, int32_t x) {
    int rows = 0;
    for (int32_t y = 0; y < filter.GetHeight(); ++y)
        rows += CoverageAt(filter, x, y) == 255 ? 1 : 0;
    return rows;
}

TEST(path_task_test, strokes_cover_the_inked_run_extended_by_half_the_length_at_each_end_from_near_or_far) {
    MoveEffectParam param = QuietParam(1);
    param.length = 10;
    PathParser guide = StraightGuide();
    Layer layer(100, 40);
    layer.InkRect(40, 15, 60, 25);
    // From the image's edge, and from 1e9 px off: a billion single steps once, a few jumps now.
    for (const double from : {0.0, -1e9}) {
        auto filter = MakeFilter(param, kNoTarget, guide, layer);
        auto task = std::make_shared<PathTask>(filter.get(), nullptr);
        task->AppendPathSegment(PathSegment{PathSegment::kMoveTo, {{from, 20.5}}});
        task->AppendPathSegment(PathSegment{PathSegment::kLineTo, {{100, 20.5}}});
        task->Run();
        // The run is [40, 60); the stroke [35, 65], its discs up to a step beyond. From far off the samples
        // may fall a rounding short of a pixel's edge, which moves the ends by one.
        EXPECT_EQ(CoverageAt(*filter, 33, 20), 0);
        EXPECT_EQ(CoverageAt(*filter, from == 0 ? 37 : 38, 20), 255);
        EXPECT_EQ(CoverageAt(*filter, 50, 20), 255);
        EXPECT_EQ(CoverageAt(*filter, from == 0 ? 64 : 63, 20), 255);
        EXPECT_EQ(CoverageAt(*filter, 68, 20), 0);
        EXPECT_EQ(CoverageAt(*filter, 50, 10), 0);
    }
    // On along the row for 1e300 px, where one-pixel steps are lost in rounding: not walked at all.
    auto filter = MakeFilter(param, kNoTarget, guide, layer);
    HorizontalTask(*filter, 20, 1e300)->Run();
    EXPECT_EQ(CountCovered(*filter), 0);
}

TEST(path_task_test, pooled_and_single_threaded_renders_are_the_same_bytes_in_every_arrangement) {
    MoveEffectParam param = QuietParam(0);
    param.size = 7;
    param.hardness = 0.4;
    param.in = 0.3;
    param.out = 0.6;
    param.length = 12;
    param.spacing = 6;
    PathParser guide;
    guide.CreateCurve();
    Layer layer(90, 90);
    layer.InkRect(10, 10, 80, 50);
    const PointTarget targets[3] = {{45, 45, 45, 35, 45, 5}, {5, 80, 85, 20, 5, 5}, {20, 45, 70, 45, 45, 30}};
    for (int32_t type = 0; type < 3; ++type) {
        SCOPED_TRACE(type);
        param.type = type;
        auto single = MakeFilter(param, targets[type], guide, layer);
        RenderSingleThreaded(*single);
        auto pooled = MakeFilter(param, targets[type], guide, layer);
        pooled->ApplyEffect(false);
        const std::size_t size = static_cast<std::size_t>(90) * 90;
        EXPECT_EQ(std::vector<uint8_t>(single->GetCoverage(), single->GetCoverage() + size),
                  std::vector<uint8_t>(pooled->GetCoverage(), pooled->GetCoverage() + size));
        const MoveEffectFilter::DirtyRect a = single->GetDirtyRect();
        const MoveEffectFilter::DirtyRect b = pooled->GetDirtyRect();
        EXPECT_TRUE(a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom);
        EXPECT_GT(CountCovered(*single), 300);
    }
}

// Fractional taper is linear over its share of half the stroke; eased taper rises quadratically fast
// and is full at the same place; absolute taper counts pixels, its taper-in stopping at the middle.
TEST(path_task_test, taper_profiles_give_the_documented_pressures) {
    enum Profile { kNone, kFraction, kEased, kAbsolute };
    const struct {
        Profile profile;
        double position, length;
        bool taperIn, taperOut;
        double fluctuation, pressure;
    } cases[] = {
        // 100 px with in = out = 0.5: the taper-in covers the first 25 px, the taper-out the last 25.
        {kFraction, 0, 100, true, true, 0, 0},
        {kFraction, 10, 100, true, true, 0, 0.4},
        {kFraction, 25, 100, true, true, 0, 1},
        {kFraction, 90, 100, true, true, 0, 0.4},
        {kFraction, 10, 100, false, false, 0, 1},  // untapered ends are at full pressure right away
        {kEased, 10, 100, true, true, 0, 0.4 * 1.6},
        {kEased, 90, 100, true, true, 0, 0.4 * 1.6},
        // in = 10 px, out = 20 px.
        {kAbsolute, 5, 100, true, true, 0, 0.5},
        {kAbsolute, 10, 100, true, true, 0, 1},
        {kAbsolute, 90, 100, true, true, 0, 0.5},
        {kAbsolute, 8, 16, true, false, 0, 0.8},  // a 16 px stroke: the taper-in ends at the middle
        {kAbsolute, 9, 16, true, false, 0, 1},
        // No taper: full pressure but at the very first pixel; a stroke of no length is a dot.
        {kNone, 0, 30, true, true, 0, 0},
        {kNone, 1, 30, true, true, 0, 1},
        {kNone, 0, 0, true, true, 0, 1},
        {kNone, 12, 30, true, true, 0.3, 0.7},
    };
    PathParser guide = StraightGuide();
    Layer layer(4, 4);
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "profile " << c.profile << " at " << c.position << " of " << c.length);
        MoveEffectParam param = QuietParam(1);
        if (c.profile == kFraction || c.profile == kEased) {
            param.in = 0.5;
            param.out = 0.5;
            param.easing = c.profile == kEased;
        } else if (c.profile == kAbsolute) {
            param.asdist = true;
            param.in = 10;
            param.out = 20;
        }
        auto filter = MakeFilter(param, kNoTarget, guide, layer);
        PathTask task(filter.get(), nullptr);
        EXPECT_DOUBLE_EQ(task.GetPressure(c.position, c.length, c.taperIn, c.taperOut, c.fluctuation),
                         c.pressure);
    }
}

// Two inked runs [10, 20) and [28, 38) on one row; with length 12 their strokes [4, 26] and [22, 44]
// overlap. Returns the stroke's thickness at x = 24, between the runs.
int ThicknessBetweenRuns(bool connect) {
    MoveEffectParam param = QuietParam(1);
    param.size = 8;
    param.asdist = true;
    param.in = 10;
    param.out = 10;
    param.length = 12;
    param.connect = connect;
    PathParser guide = StraightGuide();
    Layer layer(60, 40);
    layer.InkRect(10, 20, 20, 21);
    layer.InkRect(28, 20, 38, 21);
    auto filter = MakeFilter(param, kNoTarget, guide, layer);
    HorizontalTask(*filter, 20, 60)->Run();
    return Thickness(*filter, 24);
}

TEST(path_task_test, connect_merges_overlapping_strokes_into_one_untapered_across_the_gap) {
    EXPECT_EQ(ThicknessBetweenRuns(true), 7);  // an 8 px disc covers 7 rows fully
    // Apart, the first stroke tapers out and the second tapers in across the gap.
    EXPECT_LT(ThicknessBetweenRuns(false), 5);
}

TEST(path_task_test, a_ring_whose_ink_crosses_the_seam_is_drawn_as_one_stroke_across_it) {
    MoveEffectParam param = QuietParam(2);
    param.spacing = 0;
    param.size = 4;
    param.asdist = true;
    param.in = 6;
    param.out = 6;
    PathParser guide = StraightGuide();
    Layer layer(80, 80);
    // Ink the top half of the canvas: the ring starts at its top, so its inked arc spans the seam.
    layer.InkRect(0, 0, 80, 40);
    auto filter = MakeFilter(param, PointTarget{20, 40, 60, 40, 40, 20}, guide, layer);
    RenderSingleThreaded(*filter);
    // Full pressure right at the seam (top of the ring); a stroke cut there would taper to nothing.
    EXPECT_EQ(CoverageAt(*filter, 40, 20), 255);
    EXPECT_EQ(CoverageAt(*filter, 39, 20), 255);
    EXPECT_EQ(CoverageAt(*filter, 40, 60), 0);  // the bottom of the ring has no ink
    // A length gain grows ring strokes by 100 * radius / 50 = 40 px at each end: past the bottom.
    param.lengain = 100;
    auto longer = MakeFilter(param, PointTarget{20, 40, 60, 40, 40, 20}, guide, layer);
    RenderSingleThreaded(*longer);
    EXPECT_EQ(CoverageAt(*longer, 40, 60), 255);
}

}  // namespace
