// Soft-disc rasterisation: how strokes become coverage.
//
// A stroke is a chain of discs. Each disc covers a pixel by the mean of a 4 x 4 grid of samples
// (offsets -0.375, -0.125, 0.125, 0.375 from the pixel centre); a sample at distance s from the centre
// counts
//
//     1 |********.                      1                        s <= inner = r * hardness
//       |         '.                    (1 - (s - inner) / (r - inner)) ^ (4 * hardness + 1)
//       |           '-.                 0                        s >= r
//     0 |______________'*******
//       0       inner    r          s
//
// and the disc's byte, round(255 * mean), is max-combined into the coverage. Two shortcuts decide
// pixels without sampling and are part of the result: a pixel whose centre lies more than about a
// pixel inside the hard core is 255, and one whose four corner samples all lie outside the disc is
// left alone (even when an inner sample would touch the disc).
//
// The rasteriser here gives the same bytes as sampling every pixel of every disc, with hardness 1 (no
// soft rim) bit for bit and otherwise within one level (the rim comes from a table instead of pow),
// but much faster:
//   - each row is cut into spans: outside, rim, and a hard core filled with 255 in one go; a row whose
//     span is already 255 is passed over;
//   - a rim pixel is only sampled when an upper bound of the disc's mean there can beat what the
//     pixel already holds (DiscProfile::GetSkipThresholds);
//   - the discs of a stroke are stamped in batches into a private tile, coarse to fine so that most
//     pixels meet their strongest disc early, and the tile is merged into the shared coverage with
//     one atomic max per changed byte;
//   - a disc identical to the one before it is dropped, and runs of equal discs reuse one stamp as
//     long as the shift between them cannot change any of the stamp's decisions;
//   - where such a run steps one whole pixel at a time along a row or a column (the middle of a
//     level or upright stroke), the maximum of its stamps is taken from running maxima of the
//     stamp's rows or columns: each tile row once, instead of once per disc that overlaps it.
#pragma once

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "guide/PortableMath.h"

class MoveEffectFilter;

// The rim profile of one hardness, tabulated over the squared normalised distance (s / r)^2 so that a
// sample needs neither sqrt nor pow. One per hardness, shared by every thread (see ForHardness).
class DiscProfile {
public:
    // Table steps across the rim: the nearest step is off by far less than a coverage level.
    static constexpr int kTableSize = 8192;

    explicit DiscProfile(double hardness);
    ~DiscProfile();
    DiscProfile(const DiscProfile&) = delete;
    DiscProfile& operator=(const DiscProfile&) = delete;

    double GetHardness() const { return m_hardness; }
    double GetExponent() const { return m_exponent; }
    // The rim value at table position `index` (0 at the hard core .. kTableSize at the rim's outer
    // edge), from the nearest step; index must lie in [0, kTableSize].
    float LookUp(double index) const { return m_table[static_cast<int>(index + 0.5)]; }

    // Squared distances (pixel centre to disc centre) from which on a disc of radius at most
    // `radius` cannot raise a pixel whose coverage lies in bucket coverage / kBucketWidth. Made on
    // first use per radius step, by whichever thread needs them first, and kept. Any thread.
    static constexpr int kBucketWidth = 8;
    static constexpr int kBucketCount = 256 / kBucketWidth;
    const double* GetSkipThresholds(double radius);

    // The profile for this hardness. Kept for the process, so that the tables and thresholds are not
    // made again by every worker of every render (a small canvas spent most of its time on them); each
    // thread remembers the last one it was given, so that stamping never waits on a lock.
    static DiscProfile& ForHardness(double hardness);

private:
    struct Thresholds {
        double radius = -1;  // the radius step they were made for; < 0 until made
        double squared[kBucketCount];
    };
    void MakeThresholds(double radius, Thresholds& out) const;
    double ChordBound(double distance, double radius) const;

    double m_hardness;
    double m_exponent;
    std::vector<double> m_table;  // value and rise to the next value at each of kTableSize + 1 steps
    // One slot per radius step, filled once: a pointer handed out stays valid for the profile's life.
    std::unique_ptr<std::atomic<Thresholds*>[]> m_thresholds;
};

// One disc as a stroke produces it.
struct Disc {
    double x;         // centre, canvas px
    double y;         // centre, canvas px
    double diameter;  // px
};

// A coverage byte buffer: the filter's shared one, or a plain one in tests.
struct CoverageView {
    uint8_t* pixels = nullptr;  // width x height bytes, row after row
    int32_t width = 0;
    int32_t height = 0;
    std::ptrdiff_t stride = 0;  // bytes from one row to the next
};

// Stamps one disc straight into a buffer that no other thread touches (plain reads and writes), and
// widens `dirty` (left, top, right, bottom) as the filter's dirty rectangle would grow.
void StampDiscUnshared(const CoverageView& view, DiscProfile& profile, const Disc& disc, int32_t dirty[4]);

// Stamps one disc into the filter's shared coverage, byte by byte with atomic maxima; widens `dirty`.
// Worker threads.
void StampDiscShared(const CoverageView& view, DiscProfile& profile, const Disc& disc, int32_t dirty[4]);

// A precomputed disc: its bytes around the pixel nearest its centre, and how far any of its decisions
// lay from flipping.
struct DiscStamp {
    double diameter = -1;  // < 0: empty
    double offsetX = 0;    // centre minus the anchor pixel corner (nearest integer), px
    double offsetY = 0;
    int32_t half = 0;    // the stamp spans anchor - half .. anchor + half in x and in y
    double margin = 0;   // smallest distance of a squared distance from its threshold, px^2
    double slope = 0;    // soft rims: largest change of a sample per px of shift
    int32_t stride = 0;  // bytes per row of values: more than the side, the rest zero
    // The rows and columns that hold anything: the box's outer ones mostly stay zero.
    int32_t firstRow = 0, lastRow = -1, firstColumn = 0, lastColumn = -1;
    std::vector<uint8_t> values;
};

// Stroke passes: a layout opens one before it makes its tasks, and each task takes the pass that is
// open when it is made. Stamps are remembered per thread for the pass (the strokes of one render
// repeat the same tapers again and again: every line over an evenly inked region) and forgotten when
// a thread first stamps for another pass.
uint64_t BeginStrokePass();
uint64_t GetStrokePass();

// Collects the discs of one task and stamps them in batches. Worker threads: one per task.
class StrokeRaster {
public:
    // Discs per batch: enough to spread the merge over many discs, few enough to keep the tile small.
    static constexpr int kBatchDiscs = 64;
    // A batch whose tile would exceed this many pixels is split; a single disc that large is stamped
    // straight into the shared coverage.
    static constexpr int64_t kMaxTilePixels = 1 << 18;

    // `filter` owns the shared coverage behind `view` and its dirty rectangle (a null view stamps
    // nothing; a null filter keeps no dirty rectangle). A non-zero `pass` lets the raster reuse the
    // stamps that this thread made earlier in that pass.
    StrokeRaster(MoveEffectFilter* filter, const CoverageView& view, double hardness, uint64_t pass = 0);
    ~StrokeRaster();
    StrokeRaster(const StrokeRaster&) = delete;
    StrokeRaster& operator=(const StrokeRaster&) = delete;

    void AddDisc(const Disc& disc) {
        ++m_added;
        // A disc that repeats the last one exactly changes nothing (lines end where the next begins).
        if (m_haveLast && m_last.x == disc.x && m_last.y == disc.y && m_last.diameter == disc.diameter)
            return;
        if (m_count == kBatchDiscs) Flush();
        m_discs[m_count++] = disc;
        m_last = disc;
        m_haveLast = true;
    }
    // Stamps what is queued into the shared coverage and grows the filter's dirty rectangle.
    void Flush();

    // Discs handed to AddDisc so far.
    int64_t GetDiscCount() const { return m_added; }
    // Discs handed to every raster of the process so far, counted when they flush (for benchmarks).
    static int64_t GetTotalDiscCount();

private:
    void FlushRange(int begin, int end);
    // Whether disc i of the batch [begin, end) is drawn with the cached stamp; makes a new stamp when
    // the disc lies inside a run of equal discs that the cached one does not fit.
    bool UseStamp(int i, int begin, int end);
    // Whether stamps made for runs of equal discs are being reused enough to be worth making.
    bool StampsPay() const { return m_stampsMade < 2 || m_stampReuses >= 4 * m_stampsMade; }
    // The pass's remembered stamp for disc i, made now when its diameter and offset come round a
    // second time; null when there is none to use.
    const DiscStamp* FindRememberedStamp(const Disc& disc);

    MoveEffectFilter* m_filter;
    CoverageView m_view;
    uint64_t m_pass;
    DiscProfile* m_profile;
    Disc m_discs[kBatchDiscs];
    int m_count = 0;
    Disc m_last{};
    bool m_haveLast = false;
    int64_t m_added = 0;
    int64_t m_counted = 0;           // of m_added, already in the process-wide total
    double m_previousDiameter = -1;  // of the disc before the batch
    // Max-combines m_stamp at n anchors one pixel apart, from (anchorX, anchorY) rightwards or
    // downwards, into the columns [x0, x1) and rows [y0, y1) of the tile whose canvas pixel (0, 0)
    // would lie at `origin`.
    void ApplyRun(int32_t anchorX, int32_t anchorY, int32_t n, bool down, uint8_t* origin,
                  std::ptrdiff_t stride, int32_t x0, int32_t y0, int32_t x1, int32_t y1);

    DiscStamp m_stamp;
    // Running maxima of m_stamp for ApplyRun: of its rows from the first and from the last (stamp
    // rows), and along each row from its left and from its right end (side bytes per row).
    struct RunMaxima {
        int64_t stamp = -1;  // the m_stampsMade they were made for
        std::vector<uint8_t> rowsFromTop, rowsFromBottom, fromLeft, fromRight, row;
    } m_run;
    int64_t m_stampsMade = 0;
    int64_t m_stampReuses = 0;
    int64_t m_lookups = 0;        // of remembered stamps, by this stroke
    bool m_memoryGaveUp = false;  // the pass's stamp memory stopped taking lookups; it does not resume
    std::vector<uint8_t> m_tile;
    std::vector<uint8_t> m_before;
    struct Span {
        int32_t left;   // first column a disc of the batch reaches
        int32_t right;  // one past the last
    };
    std::vector<Span> m_spans;  // one per tile row
};

// Places the discs of a line from a (pressure pa) to b (pressure pb) as the filter's DrawLine does:
// a disc of diameter pressure * size after every step of min(max(diameter, 0.1), 1) px, the pressure
// blended along the line; steps too thin for a 0.1 px disc draw nothing. The last disc may lie up to
// one step beyond b. Calls emit(x, y, diameter) per disc. A line longer than kLongestDiscLine draws
// nothing: strokes join points a pixel apart, and a longer gap only opens where rounding makes a path
// far off the canvas jump, where a hundred million thin steps would draw nothing anyway.
inline constexpr double kLongestDiscLine = 4096;
template <class Emit>
void ForEachLineDisc(double ax, double ay, double pa, double bx, double by, double pb, double size,
                     Emit&& emit) {
    const double vx = bx - ax;
    const double vy = by - ay;
    const double len = portable::Hypot(vx, vy);
    // Zero and NaN lengths draw nothing; an infinite one would never end.
    if (!(len > 0) || len > kLongestDiscLine) return;
    const double ux = vx / len;
    const double uy = vy / len;
    double t = 0;
    do {
        double p = pa + (pb - pa) * t / len;
        p = p < 0 ? 0 : (p > 1 ? 1 : p);
        const double d = p * size;
        if (d >= 0.1) {
            t += d > 1.0 ? 1.0 : d;
            emit(ax + ux * t, ay + uy * t, d);
        } else {
            t += 0.1;
        }
    } while (t <= len);
}
