// The engine object for one rendering of the effect.
//
//   MoveEffectFilter filter(param);
//   filter.SetTarget(points);                 // handle points -> this arrangement's target
//   filter.AttachGuide(&guide);               // borrowed; must outlive the filter
//   filter.SetProgressCallback(OnProgress, user);
//   filter.SetSpareCoverage(&spare);          // optional; borrowed; must outlive the filter
//   filter.SetBaseImage(&image);              // borrowed pixels; allocates the coverage buffer
//   filter.ApplyEffect(false);                // one PathTask per path, run on the pool
//   filter.DrawToCanvas(layout, format, colour, dest, destRowBytes);
//
// Strokes are stamped into a one-byte-per-pixel coverage buffer (0 untouched .. 255 covered) and a
// dirty rectangle bounds what was stamped.
//
// Threading: everything here runs on the caller's thread except the stamping members (DrawLine,
// DrawCircle, StampCoverage, GrowDirtyRect, GetCoverageAt) and the read-only image queries
// (GetPixelDepth, GetChannelAsFloat), which PathTasks call on the pool's worker threads. Many tasks
// stamp the same buffer at once without a lock, so every read-modify-write of a coverage byte MUST go
// through StampCoverage (an atomic max) and every read during a pass through GetCoverageAt, and the
// dirty rectangle may only grow through GrowDirtyRect.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>

#include "engine/MoveEffectParam.h"
#include "guide/PathPoint.h"
#include "taskpool/ThreadPool.h"

class PathParser;
class PathTask;

// A coverage buffer kept from one filter for the next. A filter given a spare takes its buffer when
// the sizes match and hands its own over when it is destroyed. Rendering again after the user changed
// a setting then writes into memory that is already mapped: a fresh buffer of a large page costs more
// than clearing a used one in page faults (twice as much with huge pages, ten times without), and its
// release again on the way out.
// Whoever makes the filters keeps the spare, and releases it when no more renders are coming.
// One thread: the one that makes and destroys the filters.
class SpareCoverage {
public:
    SpareCoverage() = default;
    ~SpareCoverage() { Release(); }
    SpareCoverage(const SpareCoverage&) = delete;
    SpareCoverage& operator=(const SpareCoverage&) = delete;

    // Frees the kept buffer, if any.
    void Release();
    // Bytes of the kept buffer; 0 when none is kept.
    std::size_t GetKeptBytes() const { return m_bytes; }

private:
    friend class MoveEffectFilter;
    // The kept buffer when it has exactly `bytes`, else null (a kept one of another size is freed).
    uint8_t* Take(std::size_t bytes);
    // Keeps `buffer` of `bytes`, freeing what was kept before.
    void Keep(uint8_t* buffer, std::size_t bytes);

    uint8_t* m_buffer = nullptr;
    std::size_t m_bytes = 0;  // 0 whenever m_buffer is null
};

class MoveEffectFilter {
public:
    using ProgressCallback = int (*)(int total, int done, void* user);

    // Bounds of what has been stamped; right and bottom are exclusive. Empty while left >= right.
    struct DirtyRect {
        int32_t left;
        int32_t top;
        int32_t right;
        int32_t bottom;
    };

    // Channel offsets beyond this are ignored: CMYK+A is the widest pixel the host hands over.
    static constexpr int kMaxChannels = 5;

    // Copies the parameters; fractional taper lengths are clamped to at most the whole line.
    explicit MoveEffectFilter(const MoveEffectParam& param);
    // Same, with a pool of `workerCount` threads; lets benchmarks and tests measure one thread.
    MoveEffectFilter(const MoveEffectParam& param, unsigned workerCount);
    ~MoveEffectFilter();
    MoveEffectFilter(const MoveEffectFilter&) = delete;
    MoveEffectFilter& operator=(const MoveEffectFilter&) = delete;

    // --- Parameters and targets -------------------------------------------------------------------

    // Stores the target form that the filter's `type` draws with.
    void SetTarget(const PointTarget& target);
    // Store a copy in the slot for that kind regardless of `type`, replacing any earlier one.
    void SetTarget(const CircleTarget& target);
    void SetTarget(const ParallelTarget& target);
    void SetTarget(const RadiateTarget& target);

    // Fills `circle` with the ellipse through p3 whose major axis runs p1->p2 and returns it.
    static CircleTarget* CreateCircleParam(const PointTarget* points, CircleTarget* circle);

    MoveEffectParam GetParameter() const { return m_param; }
    // The record itself, for tasks that keep a pointer to it for the whole pass.
    const MoveEffectParam& GetParameterRecord() const { return m_param; }

    const CircleTarget* GetCircleTarget() const { return m_circleTarget.get(); }
    const ParallelTarget* GetParallelTarget() const { return m_parallelTarget.get(); }
    const RadiateTarget* GetRadiateTarget() const { return m_radiateTarget.get(); }

    // IEEE half <-> single bit patterns as the host stores half-float samples. Float32To16 truncates
    // and flushes what would be a half denormal to zero.
    static uint16_t Float32To16(float value);
    static float Float16To32(uint16_t half);

    // --- Set-up ------------------------------------------------------------------------------------

    // Borrowed: the caller keeps the guide alive until the filter is gone.
    void AttachGuide(PathParser* guide) { m_guide = guide; }
    PathParser* GetGuide() const { return m_guide; }

    void SetProgressCallback(ProgressCallback callback, void* user);

    // Where the coverage buffer comes from and goes to (see SpareCoverage); null, the default,
    // allocates a fresh one and frees it. Takes effect from the next SetBaseImage.
    void SetSpareCoverage(SpareCoverage* spare) { m_spare = spare; }

    // Takes the image description and starts an empty coverage buffer of its size. An image without
    // pixels, or one that is too large to address, is ignored.
    void SetBaseImage(const MoveEffectImageParam* image);

    // --- Running -----------------------------------------------------------------------------------

    // Lays out the strokes of the arrangement and runs them on the pool; blocks until done or
    // cancelled. The flag is accepted for the host protocol and ignored: the pool always runs threaded.
    void ApplyEffect(bool singleThread);

    // Enqueues the arrangement's tasks on the pool without running them (nothing without a base
    // image). ApplyEffect starts with this; benchmarks and tests follow it with
    // GetPool().RunAsSingleThread() to measure or check a pass on one thread.
    void CreatePathTasks();

    // The pool's progress callback (`self` is the filter). Forwards to the caller's callback; a 0
    // answer marks the filter cancelled and returns 0 so the pool cancels its tasks.
    static int OnProgress(int total, int done, void* self);

    bool IsCancelled() const { return m_cancelled.load(std::memory_order_relaxed); }
    ThreadPool& GetPool() { return m_pool; }

    // Steps a render's walks and strokes may take together, per canvas pixel and at the least. A
    // render within the panel's ranges takes a few per pixel; only targets and guides that send lines
    // across the canvas without end reach these, and their render then stops where the steps run out
    // instead of freezing the host.
    static constexpr int64_t kStepsPerPixel = 64;
    static constexpr int64_t kMinRenderSteps = int64_t{1} << 22;
    // Takes `steps` from the render's allowance; false once it is spent. Worker threads.
    bool SpendSteps(int64_t steps) { return m_stepsLeft.fetch_sub(steps, std::memory_order_relaxed) > steps; }

    // --- Compositing -------------------------------------------------------------------------------

    // Writes a layer bitmap: pixels inside the dirty rectangle get `color` and the coverage as alpha,
    // all else transparent black. layout: 0 RGB+A, 1 grey+A, 2 CMYK+A, 3 alpha only (other: grey+A);
    // format: 0 8-bit, 1 16-bit, 2 half, 3 float (other: destination left zero). `dest` holds
    // height rows of destRowBytes. A null colour counts as black.
    // The rows are split over the pool's workers.
    void DrawToCanvas(int layout, int format, unsigned char* color, unsigned char* dest, int destRowBytes);
    // Rows [top, top + rows) of that bitmap, on the caller's thread; `dest` points at the first of them.
    // Lets a writer stream the layer in bands instead of holding it whole.
    void DrawRowsToCanvas(int layout, int format, unsigned char* color, unsigned char* dest, int destRowBytes,
                          int top, int rows);

    // --- Image access (worker threads; read only) ------------------------------------------------

    // Sample `channel` (counted in samples of that format) of a pixel as 0..1; float samples as is.
    static float GetChannelAsFloat(const unsigned char* pixel, int channel, int sampleFormat);
    // Ink depth 0..255 of the base image at a pixel, alpha and mask included; -1 outside the image.
    int GetPixelDepth(int x, int y) const;
    // Same, with both coordinates truncated toward zero.
    int GetPixelDepth(const PathPoint& point) const;
    // Whether the image is inked at the point (truncated as above): its depth is above half. Reads the
    // ink map when there is one. Worker threads.
    bool IsInked(const PathPoint& point) const;

    // Works out every pixel's ink once, a bit each, on the pool. CreatePathTasks does it when the
    // paths are long enough together to read a good part of the page: each step of a walk then reads
    // a bit of a compact map instead of the host's bitmap, where close paths (dense speed lines, rings)
    // read pixels a row apart at every step and mostly missed the cache. Sparse paths (focus lines)
    // read too little of the page for the map to pay. Between passes, caller's thread.
    void BuildInkMap();
    bool HasInkMap() const { return m_inkBits != nullptr; }

    int32_t GetWidth() const { return m_width; }
    int32_t GetHeight() const { return m_height; }
    bool HasBaseImage() const { return m_pixels != nullptr; }

    // --- Layouts (caller's thread, before the pool runs) -------------------------------------------
    // Each enqueues its paths as it makes them, neighbour after neighbour: a worker's next path then
    // lies close to its last one, whose coverage is still in its cache, and the pool's workers take the
    // list from both ends, away from each other. Dealing the paths out to the workers in turn cost more
    // than it saved (each worker's paths then came from alternate parts, cold every time; dense passes
    // ran up to half as long again). The result does not depend on the order (coverage keeps the larger
    // byte); only the time does.

    void CreateRadiatePathTasks();
    void CreateParallelPathTasks();
    void CreateCirclePathTasks();
    // Whether a ring of the guide's wobble round that ellipse can meet the canvas at all.
    bool RingMayShow(const PathParser& guide, const PathPoint& centre, double angle, double radiusX,
                     double radiusY) const;
    // Whether any of the ellipse's outline can be seen on the canvas.
    bool IsEllipseIn(const PathPoint& centre, double radiusX, double radiusY, double angle) const;
    // Whether the segment a->b crosses the outline of the ellipse.
    bool LineIntersectsEllipse(const PathPoint& a, const PathPoint& b, const PathPoint& centre,
                               double radiusX, double radiusY, double angle) const;
    // Whether the segment a->b touches the canvas rectangle [0, width] x [0, height].
    bool IsLineInCanvas(const PathPoint& a, const PathPoint& b) const;

    // --- Stamping (worker threads) -----------------------------------------------------------------

    // A chain of soft discs from a to b, the pressure (0..1, times `size` = diameter) blended along.
    void DrawLine(const PathPoint& a, double pressureA, const PathPoint& b, double pressureB);
    // One soft disc max-combined into the coverage; grows the dirty rectangle.
    void DrawCircle(double x, double y, double diameter);

    // Raises the coverage byte at (x, y) to at least `value`: an atomic max, so concurrent stamps of
    // the same byte keep the larger value whatever the order. The caller checks 0 <= x < width,
    // 0 <= y < height and that a coverage buffer exists. Worker threads.
    void StampCoverage(int x, int y, uint8_t value) { StampCoverageByte(&m_coverage[Index(x, y)], value); }
    // Reads a coverage byte while other tasks may be stamping it. Same preconditions. Worker threads.
    uint8_t GetCoverageAt(int x, int y) const;
    // Widens the dirty rectangle to include [left, right) x [top, bottom); race-free. Worker threads.
    void GrowDirtyRect(int left, int top, int right, int bottom);

    // The coverage buffer (width x height, stride width), null before SetBaseImage. Read it only when
    // no pass is running.
    const uint8_t* GetCoverage() const { return m_coverage.get(); }
    DirtyRect GetDirtyRect() const;

    // The atomic max on one byte that StampCoverage is built on.
    static void StampCoverageByte(uint8_t* cell, uint8_t value);

private:
    friend class PathTask;

    std::size_t Index(int x, int y) const {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width) + static_cast<std::size_t>(x);
    }
    // The sample format's bytes per sample (1 for unknown formats).
    static int SampleBytes(int sampleFormat);
    int GetPixelDepth8(const unsigned char* pixel, int x, int y) const;
    int GetPixelDepthWide(const unsigned char* pixel, int x, int y) const;
    // DrawRowsToCanvas; `stream` stores four-byte 8-bit pixels past the caches.
    void DrawRows(int layout, int format, unsigned char* color, unsigned char* dest, int destRowBytes,
                  int top, int rows, bool stream);
    // Enqueues a layout's path task and counts the pixels its walk will step over.
    void EnqueuePath(std::shared_ptr<PathTask> task);

    std::mutex m_lock;  // reserved for the host protocol; no engine operation takes it
    std::atomic<bool> m_cancelled{false};
    MoveEffectParam m_param;
    std::unique_ptr<CircleTarget> m_circleTarget;
    std::unique_ptr<ParallelTarget> m_parallelTarget;
    std::unique_ptr<RadiateTarget> m_radiateTarget;
    PathParser* m_guide = nullptr;

    // Base image (borrowed).
    uint8_t m_colorModel = 0;
    uint8_t m_sampleFormat = 0;
    uint8_t m_channelOffsets[kMaxChannels] = {};
    const unsigned char* m_pixels = nullptr;
    int32_t m_width = 0;
    int32_t m_height = 0;
    int32_t m_rowBytes = 0;
    int32_t m_pixelBytes = 0;
    bool m_invertGray = false;
    uint8_t m_maskFormat = 0;
    int32_t m_maskRowBytes = 0;
    const unsigned char* m_mask = nullptr;

    // Frees a coverage buffer, or hands it to the spare it may have come from. The buffer is declared
    // before the pool, so it goes only after the workers that stamp it have been joined.
    // No member initialisers: inside the unfinished class they would keep an empty buffer from being made.
    struct FreeCoverage {
        SpareCoverage* spare;
        std::size_t bytes;
        void operator()(uint8_t* buffer) const;
    };
    using CoverageBuffer = std::unique_ptr<uint8_t[], FreeCoverage>;

    SpareCoverage* m_spare = nullptr;
    CoverageBuffer m_coverage;
    // The ink map: a row of 64-bit words per image row, bit x % 64 of word x / 64 set where inked.
    struct FreeInkBits {
        std::size_t bytes;
        void operator()(uint64_t* bits) const;
    };
    std::unique_ptr<uint64_t[], FreeInkBits> m_inkBits{nullptr, FreeInkBits{0}};
    std::size_t m_inkWordsPerRow = 0;
    double m_walkEstimate = 0;            // px the queued paths' walks step over, about
    std::atomic<int64_t> m_stepsLeft{0};  // of the render's allowance (SpendSteps)

    std::atomic<int32_t> m_dirtyLeft{0};
    std::atomic<int32_t> m_dirtyTop{0};
    std::atomic<int32_t> m_dirtyRight{0};
    std::atomic<int32_t> m_dirtyBottom{0};

    ThreadPool m_pool;
    void* m_progressUser = nullptr;
    ProgressCallback m_progressCallback = nullptr;
};
