// Whole renders, as the controller runs them when a setting changes: filter made, layer attached
// (the coverage buffer of the render before taken back and cleared), strokes laid out and stamped,
// coverage composited into an RGBA destination.
//
//   Radiate/...       the default preset on a fully inked 6071 x 8598 page (B4 at 600 dpi)
//   ParallelDense/... size 20, spacing 5, default points, same page, hardness 1 and 0.5
//   CircleRings/...   rings 10 px apart on a fully inked 4096 x 4096 page
//   MemoryFloor/...   the least any render of that page costs: zeroing the coverage and writing the
//                     RGBA destination once, over resident buffers; read the renders as ratios to it
//   StreamedFloor     the same for B4 with stores past the caches, as the renders store a page
//   Arithmetic/...    what two cores give at the moment, for reading the pool speed-ups
//   FreshCoverage     allocating a B4 coverage buffer and touching each of its pages once: what the
//                     first render of a run pays on top (Radiate/fresh is that render, pooled)
//   CancelFirst/...   a dense soft render whose progress callback answers stop at the first report
//
// Each render runs single-threaded (a pool of one, its tasks by RunAsSingleThread on this thread) and
// pooled (ApplyEffect, on every worker). Times are wall clock; discs/s counts the discs the strokes place.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "bench/BenchCases.h"
#include "bridge/PlatformBridge.h"
#include "engine/MoveEffectFilter.h"
#include "engine/StrokeRaster.h"
#include "guide/PathParser.h"

namespace {

using bench::DefaultParam;
using bench::DefaultTarget;
using bench::kPageHeight;
using bench::kPageWidth;
constexpr int32_t kSquare = 4096;

// A fully inked page and an RGBA destination of the same size, made once.
struct Page : bench::InkedLayer {
    std::vector<uint8_t> dest;
    Page(int32_t w, int32_t h) : InkedLayer(w, h), dest(static_cast<std::size_t>(w) * h * 4) {}
};

// The B4 page or the square one; each is made on first use.
Page& GetPage(int32_t width, int32_t height) {
    if (width == kPageWidth && height == kPageHeight) {
        static Page b4(kPageWidth, kPageHeight);
        return b4;
    }
    static Page square(kSquare, kSquare);
    return square;
}

// kFresh: pooled, the first render of a run (no buffer from a render before).
enum class Mode { kSingle, kPooled, kFresh };

int StopAtFirstReport(int, int, void*) {
    return 0;
}

void Render(benchmark::State& state, const MoveEffectParam& param, int32_t width, int32_t height, Mode mode,
            bool cancel = false) {
    Page& page = GetPage(width, height);
    const MoveEffectImageParam image = page.Image();
    PathParser guide;
    guide.CreateLine();
    unsigned char colour[3] = {0, 0, 0};
    // The buffer a render before would leave, made and touched outside the timing.
    SpareCoverage spare;
    if (mode != Mode::kFresh) {
        MoveEffectFilter filter(param, 1);
        filter.SetSpareCoverage(&spare);
        filter.SetBaseImage(&image);
    }
    const int64_t discsBefore = StrokeRaster::GetTotalDiscCount();
    for (auto _ : state) {
        MoveEffectFilter filter(param, mode == Mode::kSingle ? 1 : 0);
        if (mode != Mode::kFresh) filter.SetSpareCoverage(&spare);
        filter.SetTarget(DefaultTarget(param.type, width, height));
        filter.AttachGuide(&guide);
        if (cancel) filter.SetProgressCallback(&StopAtFirstReport, nullptr);
        filter.SetBaseImage(&image);
        if (mode == Mode::kSingle) {
            filter.CreatePathTasks();
            filter.GetPool().RunAsSingleThread();
        } else {
            filter.ApplyEffect(false);
        }
        if (!filter.IsCancelled()) filter.DrawToCanvas(0, 0, colour, page.dest.data(), width * 4);
        benchmark::DoNotOptimize(page.dest.data());
        benchmark::ClobberMemory();
    }
    state.counters["discs/s"] = benchmark::Counter(
        static_cast<double>(StrokeRaster::GetTotalDiscCount() - discsBefore), benchmark::Counter::kIsRate);
}

void BM_Radiate(benchmark::State& state, Mode mode) {
    Render(state, DefaultParam(0), kPageWidth, kPageHeight, mode);
}

void BM_ParallelDense(benchmark::State& state, Mode mode) {
    Render(state, bench::DenseParallelParam(static_cast<double>(state.range(0)) / 100), kPageWidth,
           kPageHeight, mode);
}

void BM_CircleRings(benchmark::State& state, Mode mode) {
    MoveEffectParam param = DefaultParam(2);
    param.spacing = 10;
    Render(state, param, kSquare, kSquare, mode);
}

void BM_CancelFirst(benchmark::State& state) {
    Render(state, bench::DenseParallelParam(0.5), kPageWidth, kPageHeight, Mode::kPooled, true);
}

// The honest floor: zeroing a coverage buffer and writing every RGBA destination pixel from it once,
// over buffers that are already resident (as the page and destination of the renders are), with a
// loop the compiler vectorises into whole-pixel stores. This is the memory traffic no render of the
// page can avoid with ordinary stores. The renders store a page's coverage clearing and compositing
// past the caches, which saves reading each line before it is written: they can beat this loop there.
void BM_MemoryFloor(benchmark::State& state) {
    const int32_t width = static_cast<int32_t>(state.range(0));
    const int32_t height = static_cast<int32_t>(state.range(1));
    Page& page = GetPage(width, height);
    const std::size_t pixels = static_cast<std::size_t>(width) * height;
    std::vector<uint8_t> coverage(pixels, 1);  // made resident before timing
    for (auto _ : state) {
        uint8_t* cover = coverage.data();
        std::memset(cover, 0, pixels);
        benchmark::ClobberMemory();
        uint8_t* dest = page.dest.data();
        const uint8_t colour[4] = {0, 0, 0, 0};
        uint32_t base;
        std::memcpy(&base, colour, 4);
        const int alphaShift = std::endian::native == std::endian::little ? 24 : 0;
        for (std::size_t i = 0; i < pixels; ++i) {
            const uint32_t pixel = base | static_cast<uint32_t>(cover[i]) << alphaShift;
            std::memcpy(dest + 4 * i, &pixel, 4);
        }
        benchmark::DoNotOptimize(dest);
        benchmark::ClobberMemory();
    }
}

#if defined(__SSE2__)
// The same traffic with every store past the caches, as the renders store a page: the floor for a
// render that never reads a line it is about to overwrite. The buffers come from the heap whole,
// 16-byte aligned.
void BM_StreamedFloor(benchmark::State& state) {
    Page& page = GetPage(kPageWidth, kPageHeight);
    const std::size_t pixels = static_cast<std::size_t>(kPageWidth) * kPageHeight;
    std::vector<uint8_t> coverage(pixels, 1);
    const __m128i zero = _mm_setzero_si128();
    for (auto _ : state) {
        uint8_t* cover = coverage.data();
        std::size_t i = 0;
        for (; i + 16 <= pixels; i += 16)
            _mm_stream_si128(reinterpret_cast<__m128i*>(cover + i), zero);
        std::memset(cover + i, 0, pixels - i);
        _mm_sfence();
        benchmark::ClobberMemory();
        uint8_t* dest = page.dest.data();
        for (i = 0; i + 16 <= pixels; i += 16) {
            const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cover + i));
            const __m128i low = _mm_unpacklo_epi8(zero, c);
            const __m128i high = _mm_unpackhi_epi8(zero, c);
            auto* out = reinterpret_cast<__m128i*>(dest + 4 * i);
            _mm_stream_si128(out, _mm_unpacklo_epi16(zero, low));
            _mm_stream_si128(out + 1, _mm_unpackhi_epi16(zero, low));
            _mm_stream_si128(out + 2, _mm_unpacklo_epi16(zero, high));
            _mm_stream_si128(out + 3, _mm_unpackhi_epi16(zero, high));
        }
        for (; i < pixels; ++i) {
            const uint32_t pixel = static_cast<uint32_t>(cover[i]) << 24;
            std::memcpy(dest + 4 * i, &pixel, 4);
        }
        _mm_sfence();
        benchmark::DoNotOptimize(dest);
        benchmark::ClobberMemory();
    }
}
#endif

// Not part of the floor: what a fresh coverage buffer costs the first time the whole page is touched
// (taking it from the system, the page faults, and giving it back), as the first render of a run pays it.
void BM_FreshCoverage(benchmark::State& state) {
    const std::size_t pixels = static_cast<std::size_t>(kPageWidth) * kPageHeight;
    for (auto _ : state) {
        auto* coverage = static_cast<uint8_t*>(ST_AllocatePages(pixels));
        for (std::size_t i = 0; i < pixels; i += 4096)
            coverage[i] = 1;
        benchmark::DoNotOptimize(coverage);
        benchmark::ClobberMemory();
        ST_FreePages(coverage, pixels);
    }
}

// What a second core gives this machine at the moment: a chain of arithmetic that touches no memory, on
// one thread and on two at once. On a shared machine the second core is at times taken by other load
// (two threads then get as little as 1.0x one thread's work done): read the pool speed-ups against the
// ratio of this one's items/s in the same run.
void BM_Arithmetic(benchmark::State& state) {
    constexpr int kSteps = 1'000'000;
    double x = 1.0 + state.thread_index();
    for (auto _ : state) {
        for (int i = 0; i < kSteps; ++i)
            x = std::sqrt(x * 1.0000001 + 1.0);
        benchmark::DoNotOptimize(x);
    }
    state.SetItemsProcessed(state.iterations() * kSteps);
}

// The fastest repetition, beside the median: on a shared machine other load only ever adds time, so
// the fastest run is the steadiest estimate of what a render costs, and of the speed-up.
double Fastest(const std::vector<double>& times) {
    return times.empty() ? 0 : *std::min_element(times.begin(), times.end());
}

}  // namespace

BENCHMARK_CAPTURE(BM_Radiate, single, Mode::kSingle)
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Radiate, pooled, Mode::kPooled)
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Radiate, fresh, Mode::kFresh)
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParallelDense, single, Mode::kSingle)
    ->ArgName("hardness%")
    ->Arg(100)
    ->Arg(50)
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ParallelDense, pooled, Mode::kPooled)
    ->ArgName("hardness%")
    ->Arg(100)
    ->Arg(50)
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CircleRings, single, Mode::kSingle)
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CircleRings, pooled, Mode::kPooled)
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MemoryFloor)
    ->ArgNames({"width", "height"})
    ->Args({kPageWidth, kPageHeight})
    ->Args({kSquare, kSquare})
    ->UseRealTime()
    ->ComputeStatistics("min", Fastest)
    ->Unit(benchmark::kMillisecond);
#if defined(__SSE2__)
BENCHMARK(BM_StreamedFloor)->UseRealTime()->ComputeStatistics("min", Fastest)->Unit(benchmark::kMillisecond);
#endif
BENCHMARK(BM_Arithmetic)->Threads(1)->Threads(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FreshCoverage)->UseRealTime()->ComputeStatistics("min", Fastest)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CancelFirst)->UseRealTime()->ComputeStatistics("min", Fastest)->Unit(benchmark::kMillisecond);
