// Cost of a stroke task's own path: flattening it once, then walking it pixel by pixel.
#include <benchmark/benchmark.h>

#include <cmath>

#include "guide/PathParser.h"

namespace {

constexpr double kWalkLength = 10000;  // px, walked in steps of 1 px

// A wavy guide about 11,500 px long: 100 arches side by side, every other one an S-shaped cubic, so
// both curve kinds are flattened.
PathParser MakeLongGuide() {
    PathParser path;
    path.AppendMoveTo({0, 50});
    for (int i = 0; i < 100; ++i) {
        const double x = i * 100.0;
        if (i % 2 == 0) {
            path.AppendQuadBezier({x + 50, 0}, {x + 100, 50});
        } else {
            path.AppendCubicBezier({x + 30, 0}, {x + 70, 100}, {x + 100, 50});
        }
    }
    return path;
}

// A ring of 2,000 vertices 5 px apart, as the circle arrangement builds them.
PathParser MakeRing() {
    PathParser path;
    constexpr int kVertices = 2000;
    const double radius = kVertices * 5 / (2 * 3.14159265358979);
    for (int i = 0; i <= kVertices; ++i) {
        const double angle = i * 2 * 3.14159265358979 / kVertices;
        const PathPoint p{radius * std::cos(angle), radius * std::sin(angle)};
        if (i == 0) {
            path.AppendMoveTo(p);
        } else {
            path.AppendLineTo(p);
        }
    }
    return path;
}

void WalkByPixels(benchmark::State& state, PathParser& path) {
    PathPoint last{};
    for (double walked = 0; walked < kWalkLength; walked += 1)
        last = path.MoveNext(1.0);
    benchmark::DoNotOptimize(last);
    state.counters["px/s"] = benchmark::Counter(kWalkLength, benchmark::Counter::kIsIterationInvariantRate);
}

void BM_PrepareGuide(benchmark::State& state) {
    PathParser path = MakeLongGuide();
    for (auto _ : state) {
        path.PrepareSegments(false);
        benchmark::DoNotOptimize(path.GetTotalLength());
    }
    state.counters["pieces"] = static_cast<double>(path.GetLines().size());
}
BENCHMARK(BM_PrepareGuide);

void BM_WalkGuide(benchmark::State& state) {
    PathParser path = MakeLongGuide();
    path.PrepareSegments(false);
    for (auto _ : state) {
        path.ResetPosition();
        WalkByPixels(state, path);
    }
}
BENCHMARK(BM_WalkGuide);

// What one task does with its path: copy, prepare, walk.
void BM_PrepareAndWalkGuide(benchmark::State& state) {
    const PathParser guide = MakeLongGuide();
    for (auto _ : state) {
        PathParser path = guide;
        path.PrepareSegments(false);
        WalkByPixels(state, path);
    }
}
BENCHMARK(BM_PrepareAndWalkGuide);

// The stroke pass saves the cursor, walks a stroke and comes back; here every 20 px.
void BM_WalkGuideWithLookAhead(benchmark::State& state) {
    PathParser path = MakeLongGuide();
    path.PrepareSegments(false);
    for (auto _ : state) {
        path.ResetPosition();
        PathPoint last{};
        for (double walked = 0; walked < kWalkLength; walked += 20) {
            const PositionData saved = path.StorePosition();
            for (int i = 0; i < 20; ++i)
                last = path.MoveNext(1.0);
            path.RestorePosition(saved);
            path.MoveNext(20);
        }
        benchmark::DoNotOptimize(last);
    }
}
BENCHMARK(BM_WalkGuideWithLookAhead);

void BM_WalkRing(benchmark::State& state) {
    PathParser path = MakeRing();
    path.PrepareSegments(true);
    for (auto _ : state) {
        path.ResetPosition();
        WalkByPixels(state, path);
    }
}
BENCHMARK(BM_WalkRing);

}  // namespace
