#include "engine/MoveEffectFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <random>
#include <thread>
#include <tuple>
#include <vector>

namespace {

MoveEffectParam MakeParam(int type = 0) {
    MoveEffectParam param{};
    param.type = type;
    param.size = 4;
    param.hardness = 0.5;
    param.spacing = 100;
    return param;
}

// Bytes per sample of the host's sample formats.
int SampleBytes(int format) {
    return format == 0 ? 1 : format == 3 ? 4 : 2;
}

int SamplesPerPixel(int model) {
    return model == 0 ? 4 : model == 1 ? 2 : model == 2 ? 5 : 1;
}

// Appends one sample, given as 0..1, in the host's layout for `format`.
void PutSample(std::vector<unsigned char>& out, int format, double value) {
    unsigned char bytes[4] = {};
    if (format == 0) {
        bytes[0] = static_cast<unsigned char>(std::lround(value * 255));
    } else if (format == 1) {
        const auto v = static_cast<uint16_t>(std::lround(value * 65535));
        std::memcpy(bytes, &v, 2);
    } else if (format == 2) {
        const uint16_t v = MoveEffectFilter::Float32To16(static_cast<float>(value));
        std::memcpy(bytes, &v, 2);
    } else {
        const auto v = static_cast<float>(value);
        std::memcpy(bytes, &v, 4);
    }
    out.insert(out.end(), bytes, bytes + SampleBytes(format));
}

double ReadSample(const unsigned char* at, int format) {
    if (format == 0) return *at;
    if (format == 3) {
        float single;
        std::memcpy(&single, at, 4);
        return single;
    }
    uint16_t word;
    std::memcpy(&word, at, 2);
    return format == 1 ? word : MoveEffectFilter::Float16To32(word);
}

// A base image whose every pixel holds `samples` (memory order, 0..1), channel offsets in order.
struct TestImage {
    std::vector<uint8_t> offsets;
    std::vector<unsigned char> pixels;
    MoveEffectImageParam param{};

    TestImage(int model, int format, int width, int height, const std::vector<double>& samples) {
        for (int i = 0; i < SamplesPerPixel(model); ++i)
            offsets.push_back(static_cast<uint8_t>(i));
        for (int i = 0; i < width * height; ++i) {
            for (double s : samples)
                PutSample(pixels, format, s);
        }
        param.colorModel = static_cast<uint8_t>(model);
        param.sampleFormat = static_cast<uint8_t>(format);
        param.channelOffsets = offsets.data();
        param.channelCount = static_cast<int8_t>(offsets.size());
        param.width = static_cast<uint32_t>(width);
        param.height = static_cast<uint32_t>(height);
        param.rowBytes = static_cast<uint32_t>(width * SampleBytes(format) * samples.size());
        param.pixels = pixels.empty() ? nullptr : pixels.data();
    }
};

// An image record built by hand, for shapes TestImage cannot make.
MoveEffectImageParam RawImage(int model, uint8_t* offsets, int count, uint32_t width, uint32_t rowBytes,
                              unsigned char* pixels) {
    MoveEffectImageParam image{};
    image.colorModel = static_cast<uint8_t>(model);
    image.channelOffsets = offsets;
    image.channelCount = static_cast<int8_t>(count);
    image.width = width;
    image.height = width == 0 ? 0 : 1;
    image.rowBytes = rowBytes;
    image.pixels = pixels;
    return image;
}

int DepthOf(const MoveEffectImageParam& image, int x = 0, int y = 0) {
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image);
    return filter.GetPixelDepth(x, y);
}

int Depth(int model, int format, const std::vector<double>& samples, bool invertGray = false) {
    TestImage image(model, format, 1, 1, samples);
    image.param.invertGray = invertGray;
    return DepthOf(image.param);
}

constexpr double k128 = 128 / 255.0;

}  // namespace

// --- Half floats ----------------------------------------------------------------------------------

TEST(move_effect_filter_test, half_to_single_at_the_listed_values) {
    // Denormals come out at half their value.
    // clang-format off
    const std::pair<uint16_t, float> cases[] = {
        {0x0001, std::ldexp(1.0f, -25)}, {0x7C00, std::numeric_limits<float>::infinity()}, {0x3C00, 1.0f},
        {0x3800, 0.5f}, {0xC000, -2.0f}, {0x0200, std::ldexp(1.0f, -16)}, {0x8003, -3 * std::ldexp(1.0f, -25)}};
    // clang-format on
    for (auto [half, single] : cases)
        EXPECT_EQ(MoveEffectFilter::Float16To32(half), single) << std::hex << half;
    EXPECT_TRUE(std::signbit(MoveEffectFilter::Float16To32(0x8000)));
    EXPECT_TRUE(std::isnan(MoveEffectFilter::Float16To32(0x7E00)));
}

TEST(move_effect_filter_test, every_normal_half_survives_a_round_trip) {
    for (uint32_t h = 0x0400; h < 0x7C00; ++h) {
        for (uint32_t sign : {0u, 0x8000u}) {
            const auto half = static_cast<uint16_t>(h | sign);
            ASSERT_EQ(MoveEffectFilter::Float32To16(MoveEffectFilter::Float16To32(half)), half)
                << std::hex << half;
        }
    }
}

// --- Channels and pixel depth ---------------------------------------------------------------------

TEST(move_effect_filter_test, depth_is_darkness_times_opacity_in_every_colour_model_and_format) {
    const std::vector<int> all{0, 1, 2, 3};
    const std::vector<int> wide{1, 2, 3};
    const struct {
        int model;
        std::vector<int> formats;
        std::vector<double> samples;
        bool invert;
        int depth;
    } cases[] = {
        // RGB
        {0, all, {0, 0, 0, 1}, false, 255},
        {0, all, {1, 1, 1, 1}, false, 0},
        {0, {0}, {0, 0, 0, k128}, false, 127},
        {0, {0}, {100 / 255.0, 150 / 255.0, 200 / 255.0, 1}, false, 115},  // lum (100*77+150*150+200*29)>>8
        {0, {1, 2}, {0, 0, 0, 0.5}, false, 126},   // 32768/65535*255 = 127.5 -> 127; (127*255)>>8
        {0, {3}, {0.2, 0.4, 0.6, 1}, false, 162},  // lum 0.363, (1 - lum) * 255 = 162.4
        // Grey, plain and inverted
        {1, all, {0, 1}, false, 255},
        {1, all, {0, 1}, true, 0},
        {1, wide, {0.25, 1}, false, 191},
        // CMYK goes through RGB
        {2, all, {0, 0, 0, 1, 1}, false, 255},  // full black
        {2, {0}, {1, 0, 0, 0, 1}, false, 77},   // cyan: lum (150*255 + 29*255) >> 8 = 178
        {2, {0}, {0, 0, 1, 0, 1}, false, 29},   // yellow: lum (77*255 + 150*255) >> 8 = 226
        {2, {0}, {0, 0, 0, 1, 0}, false, 0},    // transparent
        // Alpha-only layers carry no ink
        {3, all, {1}, false, 0},
    };
    for (const auto& c : cases) {
        for (int format : c.formats) {
            EXPECT_EQ(Depth(c.model, format, c.samples, c.invert), c.depth)
                << "model " << c.model << " format " << format << " first sample " << c.samples[0]
                << " invert " << c.invert;
        }
    }
}

TEST(move_effect_filter_test, the_mask_is_read_at_its_own_row_stride) {
    // Rows of three bytes, with a row of zeros before them that a wrong row would land on.
    std::vector<unsigned char> mask{0, 0, 0, 0, 255, 9, 255, 0, 9};
    // 8-bit layers scale alpha by the mask; wider ones keep a legacy formula under which an
    // unselected pixel still has alpha 0.5 / 255, scaled by 255 twice: 127, then (127 * 255) >> 8.
    for (const auto& [format, unselected] : {std::pair{0, 0}, std::pair{1, 126}}) {
        TestImage image(1, format, 2, 2, {0, 1});  // black, opaque
        image.param.mask = mask.data() + 3;
        image.param.maskRowBytes = 3;
        MoveEffectFilter filter(MakeParam());
        filter.SetBaseImage(&image.param);
        EXPECT_EQ(filter.GetPixelDepth(0, 0), unselected) << "format " << format;
        EXPECT_EQ(filter.GetPixelDepth(1, 0), 255) << "format " << format;
        EXPECT_EQ(filter.GetPixelDepth(0, 1), 255) << "format " << format;
        EXPECT_EQ(filter.GetPixelDepth(1, 1), unselected) << "format " << format;
    }
}

// Grey x with alpha y at (x, y): every pair, grey first and second, plain and inverted. Then random
// colour (with and without a selection), CMYK and 16-bit pixels under a random selection, in padded rows.
TEST(move_effect_filter_test, the_ink_map_answers_as_the_depth_does) {
    auto check = [](MoveEffectImageParam image) {
        MoveEffectFilter filter(MakeParam(), 2);
        filter.SetBaseImage(&image);
        filter.BuildInkMap();
        ASSERT_TRUE(filter.HasInkMap());
        for (uint32_t y = 0; y < image.height; ++y) {
            for (uint32_t x = 0; x < image.width; ++x) {
                const PathPoint p{x + 0.7, y + 0.2};
                ASSERT_EQ(filter.IsInked(p), filter.GetPixelDepth(p) > 128)
                    << image.colorModel << " " << x << ", " << y;
            }
        }
        for (const PathPoint p : {PathPoint{-1.5, 3}, PathPoint{3, 1e12}, PathPoint{NAN, 2},
                                  PathPoint{static_cast<double>(image.width), 0}}) {
            EXPECT_FALSE(filter.IsInked(p)) << p.x << ", " << p.y;
        }
    };
    std::vector<unsigned char> grey(256 * 256 * 2);
    for (std::size_t i = 0; i < grey.size(); i += 2) {
        grey[i] = static_cast<unsigned char>(i / 2 % 256);
        grey[i + 1] = static_cast<unsigned char>(i / 512);
    }
    for (const uint8_t greyAt : {0, 1}) {
        for (const bool invert : {false, true}) {
            uint8_t offsets[2] = {greyAt, static_cast<uint8_t>(1 - greyAt)};
            MoveEffectImageParam image = RawImage(1, offsets, 2, 256, 512, grey.data());
            image.height = 256;
            image.invertGray = invert;
            check(image);
            image.width = 193;  // one pixel into a fourth word of bits per row
            check(image);
        }
    }
    std::mt19937 random(11);
    std::vector<unsigned char> pixels(50 * 400);
    std::vector<unsigned char> mask(50 * 80);
    for (unsigned char& byte : pixels)
        byte = static_cast<unsigned char>(random());
    for (unsigned char& byte : mask)
        byte = static_cast<unsigned char>(random() | 0x80);
    uint8_t offsets[5] = {3, 0, 2, 1, 4};
    for (const auto& [model, format, bytes, masked] :
         {std::tuple{0, 0, 4, true}, {0, 0, 4, false}, {2, 0, 5, true}, {1, 1, 4, true}}) {
        MoveEffectImageParam image =
            RawImage(model, offsets, model == 1 ? 2 : 5, 70, 70 * bytes + 3, pixels.data());
        image.sampleFormat = static_cast<uint8_t>(format);
        image.height = 50;
        image.mask = masked ? mask.data() : nullptr;
        image.maskRowBytes = 80;
        check(image);
    }
}

TEST(move_effect_filter_test, the_ellipse_runs_along_p1_p2_and_through_p3) {
    // Axis from (10, 20) to (50, 60): centre (30, 40), a quarter of a half turn; p3 lies across it.
    const PointTarget points{10, 20, 50, 60, 23, 47};
    CircleTarget circle{};
    EXPECT_EQ(MoveEffectFilter::CreateCircleParam(&points, &circle), &circle);
    EXPECT_EQ(std::tuple(circle.cx, circle.cy), std::tuple(30, 40));
    EXPECT_NEAR(circle.radiusX, std::hypot(20, 20), 1e-9);
    EXPECT_NEAR(circle.angle, std::atan(1.0), 1e-12);
    EXPECT_NEAR(circle.radiusY, 7 * std::sqrt(2.0), 1e-9);
    EXPECT_NEAR(circle.startAngle, 3 * std::atan(1.0), 1e-12);
    // A p3 beyond the end of the axis leaves no ellipse: a circle.
    const PointTarget beyond{10, 20, 50, 60, 60, 70};
    MoveEffectFilter::CreateCircleParam(&beyond, &circle);
    EXPECT_EQ(circle.radiusY, circle.radiusX);
}

TEST(move_effect_filter_test, wild_float_samples_give_a_depth_in_range) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (const auto& samples : std::vector<std::vector<double>>{
             {nan, nan, nan, nan}, {-inf, 0, 0, 1}, {0, 0, 0, 1e30}, {5, 5, 5, 0.5}, {-3, 0, 0, 2}}) {
        const int depth = Depth(0, 3, samples);
        EXPECT_TRUE(depth >= 0 && depth <= 255) << depth;
    }
}

// --- Bad input --------------------------------------------------------------------------------------

TEST(move_effect_filter_test, channel_tables_never_lead_outside_the_pixel) {
    // Exactly one pixel on the heap, so a read past it would be caught by the sanitizers.
    auto cmyk = std::make_unique<unsigned char[]>(5);
    const unsigned char black[5] = {0, 0, 0, 255, 255};
    std::memcpy(cmyk.get(), black, 5);
    uint8_t nine[9] = {0, 1, 2, 3, 4, 200, 201, 202, 203};
    EXPECT_EQ(DepthOf(RawImage(2, nine, 9, 1, 5, cmyk.get())), 255);  // more than five: the first five

    auto rgb = std::make_unique<unsigned char[]>(4);
    uint8_t far[4] = {250, 251, 252, 253};
    EXPECT_GE(DepthOf(RawImage(0, far, 4, 1, 4, rgb.get())), 0);
    EXPECT_GE(DepthOf(RawImage(0, nullptr, -3, 1, 4, rgb.get())), 0);
}

TEST(move_effect_filter_test, images_without_pixels_or_whose_rows_or_sizes_do_not_fit_are_ignored) {
    TestImage shortRows(0, 0, 4, 4, {0, 0, 0, 1});
    shortRows.param.rowBytes = 8;
    TestImage noPixels(0, 0, 5, 5, {1, 1, 1, 1});
    noPixels.param.pixels = nullptr;
    unsigned char pixel[4] = {0, 0, 0, 255};
    uint8_t offsets[4] = {0, 1, 2, 3};
    MoveEffectImageParam huge = RawImage(0, offsets, 4, 0x80000000u, 0xFFFFFFFFu, pixel);
    for (const MoveEffectImageParam* image : {&shortRows.param, &noPixels.param, &huge}) {
        TestImage first(0, 0, 2, 2, {0, 0, 0, 1});
        MoveEffectFilter filter(MakeParam());
        filter.SetBaseImage(&first.param);
        filter.SetBaseImage(image);  // ignored: the first image stays
        EXPECT_EQ(filter.GetWidth(), 2);
        EXPECT_EQ(filter.GetPixelDepth(1, 1), 255);
    }
}

// --- Coverage stamping ----------------------------------------------------------------------------

TEST(move_effect_filter_test, concurrent_stamps_keep_the_maximum_of_every_byte) {
    constexpr int kSize = 64;
    constexpr int kThreads = 4;
    TestImage image(0, 0, kSize, kSize, {1, 1, 1, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    // Each thread stamps every byte, in its own order, with its own value; the largest must win.
    auto value = [](int t, int x, int y) { return static_cast<uint8_t>((x * 7 + y * 13 + t * 61) % 256); };
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 8; ++round) {
                for (int i = 0; i < kSize * kSize; ++i) {
                    const int cell = (t % 2 == 0) ? i : kSize * kSize - 1 - i;
                    filter.StampCoverage(cell % kSize, cell / kSize, value(t, cell % kSize, cell / kSize));
                }
                filter.GrowDirtyRect(t * 3, 10 - t, 40 + t, 20 + 5 * t);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (int y = 0; y < kSize; ++y) {
        for (int x = 0; x < kSize; ++x) {
            uint8_t expected = 0;
            for (int t = 0; t < kThreads; ++t)
                expected = std::max(expected, value(t, x, y));
            ASSERT_EQ(filter.GetCoverage()[y * kSize + x], expected) << x << "," << y;
        }
    }
    const MoveEffectFilter::DirtyRect dirty = filter.GetDirtyRect();
    EXPECT_EQ(std::tuple(dirty.left, dirty.top, dirty.right, dirty.bottom), std::tuple(0, 7, 43, 35));
}

TEST(move_effect_filter_test, a_spare_buffer_is_reused_only_at_its_size_and_comes_back_cleared) {
    TestImage image(0, 0, 8, 4, {1, 1, 1, 1});
    SpareCoverage spare;
    const uint8_t* first = nullptr;
    {
        MoveEffectFilter filter(MakeParam());
        filter.SetSpareCoverage(&spare);
        filter.SetBaseImage(&image.param);
        first = filter.GetCoverage();
        filter.StampCoverage(3, 2, 200);
    }
    EXPECT_EQ(spare.GetKeptBytes(), 32u);
    {
        MoveEffectFilter again(MakeParam());
        again.SetSpareCoverage(&spare);
        again.SetBaseImage(&image.param);
        EXPECT_EQ(again.GetCoverage(), first);
        EXPECT_EQ(spare.GetKeptBytes(), 0u);
        EXPECT_EQ(std::vector<uint8_t>(again.GetCoverage(), again.GetCoverage() + 32),
                  std::vector<uint8_t>(32, 0));
        again.StampCoverage(0, 0, 9);
    }
    // Another size is not taken, and the kept buffer is let go rather than held beside the new one.
    TestImage larger(0, 0, 16, 4, {1, 1, 1, 1});
    MoveEffectFilter other(MakeParam());
    other.SetSpareCoverage(&spare);
    other.SetBaseImage(&larger.param);
    EXPECT_EQ(spare.GetKeptBytes(), 0u);
    EXPECT_EQ(std::vector<uint8_t>(other.GetCoverage(), other.GetCoverage() + 64),
              std::vector<uint8_t>(64, 0));

    // A page's buffer, cleared past the caches in chunks of rows that start anywhere in a line. The
    // diagonal leaves a byte at every offset in a row.
    constexpr int kSide = 4099;
    std::vector<unsigned char> page(std::size_t{kSide} * kSide, 255);
    uint8_t alpha = 0;
    MoveEffectImageParam big = RawImage(3, &alpha, 1, kSide, kSide, page.data());
    big.height = kSide;
    for (int render = 0; render < 2; ++render) {
        MoveEffectFilter filter(MakeParam());
        filter.SetSpareCoverage(&spare);
        filter.SetBaseImage(&big);
        const uint8_t* coverage = filter.GetCoverage();
        ASSERT_EQ(std::count(coverage, coverage + page.size(), 0), static_cast<std::ptrdiff_t>(page.size()));
        for (int i = 0; i < kSide; ++i)
            filter.StampCoverage(i, i, 1);
    }
}

// --- Compositing ----------------------------------------------------------------------------------

namespace {

// A 3x2 filter with coverage 255 at (1, 0), 128 at (2, 1), and the dirty rectangle on columns 1..2.
std::unique_ptr<MoveEffectFilter> MakeStampedFilter(TestImage& image) {
    auto filter = std::make_unique<MoveEffectFilter>(MakeParam());
    filter->SetBaseImage(&image.param);
    filter->StampCoverage(1, 0, 255);
    filter->StampCoverage(2, 1, 128);
    filter->GrowDirtyRect(1, 0, 3, 2);
    return filter;
}

}  // namespace

TEST(move_effect_filter_test, compositing_writes_colour_and_coverage_in_every_layout_and_format) {
    const struct {
        int layout, samples, colorSamples;
    } layouts[] = {{0, 4, 3}, {1, 2, 1}, {2, 5, 4}, {3, 1, 0}, {7, 2, 1}};
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    for (const auto& shape : layouts) {
        for (int format = 0; format < 4; ++format) {
            SCOPED_TRACE(testing::Message() << "layout " << shape.layout << " format " << format);
            const int sampleBytes = SampleBytes(format);
            const int pixelBytes = shape.samples * sampleBytes;
            const int rowBytes = 3 * pixelBytes + 3;  // padded rows
            std::vector<unsigned char> color;
            for (int i = 0; i < shape.samples; ++i)
                PutSample(color, format, 0.2 + 0.1 * i);
            std::vector<unsigned char> dest(static_cast<std::size_t>(rowBytes) * 2, 0xAB);
            filter->DrawToCanvas(shape.layout, format, color.data(), dest.data(), rowBytes);

            const double full[] = {255, 65025, 1.0, 1.0};
            for (int y = 0; y < 2; ++y) {
                for (int x = 0; x < 3; ++x) {
                    const unsigned char* px = dest.data() + y * rowBytes + x * pixelBytes;
                    if (x == 0) {
                        for (int b = 0; b < pixelBytes; ++b)
                            ASSERT_EQ(px[b], 0);
                        continue;
                    }
                    ASSERT_EQ(std::memcmp(px, color.data(),
                                          static_cast<std::size_t>(shape.colorSamples) * sampleBytes),
                              0);
                    const double alpha = ReadSample(px + shape.colorSamples * sampleBytes, format);
                    const int c = filter->GetCoverage()[y * 3 + x];
                    EXPECT_NEAR(alpha, full[format] * c / 255.0, format == 2 ? 1e-3 : 1e-6) << x << "," << y;
                }
                for (int b = 3 * pixelBytes; b < rowBytes; ++b)
                    ASSERT_EQ(dest[y * rowBytes + b], 0);
            }
        }
    }
}

TEST(move_effect_filter_test, pooled_compositing_writes_what_one_row_at_a_time_on_this_thread_writes) {
    // Tall enough for many chunks of rows on the pool; the dirty rectangle leaves rows and columns out.
    constexpr int kWidth = 37, kHeight = 301;
    TestImage image(0, 0, kWidth, kHeight, {1, 1, 1, 1});
    MoveEffectFilter filter(MakeParam(), 4);
    filter.SetBaseImage(&image.param);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x)
            filter.StampCoverage(x, y, static_cast<uint8_t>((x * 31 + y * 17) % 256));
    }
    filter.GrowDirtyRect(3, 5, 30, 290);
    // Rows wide enough for every pixel, and padded; then so long that the destination is written past
    // the caches.
    for (const int rowBytes : {kWidth * 5 * 4 + 7, (16 << 20) / kHeight + 7}) {
        for (int layout : {0, 1, 2, 3, 7}) {
            for (int format = 0; format < 5; ++format) {
                SCOPED_TRACE(testing::Message()
                             << "layout " << layout << " format " << format << " row " << rowBytes);
                unsigned char color[20];
                for (int i = 0; i < 20; ++i)
                    color[i] = static_cast<unsigned char>(40 + i);
                std::vector<unsigned char> pooled(static_cast<std::size_t>(rowBytes) * kHeight, 0xAB);
                std::vector<unsigned char> rows(pooled.size(), 0xCD);
                filter.DrawToCanvas(layout, format, color, pooled.data(), rowBytes);
                for (int y = 0; y < kHeight; ++y)
                    filter.DrawRowsToCanvas(layout, format, color, rows.data() + y * rowBytes, rowBytes, y,
                                            1);
                ASSERT_EQ(pooled, rows);
                EXPECT_EQ(pooled[4 * rowBytes + 10], 0);  // above the dirty rectangle
            }
        }
    }
}

TEST(move_effect_filter_test, full_coverage_in_16_bits_is_65025_and_a_null_colour_is_black) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    std::vector<unsigned char> dest(3 * 2 * 8 * 2, 0x55);
    filter->DrawToCanvas(0, 1, nullptr, dest.data(), 3 * 8);
    const uint16_t expected[] = {0, 0, 0, 65025};
    EXPECT_EQ(std::memcmp(dest.data() + 8, expected, 8), 0);
    uint16_t alpha;
    std::memcpy(&alpha, dest.data() + 3 * 8 + 2 * 8 + 6, 2);
    EXPECT_EQ(alpha, 128 * 255);

    std::vector<unsigned char> bytes(3 * 2 * 4, 0x55);
    filter->DrawToCanvas(0, 0, nullptr, bytes.data(), 12);
    const unsigned char black[4] = {0, 0, 0, 255};
    EXPECT_EQ(std::memcmp(bytes.data() + 4, black, 4), 0);
}

TEST(move_effect_filter_test, bad_formats_and_destinations_get_zeros_and_nothing_outside) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto stamped = MakeStampedFilter(image);
    MoveEffectFilter blank(MakeParam());
    blank.SetBaseImage(&image.param);
    unsigned char color[4] = {9, 9, 9, 9};
    for (auto [filter, format] : {std::pair{stamped.get(), 4}, std::pair{&blank, 0}}) {
        std::vector<unsigned char> dest(3 * 2 * 4, 0x55);
        filter->DrawToCanvas(0, format, color, dest.data(), 12);
        EXPECT_EQ(dest, std::vector<unsigned char>(dest.size(), 0)) << "format " << format;
    }
    stamped->DrawToCanvas(0, 0, color, nullptr, 12);
    // Exactly rowBytes * height on the heap: a write beyond would be caught by the sanitizers.
    auto dest = std::make_unique<unsigned char[]>(2 * 5);
    std::memset(dest.get(), 0x55, 10);
    stamped->DrawToCanvas(0, 0, nullptr, dest.get(), 5);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(dest[i], 0);
    stamped->DrawToCanvas(0, 0, nullptr, dest.get(), -12);
}
