#include "engine/MoveEffectFilter.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "bridge/PlatformBridge.h"
#include "engine/PathTask.h"
#include "guide/PortableMath.h"

namespace {

constexpr int32_t kMaxDimension = std::numeric_limits<int32_t>::max();

// A pixel counts as inked when its depth is above half.
constexpr int kInkThreshold = 128;
// The ink map is made when the walks step over at least this share of the page's pixels. Making it
// costs about a nanosecond a pixel on one thread; a step that reads the map instead of the bitmap saves
// some 50-100 ns when the bitmap's row has left the cache, which close paths make the rule.
constexpr double kInkMapShare = 1.0 / 32;

// Rows per chunk when a page-wide loop is split over the pool: a few hundred kilobytes of
// destination each, enough to keep every core busy without waiting long on the slowest chunk.
constexpr int64_t kRowsPerChunk = 32;

// A buffer from this size on is far larger than a processor's last cache: little of what is written to
// it is still there when it is read again (the coverage by the strokes, the destination by the host).
// It is stored past the caches where the processor can. An ordinary store first reads the line it
// lands in from memory, as much traffic again as the writing itself.
constexpr std::size_t kStreamBytes = std::size_t{16} << 20;

// Zeroes `bytes` from `out`, past the caches when `stream` and the processor has such stores.
void ClearBytes(uint8_t* out, std::size_t bytes, [[maybe_unused]] bool stream) {
    std::size_t i = 0;
#if defined(__SSE2__)
    if (stream) {
        for (; i < bytes && (reinterpret_cast<std::uintptr_t>(out + i) & 15) != 0; ++i)
            out[i] = 0;
        const __m128i zero = _mm_setzero_si128();
        for (; i + 64 <= bytes; i += 64) {
            auto* o = reinterpret_cast<__m128i*>(out + i);
            _mm_stream_si128(o, zero);
            _mm_stream_si128(o + 1, zero);
            _mm_stream_si128(o + 2, zero);
            _mm_stream_si128(o + 3, zero);
        }
        _mm_sfence();
    }
#endif
    std::memset(out + i, 0, bytes - i);
}

// Samples per pixel of each colour model, alpha included.
int SamplesPerPixel(int colorModel) {
    switch (colorModel) {
        case 0:
            return 4;  // R, G, B, A
        case 1:
            return 2;  // grey, A
        case 2:
            return 5;  // C, M, Y, K, A
        default:
            return 1;  // A
    }
}

// Truncation toward zero that is defined for every double: NaN counts as 0 and the result is
// limited to a range where depth arithmetic cannot overflow (float samples may hold anything).
int TruncateSafely(double value) {
    if (std::isnan(value)) return 0;
    constexpr double kLimit = 1 << 24;
    return static_cast<int>(std::clamp(value, -kLimit, kLimit));
}

// Atomic min/max on one edge of the dirty rectangle; cheap when the edge does not move.
void LowerTo(std::atomic<int32_t>& edge, int32_t value) {
    int32_t current = edge.load(std::memory_order_relaxed);
    while (value < current && !edge.compare_exchange_weak(current, value, std::memory_order_relaxed)) {
    }
}

void RaiseTo(std::atomic<int32_t>& edge, int32_t value) {
    int32_t current = edge.load(std::memory_order_relaxed);
    while (value > current && !edge.compare_exchange_weak(current, value, std::memory_order_relaxed)) {
    }
}

// Float samples are written byte-wise: host rows carry no alignment promise.
template <typename T>
void StoreSample(unsigned char* at, T value) {
    std::memcpy(at, &value, sizeof value);
}

}  // namespace

MoveEffectFilter::MoveEffectFilter(const MoveEffectParam& param) : MoveEffectFilter(param, 0) {}

MoveEffectFilter::MoveEffectFilter(const MoveEffectParam& param, unsigned workerCount)
    : m_param(param), m_pool(workerCount == 0 ? std::thread::hardware_concurrency() : workerCount) {
    // A fraction above 1 would taper beyond the whole line.
    if (!m_param.asdist) {
        if (m_param.in > 1.0) m_param.in = 1.0;
        if (m_param.out > 1.0) m_param.out = 1.0;
    }
}

// The pool is declared last, so it is joined before the coverage and targets its tasks use go away.
MoveEffectFilter::~MoveEffectFilter() = default;

void MoveEffectFilter::FreeCoverage::operator()(uint8_t* buffer) const {
    if (spare != nullptr) {
        spare->Keep(buffer, bytes);
    } else {
        ST_FreePages(buffer, bytes);
    }
}

void MoveEffectFilter::FreeInkBits::operator()(uint64_t* bits) const {
    ST_FreePages(bits, bytes);
}

// --- The spare coverage buffer --------------------------------------------------------------------

void SpareCoverage::Release() {
    ST_FreePages(m_buffer, m_bytes);
    m_buffer = nullptr;
    m_bytes = 0;
}

uint8_t* SpareCoverage::Take(std::size_t bytes) {
    if (m_buffer == nullptr || m_bytes != bytes) {
        // Another size: the page changed. Holding both would only add to the peak.
        Release();
        return nullptr;
    }
    uint8_t* buffer = m_buffer;
    m_buffer = nullptr;
    m_bytes = 0;
    return buffer;
}

void SpareCoverage::Keep(uint8_t* buffer, std::size_t bytes) {
    Release();
    m_buffer = buffer;
    m_bytes = bytes;
}

// --- Parameters and targets -----------------------------------------------------------------------

void MoveEffectFilter::SetTarget(const PointTarget& target) {
    switch (m_param.type) {
        case 1:
            SetTarget(ParallelTarget{target.x1, target.y1, target.x2, target.y2, target.x3, target.y3});
            break;
        case 2: {
            CircleTarget circle{};
            CreateCircleParam(&target, &circle);
            SetTarget(circle);
            break;
        }
        default:
            SetTarget(RadiateTarget{target.x1, target.y1, target.x2, target.y2, target.x3, target.y3});
            break;
    }
}

void MoveEffectFilter::SetTarget(const CircleTarget& target) {
    m_circleTarget = std::make_unique<CircleTarget>(target);
}

void MoveEffectFilter::SetTarget(const ParallelTarget& target) {
    m_parallelTarget = std::make_unique<ParallelTarget>(target);
}

void MoveEffectFilter::SetTarget(const RadiateTarget& target) {
    m_radiateTarget = std::make_unique<RadiateTarget>(target);
}

CircleTarget* MoveEffectFilter::CreateCircleParam(const PointTarget* points, CircleTarget* circle) {
    if (points == nullptr || circle == nullptr) return circle;
    const PointTarget& p = *points;
    // 64-bit sums: the midpoint of two int32 always fits, their sum may not.
    circle->cx = static_cast<int32_t>((static_cast<int64_t>(p.x1) + p.x2) / 2);
    circle->cy = static_cast<int32_t>((static_cast<int64_t>(p.y1) + p.y2) / 2);
    const double cx = circle->cx;
    const double cy = circle->cy;
    circle->radiusX = portable::Hypot(p.x1 - cx, p.y1 - cy);
    circle->angle = portable::Atan2(static_cast<double>(p.y2) - p.y1, static_cast<double>(p.x2) - p.x1);

    const double px = p.x3 - cx;
    const double py = p.y3 - cy;
    const auto [s, c] = portable::SinCos(circle->angle);
    const double along = c * px + s * py;
    const double across = c * py - s * px;
    // The ellipse through p3 exists only while p3 lies between the ends of the major axis; at or
    // beyond them (or with no axis at all) the ring falls back to a circle.
    const double rx2 = circle->radiusX * circle->radiusX;
    const double k = rx2 > 0 ? 1.0 - along * along / rx2 : 0.0;
    circle->radiusY = k > 0 ? std::sqrt(across * across / k) : circle->radiusX;
    circle->startAngle = portable::Atan2(py, px);
    return circle;
}

uint16_t MoveEffectFilter::Float32To16(float value) {
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    const uint16_t sign = static_cast<uint16_t>((bits >> 16) & 0x8000u);
    const uint32_t exponent = (bits >> 23) & 0xFFu;
    const uint32_t fraction = bits & 0x7FFFFFu;
    if (exponent >= 143) return sign | 0x7C00u;  // 65536 and up, infinities and NaN
    if (exponent < 113) return sign;             // below the smallest normal half: flushed
    return static_cast<uint16_t>(sign | ((exponent - 112) << 10) | (fraction >> 13));
}

float MoveEffectFilter::Float16To32(uint16_t half) {
    const uint32_t sign = static_cast<uint32_t>(half & 0x8000u) << 16;
    const uint32_t exponent = (half >> 10) & 0x1Fu;
    uint32_t fraction = half & 0x3FFu;
    uint32_t bits;
    if (exponent == 31) {
        bits = sign | (255u << 23) | (fraction << 13);
    } else if (exponent != 0) {
        bits = sign | ((exponent + 112) << 23) | (fraction << 13);
    } else if (fraction == 0) {
        bits = sign;
    } else {
        // Half denormal: normalise by shifting the leading one out. This lands one exponent below the
        // exact value (M * 2^-24 becomes M * 2^-25), which host data in this format expects.
        uint32_t e = 112;
        bool leading;
        do {
            --e;
            leading = (fraction & 0x200u) != 0;
            fraction <<= 1;
        } while (!leading);
        bits = sign | (e << 23) | ((fraction & 0x3FEu) << 13);
    }
    float result;
    std::memcpy(&result, &bits, sizeof result);
    return result;
}

// --- Set-up ---------------------------------------------------------------------------------------

void MoveEffectFilter::SetProgressCallback(ProgressCallback callback, void* user) {
    m_progressCallback = callback;
    m_progressUser = user;
}

int MoveEffectFilter::SampleBytes(int sampleFormat) {
    switch (sampleFormat) {
        case 1:
        case 2:
            return 2;
        case 3:
            return 4;
        default:
            return 1;
    }
}

void MoveEffectFilter::SetBaseImage(const MoveEffectImageParam* image) {
    if (image == nullptr || image->pixels == nullptr) return;
    // Sizes beyond int32 cannot be addressed by the coverage maths; such an image is not drawn on.
    if (image->width > static_cast<uint32_t>(kMaxDimension) ||
        image->height > static_cast<uint32_t>(kMaxDimension) ||
        image->rowBytes > static_cast<uint32_t>(kMaxDimension)) {
        return;
    }
    const int samples = SamplesPerPixel(image->colorModel);
    int pixelBytes = samples;
    if (image->sampleFormat == 1 || image->sampleFormat == 2) pixelBytes <<= 1;
    if (image->sampleFormat == 3) pixelBytes <<= 2;
    // Rows shorter than their pixels would send the last row's reads past the end of the bitmap.
    if (static_cast<uint64_t>(image->rowBytes) < static_cast<uint64_t>(image->width) * pixelBytes &&
        image->height > 0) {
        return;
    }
    const std::size_t coverageWidth = std::max<std::size_t>(image->width, 1);
    const std::size_t coverageRows = std::max<uint32_t>(image->height, 1);
    if (coverageRows > std::numeric_limits<std::size_t>::max() / coverageWidth) return;
    const std::size_t coverageBytes = coverageWidth * coverageRows;
    // A new block comes zeroed from the system, and its pages are first touched by the strokes and the
    // compositing, on every worker. A spare holds whatever its last filter stamped: it is cleared by
    // rows on the pool, not on this thread alone.
    uint8_t* buffer = m_spare != nullptr ? m_spare->Take(coverageBytes) : nullptr;
    const bool reused = buffer != nullptr;
    if (!reused) buffer = static_cast<uint8_t*>(ST_AllocatePages(coverageBytes));
    if (buffer == nullptr) return;  // too large to cover: leave the filter as it was
    CoverageBuffer coverage(buffer, FreeCoverage{m_spare, coverageBytes});
    if (reused) {
        m_pool.ForEachChunk(static_cast<int64_t>(coverageRows), kRowsPerChunk * 4,
                            [&](int64_t begin, int64_t end) {
                                ClearBytes(coverage.get() + begin * coverageWidth,
                                           static_cast<std::size_t>(end - begin) * coverageWidth,
                                           coverageBytes >= kStreamBytes);
                            });
    }

    m_colorModel = image->colorModel;
    m_sampleFormat = image->sampleFormat;
    const int count =
        image->channelOffsets == nullptr ? 0 : std::clamp<int>(image->channelCount, 0, kMaxChannels);
    for (int i = 0; i < count; ++i) {
        // An offset outside the pixel would read into the neighbour or past the bitmap's end.
        m_channelOffsets[i] = static_cast<uint8_t>(std::min<int>(image->channelOffsets[i], samples - 1));
    }
    m_pixels = static_cast<const unsigned char*>(image->pixels);
    m_width = static_cast<int32_t>(image->width);
    m_height = static_cast<int32_t>(image->height);
    m_stepsLeft.store(std::max(kMinRenderSteps, kStepsPerPixel * m_width * m_height));
    m_rowBytes = static_cast<int32_t>(image->rowBytes);
    m_pixelBytes = pixelBytes;
    m_invertGray = image->invertGray;

    m_coverage = std::move(coverage);

    m_maskFormat = image->maskFormat;
    m_maskRowBytes = static_cast<int32_t>(std::min<uint32_t>(image->maskRowBytes, kMaxDimension));
    m_mask = static_cast<const unsigned char*>(image->mask);
    // A mask whose rows are shorter than the image's cannot be read safely; draw as if unmasked.
    if (static_cast<uint64_t>(m_maskRowBytes) < static_cast<uint64_t>(m_width) * SampleBytes(m_maskFormat)) {
        m_mask = nullptr;
    }

    m_inkBits.reset();  // a map of the image before
    m_dirtyLeft.store(m_width);
    m_dirtyTop.store(m_height);
    m_dirtyRight.store(0);
    m_dirtyBottom.store(0);
}

// --- Running --------------------------------------------------------------------------------------

void MoveEffectFilter::ApplyEffect(bool /*singleThread*/) {
    if (m_pixels == nullptr) return;
    CreatePathTasks();
    m_pool.SetProgressCallback(&MoveEffectFilter::OnProgress, this);
    m_pool.Run();
}

void MoveEffectFilter::CreatePathTasks() {
    if (m_pixels == nullptr) return;
    m_walkEstimate = 0;
    m_stepsLeft.store(std::max(kMinRenderSteps, kStepsPerPixel * m_width * m_height));  // each pass anew
    switch (m_param.type) {
        case 1:
            CreateParallelPathTasks();
            break;
        case 2:
            CreateCirclePathTasks();
            break;
        default:
            CreateRadiatePathTasks();
            break;
    }
    if (m_walkEstimate >= kInkMapShare * static_cast<double>(m_width) * m_height) BuildInkMap();
}

void MoveEffectFilter::EnqueuePath(std::shared_ptr<PathTask> task) {
    m_walkEstimate += task->EstimateWalk();
    m_pool.Enqueue(std::move(task));
}

// Runs on the thread that runs the pool (the caller's), once per finished task.
int MoveEffectFilter::OnProgress(int total, int done, void* self) {
    auto* filter = static_cast<MoveEffectFilter*>(self);
    if (filter == nullptr) return 1;
    if (filter->m_cancelled.load()) return 0;
    const bool goOn = filter->m_progressCallback == nullptr ||
                      filter->m_progressCallback(total, done, filter->m_progressUser) != 0;
    filter->m_cancelled.exchange(!goOn);
    return goOn ? 1 : 0;
}

// --- Image access ---------------------------------------------------------------------------------

float MoveEffectFilter::GetChannelAsFloat(const unsigned char* pixel, int channel, int sampleFormat) {
    if (pixel == nullptr || channel < 0) return 0.0f;
    switch (sampleFormat) {
        case 0:
            return pixel[channel] / 255.0f;
        case 1: {
            uint16_t v;
            std::memcpy(&v, pixel + channel * 2, sizeof v);
            return v / 65535.0f;
        }
        case 2: {
            uint16_t v;
            std::memcpy(&v, pixel + channel * 2, sizeof v);
            return Float16To32(v);
        }
        case 3: {
            float v;
            std::memcpy(&v, pixel + channel * 4, sizeof v);
            return v;
        }
        default:
            return 0.0f;
    }
}

namespace {

// The pixel a point falls in, both coordinates truncated toward zero; false when out of int range (or
// NaN), which is outside any image. The comparisons are false for NaN.
bool PixelOf(const PathPoint& point, int& x, int& y) {
    constexpr double kLimit = 2147483647.0;
    if (!(point.x > -kLimit && point.x < kLimit && point.y > -kLimit && point.y < kLimit)) return false;
    x = static_cast<int>(point.x);
    y = static_cast<int>(point.y);
    return true;
}

}  // namespace

int MoveEffectFilter::GetPixelDepth(const PathPoint& point) const {
    int x;
    int y;
    return PixelOf(point, x, y) ? GetPixelDepth(x, y) : -1;
}

// Worker threads. Ink is darkness times opacity: a dark opaque pixel is deep, white or transparent
// is not.
int MoveEffectFilter::GetPixelDepth(int x, int y) const {
    if (m_pixels == nullptr || x < 0 || y < 0 || x >= m_width || y >= m_height) return -1;
    const unsigned char* pixel = m_pixels + static_cast<std::size_t>(x) * m_pixelBytes +
                                 static_cast<std::size_t>(y) * static_cast<std::size_t>(m_rowBytes);
    return m_sampleFormat == 0 ? GetPixelDepth8(pixel, x, y) : GetPixelDepthWide(pixel, x, y);
}

namespace {

// Depth from opacity a and darkness d: opaque pixels give their darkness, others are weakened.
int CombineDepth(int a, int d) {
    if (a > 254) return std::clamp(d, 0, 255);
    if (d == 0 || a < 1) return 0;
    return std::clamp((a * d) >> 8, 0, 255);
}

}  // namespace

namespace {

// The depth of an 8-bit pixel of colour model `Model` (0 RGB+A, 1 grey+A, 2 CMYK+A, else alpha only),
// with the selection's byte when there is one. One definition for single pixels and whole rows.
template <int Model>
int Depth8(const unsigned char* pixel, const uint8_t* off, bool invertGray, const unsigned char* mask) {
    int lum;
    int a;
    if constexpr (Model == 0) {
        lum = (pixel[off[0]] * 77 + pixel[off[1]] * 150 + pixel[off[2]] * 29) >> 8;
        a = pixel[off[3]];
    } else if constexpr (Model == 1) {
        lum = invertGray ? 255 - pixel[off[0]] : pixel[off[0]];
        a = pixel[off[1]];
    } else if constexpr (Model == 2) {
        const int k = 255 - pixel[off[3]];
        const int r = (255 - pixel[off[0]]) * k / 255;
        const int g = (255 - pixel[off[1]]) * k / 255;
        const int b = (255 - pixel[off[2]]) * k / 255;
        lum = (r * 77 + g * 150 + b * 29) >> 8;
        a = pixel[off[4]];
    } else {
        lum = 255;
        a = pixel[0];
    }
    if (mask != nullptr) a = (*mask * a + 127) / 255;
    return CombineDepth(a, 255 - lum);
}

// 64 flags of 0 or 1 as the bits of a word, flag i as bit i. Eight at a time where bytes are stored
// little end first: one multiplication gathers the low bit of each byte into the top byte.
uint64_t PackFlags(const uint8_t (&flags)[64]) {
    uint64_t word = 0;
    if constexpr (std::endian::native == std::endian::little) {
        for (int j = 0; j < 8; ++j) {
            uint64_t eight;
            std::memcpy(&eight, flags + 8 * j, sizeof eight);
            word |= ((eight * 0x0102040810204080u) >> 56) << (8 * j);
        }
    } else {
        for (int i = 0; i < 64; ++i)
            word |= static_cast<uint64_t>(flags[i]) << i;
    }
    return word;
}

// CombineDepth(alpha, dark) > kInkThreshold in a form that runs on vectors: an opaque pixel is inked
// when its darkness is above the threshold, any other when alpha times darkness reaches the threshold's
// next step times 256 (CombineDepth's shift), which a transparent or white pixel never does. Sixteen
// bits hold every product (at most 255 x 255), so the vectors take eight pixels or more.
uint8_t InkedFlag(uint16_t alpha, uint16_t dark) {
    constexpr int kProduct = (kInkThreshold + 1) << 8;
    const uint16_t product = static_cast<uint16_t>(alpha * dark);
    return alpha == 255 ? dark > kInkThreshold : product >= kProduct;
}

// A row's ink bits: inkedAt(x), 0 or 1, for every x, gathered 64 flags to a word. The flags are worked
// out into a small array first, so that loop runs on vectors where inkedAt allows.
template <class InkedAt>
void PackInkRow(int32_t width, uint64_t* words, InkedAt inkedAt) {
    uint8_t inked[64];
    for (int32_t x0 = 0; x0 < width; x0 += 64) {
        const int32_t count = std::min<int32_t>(64, width - x0);
        for (int32_t i = 0; i < count; ++i)
            inked[i] = inkedAt(static_cast<std::ptrdiff_t>(x0) + i);
        std::fill(inked + count, inked + 64, uint8_t{0});
        words[x0 / 64] = PackFlags(inked);
    }
}

// One row of an 8-bit image as ink bits; `mask` is the selection's row or null.
template <int Model>
void InkRow8(const unsigned char* pixel, int32_t pixelBytes, const uint8_t* off, bool invertGray,
             const unsigned char* mask, int32_t width, uint64_t* words) {
    PackInkRow(width, words, [&](std::ptrdiff_t x) {
        return Depth8<Model>(pixel + x * pixelBytes, off, invertGray, mask == nullptr ? nullptr : mask + x) >
               kInkThreshold;
    });
}

// Grey and alpha in two bytes, unmasked, grey first or second: what most layers come as. The rule of
// Depth8<1>, with InkedFlag.
template <int GreyAt>
void InkRowGrey(const unsigned char* pixel, bool invertGray, int32_t width, uint64_t* words) {
    constexpr int kAlphaAt = 1 - GreyAt;
    PackInkRow(width, words, [&](std::ptrdiff_t x) {
        const uint16_t grey = pixel[2 * x + GreyAt];
        return InkedFlag(pixel[2 * x + kAlphaAt], invertGray ? grey : static_cast<uint16_t>(255 - grey));
    });
}

// Colour and alpha in four bytes, unmasked, in any channel order: the other usual layout. The rule of
// Depth8<0>, with InkedFlag; sixteen bits hold the weighted sum of the channels too.
void InkRowColour(const unsigned char* pixel, const uint8_t* off, int32_t width, uint64_t* words) {
    const unsigned char* red = pixel + off[0];
    const unsigned char* green = pixel + off[1];
    const unsigned char* blue = pixel + off[2];
    const unsigned char* opacity = pixel + off[3];
    PackInkRow(width, words, [&](std::ptrdiff_t x) {
        const uint16_t lum =
            static_cast<uint16_t>(red[4 * x] * 77 + green[4 * x] * 150 + blue[4 * x] * 29) >> 8;
        return InkedFlag(opacity[4 * x], static_cast<uint16_t>(255 - lum));
    });
}

}  // namespace

int MoveEffectFilter::GetPixelDepth8(const unsigned char* pixel, int x, int y) const {
    const unsigned char* mask =
        m_mask == nullptr ? nullptr : m_mask + static_cast<std::size_t>(y) * m_maskRowBytes + x;
    switch (m_colorModel) {
        case 0:
            return Depth8<0>(pixel, m_channelOffsets, m_invertGray, mask);
        case 1:
            return Depth8<1>(pixel, m_channelOffsets, m_invertGray, mask);
        case 2:
            return Depth8<2>(pixel, m_channelOffsets, m_invertGray, mask);
        default:
            return Depth8<3>(pixel, m_channelOffsets, m_invertGray, mask);
    }
}

bool MoveEffectFilter::IsInked(const PathPoint& point) const {
    if (m_inkBits == nullptr) return GetPixelDepth(point) > kInkThreshold;
    int x;
    int y;
    if (!PixelOf(point, x, y) || x < 0 || y < 0 || x >= m_width || y >= m_height) return false;
    return (m_inkBits[static_cast<std::size_t>(y) * m_inkWordsPerRow + (x >> 6)] >> (x & 63)) & 1u;
}

void MoveEffectFilter::BuildInkMap() {
    m_inkBits.reset();
    if (m_pixels == nullptr) return;
    const std::size_t words = (static_cast<std::size_t>(m_width) + 63) / 64;
    const std::size_t bytes = words * sizeof(uint64_t) * static_cast<std::size_t>(m_height);
    // Without the map every answer comes from the bitmap, as it would anyway.
    std::unique_ptr<uint64_t[], FreeInkBits> bits(static_cast<uint64_t*>(ST_AllocatePages(bytes)),
                                                  FreeInkBits{bytes});
    if (bits == nullptr) return;
    m_pool.ForEachChunk(m_height, kRowsPerChunk, [&](int64_t begin, int64_t end) {
        for (int64_t y = begin; y < end; ++y) {
            uint64_t* row = bits.get() + static_cast<std::size_t>(y) * words;
            if (m_sampleFormat != 0) {
                std::fill(row, row + words, uint64_t{0});
                for (int x = 0; x < m_width; ++x) {
                    if (GetPixelDepth(x, static_cast<int>(y)) > kInkThreshold)
                        row[x >> 6] |= uint64_t{1} << (x & 63);
                }
                continue;
            }
            const unsigned char* pixel =
                m_pixels + static_cast<std::size_t>(y) * static_cast<std::size_t>(m_rowBytes);
            const unsigned char* mask =
                m_mask == nullptr ? nullptr : m_mask + static_cast<std::size_t>(y) * m_maskRowBytes;
            switch (m_colorModel) {
                case 0:
                    if (mask == nullptr && m_pixelBytes == 4) {
                        InkRowColour(pixel, m_channelOffsets, m_width, row);
                        break;
                    }
                    InkRow8<0>(pixel, m_pixelBytes, m_channelOffsets, m_invertGray, mask, m_width, row);
                    break;
                case 1:
                    if (mask == nullptr && m_pixelBytes == 2 && m_channelOffsets[0] != m_channelOffsets[1]) {
                        if (m_channelOffsets[0] == 0) {
                            InkRowGrey<0>(pixel, m_invertGray, m_width, row);
                        } else {
                            InkRowGrey<1>(pixel, m_invertGray, m_width, row);
                        }
                        break;
                    }
                    InkRow8<1>(pixel, m_pixelBytes, m_channelOffsets, m_invertGray, mask, m_width, row);
                    break;
                case 2:
                    InkRow8<2>(pixel, m_pixelBytes, m_channelOffsets, m_invertGray, mask, m_width, row);
                    break;
                default:
                    InkRow8<3>(pixel, m_pixelBytes, m_channelOffsets, m_invertGray, mask, m_width, row);
                    break;
            }
        }
    });
    m_inkWordsPerRow = words;
    m_inkBits = std::move(bits);
}

int MoveEffectFilter::GetPixelDepthWide(const unsigned char* pixel, int x, int y) const {
    const uint8_t* off = m_channelOffsets;
    const int f = m_sampleFormat;
    auto channel = [&](int index) -> double { return GetChannelAsFloat(pixel, index, f); };
    double lum;
    double alpha;
    switch (m_colorModel) {
        case 0:
            lum = 0.299 * channel(off[0]) + 0.587 * channel(off[1]) + 0.114 * channel(off[2]);
            alpha = channel(off[3]);
            break;
        case 1:
            lum = m_invertGray ? 1.0 - channel(off[0]) : channel(off[0]);
            alpha = channel(off[1]);
            break;
        case 2: {
            const double k = 1.0 - channel(off[3]);
            lum = 0.299 * (1.0 - channel(off[0])) * k + 0.587 * (1.0 - channel(off[1])) * k +
                  0.114 * (1.0 - channel(off[2])) * k;
            alpha = channel(off[4]);
            break;
        }
        default:
            lum = 1.0;
            alpha = channel(0);
            break;
    }
    if (m_mask != nullptr) {
        // The mask sample is addressed by byte column, not sample column, and the result is scaled
        // by 255 once more below: nearly every masked pixel counts as opaque. Host output relies on
        // this, so it stays.
        const unsigned char* m = m_mask + static_cast<std::size_t>(y) * m_maskRowBytes + x;
        alpha = alpha * 255.0 * GetChannelAsFloat(m, 0, m_maskFormat) + 0.5;
    }
    return CombineDepth(TruncateSafely(alpha * 255.0), TruncateSafely((1.0 - lum) * 255.0));
}

// --- Compositing ----------------------------------------------------------------------------------

namespace {

// An 8-bit pixel: the colour samples, then the coverage as alpha. One instance per layout, so the
// sample count is known and the loop unrolls.
template <int kSamples>
void WriteRow8(const uint8_t* cover, int count, const unsigned char* color, unsigned char* out) {
    for (int x = 0; x < count; ++x, out += kSamples) {
        for (int s = 0; s < kSamples - 1; ++s)
            out[s] = color[s];
        out[kSamples - 1] = cover[x];
    }
}

// The same for pixels of two and four bytes, each made as one word (the colour bytes, then the
// coverage, in memory order): the loop then vectorises into whole stores and writes a page of RGBA
// about four times as fast as byte by byte.
template <class Word>
void WriteRow8Words(const uint8_t* cover, int count, const unsigned char* color, unsigned char* out) {
    constexpr int kBytes = sizeof(Word);
    constexpr int kAlphaShift = std::endian::native == std::endian::little ? 8 * (kBytes - 1) : 0;
    unsigned char bytes[kBytes] = {};
    std::memcpy(bytes, color, kBytes - 1);
    Word base;
    std::memcpy(&base, bytes, kBytes);
    for (int x = 0; x < count; ++x) {
        const Word pixel = static_cast<Word>(base | static_cast<Word>(cover[x]) << kAlphaShift);
        std::memcpy(out + static_cast<std::size_t>(x) * kBytes, &pixel, kBytes);
    }
}

// Four-byte 8-bit pixels stored past the caches (see kStreamBytes), 16 at a time where the processor has
// such stores: the same words as WriteRow8Words.
void StreamRow8Words(const uint8_t* cover, int count, const unsigned char* color, unsigned char* out) {
    int x = 0;
#if defined(__SSE2__)
    // These stores need 16-byte aligned addresses; a row whose pixels never reach one is written whole
    // below.
    while (x < count && (reinterpret_cast<std::uintptr_t>(out + 4 * x) & 15) != 0)
        ++x;
    WriteRow8Words<uint32_t>(cover, x, color, out);
    uint32_t base = 0;
    std::memcpy(&base, color, 3);
    const __m128i colour = _mm_set1_epi32(static_cast<int>(base));
    const __m128i zero = _mm_setzero_si128();
    for (; x + 16 <= count; x += 16) {
        // The coverage bytes go to the top byte of each 32-bit lane: alpha, after the colour.
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(cover + x));
        const __m128i low = _mm_unpacklo_epi8(zero, c);
        const __m128i high = _mm_unpackhi_epi8(zero, c);
        auto* o = reinterpret_cast<__m128i*>(out + 4 * static_cast<std::size_t>(x));
        _mm_stream_si128(o, _mm_or_si128(colour, _mm_unpacklo_epi16(zero, low)));
        _mm_stream_si128(o + 1, _mm_or_si128(colour, _mm_unpackhi_epi16(zero, low)));
        _mm_stream_si128(o + 2, _mm_or_si128(colour, _mm_unpacklo_epi16(zero, high)));
        _mm_stream_si128(o + 3, _mm_or_si128(colour, _mm_unpackhi_epi16(zero, high)));
    }
    // Such stores are ordered with no other: fence them before the row is handed on.
    _mm_sfence();
#endif
    WriteRow8Words<uint32_t>(cover + x, count - x, color, out + 4 * static_cast<std::size_t>(x));
}

// Wider samples: every pixel a coverage value can give is made once into a table, so the row loop is
// a copy of a fixed size per pixel.
template <int kPixelBytes>
void WriteRowFromTable(const uint8_t* cover, int count, const unsigned char* table, unsigned char* out) {
    for (int x = 0; x < count; ++x, out += kPixelBytes)
        std::memcpy(out, table + cover[x] * kPixelBytes, kPixelBytes);
}

using RowWriter = void (*)(const uint8_t* cover, int count, const unsigned char* pixels, unsigned char* out);

RowWriter RowWriterFor(int format, int pixelBytes, bool stream) {
    if (format == 0) {
        switch (pixelBytes) {
            case 1:
                return WriteRow8<1>;
            case 2:
                return WriteRow8Words<uint16_t>;
            case 4:
                return stream ? StreamRow8Words : WriteRow8Words<uint32_t>;
            default:
                return WriteRow8<5>;
        }
    }
    switch (pixelBytes) {
        case 2:
            return WriteRowFromTable<2>;
        case 4:
            return WriteRowFromTable<4>;
        case 8:
            return WriteRowFromTable<8>;
        case 10:
            return WriteRowFromTable<10>;
        case 16:
            return WriteRowFromTable<16>;
        default:
            return WriteRowFromTable<20>;
    }
}

}  // namespace

void MoveEffectFilter::DrawToCanvas(int layout, int format, unsigned char* color, unsigned char* dest,
                                    int destRowBytes) {
    if (dest == nullptr || destRowBytes < 0) return;
    const std::size_t rowBytes = static_cast<std::size_t>(destRowBytes);
    const bool stream = rowBytes * static_cast<std::size_t>(m_height) >= kStreamBytes;
    m_pool.ForEachChunk(m_height, kRowsPerChunk, [&](int64_t begin, int64_t end) {
        DrawRows(layout, format, color, dest + static_cast<std::size_t>(begin) * rowBytes, destRowBytes,
                 static_cast<int>(begin), static_cast<int>(end - begin), stream);
    });
}

// A writer's bands are reused and read back at once, so they stay in the caches.
void MoveEffectFilter::DrawRowsToCanvas(int layout, int format, unsigned char* color, unsigned char* dest,
                                        int destRowBytes, int top, int rows) {
    DrawRows(layout, format, color, dest, destRowBytes, top, rows, false);
}

void MoveEffectFilter::DrawRows(int layout, int format, unsigned char* color, unsigned char* dest,
                                int destRowBytes, int top, int rows, bool stream) {
    top = std::clamp(top, 0, m_height);
    rows = std::clamp(rows, 0, m_height - top);
    if (dest == nullptr || destRowBytes < 0 || rows == 0) return;
    const std::size_t rowBytes = static_cast<std::size_t>(destRowBytes);

    int samples;
    int colorSamples;
    switch (layout) {
        case 0:
            samples = 4, colorSamples = 3;
            break;
        case 2:
            samples = 5, colorSamples = 4;
            break;
        case 3:
            samples = 1, colorSamples = 0;
            break;
        default:
            samples = 2, colorSamples = 1;
            break;
    }
    const int sampleBytes = SampleBytes(format);
    const int pixelBytes = samples * sampleBytes;
    // Rows too short for the image's width would make the pixels spill into the next row and past
    // the end of the bitmap: such a destination, an unknown format and a missing coverage are only
    // cleared.
    if (format < 0 || format > 3 || m_coverage == nullptr ||
        static_cast<int64_t>(destRowBytes) < static_cast<int64_t>(m_width) * pixelBytes) {
        std::memset(dest, 0, static_cast<std::size_t>(rows) * rowBytes);
        return;
    }

    // What a pixel of coverage c becomes: colour samples, then alpha in the destination's format.
    const std::size_t colorBytes = static_cast<std::size_t>(colorSamples) * sampleBytes;
    unsigned char pixel[256 * 20] = {};
    for (int c = 0; c < 256; ++c) {
        unsigned char* out = pixel + c * pixelBytes;
        if (color != nullptr) std::memcpy(out, color, colorBytes);  // a null colour counts as black
        unsigned char* alpha = out + colorBytes;
        switch (format) {
            case 0:
                *alpha = static_cast<unsigned char>(c);
                break;
            // 255 * 255: full coverage is 65025, not 65535, as the host has always received it.
            case 1:
                StoreSample<uint16_t>(alpha, static_cast<uint16_t>(c * 255));
                break;
            case 2:
                StoreSample<uint16_t>(alpha, Float32To16(c / 255.0f));
                break;
            case 3:
                StoreSample<float>(alpha, c / 255.0f);
                break;
        }
    }
    // 8-bit rows read only the colour samples of the first entry and take the coverage as it is.
    const RowWriter writeRow = RowWriterFor(format, pixelBytes, stream);

    const DirtyRect dirty = GetDirtyRect();
    const int left = std::max(dirty.left, 0);
    const int dirtyTop = std::max(dirty.top, 0);
    const int right = std::min(dirty.right, m_width);
    const int dirtyBottom = std::min(dirty.bottom, m_height);
    const std::size_t leftBytes = static_cast<std::size_t>(left) * pixelBytes;
    const std::size_t rightBytes = static_cast<std::size_t>(right) * pixelBytes;
    // Each destination byte is written once: zero outside the dirty rectangle, pixels inside.
    for (int y = top; y < top + rows; ++y) {
        unsigned char* row = dest + static_cast<std::size_t>(y - top) * rowBytes;
        if (y < dirtyTop || y >= dirtyBottom || left >= right) {
            ClearBytes(row, rowBytes, stream);
            continue;
        }
        ClearBytes(row, leftBytes, stream);
        writeRow(m_coverage.get() + Index(left, y), right - left, pixel, row + leftBytes);
        ClearBytes(row + rightBytes, rowBytes - rightBytes, stream);
    }
}

// --- Coverage stamping ----------------------------------------------------------------------------

// Worker threads. Most stamps land on bytes that already hold as much or more, so a relaxed load
// usually settles it without a write. Relaxed ordering is enough: the bytes are read back only after
// the pass, and the pool's futures order that.
void MoveEffectFilter::StampCoverageByte(uint8_t* cell, uint8_t value) {
    std::atomic_ref<uint8_t> ref(*cell);
    uint8_t current = ref.load(std::memory_order_relaxed);
    while (value > current && !ref.compare_exchange_weak(current, value, std::memory_order_relaxed)) {
    }
}

uint8_t MoveEffectFilter::GetCoverageAt(int x, int y) const {
    // atomic_ref needs a mutable object; the load does not write.
    std::atomic_ref<uint8_t> ref(const_cast<uint8_t&>(m_coverage[Index(x, y)]));
    return ref.load(std::memory_order_relaxed);
}

void MoveEffectFilter::GrowDirtyRect(int left, int top, int right, int bottom) {
    LowerTo(m_dirtyLeft, left);
    LowerTo(m_dirtyTop, top);
    RaiseTo(m_dirtyRight, right);
    RaiseTo(m_dirtyBottom, bottom);
}

MoveEffectFilter::DirtyRect MoveEffectFilter::GetDirtyRect() const {
    return {m_dirtyLeft.load(), m_dirtyTop.load(), m_dirtyRight.load(), m_dirtyBottom.load()};
}
