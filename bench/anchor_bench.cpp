// The anchor for the dense strokes: what a general 2D library takes to fill the same strokes.
//
//   CairoDense      cairo filling, antialiased into an A8 surface of the B4 page, each stroke of the
//                   dense parallel case (size 20, spacing 5, default points) as one polygon: its
//                   tapered outline, the envelope of its discs at their diameters. One thread.
//   BrivaneDense/.. the engine's render of the same strokes (hardness 1 and 0.5), single and pooled,
//                   coverage only: no ink to read back and no RGBA to write, as cairo has none.
//
// The strokes are placed as the engine's stroke tasks place them on a fully inked page: the lines of
// the parallel layout, each run the length of its path plus half the length at either end, stepped
// pixel by pixel with the engine's own pressure and disc spacing. `discs` counts them for both, so
// that a layout change that the model here misses shows as a mismatch.
#include <benchmark/benchmark.h>
#include <cairo.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "bench/BenchCases.h"
#include "engine/MoveEffectFilter.h"
#include "engine/PathTask.h"
#include "engine/StrokeRaster.h"
#include "guide/PathParser.h"

namespace {

using bench::kPageHeight;
using bench::kPageWidth;

// The parallel arrangement's default points: lines from p1 towards p2, stacked towards p3.
PointTarget DenseTarget() {
    return bench::DefaultTarget(1, kPageWidth, kPageHeight);
}

bench::InkedLayer& GetPage() {
    static bench::InkedLayer page(kPageWidth, kPageHeight);
    return page;
}

// Each stroke's discs, in order along it.
std::vector<std::vector<Disc>> PlaceDenseStrokes() {
    const MoveEffectParam param = bench::DenseParallelParam(1);
    MoveEffectFilter filter(param, 1);
    PathParser guide;
    guide.CreateLine();
    filter.AttachGuide(&guide);
    PathTask task(&filter, nullptr);  // for its pressure profile only
    const PointTarget t = DenseTarget();
    const double path = std::hypot(t.x2 - t.x1, t.y2 - t.y1);
    const double ux = (t.x2 - t.x1) / path;
    const double uy = (t.y2 - t.y1) / path;
    const double span = std::hypot(t.x3 - t.x1, t.y3 - t.y1);
    const double wx = (t.x3 - t.x1) / span;
    const double wy = (t.y3 - t.y1) / span;
    const double half = param.length / 2;
    const double len = path + 2 * half;
    std::vector<std::vector<Disc>> strokes;
    for (double offset = 0; offset <= span; offset += param.spacing) {
        std::vector<Disc>& discs = strokes.emplace_back();
        double px = t.x1 + wx * offset - ux * half;
        double py = t.y1 + wy * offset - uy * half;
        double previousPressure = 0;
        for (double s = 0; s <= len; s += 1) {
            const double pressure = task.GetPressure(s, len, true, true, 0);
            const double x = px + ux;
            const double y = py + uy;
            if (previousPressure > 0 || pressure > 0) {
                ForEachLineDisc(px, py, previousPressure, x, y, pressure, param.size,
                                [&discs](double dx, double dy, double d) {
                                    discs.push_back(Disc{dx, dy, d});
                                });
            }
            px = x;
            py = y;
            previousPressure = pressure;
        }
    }
    return strokes;
}

const std::vector<std::vector<Disc>>& GetDenseStrokes() {
    static const std::vector<std::vector<Disc>> strokes = PlaceDenseStrokes();
    return strokes;
}

int64_t CountDiscs() {
    int64_t count = 0;
    for (const auto& stroke : GetDenseStrokes())
        count += static_cast<int64_t>(stroke.size());
    return count;
}

struct Point {
    double x;
    double y;
};

// Douglas-Peucker: the points of `side` that keep it within `tolerance` px. Along a straight taper
// thousands of edge points lie on a handful of lines; a user drawing with cairo would give it those
// lines, not one vertex per disc.
std::vector<Point> Simplify(const std::vector<Point>& side, double tolerance) {
    const std::size_t n = side.size();
    if (n < 3) return side;
    std::vector<bool> keep(n, false);
    keep[0] = keep[n - 1] = true;
    std::vector<std::pair<std::size_t, std::size_t>> stack{{0, n - 1}};
    while (!stack.empty()) {
        const auto [a, b] = stack.back();
        stack.pop_back();
        const double dx = side[b].x - side[a].x;
        const double dy = side[b].y - side[a].y;
        const double l = std::hypot(dx, dy);
        double worst = -1;
        std::size_t at = a;
        for (std::size_t i = a + 1; i < b; ++i) {
            const double ex = side[i].x - side[a].x;
            const double ey = side[i].y - side[a].y;
            const double d = l > 0 ? std::fabs(ex * dy - ey * dx) / l : std::hypot(ex, ey);
            if (d > worst) {
                worst = d;
                at = i;
            }
        }
        if (worst > tolerance) {
            keep[at] = true;
            stack.push_back({a, at});
            stack.push_back({at, b});
        }
    }
    std::vector<Point> out;
    for (std::size_t i = 0; i < n; ++i) {
        if (keep[i]) out.push_back(side[i]);
    }
    return out;
}

// One polygon per stroke: down its left side and back up its right, each disc's edge across the
// stroke's direction there, simplified to a hundredth of a pixel.
std::vector<Point> MakeOutline(const std::vector<Disc>& discs) {
    const std::size_t n = discs.size();
    std::vector<Point> left;
    std::vector<Point> right;
    for (std::size_t i = 0; i < n; ++i) {
        const Disc& a = discs[i == 0 ? 0 : i - 1];
        const Disc& b = discs[i + 1 < n ? i + 1 : n - 1];
        const double dx = b.x - a.x;
        const double dy = b.y - a.y;
        const double l = std::hypot(dx, dy);
        const double nx = l > 0 ? -dy / l : 0;
        const double ny = l > 0 ? dx / l : 0;
        const double r = discs[i].diameter / 2;
        left.push_back(Point{discs[i].x + nx * r, discs[i].y + ny * r});
        right.push_back(Point{discs[i].x - nx * r, discs[i].y - ny * r});
    }
    std::vector<Point> outline = Simplify(left, 0.01);
    const std::vector<Point> back = Simplify(right, 0.01);
    outline.insert(outline.end(), back.rbegin(), back.rend());
    return outline;
}

void BM_CairoDense(benchmark::State& state) {
    std::vector<std::vector<Point>> outlines;
    std::size_t vertices = 0;
    for (const auto& stroke : GetDenseStrokes()) {
        outlines.push_back(MakeOutline(stroke));
        vertices += outlines.back().size();
    }
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_A8, kPageWidth, kPageHeight);
    cairo_t* cr = cairo_create(surface);
    cairo_set_source_rgba(cr, 0, 0, 0, 1);
    for (auto _ : state) {
        cairo_surface_flush(surface);
        std::memset(cairo_image_surface_get_data(surface), 0,
                    static_cast<std::size_t>(cairo_image_surface_get_stride(surface)) * kPageHeight);
        cairo_surface_mark_dirty(surface);
        for (const auto& outline : outlines) {
            if (outline.size() < 3) continue;
            cairo_move_to(cr, outline[0].x, outline[0].y);
            for (std::size_t i = 1; i < outline.size(); ++i)
                cairo_line_to(cr, outline[i].x, outline[i].y);
            cairo_close_path(cr);
            cairo_fill(cr);
        }
        cairo_surface_flush(surface);
        benchmark::DoNotOptimize(cairo_image_surface_get_data(surface));
        benchmark::ClobberMemory();
    }
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
    state.counters["discs"] = static_cast<double>(CountDiscs());
    state.counters["vertices"] = static_cast<double>(vertices);
}

enum class Mode { kSingle, kPooled };

void BM_BrivaneDense(benchmark::State& state, Mode mode) {
    const MoveEffectParam param = bench::DenseParallelParam(static_cast<double>(state.range(0)) / 100);
    const MoveEffectImageParam image = GetPage().Image();
    PathParser guide;
    guide.CreateLine();
    SpareCoverage spare;
    {
        MoveEffectFilter warm(param, 1);
        warm.SetSpareCoverage(&spare);
        warm.SetBaseImage(&image);
    }
    int64_t discs = 0;
    for (auto _ : state) {
        MoveEffectFilter filter(param, mode == Mode::kSingle ? 1 : 0);
        filter.SetSpareCoverage(&spare);
        filter.SetTarget(DenseTarget());
        filter.AttachGuide(&guide);
        filter.SetBaseImage(&image);
        const int64_t before = StrokeRaster::GetTotalDiscCount();
        if (mode == Mode::kSingle) {
            filter.CreatePathTasks();
            filter.GetPool().RunAsSingleThread();
        } else {
            filter.ApplyEffect(false);
        }
        discs = StrokeRaster::GetTotalDiscCount() - before;
        benchmark::ClobberMemory();
    }
    state.counters["discs"] = static_cast<double>(discs);
}

}  // namespace

BENCHMARK(BM_CairoDense)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BrivaneDense, single, Mode::kSingle)
    ->ArgName("hardness%")
    ->Arg(100)
    ->Arg(50)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BrivaneDense, pooled, Mode::kPooled)
    ->ArgName("hardness%")
    ->Arg(100)
    ->Arg(50)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
