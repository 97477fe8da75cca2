// The three arrangements: how many paths they lay out and where the lines land on a fully inked
// layer, with every fluctuation off.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <numbers>
#include <utility>
#include <vector>

#include "StrokeTestSupport.h"
#include "engine/MoveEffectFilter.h"
#include "engine/PathTask.h"

namespace {

using namespace stroke_test;
using Pixels = std::vector<std::pair<int32_t, int32_t>>;

// Coverage-weighted mean row of column x.
double MeanRow(const MoveEffectFilter& filter, int32_t x) {
    double sum = 0;
    double weight = 0;
    for (int32_t y = 0; y < filter.GetHeight(); ++y) {
        sum += (y + 0.5) * CoverageAt(filter, x, y);
        weight += CoverageAt(filter, x, y);
    }
    return weight > 0 ? sum / weight : -1;
}

TEST(layout_test, parallel_lines_follow_the_guide_scaled_across_by_the_curvature) {
    PathParser guide;
    guide.CreateCurve();  // an arch over 100 units, 25 units high at its middle
    Layer layer(120, 140, true);
    for (double curvature : {0.0, 1.0, 0.5, -0.5}) {
        MoveEffectParam param = QuietParam(1);
        param.curvature = curvature;
        // One line from (10, 100) to (110, 100): the guide's 100 units map onto 100 px.
        auto filter = MakeFilter(param, PointTarget{10, 100, 110, 100, 10, 100}, guide, layer);
        RenderSingleThreaded(*filter);
        // Flattening keeps the line within half a unit of the curve.
        EXPECT_NEAR(MeanRow(*filter, 60), 100 - 25 * curvature, 0.6) << "curvature " << curvature;
    }
}

TEST(layout_test, radiate_lines_stand_a_quarter_turn_apart_for_spacing_1000_out_to_the_farther_point) {
    MoveEffectParam param = QuietParam(0);
    param.spacing = 1000;
    param.size = 4;
    PathParser guide = StraightGuide();
    Layer layer(100, 100, true);
    // Centre (50, 50); lines from radius 10 to radius 40, the first pointing up at p3.
    auto filter = MakeFilter(param, PointTarget{50, 50, 50, 40, 50, 10}, guide, layer);
    const int tasks = RenderSingleThreaded(*filter);
    // Four lines, and a fifth on top of the first when four steps add up to no more than a full turn.
    EXPECT_GE(tasks, 4);
    EXPECT_LE(tasks, 5);
    for (const auto& [x, y] : Pixels{{50, 25}, {75, 50}, {50, 75}, {25, 50}})
        EXPECT_EQ(CoverageAt(*filter, x, y), 255) << x << ", " << y;
    // Nothing on the diagonals, nor inside the inner radius.
    for (const auto& [x, y] : Pixels{{68, 32}, {68, 68}, {32, 68}, {32, 32}})
        EXPECT_EQ(CoverageAt(*filter, x, y), 0) << x << ", " << y;
    EXPECT_EQ(CoverageAt(*filter, 50, 45), 0);
    // The walk overshoots the path's end by a few px (and a disc by its radius), not by 8.
    EXPECT_EQ(CoverageAt(*filter, 50, 2), 0);
    // With p2 the far point the first line points right, from radius 5 to radius 30.
    auto swapped = MakeFilter(param, PointTarget{50, 50, 80, 50, 50, 45}, guide, layer);
    RenderSingleThreaded(*swapped);
    EXPECT_EQ(CoverageAt(*swapped, 70, 50), 255);
    EXPECT_EQ(CoverageAt(*swapped, 50, 30), 255);
    EXPECT_EQ(CoverageAt(*swapped, 50, 10), 0);  // well beyond radius 30
}

TEST(layout_test,
     circle_rings_step_in_and_out_by_the_spacing_while_they_can_be_seen_and_the_step_keeps_its_sign) {
    MoveEffectParam param = QuietParam(2);
    param.spacing = 10;
    param.size = 4;
    PathParser guide = StraightGuide();
    Layer layer(100, 100, true);
    // A circle of radius 25 round the middle: rings 15 and 5 inside (-5 would be below 1), 35, 45, 55
    // and 65 outside; 75 encloses the whole canvas and is not seen.
    auto filter = MakeFilter(param, PointTarget{25, 50, 75, 50, 50, 25}, guide, layer);
    EXPECT_EQ(RenderSingleThreaded(*filter), 7);
    for (int radius : {5, 15, 25, 35, 45}) {
        EXPECT_EQ(CoverageAt(*filter, 50 + radius, 50), 255) << "radius " << radius;
        EXPECT_EQ(CoverageAt(*filter, 50 + radius - 5, 50), 0) << "between rings " << radius;
    }
    EXPECT_EQ(CoverageAt(*filter, 50, 50), 0);

    // A gain that turns the step round ends the pass. Outward: one ring at 25 - 15 + 10 = 20, then the
    // step is -20. Inward: the first step (-10 - 15) brings the radius to 0, below 1, at once.
    param.spcgain = -30;
    auto turned = MakeFilter(param, PointTarget{25, 50, 75, 50, 50, 25}, guide, layer);
    EXPECT_EQ(RenderSingleThreaded(*turned), 2);
}

TEST(layout_test, every_ring_of_every_render_wobbles_alike_when_the_guide_starts_without_a_usable_move) {
    // Without its move-to the guide starts from the pen: a slope up from (0, 0) when fresh, flat
    // along y = 10 from its own end once prepared.
    PathParser guide;
    for (const PathSegment& segment :
         {PathSegment{PathSegment::kMoveTo, {{NAN, 0}}}, PathSegment{PathSegment::kLineTo, {{50, 10}}},
          PathSegment{PathSegment::kLineTo, {{100, 10}}}}) {
        guide.Append(segment);
    }
    MoveEffectParam param = QuietParam(2);
    param.spacing = 10;
    Layer layer(100, 100, true);
    auto first = MakeFilter(param, PointTarget{25, 50, 75, 50, 50, 25}, guide, layer);
    RenderSingleThreaded(*first);
    auto again = MakeFilter(param, PointTarget{25, 50, 75, 50, 50, 25}, guide, layer);
    RenderSingleThreaded(*again);
    for (int32_t x = 0; x < 100; ++x) {
        EXPECT_EQ(CoverageAt(*first, x, 50), CoverageAt(*again, x, 50)) << x;
        EXPECT_EQ(CoverageAt(*first, 50, x), CoverageAt(*again, 50, x)) << x;
    }
}

TEST(layout_test,
     ellipses_are_in_the_canvas_unless_round_or_beside_it_and_segments_meet_them_at_the_outline) {
    PathParser guide = StraightGuide();
    Layer layer(100, 60);
    auto filter = MakeFilter(QuietParam(2), PointTarget{0, 0, 0, 0, 0, 0}, guide, layer);
    EXPECT_TRUE(filter->IsEllipseIn(PathPoint{50, 30}, 20, 10, 0.4));
    EXPECT_TRUE(filter->IsEllipseIn(PathPoint{50, 30}, 60, 10, 0));       // across the left and right edges
    EXPECT_TRUE(filter->IsEllipseIn(PathPoint{-10, 30}, 15, 15, 0));      // centre off the canvas
    EXPECT_FALSE(filter->IsEllipseIn(PathPoint{50, 30}, 200, 200, 0.2));  // round the whole canvas
    EXPECT_FALSE(filter->IsEllipseIn(PathPoint{-50, 30}, 20, 20, 0));     // wholly left of it
    EXPECT_FALSE(filter->IsEllipseIn(PathPoint{50, 130}, 40, 20, 0));     // wholly below it
    // A segment meets an ellipse only where it crosses the outline. Ellipse 10 x 5 turned a quarter:
    // it reaches 10 up and down, 5 to the sides.
    const PathPoint c{0, 0};
    const double quarter = std::numbers::pi / 2;
    EXPECT_TRUE(filter->LineIntersectsEllipse({-20, 9}, {20, 9}, c, 10, 5, quarter));
    EXPECT_FALSE(filter->LineIntersectsEllipse({-20, 11}, {20, 11}, c, 10, 5, quarter));
    EXPECT_FALSE(filter->LineIntersectsEllipse({-1, 0}, {1, 0}, c, 10, 5, quarter));  // wholly inside
    EXPECT_TRUE(filter->LineIntersectsEllipse({0, 0}, {8, 0}, c, 10, 5, quarter));    // leaves it
    EXPECT_FALSE(filter->LineIntersectsEllipse({6, 0}, {8, 0}, c, 10, 5, quarter));   // beside it, away
}

// Rings are cut into one vertex per 5 px of their perimeter: the estimate must be the ellipse's own, as
// a fine polygon measures it (within the formula's 0.4% for an ellipse flattened to a line).
TEST(layout_test, a_ring_s_perimeter_is_the_ellipse_s) {
    for (const auto& [rx, ry] : {std::pair{100.0, 100.0}, {300.0, 50.0}, {1.0, 1000.0}, {40.0, 0.0}}) {
        double measured = 0;
        constexpr int kSides = 100000;
        for (int i = 0; i < kSides; ++i) {
            const double a = 2 * std::numbers::pi * i / kSides;
            const double b = 2 * std::numbers::pi * (i + 1) / kSides;
            measured += std::hypot(rx * (std::cos(b) - std::cos(a)), ry * (std::sin(b) - std::sin(a)));
        }
        EXPECT_NEAR(RingPerimeter(rx, ry), measured, 0.005 * measured) << rx << " x " << ry;
    }
}

}  // namespace

// A layout makes the paths that can reach the canvas, however far the points put the others.
TEST(layout_test, lines_that_cannot_reach_the_canvas_or_have_no_length_cost_nothing) {
    PathParser guide = StraightGuide();
    Layer layer(100, 100, true);
    MoveEffectParam parallel = QuietParam(1);
    parallel.spacing = 10;
    // A thousand horizontal lines 10 px apart, of which the ones crossing rows 0 to 100 can be seen.
    auto across = MakeFilter(parallel, PointTarget{0, -5000, 100, -5000, 0, 5000}, guide, layer);
    const int lines = RenderSingleThreaded(*across);
    EXPECT_GE(lines, 10);
    EXPECT_LE(lines, 12);
    // Four thousand spokes from far above; the canvas takes up 0.06 degrees of their turn.
    MoveEffectParam radiate = QuietParam(0);
    radiate.spacing = 1;
    auto spokes = MakeFilter(radiate, PointTarget{50, -100000, 50, -99990, 50, -99980}, guide, layer);
    EXPECT_LE(RenderSingleThreaded(*spokes), 3);
    // Found by fuzzing: with all three points in one place a spoke has no length, and a length gain
    // divided by it made strokes without end.
    MoveEffectParam param = QuietParam(0);
    param.lengain = 100;
    param.spacing = 100;
    auto filter = MakeFilter(param, PointTarget{40, 40, 40, 40, 40, 40}, guide, layer);
    RenderSingleThreaded(*filter);
    EXPECT_EQ(CoverageAt(*filter, 90, 90), 0);
}
