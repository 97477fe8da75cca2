#include "engine/StrokeRaster.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

#include "engine/MoveEffectFilter.h"
#include "guide/PortableMath.h"

namespace {

// Sample offsets from the pixel centre, in x and in y.
constexpr double kOffsets[4] = {-0.375, -0.125, 0.125, 0.375};
// No sample lies farther than this from its pixel centre (0.375 * sqrt(2) = 0.53033...).
constexpr double kSampleReach = 0.5304;
// Stamps are kept for discs up to this box side; larger ones are rare and drawn directly.
constexpr int32_t kLargestStampSide = 129;
// Spare bytes after each tile row. A stamp reaches a few columns past its disc's box (its own zeros
// there), and is combined in whole 16-byte blocks: with this room beyond the tile's right edge the
// stamps of a batch are never cut short there and need no byte-by-byte tail.
constexpr int32_t kTileRowSlack = 32;
// How far past the tile's right edge a stamp may be combined: the rest of the slack is for rounding
// up to a whole block.
constexpr int32_t kStampReachPastTile = kTileRowSlack - 16;

// Everything about one disc that the pixel loops need, worked out once.
struct DiscGeometry {
    double x, y;  // centre, in the pixel coordinates of the loops
    double r;
    double r2;          // r^2
    double coreCentre;  // inner^2 - 1: a pixel centre nearer than this is 255 outright
    double inLimit;     // inner^2 + 1e-12: samples (and corners) this near are fully covered
    double outLimit;    // r^2 - 1e-12: samples (and corners) this far are not covered
    bool hard;          // no soft rim (hardness 1, or a rim thinner than 1e-12 px)
    double hardLimit;   // hard discs: a sample counts iff its squared distance is <= this
    double tableScale;  // soft discs: table index = q * tableScale - tableShift
    double tableShift;
    double slope;            // soft discs: steepest fall of a sample per px (e / band)
    int32_t x0, x1, y0, y1;  // pixel box, right and bottom exclusive
};

// The constants of a disc of this diameter centred at (x, y); the box is left to the caller.
void FillConstants(DiscGeometry& g, double x, double y, double diameter, DiscProfile& profile) {
    const double hardness = profile.GetHardness();
    const double r = diameter / 2;
    const double inner = r * hardness;
    const double band = r - inner;
    g.x = x;
    g.y = y;
    g.r = r;
    g.r2 = r * r;
    const double inner2 = inner * inner;
    g.coreCentre = inner2 - 1.0;
    g.inLimit = inner2 + 1e-12;
    g.outLimit = g.r2 - 1e-12;
    g.hard = !(band > 1e-12);
    g.hardLimit = g.inLimit >= g.outLimit ? g.inLimit : std::nextafter(g.outLimit, -HUGE_VAL);
    g.slope = 0;
    g.tableScale = 0;
    g.tableShift = 0;
    if (!g.hard) {
        // Index over (s / r)^2 from hardness^2 (0) to 1 (kTableSize).
        const double span = 1.0 - hardness * hardness;
        g.tableScale = DiscProfile::kTableSize / (span * g.r2);
        g.tableShift = hardness * hardness * DiscProfile::kTableSize / span;
        g.slope = profile.GetExponent() / band;
    }
}

// floor(value) and ceil(value) clamped to [0, limit], for finite or infinite values, without the
// rounding calls: inside the range a truncation is the floor, and one more the ceiling when it
// fell short.
int32_t FloorClamped(double value, int32_t limit) {
    if (value < 1) return 0;
    if (value >= limit) return limit;
    return static_cast<int32_t>(value);
}

int32_t CeilClamped(double value, int32_t limit) {
    if (value <= 0) return 0;
    if (value > static_cast<double>(limit) - 1) return limit;
    const int32_t truncated = static_cast<int32_t>(value);
    return truncated < value ? truncated + 1 : truncated;
}

// The box of a disc, clipped to the canvas, into g's box and centre (g.r too). False for discs that
// draw nothing and do not touch the dirty rectangle (non-finite input). A batch's discs that are drawn
// from stamps need no more than this.
bool MakeBox(const Disc& disc, int32_t width, int32_t height, DiscGeometry& g) {
    if (!std::isfinite(disc.x) || !std::isfinite(disc.y) || !std::isfinite(disc.diameter)) return false;
    g.r = disc.diameter / 2;  // as FillConstants has it
    g.x0 = FloorClamped(disc.x - g.r, width);
    g.x1 = CeilClamped(disc.x + g.r, width);
    g.y0 = FloorClamped(disc.y - g.r, height);
    g.y1 = CeilClamped(disc.y + g.r, height);
    return true;
}

// Canvas geometry of a disc: its box and every constant the pixel loops need.
bool MakeGeometry(const Disc& disc, DiscProfile& profile, int32_t width, int32_t height, DiscGeometry& g) {
    if (!MakeBox(disc, width, height, g)) return false;
    FillConstants(g, disc.x, disc.y, disc.diameter, profile);
    return true;
}

// A box from MakeBox completed with the constants, for a disc that is sampled.
const DiscGeometry& WithConstants(DiscGeometry& g, const Disc& disc, DiscProfile& profile) {
    FillConstants(g, disc.x, disc.y, disc.diameter, profile);
    return g;
}

bool IsEmpty(const DiscGeometry& g) {
    return g.x0 >= g.x1 || g.y0 >= g.y1;
}

// A surface that one thread owns: a tile or an unshared buffer. (px, py) are canvas coordinates.
struct PlainSurface {
    uint8_t* origin;  // where canvas pixel (0, 0) would be; only rows and columns in range are used
    std::ptrdiff_t stride;

    uint8_t* Row(int32_t py) const { return origin + static_cast<std::ptrdiff_t>(py) * stride; }
    static uint8_t Load(const uint8_t* row, int32_t px) { return row[px]; }
    static void Raise(uint8_t* row, int32_t px, uint8_t value) { row[px] = value; }
    static void Fill(uint8_t* row, int32_t from, int32_t to) {
        for (int32_t px = from; px < to; ++px)
            row[px] = 255;
    }
    // Whether every byte of [from, to) is already 255.
    static bool IsFull(const uint8_t* row, int32_t from, int32_t to) {
        int32_t px = from;
        for (; px + 8 <= to; px += 8) {
            uint64_t word;
            std::memcpy(&word, row + px, 8);
            if (word != ~uint64_t{0}) return false;
        }
        for (; px < to; ++px) {
            if (row[px] != 255) return false;
        }
        return true;
    }
};

// The filter's coverage while other tasks stamp it too: atomic loads and an atomic max.
struct SharedSurface {
    uint8_t* origin;
    std::ptrdiff_t stride;

    uint8_t* Row(int32_t py) const { return origin + static_cast<std::ptrdiff_t>(py) * stride; }
    static uint8_t Load(uint8_t* row, int32_t px) {
        return std::atomic_ref<uint8_t>(row[px]).load(std::memory_order_relaxed);
    }
    static void Raise(uint8_t* row, int32_t px, uint8_t value) {
        MoveEffectFilter::StampCoverageByte(row + px, value);
    }
    static void Fill(uint8_t* row, int32_t from, int32_t to) {
        for (int32_t px = from; px < to; ++px) {
            if (Load(row, px) != 255) Raise(row, px, 255);
        }
    }
    static bool IsFull(uint8_t*, int32_t, int32_t) { return false; }
};

// Per-column values of a disc's box, kept per thread so that stamping allocates nothing.
struct ColumnScratch {
    std::vector<double> sxx;        // 4 per column: (dx + offset)^2
    std::vector<double> centre;     // dx^2
    std::vector<double> minCorner;  // min((dx - 0.375)^2, (dx + 0.375)^2)
    std::vector<double> maxCorner;

    void Prepare(const DiscGeometry& g) {
        const std::size_t n = static_cast<std::size_t>(g.x1 - g.x0);
        if (centre.size() < n) {
            sxx.resize(4 * n);
            centre.resize(n);
            minCorner.resize(n);
            maxCorner.resize(n);
        }
        FillColumns(g, sxx.data(), centre.data(), minCorner.data(), maxCorner.data());
    }

    // The values for the columns x0 .. x1 - 1 of the disc's box, into arrays that have room for them.
    static void FillColumns(const DiscGeometry& g, double* sxx, double* centre, double* minCorner,
                            double* maxCorner) {
        for (int32_t i = 0; i < g.x1 - g.x0; ++i) {
            const double dx = static_cast<double>(g.x0 + i) + 0.5 - g.x;
            for (int s = 0; s < 4; ++s) {
                const double sx = dx + kOffsets[s];
                sxx[4 * i + s] = sx * sx;
            }
            centre[i] = dx * dx;
            minCorner[i] = std::min(sxx[4 * i], sxx[4 * i + 3]);
            maxCorner[i] = std::max(sxx[4 * i], sxx[4 * i + 3]);
        }
    }
};

ColumnScratch& GetColumnScratch() {
    thread_local ColumnScratch scratch;
    return scratch;
}

// The per-row counterparts of ColumnScratch.
struct RowValues {
    double syy[4];
    double centre;
    double minCorner;
    double maxCorner;

    explicit RowValues(double dy) {
        for (int j = 0; j < 4; ++j) {
            const double sy = dy + kOffsets[j];
            syy[j] = sy * sy;
        }
        centre = dy * dy;
        minCorner = std::min(syy[0], syy[3]);
        maxCorner = std::max(syy[0], syy[3]);
    }
};

// Byte value of a mean of 16 samples whose sum is `sum`, rounded as the coverage is. A hardness
// outside 0..1 can push the sum out of range (or to NaN); the byte then saturates.
inline uint8_t ToCoverage(double sum) {
    const double v = sum * 0.0625 * 255 + 0.5;
    if (v >= 255) return 255;
    if (!(v >= 1)) return 0;
    return static_cast<uint8_t>(static_cast<int>(v));
}

// The byte of a pixel of which `count` of 16 samples are covered, as ToCoverage makes it.
constexpr std::array<uint8_t, 17> MakeHardCoverage() {
    std::array<uint8_t, 17> bytes{};
    for (int count = 0; count <= 16; ++count)
        bytes[count] = static_cast<uint8_t>(static_cast<int>(count * 0.0625 * 255 + 0.5));
    return bytes;
}
constexpr std::array<uint8_t, 17> kHardCoverage = MakeHardCoverage();

// Counts the samples whose squared distance sxx[i] + syy[j] is at most the hard limit, two sums at
// a time where the processor has double pairs (the same sums and comparisons as one at a time).
inline uint8_t SampleHard(const DiscGeometry& g, const double* sxx, const double* syy) {
    int count = 0;
#if defined(__SSE2__)
    const __m128d left = _mm_loadu_pd(sxx);
    const __m128d right = _mm_loadu_pd(sxx + 2);
    const __m128d limit = _mm_set1_pd(g.hardLimit);
    // A comparison that holds is all ones, -1 in each 64-bit lane: subtracting counts it.
    __m128i counts = _mm_setzero_si128();
    for (int j = 0; j < 4; ++j) {
        const __m128d y = _mm_set1_pd(syy[j]);
        counts = _mm_sub_epi64(counts, _mm_castpd_si128(_mm_cmple_pd(_mm_add_pd(left, y), limit)));
        counts = _mm_sub_epi64(counts, _mm_castpd_si128(_mm_cmple_pd(_mm_add_pd(right, y), limit)));
    }
    counts = _mm_add_epi64(counts, _mm_unpackhi_epi64(counts, counts));
    count = _mm_cvtsi128_si32(counts);
#else
    for (int j = 0; j < 4; ++j) {
        for (int i = 0; i < 4; ++i) {
            const double q = sxx[i] + syy[j];
            count += q <= g.hardLimit ? 1 : 0;
        }
    }
#endif
    return kHardCoverage[count];
}

inline uint8_t SampleSoft(const DiscGeometry& g, const DiscProfile& profile, const double* sxx,
                          const double* syy) {
    constexpr double kTop = DiscProfile::kTableSize;
    // Table positions first, in a form the compiler can do several at a time; then the look-ups.
    double index[16];
    for (int j = 0; j < 4; ++j) {
        for (int i = 0; i < 4; ++i) {
            const double at = (sxx[i] + syy[j]) * g.tableScale - g.tableShift;
            index[4 * j + i] = at < 0 ? 0 : (at > kTop ? kTop : at);
        }
    }
    double sum = 0;
    for (int k = 0; k < 16; ++k)
        sum += profile.LookUp(index[k]);
    return ToCoverage(sum);
}

// Samples a rim pixel that holds `have` (below 255) into `value`; false where a soft disc cannot raise
// it: its centre lies beyond the bound for what the pixel holds (DiscProfile::GetSkipThresholds).
inline bool SampleRim(const DiscGeometry& g, const DiscProfile& profile, const double* skip, double centre2,
                      uint8_t have, const double* sxx, const double* syy, uint8_t& value) {
    if (g.hard) {
        value = SampleHard(g, sxx, syy);
        return true;
    }
    if (centre2 >= skip[have / DiscProfile::kBucketWidth]) return false;
    value = SampleSoft(g, profile, sxx, syy);
    return true;
}

// Discs at most this many columns wide are stamped pixel by pixel: for them the run search below
// costs more than the pixels it would pass over (tapered tips and thin lines are made of such discs).
constexpr int32_t kSmallDiscColumns = 4;

// StampDisc for a disc of at most kSmallDiscColumns columns: each pixel takes the tests one after the
// other (centre deep in the core, corners all in the core, corners all beyond r, else samples), which
// decides it as the runs of StampDisc do.
template <class Surface>
void StampSmallDisc(const Surface& surface, const DiscGeometry& g, DiscProfile& profile) {
    const double* skip = g.hard ? nullptr : profile.GetSkipThresholds(g.r);
    const int32_t width = g.x1 - g.x0;
    double sxx[4 * kSmallDiscColumns];
    double centre[kSmallDiscColumns];
    double minCorner[kSmallDiscColumns];
    double maxCorner[kSmallDiscColumns];
    ColumnScratch::FillColumns(g, sxx, centre, minCorner, maxCorner);
    for (int32_t py = g.y0; py < g.y1; ++py) {
        const RowValues rv(static_cast<double>(py) + 0.5 - g.y);
        auto row = surface.Row(py);
        for (int32_t c = 0; c < width; ++c) {
            const int32_t px = g.x0 + c;
            const uint8_t have = Surface::Load(row, px);
            if (have == 255) continue;
            const double centre2 = centre[c] + rv.centre;
            if (centre2 < g.coreCentre) {
                Surface::Raise(row, px, 255);
                continue;
            }
            const bool allIn = maxCorner[c] + rv.maxCorner <= g.inLimit;
            const bool allOut = minCorner[c] + rv.minCorner >= g.outLimit;
            uint8_t value;
            if (allOut) {
                // Corners both in the core and beyond r: a hard disc centred on this pixel.
                if (!(allIn && centre2 < g.r2)) continue;
                value = SampleHard(g, &sxx[4 * c], rv.syy);
            } else if (allIn) {
                value = 255;
            } else if (!SampleRim(g, profile, skip, centre2, have, &sxx[4 * c], rv.syy, value)) {
                continue;
            }
            if (value > have) Surface::Raise(row, px, value);
        }
    }
}

// Stamps one disc into a surface, max-combining with what is there.
//
// Per row the pixels fall into three runs: outside (all four corner samples beyond r: left alone),
// the hard core (centre well inside, or all corners inside the core: 255) and between them the rim,
// sampled 4 x 4. Each of these tests only grows or shrinks with the distance of the pixel's column
// from the centre, so outside and core are found from their edges and the core is filled in one go.
template <class Surface>
void StampDisc(const Surface& surface, const DiscGeometry& g, DiscProfile& profile) {
    if (IsEmpty(g)) return;
    if (g.x1 - g.x0 <= kSmallDiscColumns) {
        StampSmallDisc(surface, g, profile);
        return;
    }
    const double* skip = g.hard ? nullptr : profile.GetSkipThresholds(g.r);
    ColumnScratch& cols = GetColumnScratch();
    cols.Prepare(g);
    const int32_t width = g.x1 - g.x0;
    // A pixel whose corners all lie both in the core and beyond r occurs only for hard discs, in the
    // column nearest the centre; it is sampled when its centre lies inside r.
    const double nearest = std::floor(g.x) - g.x0;  // may lie far outside the box for huge discs
    const bool oddCentre = g.inLimit >= g.outLimit && nearest >= 0 && nearest < width;
    const int32_t centreColumn = oddCentre ? static_cast<int32_t>(nearest) : -1;

    for (int32_t py = g.y0; py < g.y1; ++py) {
        const RowValues rv(static_cast<double>(py) + 0.5 - g.y);
        auto row = surface.Row(py);
        auto allOut = [&](int32_t c) { return cols.minCorner[c] + rv.minCorner >= g.outLimit; };
        auto isCore = [&](int32_t c) {
            return cols.centre[c] + rv.centre < g.coreCentre || cols.maxCorner[c] + rv.maxCorner <= g.inLimit;
        };
        auto rim = [&](int32_t c) {
            const int32_t px = g.x0 + c;
            const uint8_t have = Surface::Load(row, px);
            if (have == 255) return;
            uint8_t value;
            if (!SampleRim(g, profile, skip, cols.centre[c] + rv.centre, have, &cols.sxx[4 * c], rv.syy,
                           value))
                return;
            if (value > have) Surface::Raise(row, px, value);
        };

        // Columns not all outside: |dx| - 0.375 < sqrt(outLimit - minCy), from an estimate corrected
        // with the exact test.
        int32_t left = 0;
        int32_t right = 0;
        const double room = g.outLimit - rv.minCorner;
        if (room > 0) {
            const double reach = std::sqrt(room) + 0.375;
            const double lo = std::floor(g.x - 0.5 - reach) + 1 - g.x0;
            const double hi = std::ceil(g.x - 0.5 + reach) - g.x0;
            left = lo <= 0 ? 0 : (lo >= width ? width : static_cast<int32_t>(lo));
            right = hi <= left ? left : (hi >= width ? width : static_cast<int32_t>(hi));
            while (left > 0 && !allOut(left - 1))
                --left;
            while (left < width && allOut(left))
                ++left;
            if (right < left) right = left;
            while (right < width && !allOut(right))
                ++right;
            while (right > left && allOut(right - 1))
                --right;
        }
        if (oddCentre && (centreColumn < left || centreColumn >= right) && allOut(centreColumn) &&
            cols.maxCorner[centreColumn] + rv.maxCorner <= g.inLimit &&
            cols.centre[centreColumn] + rv.centre < g.r2) {
            const int32_t px = g.x0 + centreColumn;
            const uint8_t value = SampleHard(g, &cols.sxx[4 * centreColumn], rv.syy);
            if (value > Surface::Load(row, px)) Surface::Raise(row, px, value);
        }
        if (left >= right || Surface::IsFull(row, g.x0 + left, g.x0 + right)) continue;

        // The core: centre within sqrt(coreCentre) or corners within the core, again from an estimate.
        int32_t coreLeft = right;
        int32_t coreRight = right;
        double coreReach = -1;
        if (g.coreCentre - rv.centre > 0) coreReach = std::sqrt(g.coreCentre - rv.centre);
        if (g.inLimit - rv.maxCorner > 0)
            coreReach = std::max(coreReach, std::sqrt(g.inLimit - rv.maxCorner) - 0.375);
        if (coreReach >= 0) {
            const double lo = std::floor(g.x - 0.5 - coreReach) + 1 - g.x0;
            const double hi = std::ceil(g.x - 0.5 + coreReach) - g.x0;
            int32_t a = lo <= left ? left : (lo >= right ? right : static_cast<int32_t>(lo));
            int32_t b = hi <= a ? a : (hi >= right ? right : static_cast<int32_t>(hi));
            while (a > left && isCore(a - 1))
                --a;
            while (a < right && !isCore(a))
                ++a;
            if (b < a) b = a;
            while (b < right && isCore(b))
                ++b;
            while (b > a && !isCore(b - 1))
                --b;
            if (a < b) {
                coreLeft = a;
                coreRight = b;
            }
        }
        // Rim from each outer edge inwards. Pixels next to the core are often full already (other
        // discs' cores): once one is, see whether all the rest up to the core are and stop.
        for (int32_t c = left; c < coreLeft; ++c) {
            if (Surface::Load(row, g.x0 + c) == 255 && Surface::IsFull(row, g.x0 + c, g.x0 + coreLeft)) break;
            rim(c);
        }
        for (int32_t c = right - 1; c >= coreRight; --c) {
            if (Surface::Load(row, g.x0 + c) == 255 && Surface::IsFull(row, g.x0 + coreRight, g.x0 + c + 1))
                break;
            rim(c);
        }
        if (coreLeft >= coreRight) continue;
        Surface::Fill(row, g.x0 + coreLeft, g.x0 + coreRight);
    }
}

void GrowDirty(int32_t dirty[4], const DiscGeometry& g) {
    dirty[0] = std::min(dirty[0], g.x0);
    dirty[1] = std::min(dirty[1], g.y0);
    dirty[2] = std::max(dirty[2], g.x1);
    dirty[3] = std::max(dirty[3], g.y1);
}

// --- Stamps ---------------------------------------------------------------------------------------

// The pixel nearest the centre is the stamp's anchor; offsets from it are exact (Sterbenz), so a
// stamp computes every squared distance bit for bit as the direct loops would for its own disc.
// It is nearbyint (ties to even, default rounding) without a library call, as every disc asks: below
// 2^51, adding 1.5 * 2^52 rounds away exactly the fraction, and the even constant keeps ties' parity.
double Anchor(double v) {
    constexpr double kRound = 6755399441055744.0;                        // 1.5 * 2^52
    if (!(std::fabs(v) < 2251799813685248.0)) return std::nearbyint(v);  // 2^51 and beyond, NaN
    return (v + kRound) - kRound;
}

// The anchor pixel of a centre coordinate (discs that are drawn lie near the canvas).
int32_t AnchorPixel(double v) {
    return static_cast<int32_t>(Anchor(v));
}

int32_t StampHalf(double diameter) {
    // ceil(diameter / 2) without a library call: a truncation rounds towards zero, up for negatives.
    const double h = diameter / 2;
    const int32_t whole = static_cast<int32_t>(h);
    return (whole < h ? whole + 1 : whole) + 1;
}

// Bytes from one stamp row to the next: room for a whole number of 16-byte blocks from any column,
// the padding zero, so that rows are max-combined in whole blocks.
int32_t StampStride(int32_t side) {
    return (side + 15 + 15) / 16 * 16;
}

bool FitsStamp(double diameter) {
    return 2 * StampHalf(diameter) + 1 <= kLargestStampSide;
}

// Every pixel of the stamp decided as the straightforward loop decides it, tracking the smallest gap
// between a squared distance and the threshold it was compared with.
void BuildStamp(const Disc& disc, DiscProfile& profile, DiscStamp& stamp) {
    const double ox = disc.x - Anchor(disc.x);
    const double oy = disc.y - Anchor(disc.y);
    DiscGeometry g;
    FillConstants(g, ox, oy, disc.diameter, profile);
    const int32_t half = StampHalf(disc.diameter);
    const int32_t side = 2 * half + 1;
    g.x0 = -half;
    g.x1 = half + 1;
    ColumnScratch& cols = GetColumnScratch();
    cols.Prepare(g);
    stamp.diameter = disc.diameter;
    stamp.offsetX = ox;
    stamp.offsetY = oy;
    stamp.half = half;
    stamp.slope = g.hard ? 0 : g.slope;
    stamp.stride = StampStride(side);
    stamp.values.assign(static_cast<std::size_t>(stamp.stride) * side, 0);
    double margin = HUGE_VAL;
    auto near = [&margin](double value, double limit) {
        margin = std::min(margin, std::fabs(value - limit));
    };
    for (int32_t j = 0; j < side; ++j) {
        const RowValues rv(static_cast<double>(j - half) + 0.5 - oy);
        uint8_t* out = &stamp.values[static_cast<std::size_t>(j) * stamp.stride];
        for (int32_t c = 0; c < side; ++c) {
            const double centre = cols.centre[c] + rv.centre;
            near(centre, g.coreCentre);
            if (centre < g.coreCentre) {
                out[c] = 255;
                continue;
            }
            const double maxC = cols.maxCorner[c] + rv.maxCorner;
            const double minC = cols.minCorner[c] + rv.minCorner;
            near(maxC, g.inLimit);
            near(minC, g.outLimit);
            const bool allIn = maxC <= g.inLimit;
            const bool allOut = minC >= g.outLimit;
            if (allIn && !allOut) {
                out[c] = 255;
                continue;
            }
            if (allOut && allIn) near(centre, g.r2);
            if (allOut && !(allIn && centre < g.r2)) continue;
            const double* sxx = &cols.sxx[4 * c];
            if (g.hard) {
                for (int jj = 0; jj < 4; ++jj) {
                    for (int ii = 0; ii < 4; ++ii)
                        near(sxx[ii] + rv.syy[jj], g.hardLimit);
                }
                out[c] = SampleHard(g, sxx, rv.syy);
            } else {
                out[c] = SampleSoft(g, profile, sxx, rv.syy);
            }
        }
    }
    stamp.margin = margin;
    stamp.firstRow = side;
    stamp.lastRow = -1;
    stamp.firstColumn = side;
    stamp.lastColumn = -1;
    for (int32_t j = 0; j < side; ++j) {
        const uint8_t* row = &stamp.values[static_cast<std::size_t>(j) * stamp.stride];
        for (int32_t c = 0; c < side; ++c) {
            if (row[c] == 0) continue;
            stamp.firstRow = std::min(stamp.firstRow, j);
            stamp.lastRow = j;
            stamp.firstColumn = std::min(stamp.firstColumn, c);
            stamp.lastColumn = std::max(stamp.lastColumn, c);
        }
    }
}

// Whether the stamp gives this disc's bytes: exactly where every decision of the stamp lies farther
// from its threshold than the shift can move it, and, for soft rims, within a fraction of a level.
bool CanReuse(const DiscStamp& stamp, const Disc& disc) {
    if (stamp.diameter < 0) return false;
    // Cheapest first: on a tapered stroke the diameter differs from one disc to the next.
    const double dr = std::fabs(disc.diameter - stamp.diameter) / 2;
    if (!(dr <= 1e-6) || StampHalf(disc.diameter) != stamp.half) return false;
    const double shift = std::fabs(disc.x - Anchor(disc.x) - stamp.offsetX) +
                         std::fabs(disc.y - Anchor(disc.y) - stamp.offsetY);
    if (!(shift <= 1e-6)) return false;
    const double reach = stamp.half + 2.0;
    const double r = stamp.diameter / 2;
    // How far any squared distance or threshold can move, plus rounding in either computation.
    const double change =
        2 * reach * shift + shift * shift + 2 * (r + 1) * dr + dr * dr + 1e-12 * (1 + reach * reach);
    if (!(change < stamp.margin)) return false;
    return (shift + dr) * stamp.slope * 255 <= 0.05;
}

// dst[i] = max(dst[i], src[i]) for n bytes, 16 at a time where the processor has byte maxima.
void MaxInto(uint8_t* dst, const uint8_t* src, int32_t n) {
    int32_t i = 0;
#if defined(__SSE2__)
    for (; i + 16 <= n; i += 16) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(dst + i));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_max_epu8(a, b));
    }
#elif defined(__ARM_NEON)
    for (; i + 16 <= n; i += 16)
        vst1q_u8(dst + i, vmaxq_u8(vld1q_u8(dst + i), vld1q_u8(src + i)));
#endif
    for (; i < n; ++i)
        dst[i] = src[i] > dst[i] ? src[i] : dst[i];
}

// Max-combines the stamp, placed at the disc's anchor, into the columns [x0, x1) and rows [y0, y1) of
// a tile. Rows are combined in whole 16-byte blocks: past the end of a row the stamp holds zeros,
// which leave the tile as it is, and the tile's rows have 16 spare bytes past x1.
void ApplyStamp(const PlainSurface& tile, const DiscStamp& stamp, const Disc& disc, int32_t x0, int32_t y0,
                int32_t x1, int32_t y1) {
    // Only the rows and columns that hold anything.
    const int32_t left = AnchorPixel(disc.x) - stamp.half;
    const int32_t top = AnchorPixel(disc.y) - stamp.half;
    const int32_t end = left + stamp.lastColumn + 1;
    const int32_t from = std::max(left + stamp.firstColumn, x0);
    const int32_t to = std::min(end, x1);
    const int32_t first = std::max(stamp.firstRow, y0 - top);
    const int32_t last = std::min(stamp.lastRow, y1 - 1 - top);
    if (from >= to || first > last) return;
    // Whole blocks only where the stamp's own zeros follow the row; where the tile cuts the stamp
    // short, stamp bytes would follow instead.
    const int32_t count = to == end ? (to - from + 15) / 16 * 16 : to - from;
    const uint8_t* src = &stamp.values[static_cast<std::size_t>(first) * stamp.stride + (from - left)];
    uint8_t* dst = tile.Row(top + first) + from;
    const int32_t rows = last - first + 1;
#if defined(__SSE2__)
    // The usual widths in whole blocks, the rows' loop unrolled over them.
    auto maxBlock = [](uint8_t* d, const uint8_t* s) {
        const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d));
        const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_max_epu8(a, b));
    };
    if (count == 16 || count == 32) {
        for (int32_t j = 0; j < rows; ++j, dst += tile.stride, src += stamp.stride) {
            maxBlock(dst, src);
            if (count == 32) maxBlock(dst + 16, src + 16);
        }
        return;
    }
#endif
    for (int32_t j = 0; j < rows; ++j, dst += tile.stride, src += stamp.stride)
        MaxInto(dst, src, count);
}

// Runs shorter than this are stamped disc by disc: the maxima would cost more than they save.
constexpr int kShortestRun = 6;

// Whether a run of one stamp may lead from disc `a` to disc `b`: they must share their size, and lie
// a whole number of pixels apart. A cheap test first, as most strokes have no such runs.
bool MayStartRun(const Disc& a, const Disc& b) {
    auto nearWhole = [](double d) {
        if (!(std::fabs(d) < 1e6)) return false;  // apart by much, or not a number
        const double whole = static_cast<double>(static_cast<int32_t>(d < 0 ? d - 0.5 : d + 0.5));
        return std::fabs(d - whole) <= 4e-6;
    };
    return std::fabs(a.diameter - b.diameter) <= 4e-6 && nearWhole(b.x - a.x) && nearWhole(b.y - a.y);
}

// Raises the shared bytes `into` to what a tile stamped (`now`) where it differs from what was read
// (`was`), n bytes. Words that did not change are passed over without looking at their bytes.
void MergeRaised(uint8_t* into, const uint8_t* now, const uint8_t* was, int32_t n) {
    int32_t col = 0;
    for (; col + 8 <= n; col += 8) {
        uint64_t a;
        uint64_t b;
        std::memcpy(&a, now + col, 8);
        std::memcpy(&b, was + col, 8);
        if (a == b) continue;
        for (int32_t k = col; k < col + 8; ++k) {
            if (now[k] > was[k]) MoveEffectFilter::StampCoverageByte(into + k, now[k]);
        }
    }
    if (col < n && n >= 8) {
        // The last word again, overlapping the one before: most tails are unchanged too.
        uint64_t a;
        uint64_t b;
        std::memcpy(&a, now + n - 8, 8);
        std::memcpy(&b, was + n - 8, 8);
        if (a == b) return;
    }
    for (; col < n; ++col) {
        if (now[col] > was[col]) MoveEffectFilter::StampCoverageByte(into + col, now[col]);
    }
}

// Order in which a batch's discs are stamped: bit-reversed indices, so that every pixel soon meets
// a disc near it and the rim tests then skip the weaker ones.
constexpr std::array<uint8_t, StrokeRaster::kBatchDiscs> MakeCoarseToFine() {
    std::array<uint8_t, StrokeRaster::kBatchDiscs> order{};
    for (int i = 0; i < StrokeRaster::kBatchDiscs; ++i) {
        int reversed = 0;
        for (int bit = 1, mirror = StrokeRaster::kBatchDiscs / 2; bit < StrokeRaster::kBatchDiscs;
             bit <<= 1, mirror >>= 1) {
            if (i & bit) reversed |= mirror;
        }
        order[i] = static_cast<uint8_t>(reversed);
    }
    return order;
}
constexpr std::array<uint8_t, StrokeRaster::kBatchDiscs> kCoarseToFine = MakeCoarseToFine();

}  // namespace

// --- DiscProfile ----------------------------------------------------------------------------------

namespace {

// Radius steps of the skip thresholds: 1/64 px up to 1/8 px, then 1/512 of the radius. A disc uses
// the step at or above its radius; the bound grows with the radius, so that stays on the safe side.
constexpr double kFineLimit = 0.125;
constexpr double kFineStep = 1.0 / 64;
constexpr int kFineSteps = 8;
constexpr double kRelativeStep = 1.0 / 512;
const double kLogStepRatio = portable::Log(1 + kRelativeStep);  // for every soft disc: worked out once
// Beyond this radius no thresholds are kept: rims are sampled wherever they are not yet 255.
constexpr double kLargestBoundedRadius = 4096;

int RadiusStep(double radius, double& stepRadius) {
    if (radius <= kFineLimit) {
        const int i = static_cast<int>(std::ceil(radius / kFineStep));
        stepRadius = i * kFineStep;
        return i;
    }
    const double k = std::ceil(portable::Log(radius / kFineLimit) / kLogStepRatio);
    int i = kFineSteps + static_cast<int>(k);
    stepRadius = kFineLimit * portable::Pow(1 + kRelativeStep, k);
    if (stepRadius < radius) {
        ++i;
        stepRadius *= 1 + kRelativeStep;
    }
    return i;
}

// Slots for every radius step up to kLargestBoundedRadius.
const int kThresholdSlots = [] {
    double stepRadius = 0;
    return RadiusStep(kLargestBoundedRadius, stepRadius) + 1;
}();

}  // namespace

DiscProfile::DiscProfile(double hardness)
    : m_hardness(hardness),
      m_exponent(4 * hardness + 1),
      m_table(kTableSize + 1, 0.0f),
      m_thresholds(new std::atomic<Thresholds*>[kThresholdSlots]) {
    const double h2 = hardness * hardness;
    const double band = 1.0 - hardness;
    for (int i = 0; i <= kTableSize; ++i) {
        const double rho = std::sqrt(h2 + (1.0 - h2) * i / kTableSize);
        const double u = band > 0 ? (rho - hardness) / band : 1.0;
        m_table[i] = static_cast<float>(u >= 1 ? 0.0 : portable::Pow(1 - u, m_exponent));
    }
    m_table[0] = 1.0f;
    m_table[kTableSize] = 0.0f;
    for (int i = 0; i < kThresholdSlots; ++i)
        m_thresholds[i].store(nullptr, std::memory_order_relaxed);
}

DiscProfile::~DiscProfile() {
    for (int i = 0; i < kThresholdSlots; ++i)
        delete m_thresholds[i].load(std::memory_order_relaxed);
}

DiscProfile& DiscProfile::ForHardness(double hardness) {
    // The profiles of the last few hardnesses: a render uses one, the panel's previews a handful.
    constexpr std::size_t kKept = 4;
    static std::mutex mutex;
    static std::vector<std::shared_ptr<DiscProfile>> kept;  // the newest last
    thread_local std::shared_ptr<DiscProfile> profile;
    // Bit patterns, so that a NaN hardness finds its profile too.
    const auto same = [hardness](const std::shared_ptr<DiscProfile>& p) {
        return p && std::memcmp(&p->m_hardness, &hardness, sizeof hardness) == 0;
    };
    if (same(profile)) return *profile;
    std::lock_guard<std::mutex> lock(mutex);
    const auto found = std::find_if(kept.begin(), kept.end(), same);
    if (found != kept.end()) {
        profile = *found;
    } else {
        profile = std::make_shared<DiscProfile>(hardness);
        if (kept.size() == kKept) kept.erase(kept.begin());
        kept.push_back(profile);
    }
    return *profile;
}

const double* DiscProfile::GetSkipThresholds(double radius) {
    if (!(radius >= 0) || radius > kLargestBoundedRadius || !(m_hardness >= 0 && m_hardness < 1)) {
        static const std::array<double, kBucketCount> kNever = [] {
            std::array<double, kBucketCount> never{};
            never.fill(HUGE_VAL);
            return never;
        }();
        return kNever.data();
    }
    double stepRadius = 0;
    const int i = RadiusStep(radius, stepRadius);
    std::atomic<Thresholds*>& slot = m_thresholds[i];
    if (Thresholds* made = slot.load(std::memory_order_acquire)) return made->squared;
    // Two threads may make the same step at once: they make the same numbers, and one is kept.
    auto fresh = std::make_unique<Thresholds>();
    MakeThresholds(stepRadius, *fresh);
    Thresholds* expected = nullptr;
    if (slot.compare_exchange_strong(expected, fresh.get(), std::memory_order_acq_rel))
        return fresh.release()->squared;
    return expected->squared;
}

// An upper bound of a disc's 16-sample mean at a pixel whose centre lies `distance` from the disc's.
// Every sample lies within kSampleReach of the pixel centre and their mean distance is at least
// `distance`; the profile, extended above 1 inside the core, is convex and falling, so the mean of
// its values lies below its chord over [distance - reach, distance + reach], taken at `distance`.
double DiscProfile::ChordBound(double distance, double radius) const {
    const double inner = radius * m_hardness;
    const double band = radius - inner;
    const double h2 = m_hardness * m_hardness;
    const double scale = kTableSize / (1 - h2);
    auto extended = [&](double s) {
        if (s >= radius) return 0.0;
        if (s >= inner) {
            const double at = ((s / radius) * (s / radius) - h2) * scale;
            return static_cast<double>(LookUp(at < 0 ? 0 : (at > kTableSize ? kTableSize : at)));
        }
        return portable::Pow(1 - (s - inner) / band, m_exponent);
    };
    return 0.5 * (extended(distance - kSampleReach) + extended(distance + kSampleReach));
}

void DiscProfile::MakeThresholds(double radius, Thresholds& out) const {
    out.radius = radius;
    double low = std::max(0.0, radius * m_hardness - kSampleReach);
    const double high = radius + kSampleReach;
    for (int b = kBucketCount - 1; b >= 0; --b) {
        // The disc cannot raise a byte of this bucket once its mean stays below the bucket's lowest
        // byte plus half a level; a thousandth less leaves room for the table's rounding.
        const double level = (b * kBucketWidth + 0.5) / 255.0 - 1e-3;
        // Smallest distance from which on the bound stays at or below the level (it only falls).
        double lo = low;
        double hi = high;
        if (ChordBound(lo, radius) <= level) {
            hi = lo;
        } else {
            for (int k = 0; k < 24; ++k) {
                const double mid = 0.5 * (lo + hi);
                if (ChordBound(mid, radius) <= level) {
                    hi = mid;
                } else {
                    lo = mid;
                }
            }
        }
        out.squared[b] = hi * hi;
        low = hi;  // lower levels lie farther out
    }
}

// --- Stamping entry points ------------------------------------------------------------------------

void StampDiscUnshared(const CoverageView& view, DiscProfile& profile, const Disc& disc, int32_t dirty[4]) {
    DiscGeometry g;
    if (!MakeGeometry(disc, profile, view.width, view.height, g)) return;
    GrowDirty(dirty, g);
    StampDisc(PlainSurface{view.pixels, view.stride}, g, profile);
}

void StampDiscShared(const CoverageView& view, DiscProfile& profile, const Disc& disc, int32_t dirty[4]) {
    DiscGeometry g;
    if (!MakeGeometry(disc, profile, view.width, view.height, g)) return;
    GrowDirty(dirty, g);
    if (view.pixels != nullptr) StampDisc(SharedSurface{view.pixels, view.stride}, g, profile);
}

// --- Stamps remembered over a pass ----------------------------------------------------------------

namespace {

std::atomic<uint64_t> g_strokePass{0};

// Stamps of one thread and pass, by diameter and sub-pixel offset (in steps of 2^-20 px: nearby
// offsets share a key, and CanReuse decides whether the stamp fits the disc at hand). An open-address
// table: a render asks for the same few thousand keys over and over.
class StampMemory {
public:
    // Memory a thread may spend on remembered stamps before it starts again from none.
    static constexpr std::size_t kMostBytes = 32u << 20;
    // Lookups before the memory may give up on a pass: a few dozen strokes.
    static constexpr int64_t kTrial = 1 << 16;
    // Lookups after a thread's first stroke before the memory may give up at the end of a stroke.
    static constexpr int64_t kStrokeTrial = 1 << 11;

    struct Key {
        uint64_t diameter;
        int64_t x;
        int64_t y;
        bool operator==(const Key&) const = default;
    };

    static StampMemory& ForPass(uint64_t pass, double hardness) {
        thread_local StampMemory memory;
        if (memory.m_pass != pass || std::memcmp(&memory.m_hardness, &hardness, sizeof hardness) != 0) {
            memory.Clear();
            memory.m_trial = {};
            memory.m_pass = pass;
            memory.m_hardness = hardness;
        }
        return memory;
    }

    // llround for the offsets' sub-pixel steps (well inside 2^52), without a library call.
    static int64_t RoundHalfAway(double v) {
        const int64_t whole = static_cast<int64_t>(v);
        const double rest = v - static_cast<double>(whole);
        return rest >= 0.5 ? whole + 1 : (rest <= -0.5 ? whole - 1 : whole);
    }

    static Key MakeKey(const Disc& disc) {
        uint64_t bits;
        std::memcpy(&bits, &disc.diameter, sizeof bits);
        constexpr double kScale = 1 << 20;
        return Key{bits, RoundHalfAway((disc.x - Anchor(disc.x)) * kScale),
                   RoundHalfAway((disc.y - Anchor(disc.y)) * kScale)};
    }

    // Whether keys come back often in this pass. Where sub-pixel offsets hardly repeat (slanted
    // lines, rings) looking them up only costs, so once a fair trial shows that most lookups bring
    // a new key, the memory is left alone for the rest of the pass.
    bool IsWorthwhile() const {
        const Trial& t = m_trial;
        return !t.givenUp && (t.lookups < kTrial || t.distinct * 8 <= t.lookups);
    }

    // Keys come back from one stroke to the next (parallel lines share their sub-pixel offsets) or not
    // at all (lines at ever new angles, rings). So once the strokes after a thread's first have looked
    // up enough keys, mostly new ones, the rest of the pass is spared the lookups: on radiating lines
    // that is most of the trial above, and each worker would pay it again.
    void EndStroke() {
        Trial& t = m_trial;
        if (t.givenUp) return;
        if (!t.pastFirstStroke) {
            t.pastFirstStroke = true;
            t.laterLookups = 0;
            t.laterRepeats = 0;
            return;
        }
        if (t.laterLookups >= kStrokeTrial && t.laterRepeats * 8 < t.laterLookups) t.givenUp = true;
    }

    // The stamp for the key: none the first time the key is asked for (only keys that come back
    // get one), made the second time, kept after that.
    const DiscStamp* Get(const Key& key, const Disc& disc, DiscProfile& profile) {
        ++m_trial.lookups;
        ++m_trial.laterLookups;
        Slot& slot = FindSlot(key);
        if (slot.used) ++m_trial.laterRepeats;
        if (slot.used && slot.stamp >= 0) return &m_stamps[static_cast<std::size_t>(slot.stamp)];
        if (!slot.used) {
            slot.used = true;
            slot.key = key;
            slot.stamp = -1;
            ++m_count;
            ++m_trial.distinct;
            m_bytes += sizeof(Slot);
            if (m_count * 2 > m_slots.size()) Grow();
            return nullptr;
        }
        if (m_bytes > kMostBytes) {
            Clear();
            return nullptr;
        }
        slot.stamp = static_cast<int64_t>(m_stamps.size());
        DiscStamp& stamp = m_stamps.emplace_back();
        BuildStamp(disc, profile, stamp);
        m_bytes += stamp.values.size() + sizeof(DiscStamp);
        return &stamp;
    }

private:
    struct Slot {
        Key key{};
        int64_t stamp = -1;  // index into m_stamps, < 0 while the key has been seen once only
        bool used = false;
    };

    static std::size_t Hash(const Key& k) {
        uint64_t h = k.diameter * 0x9E3779B97F4A7C15ull;
        h ^= (static_cast<uint64_t>(k.x) + 0x7F4A7C15ull) * 0xC2B2AE3D27D4EB4Full;
        h ^= (static_cast<uint64_t>(k.y) + 0x165667B1ull) * 0x165667B19E3779F9ull;
        return static_cast<std::size_t>(h ^ (h >> 29));
    }

    // The key's slot, or the empty slot where it belongs. The table is never more than half full.
    Slot& FindSlot(const Key& key) {
        if (m_slots.empty()) m_slots.resize(1024);
        const std::size_t mask = m_slots.size() - 1;
        for (std::size_t i = Hash(key) & mask;; i = (i + 1) & mask) {
            Slot& slot = m_slots[i];
            if (!slot.used || slot.key == key) return slot;
        }
    }

    void Grow() {
        std::vector<Slot> old(m_slots.size() * 2);
        old.swap(m_slots);
        for (const Slot& slot : old) {
            if (slot.used) FindSlot(slot.key) = slot;
        }
        m_bytes += old.size() * sizeof(Slot);
    }

    void Clear() {
        m_slots.clear();
        m_stamps.clear();
        m_count = 0;
        m_bytes = 0;
    }

    uint64_t m_pass = 0;
    double m_hardness = -1;
    std::vector<Slot> m_slots;
    std::deque<DiscStamp> m_stamps;  // a deque: handed-out pointers stay valid as it grows
    std::size_t m_count = 0;         // slots in use
    std::size_t m_bytes = 0;
    // What tells whether the memory pays in this pass; starts again with each pass.
    struct Trial {
        int64_t lookups = 0;
        int64_t distinct = 0;          // keys seen for the first time
        bool pastFirstStroke = false;  // a stroke of this pass has looked keys up and ended
        int64_t laterLookups = 0;      // lookups since then
        int64_t laterRepeats = 0;      // of those, keys seen before
        bool givenUp = false;
    } m_trial;
};

}  // namespace

uint64_t BeginStrokePass() {
    return g_strokePass.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint64_t GetStrokePass() {
    return g_strokePass.load(std::memory_order_relaxed);
}

StrokeRaster::StrokeRaster(MoveEffectFilter* filter, const CoverageView& view, double hardness, uint64_t pass)
    : m_filter(filter), m_view(view), m_pass(pass), m_profile(&DiscProfile::ForHardness(hardness)) {}

const DiscStamp* StrokeRaster::FindRememberedStamp(const Disc& disc) {
    if (m_pass == 0 || m_memoryGaveUp || !FitsStamp(disc.diameter)) return nullptr;
    StampMemory& memory = StampMemory::ForPass(m_pass, m_profile->GetHardness());
    if (!memory.IsWorthwhile()) {
        m_memoryGaveUp = true;
        return nullptr;
    }
    ++m_lookups;
    const DiscStamp* stamp = memory.Get(StampMemory::MakeKey(disc), disc, *m_profile);
    return stamp != nullptr && CanReuse(*stamp, disc) ? stamp : nullptr;
}

StrokeRaster::~StrokeRaster() {
    if (m_lookups > 0) StampMemory::ForPass(m_pass, m_profile->GetHardness()).EndStroke();
}

namespace {
std::atomic<int64_t> g_totalDiscs{0};
}  // namespace

int64_t StrokeRaster::GetTotalDiscCount() {
    return g_totalDiscs.load(std::memory_order_relaxed);
}

void StrokeRaster::Flush() {
    g_totalDiscs.fetch_add(m_added - m_counted, std::memory_order_relaxed);
    m_counted = m_added;
    if (m_count == 0) return;
    FlushRange(0, m_count);
    m_previousDiameter = m_discs[m_count - 1].diameter;
    m_count = 0;
}

bool StrokeRaster::UseStamp(int i, int begin, int end) {
    const Disc& disc = m_discs[i];
    if (CanReuse(m_stamp, disc)) {
        ++m_stampReuses;
        return true;
    }
    // A stamp costs several direct discs: stop making them once they are not being reused (equal
    // discs at ever new sub-pixel offsets, as on slanted lines and rings).
    if (!StampsPay()) return false;
    // A new stamp only pays inside a run of equal discs: both neighbours must match.
    const double previous = i > begin ? m_discs[i - 1].diameter : m_previousDiameter;
    const double tolerance = 1e-9 * std::max(1.0, disc.diameter);
    if (i + 1 >= end || !(std::fabs(disc.diameter - previous) <= tolerance) ||
        !(std::fabs(disc.diameter - m_discs[i + 1].diameter) <= tolerance) || !FitsStamp(disc.diameter)) {
        return false;
    }
    BuildStamp(disc, *m_profile, m_stamp);
    ++m_stampsMade;
    return true;
}

void StrokeRaster::ApplyRun(int32_t anchorX, int32_t anchorY, int32_t n, bool down, uint8_t* origin,
                            std::ptrdiff_t tileStride, int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
    const DiscStamp& stamp = m_stamp;
    const int32_t half = stamp.half;
    const int32_t side = 2 * half + 1;
    const std::size_t stride = static_cast<std::size_t>(stamp.stride);
    const uint8_t* values = stamp.values.data();
    RunMaxima& run = m_run;
    if (run.stamp != m_stampsMade) {
        run.stamp = m_stampsMade;
        run.rowsFromTop.assign(stamp.values.begin(), stamp.values.end());
        run.rowsFromBottom.assign(stamp.values.begin(), stamp.values.end());
        for (int32_t r = 1; r < side; ++r) {
            MaxInto(&run.rowsFromTop[r * stride], &run.rowsFromTop[(r - 1) * stride], stamp.stride);
            const int32_t up = side - 1 - r;
            MaxInto(&run.rowsFromBottom[up * stride], &run.rowsFromBottom[(up + 1) * stride], stamp.stride);
        }
        const std::size_t square = static_cast<std::size_t>(side) * side;
        run.fromLeft.resize(square);
        run.fromRight.resize(square);
        for (int32_t r = 0; r < side; ++r) {
            const uint8_t* in = values + r * stride;
            uint8_t* left = &run.fromLeft[static_cast<std::size_t>(r) * side];
            uint8_t* right = &run.fromRight[static_cast<std::size_t>(r) * side];
            left[0] = in[0];
            for (int32_t c = 1; c < side; ++c)
                left[c] = std::max(left[c - 1], in[c]);
            right[side - 1] = in[side - 1];
            for (int32_t c = side - 2; c >= 0; --c)
                right[c] = std::max(right[c + 1], in[c]);
        }
    }
    const int32_t left = anchorX - half;
    const int32_t top = anchorY - half;
    auto tileRow = [&](int32_t y) { return origin + static_cast<std::ptrdiff_t>(y) * tileStride; };
    if (down) {
        // Tile row top + e meets stamp rows e - n + 1 .. e of the run's discs: a range of rows whose
        // maximum is a running one wherever it reaches the first or the last row of the stamp.
        const int32_t from = std::max(left, x0);
        const int32_t to = std::min(left + side, x1);
        if (from >= to) return;
        const int32_t count = to == left + side ? (to - from + 15) / 16 * 16 : to - from;
        const std::size_t at = static_cast<std::size_t>(from - left);
        for (int32_t e = std::max(0, y0 - top); e < side + n - 1 && top + e < y1; ++e) {
            const int32_t high = std::min(side - 1, e);
            const int32_t low = std::max(0, e - n + 1);
            uint8_t* out = tileRow(top + e) + from;
            if (low == 0) {
                MaxInto(out, &run.rowsFromTop[high * stride + at], count);
            } else if (high == side - 1) {
                MaxInto(out, &run.rowsFromBottom[low * stride + at], count);
            } else {
                for (int32_t r = low; r <= high; ++r)
                    MaxInto(out, values + r * stride + at, count);
            }
        }
        return;
    }
    // Along a row: each stamp row spreads over side + n - 1 columns, the maximum of a sliding window.
    const int32_t length = side + n - 1;
    run.row.resize(static_cast<std::size_t>(length));
    const int32_t from = std::max(left, x0);
    const int32_t to = std::min(left + length, x1);
    if (from >= to) return;
    for (int32_t r = std::max(0, y0 - top); r < side && top + r < y1; ++r) {
        const uint8_t* fromLeft = &run.fromLeft[static_cast<std::size_t>(r) * side];
        const uint8_t* fromRight = &run.fromRight[static_cast<std::size_t>(r) * side];
        uint8_t* row = run.row.data();
        if (n >= side) {
            // Rising from the left end, the row's maximum across the middle, falling to the right end.
            std::memcpy(row, fromLeft, static_cast<std::size_t>(side - 1));
            std::memset(row + side - 1, fromLeft[side - 1], static_cast<std::size_t>(n - side + 1));
            std::memcpy(row + n, fromRight + 1, static_cast<std::size_t>(side - 1));
        } else {
            for (int32_t c = 0; c < length; ++c) {
                const int32_t low = std::max(0, c - n + 1);
                const int32_t high = std::min(side - 1, c);
                if (low == 0) {
                    row[c] = fromLeft[high];
                } else if (high == side - 1) {
                    row[c] = fromRight[low];
                } else {
                    row[c] = *std::max_element(values + r * stride + low, values + r * stride + high + 1);
                }
            }
        }
        MaxInto(tileRow(top + r) + from, row + (from - left), to - from);
    }
}

void StrokeRaster::FlushRange(int begin, int end) {
    DiscGeometry geometry[kBatchDiscs];
    bool drawn[kBatchDiscs];
    int32_t dirty[4] = {m_view.width, m_view.height, 0, 0};
    int32_t box[4] = {m_view.width, m_view.height, 0, 0};
    bool any = false;
    int64_t discArea = 0;  // of the drawn discs' boxes, overlaps counted again
    for (int i = begin; i < end; ++i) {
        DiscGeometry& g = geometry[i];
        drawn[i] = MakeBox(m_discs[i], m_view.width, m_view.height, g);
        if (!drawn[i]) continue;
        any = true;
        GrowDirty(dirty, g);
        if (IsEmpty(g)) {
            drawn[i] = false;
            continue;
        }
        discArea += static_cast<int64_t>(g.x1 - g.x0) * (g.y1 - g.y0);
        box[0] = std::min(box[0], g.x0);
        box[1] = std::min(box[1], g.y0);
        box[2] = std::max(box[2], g.x1);
        box[3] = std::max(box[3], g.y1);
    }
    if (!any) return;
    if (m_view.pixels != nullptr && box[0] < box[2] && box[1] < box[3]) {
        const int64_t tileWidth = box[2] - box[0];
        const int64_t tileHeight = box[3] - box[1];
        if (tileWidth * tileHeight > kMaxTilePixels && end - begin > 1) {
            const int middle = begin + (end - begin) / 2;
            FlushRange(begin, middle);
            FlushRange(middle, end);
            return;
        }
        if (tileWidth * tileHeight > kMaxTilePixels) {
            // One huge disc: stamp it in place.
            if (drawn[begin])
                StampDisc(SharedSurface{m_view.pixels, m_view.stride},
                          WithConstants(geometry[begin], m_discs[begin], *m_profile), *m_profile);
        } else {
            const int64_t tileStride = tileWidth + kTileRowSlack;
            const std::size_t area = static_cast<std::size_t>(tileStride * tileHeight);
            if (m_tile.size() < area) {
                m_tile.resize(area);
                m_before.resize(area);
            }
            // Per tile row, the columns the batch's discs can reach: a slanted stroke of small discs
            // leaves most of its box untouched, and only these columns are read in and merged back.
            // Elsewhere the tile holds stale bytes that nothing reads. Discs that fill their box
            // many times over would only pay for finding that out: they take whole rows.
            const std::size_t rows = static_cast<std::size_t>(tileHeight);
            if (m_spans.size() < rows) m_spans.resize(rows);
            const bool sparse = discArea < tileWidth * tileHeight;
            std::fill_n(m_spans.begin(), rows, sparse ? Span{box[2], box[0]} : Span{box[0], box[2]});
            for (int i = begin; i < end && sparse; ++i) {
                if (!drawn[i]) continue;
                const DiscGeometry& g = geometry[i];
                for (int32_t y = g.y0; y < g.y1; ++y) {
                    Span& span = m_spans[static_cast<std::size_t>(y - box[1])];
                    span.left = std::min(span.left, g.x0);
                    span.right = std::max(span.right, g.x1);
                }
            }
            // Calls visit(offset in the tile, the shared bytes, count) for each row's span.
            auto eachSpan = [&](auto&& visit) {
                for (std::size_t row = 0; row < rows; ++row) {
                    const Span span = m_spans[row];
                    if (span.left >= span.right) continue;
                    visit(row * static_cast<std::size_t>(tileStride) + (span.left - box[0]),
                          m_view.pixels + (box[1] + static_cast<int64_t>(row)) * m_view.stride + span.left,
                          span.right - span.left);
                }
            };
            // Start from what other tasks have stamped so far: the rim tests then skip more.
            eachSpan([&](std::size_t at, uint8_t* shared, int32_t count) {
                uint8_t* was = m_before.data() + at;
                for (int32_t col = 0; col < count; ++col)
                    was[col] = std::atomic_ref<uint8_t>(shared[col]).load(std::memory_order_relaxed);
                if (sparse) std::memcpy(m_tile.data() + at, was, static_cast<std::size_t>(count));
            });
            if (!sparse) std::memcpy(m_tile.data(), m_before.data(), area);
            const PlainSurface tile{m_tile.data() - box[1] * tileStride - box[0],
                                    static_cast<std::ptrdiff_t>(tileStride)};
            const int32_t stampRight = box[2] + kStampReachPastTile;
            // Runs of one stamp that step a whole pixel along a row or column go first, in one go each.
            bool inRun[kBatchDiscs] = {};
            for (int i = begin; i + kShortestRun <= end && StampsPay();) {
                if (!drawn[i] || !MayStartRun(m_discs[i], m_discs[i + kShortestRun - 1]) ||
                    !UseStamp(i, begin, end)) {
                    ++i;
                    continue;
                }
                // Discs of the run step one pixel along one axis, or stay on their pixel: a disc that
                // shares both stamp and anchor with the one before adds nothing.
                int32_t stepX = 0;
                int32_t stepY = 0;
                int32_t pixels = 1;
                int j = i + 1;
                for (; j < end && drawn[j] && CanReuse(m_stamp, m_discs[j]); ++j) {
                    const int32_t dx = AnchorPixel(m_discs[j].x) - AnchorPixel(m_discs[j - 1].x);
                    const int32_t dy = AnchorPixel(m_discs[j].y) - AnchorPixel(m_discs[j - 1].y);
                    if (dx == 0 && dy == 0) continue;
                    if (stepX == 0 && stepY == 0 && std::abs(dx) + std::abs(dy) == 1) {
                        stepX = dx;
                        stepY = dy;
                    } else if (dx != stepX || dy != stepY) {
                        break;
                    }
                    ++pixels;
                }
                if (pixels >= kShortestRun) {
                    // The run's first pixel in reading order; the others follow it along the axis.
                    const Disc& first = m_discs[stepX + stepY < 0 ? j - 1 : i];
                    ApplyRun(AnchorPixel(first.x), AnchorPixel(first.y), pixels, stepY != 0, tile.origin,
                             tile.stride, box[0], box[1], stampRight, box[3]);
                    std::fill(inRun + i, inRun + j, true);
                    m_stampReuses += j - i - 1;
                }
                i = j;
            }
            for (int k = 0; k < kBatchDiscs; ++k) {
                const int i = begin + kCoarseToFine[k];
                if (i >= end || !drawn[i] || inRun[i]) continue;
                if (UseStamp(i, begin, end)) {
                    ApplyStamp(tile, m_stamp, m_discs[i], box[0], box[1], stampRight, box[3]);
                } else if (const DiscStamp* remembered = FindRememberedStamp(m_discs[i])) {
                    ApplyStamp(tile, *remembered, m_discs[i], box[0], box[1], stampRight, box[3]);
                } else {
                    StampDisc(tile, WithConstants(geometry[i], m_discs[i], *m_profile), *m_profile);
                }
            }
            eachSpan([&](std::size_t at, uint8_t* shared, int32_t count) {
                MergeRaised(shared, m_tile.data() + at, m_before.data() + at, count);
            });
        }
    }
    if (m_filter != nullptr) m_filter->GrowDirtyRect(dirty[0], dirty[1], dirty[2], dirty[3]);
}

// --- The filter's stamping primitives ---------------------------------------------------------------

// Worker threads. Stroke tasks batch their discs through a StrokeRaster; these draw one at a time,
// with the same bytes.
void MoveEffectFilter::DrawLine(const PathPoint& a, double pressureA, const PathPoint& b, double pressureB) {
    ForEachLineDisc(a.x, a.y, pressureA, b.x, b.y, pressureB, m_param.size,
                    [this](double x, double y, double d) { DrawCircle(x, y, d); });
}

void MoveEffectFilter::DrawCircle(double x, double y, double diameter) {
    if (!m_coverage) return;
    int32_t dirty[4] = {m_width, m_height, 0, 0};
    StampDiscShared(CoverageView{m_coverage.get(), m_width, m_height, m_width},
                    DiscProfile::ForHardness(m_param.hardness), Disc{x, y, diameter}, dirty);
    GrowDirtyRect(dirty[0], dirty[1], dirty[2], dirty[3]);
}
