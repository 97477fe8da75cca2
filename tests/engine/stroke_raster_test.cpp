// The fast disc rasteriser against the straightforward one: every pixel of every disc below 255
// sampled 4 x 4 with a pow per soft sample. Hard discs must match byte for byte, soft ones within one
// level (the fast rim comes from a table).
#include "engine/StrokeRaster.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <utility>
#include <vector>

#include "StrokeTestSupport.h"
#include "engine/MoveEffectFilter.h"

namespace {

struct Canvas {
    int32_t width;
    int32_t height;
    std::vector<uint8_t> pixels;
    int32_t dirty[4];

    Canvas(int32_t w, int32_t h)
        : width(w), height(h), pixels(static_cast<std::size_t>(w) * h, 0), dirty{w, h, 0, 0} {}
    CoverageView View() { return CoverageView{pixels.data(), width, height, width}; }
};

// The disc as the design describes it, pixel by pixel.
void ReferenceDrawCircle(Canvas& canvas, double hardness, double x, double y, double diameter) {
    const double r = diameter / 2;
    const double inner = r * hardness;
    const double band = r - inner;
    const double k = band > 1e-12 ? 1 / band : 0;
    const double e = 4 * hardness + 1;
    const double left = std::max(std::floor(x - r), 0.0);
    const double right = std::min(std::ceil(x + r), static_cast<double>(canvas.width));
    const double top = std::max(std::floor(y - r), 0.0);
    const double bottom = std::min(std::ceil(y + r), static_cast<double>(canvas.height));
    const int x0 = static_cast<int>(std::min(left, static_cast<double>(canvas.width)));
    const int y0 = static_cast<int>(std::min(top, static_cast<double>(canvas.height)));
    const int x1 = static_cast<int>(std::max(right, 0.0));
    const int y1 = static_cast<int>(std::max(bottom, 0.0));
    for (int py = y0; py < y1; ++py) {
        for (int px = x0; px < x1; ++px) {
            uint8_t& c = canvas.pixels[static_cast<std::size_t>(py) * canvas.width + px];
            if (c >= 255) continue;
            const double dx = px + 0.5 - x;
            const double dy = py + 0.5 - y;
            const double centre = dx * dx + dy * dy;
            if (centre < inner * inner - 1) {
                c = 255;
                continue;
            }
            bool allIn = true;
            bool allOut = true;
            for (double oy : {-0.375, 0.375}) {
                for (double ox : {-0.375, 0.375}) {
                    const double q = (dx + ox) * (dx + ox) + (dy + oy) * (dy + oy);
                    allIn = allIn && q <= inner * inner + 1e-12;
                    allOut = allOut && q >= r * r - 1e-12;
                }
            }
            if (allIn && !allOut) {
                c = 255;
                continue;
            }
            if (allOut && !(allIn && centre < r * r)) continue;
            double sum = 0;
            for (double oy : {-0.375, -0.125, 0.125, 0.375}) {
                for (double ox : {-0.375, -0.125, 0.125, 0.375}) {
                    const double q = (dx + ox) * (dx + ox) + (dy + oy) * (dy + oy);
                    if (q <= inner * inner + 1e-12) {
                        sum += 1;
                    } else if (q < r * r - 1e-12) {
                        sum += std::pow(1 - (std::sqrt(q) - inner) * k, e);
                    }
                }
            }
            const int v = static_cast<int>(sum * 0.0625 * 255 + 0.5);
            if (v > c) c = static_cast<uint8_t>(v);
        }
    }
    canvas.dirty[0] = std::min(canvas.dirty[0], static_cast<int32_t>(std::min(left, 1e9)));
    canvas.dirty[1] = std::min(canvas.dirty[1], static_cast<int32_t>(std::min(top, 1e9)));
    canvas.dirty[2] = std::max(canvas.dirty[2], static_cast<int32_t>(std::max(right, -1e9)));
    canvas.dirty[3] = std::max(canvas.dirty[3], static_cast<int32_t>(std::max(bottom, -1e9)));
}

int LargestDifference(const Canvas& a, const Canvas& b) {
    int worst = 0;
    for (std::size_t i = 0; i < a.pixels.size(); ++i) {
        worst = std::max(worst, std::abs(static_cast<int>(a.pixels[i]) - static_cast<int>(b.pixels[i])));
    }
    return worst;
}

// Random discs on a 64 x 48 canvas: diameters 0.1 to 50 (more small ones), centres anywhere from
// well off the left/top edge to well off the right/bottom edge.
Disc RandomDisc(std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    const double diameter = 0.1 * std::pow(500.0, unit(random));
    return Disc{-10 + 84 * unit(random), -10 + 68 * unit(random), diameter};
}

void ExpectSameDirty(const Canvas& fast, const Canvas& reference) {
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(fast.dirty[i], reference.dirty[i]) << "edge " << i;
}

// Discs at hardness 1 first, then soft ones (every tenth with no hard core at all).
TEST(stroke_raster_test,
     random_discs_match_the_straightforward_ones_exactly_when_hard_and_within_a_level_else) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    for (int n = 0; n < 7000; ++n) {
        const double hardness = n < 4000 ? 1.0 : n % 10 == 0 ? 0.0 : unit(random);
        Canvas fast(64, 48);
        Canvas reference(64, 48);
        const Disc disc = RandomDisc(random);
        StampDiscUnshared(fast.View(), DiscProfile::ForHardness(hardness), disc, fast.dirty);
        ReferenceDrawCircle(reference, hardness, disc.x, disc.y, disc.diameter);
        ASSERT_LE(LargestDifference(fast, reference), hardness == 1.0 ? 0 : 1)
            << "hardness " << hardness << " disc " << disc.x << ", " << disc.y << " d " << disc.diameter;
        ExpectSameDirty(fast, reference);
    }
}

TEST(stroke_raster_test, the_filter_draws_lines_as_the_straightforward_discs_do) {
    // At size 23 the upright line's stamps hold 17 columns, one past a 16-byte block; at size 28 the
    // remembered stamps' rows span more than one block.
    for (const auto& [size, hardness] :
         {std::pair{9.0, 1.0}, {9.0, 0.5}, {23.0, 1.0}, {28.0, 1.0}, {28.0, 0.5}}) {
        MoveEffectParam param = stroke_test::QuietParam(1);
        param.size = size;
        param.hardness = hardness;
        PathParser guide = stroke_test::StraightGuide();
        stroke_test::Layer layer(70, 50);
        auto filter = stroke_test::MakeFilter(param, PointTarget{}, guide, layer);
        Canvas reference(70, 50);
        // The same discs batched as stroke tasks stamp them: tiles, remembered stamps (the two lines
        // that keep their size), whole-block stamps down a vertical line, and a thin slanted line whose
        // tiles are read and merged by row spans.
        Canvas batched(70, 50);
        StrokeRaster raster(nullptr, batched.View(), hardness);
        const PathPoint points[9] = {{-3, 10.3},    {30.7, 22.1}, {31.2, 22.9}, {75, 40}, {2.25, 44.5},
                                     {60.25, 44.5}, {60.25, 3},   {66, 2},      {3, 47.5}};
        const double pressures[9] = {0.2, 1.0, 0.6, 0.9, 0.7, 0.7, 0.7, 0.2, 0.25};
        for (int i = 0; i < 8; ++i) {
            if (i == 3 || i == 6) continue;  // gaps between the strokes
            filter->DrawLine(points[i], pressures[i], points[i + 1], pressures[i + 1]);
            ForEachLineDisc(points[i].x, points[i].y, pressures[i], points[i + 1].x, points[i + 1].y,
                            pressures[i + 1], param.size, [&](double x, double y, double d) {
                                ReferenceDrawCircle(reference, hardness, x, y, d);
                                raster.AddDisc(Disc{x, y, d});
                            });
        }
        raster.Flush();
        Canvas fast(70, 50);
        fast.pixels.assign(filter->GetCoverage(), filter->GetCoverage() + fast.pixels.size());
        EXPECT_LE(LargestDifference(fast, reference), hardness == 1.0 ? 0 : 1) << size << ", " << hardness;
        EXPECT_LE(LargestDifference(batched, reference), hardness == 1.0 ? 0 : 1) << size << ", " << hardness;
        const MoveEffectFilter::DirtyRect d = filter->GetDirtyRect();
        fast.dirty[0] = d.left;
        fast.dirty[1] = d.top;
        fast.dirty[2] = d.right;
        fast.dirty[3] = d.bottom;
        ExpectSameDirty(fast, reference);
    }
}

TEST(stroke_raster_test, a_line_s_pressure_runs_from_its_start_to_its_end) {
    std::vector<double> diameters;
    ForEachLineDisc(0, 0, 0.5, 10, 0, 1.0, 2, [&](double, double, double d) { diameters.push_back(d); });
    ASSERT_GE(diameters.size(), 2u);
    EXPECT_DOUBLE_EQ(diameters[1], 1.1);  // the second disc is 1 px, a tenth, along: pressure 0.55
    // Found by fuzzing: a path far off the canvas jumped 1e7 px in one step, a billion thin steps.
    diameters.clear();
    ForEachLineDisc(0, 0, 0, 1e7, 0, 0.01, 2, [&](double, double, double d) { diameters.push_back(d); });
    EXPECT_TRUE(diameters.empty());
}

TEST(stroke_raster_test, discs_too_large_for_a_tile_are_stamped_in_place_with_the_same_bytes) {
    Canvas fast(640, 600);
    Canvas reference(640, 600);
    StrokeRaster raster(nullptr, fast.View(), 1.0);
    // Each disc's box alone exceeds a tile; the batch is split down to single discs.
    for (const Disc& disc : {Disc{300.3, 280.7, 590}, Disc{330.1, 300.2, 560.5}, Disc{-200, 10, 700}}) {
        raster.AddDisc(disc);
        ReferenceDrawCircle(reference, 1.0, disc.x, disc.y, disc.diameter);
    }
    raster.Flush();
    EXPECT_EQ(LargestDifference(fast, reference), 0);
}

TEST(stroke_raster_test, non_finite_discs_draw_nothing_and_leave_the_dirty_rectangle) {
    Canvas canvas(16, 16);
    DiscProfile& profile = DiscProfile::ForHardness(0.5);
    StampDiscUnshared(canvas.View(), profile, Disc{NAN, 4, 3}, canvas.dirty);
    StampDiscUnshared(canvas.View(), profile, Disc{4, INFINITY, 3}, canvas.dirty);
    StampDiscUnshared(canvas.View(), profile, Disc{4, 4, NAN}, canvas.dirty);
    EXPECT_EQ(canvas.pixels, std::vector<uint8_t>(256, 0));
    EXPECT_EQ(canvas.dirty[0], 16);
    EXPECT_EQ(canvas.dirty[2], 0);
}

}  // namespace
