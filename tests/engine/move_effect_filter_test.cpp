#include "engine/MoveEffectFilter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <numbers>
#include <thread>
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
    switch (format) {
        case 0:
            bytes[0] = static_cast<unsigned char>(std::lround(value * 255));
            break;
        case 1: {
            const auto v = static_cast<uint16_t>(std::lround(value * 65535));
            std::memcpy(bytes, &v, 2);
            break;
        }
        case 2: {
            const uint16_t v = MoveEffectFilter::Float32To16(static_cast<float>(value));
            std::memcpy(bytes, &v, 2);
            break;
        }
        case 3: {
            const auto v = static_cast<float>(value);
            std::memcpy(bytes, &v, 4);
            break;
        }
    }
    out.insert(out.end(), bytes, bytes + SampleBytes(format));
}

// A base image whose every pixel holds `samples` (memory order, 0..1), channel offsets in order.
struct TestImage {
    std::vector<uint8_t> offsets;
    std::vector<unsigned char> pixels;
    std::vector<unsigned char> mask;
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

    // Adds a one-channel mask of `format` holding `value` (0..1) everywhere.
    void SetMask(int format, double value) {
        mask.clear();
        for (uint32_t i = 0; i < param.width * param.height; ++i)
            PutSample(mask, format, value);
        param.maskFormat = static_cast<uint8_t>(format);
        param.maskRowBytes = param.width * SampleBytes(format);
        param.mask = mask.data();
    }
};

// Depth of the single pixel of a 1x1 image.
int DepthOf(TestImage& image) {
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    return filter.GetPixelDepth(0, 0);
}

int Depth(int model, int format, const std::vector<double>& samples, bool invertGray = false) {
    TestImage image(model, format, 1, 1, samples);
    image.param.invertGray = invertGray;
    return DepthOf(image);
}

constexpr double k128 = 128 / 255.0;

}  // namespace

// --- Parameters and targets ------------------------------------------------------------------------

TEST(move_effect_filter_test, fractional_taper_lengths_are_clamped_to_the_whole_line) {
    MoveEffectParam param = MakeParam();
    param.asdist = false;
    param.in = 1.5;
    param.out = -0.25;
    const MoveEffectParam stored = MoveEffectFilter(param).GetParameter();
    EXPECT_EQ(stored.in, 1.0);
    EXPECT_EQ(stored.out, -0.25);  // no lower clamp
}

TEST(move_effect_filter_test, taper_distances_in_pixels_are_kept) {
    MoveEffectParam param = MakeParam();
    param.asdist = true;
    param.in = 1500;
    param.out = 2.5;
    const MoveEffectParam stored = MoveEffectFilter(param).GetParameter();
    EXPECT_EQ(stored.in, 1500);
    EXPECT_EQ(stored.out, 2.5);
}

TEST(move_effect_filter_test, point_target_becomes_the_form_of_the_arrangement) {
    const PointTarget points{1, 2, 30, 4, 5, 60};
    {
        MoveEffectFilter filter(MakeParam(1));
        filter.SetTarget(points);
        ASSERT_NE(filter.GetParallelTarget(), nullptr);
        EXPECT_EQ(filter.GetParallelTarget()->x2, 30);
        EXPECT_EQ(filter.GetParallelTarget()->y3, 60);
        EXPECT_EQ(filter.GetCircleTarget(), nullptr);
        EXPECT_EQ(filter.GetRadiateTarget(), nullptr);
    }
    {
        MoveEffectFilter filter(MakeParam(2));
        filter.SetTarget(points);
        ASSERT_NE(filter.GetCircleTarget(), nullptr);
        EXPECT_EQ(filter.GetCircleTarget()->cx, 15);
        EXPECT_EQ(filter.GetRadiateTarget(), nullptr);
    }
    for (int type : {0, 3, -1}) {
        MoveEffectFilter filter(MakeParam(type));
        filter.SetTarget(points);
        ASSERT_NE(filter.GetRadiateTarget(), nullptr) << "type " << type;
        EXPECT_EQ(filter.GetRadiateTarget()->x1, 1);
        EXPECT_EQ(filter.GetParallelTarget(), nullptr);
    }
}

TEST(move_effect_filter_test, explicit_targets_fill_their_own_slot_whatever_the_type) {
    MoveEffectFilter filter(MakeParam(0));
    filter.SetTarget(CircleTarget{1, 2, 3, 4, 5, 6});
    filter.SetTarget(ParallelTarget{7, 8, 9, 10, 11, 12});
    filter.SetTarget(CircleTarget{9, 9, 9, 9, 9, 9});
    EXPECT_EQ(filter.GetCircleTarget()->cx, 9);
    EXPECT_EQ(filter.GetParallelTarget()->x1, 7);
    EXPECT_EQ(filter.GetRadiateTarget(), nullptr);
}

TEST(move_effect_filter_test, circle_target_passes_through_the_third_point) {
    const PointTarget points{0, 0, 100, 0, 50, 30};
    CircleTarget circle{};
    EXPECT_EQ(MoveEffectFilter::CreateCircleParam(&points, &circle), &circle);
    EXPECT_EQ(circle.cx, 50);
    EXPECT_EQ(circle.cy, 0);
    EXPECT_DOUBLE_EQ(circle.radiusX, 50);
    EXPECT_DOUBLE_EQ(circle.radiusY, 30);
    EXPECT_DOUBLE_EQ(circle.angle, 0);
    EXPECT_DOUBLE_EQ(circle.startAngle, std::numbers::pi / 2);
}

TEST(move_effect_filter_test, circle_target_of_a_tilted_axis_contains_the_third_point) {
    const PointTarget points{10, 20, 90, 80, 30, 70};
    CircleTarget circle{};
    MoveEffectFilter::CreateCircleParam(&points, &circle);
    EXPECT_EQ(circle.cx, 50);
    EXPECT_EQ(circle.cy, 50);
    EXPECT_DOUBLE_EQ(circle.radiusX, 50);
    EXPECT_DOUBLE_EQ(circle.angle, std::atan2(60.0, 80.0));
    // p3 in the ellipse's own frame satisfies the ellipse equation.
    const double px = 30 - 50.0;
    const double py = 70 - 50.0;
    const double t = std::cos(circle.angle) * px + std::sin(circle.angle) * py;
    const double u = std::cos(circle.angle) * py - std::sin(circle.angle) * px;
    EXPECT_NEAR(t * t / (circle.radiusX * circle.radiusX) + u * u / (circle.radiusY * circle.radiusY), 1.0,
                1e-12);
    EXPECT_DOUBLE_EQ(circle.startAngle, std::atan2(py, px));
}

TEST(move_effect_filter_test, circle_centre_is_truncated_toward_zero) {
    const PointTarget points{-3, -5, 0, 0, 0, 0};
    CircleTarget circle{};
    MoveEffectFilter::CreateCircleParam(&points, &circle);
    EXPECT_EQ(circle.cx, -1);
    EXPECT_EQ(circle.cy, -2);
}

TEST(move_effect_filter_test, coinciding_axis_points_give_a_zero_circle) {
    const PointTarget points{10, 10, 10, 10, 40, 50};
    CircleTarget circle{};
    MoveEffectFilter::CreateCircleParam(&points, &circle);
    EXPECT_EQ(circle.radiusX, 0);
    EXPECT_EQ(circle.radiusY, 0);
}

TEST(move_effect_filter_test, third_point_on_or_beyond_the_axis_end_gives_a_circle) {
    for (int x3 : {100, 120, -40}) {
        const PointTarget points{0, 0, 100, 0, x3, 0};
        CircleTarget circle{};
        MoveEffectFilter::CreateCircleParam(&points, &circle);
        EXPECT_DOUBLE_EQ(circle.radiusY, circle.radiusX) << "x3 " << x3;
        EXPECT_DOUBLE_EQ(circle.radiusX, 50);
    }
}

TEST(move_effect_filter_test, circle_target_of_extreme_coordinates_does_not_overflow) {
    const int32_t big = std::numeric_limits<int32_t>::max();
    const PointTarget points{big, big, big - 2, big - 4, 0, 0};
    CircleTarget circle{};
    MoveEffectFilter::CreateCircleParam(&points, &circle);
    EXPECT_EQ(circle.cx, big - 1);
    EXPECT_EQ(circle.cy, big - 2);
}

TEST(move_effect_filter_test, circle_param_ignores_null_records) {
    CircleTarget circle{};
    EXPECT_EQ(MoveEffectFilter::CreateCircleParam(nullptr, &circle), &circle);
    const PointTarget points{};
    EXPECT_EQ(MoveEffectFilter::CreateCircleParam(&points, nullptr), nullptr);
}

// --- Half floats ----------------------------------------------------------------------------------

TEST(move_effect_filter_test, single_to_half_truncates_and_flushes) {
    EXPECT_EQ(MoveEffectFilter::Float32To16(65504.0f), 0x7BFF);
    EXPECT_EQ(MoveEffectFilter::Float32To16(65536.0f), 0x7C00);
    EXPECT_EQ(MoveEffectFilter::Float32To16(1e-5f), 0x0000);
    EXPECT_EQ(MoveEffectFilter::Float32To16(-0.0f), 0x8000);
    EXPECT_EQ(MoveEffectFilter::Float32To16(1.0f), 0x3C00);
    EXPECT_EQ(MoveEffectFilter::Float32To16(0.3f), 0x34CC);
    EXPECT_EQ(MoveEffectFilter::Float32To16(-2.0f), 0xC000);
    EXPECT_EQ(MoveEffectFilter::Float32To16(std::numeric_limits<float>::infinity()), 0x7C00);
    EXPECT_EQ(MoveEffectFilter::Float32To16(-std::numeric_limits<float>::infinity()), 0xFC00);
    EXPECT_EQ(MoveEffectFilter::Float32To16(std::numeric_limits<float>::quiet_NaN()), 0x7C00);
    EXPECT_EQ(MoveEffectFilter::Float32To16(std::numeric_limits<float>::denorm_min()), 0x0000);
}

TEST(move_effect_filter_test, half_to_single_at_the_listed_values) {
    EXPECT_EQ(MoveEffectFilter::Float16To32(0x0001), std::ldexp(1.0f, -25));
    EXPECT_EQ(MoveEffectFilter::Float16To32(0x7C00), std::numeric_limits<float>::infinity());
    EXPECT_EQ(MoveEffectFilter::Float16To32(0x3C00), 1.0f);
    EXPECT_EQ(MoveEffectFilter::Float16To32(0x3800), 0.5f);
    EXPECT_EQ(MoveEffectFilter::Float16To32(0xC000), -2.0f);
    EXPECT_TRUE(std::signbit(MoveEffectFilter::Float16To32(0x8000)));
    EXPECT_TRUE(std::isnan(MoveEffectFilter::Float16To32(0x7E00)));
}

TEST(move_effect_filter_test, half_denormals_come_out_at_half_their_value) {
    EXPECT_EQ(MoveEffectFilter::Float16To32(0x0200), std::ldexp(1.0f, -16));  // exact 2^-15
    EXPECT_EQ(MoveEffectFilter::Float16To32(0x8003), -3 * std::ldexp(1.0f, -25));
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

TEST(move_effect_filter_test, channels_read_as_fractions_in_each_format) {
    const unsigned char bytes[] = {0, 255};
    EXPECT_EQ(MoveEffectFilter::GetChannelAsFloat(bytes, 1, 0), 1.0f);
    const uint16_t words[] = {0, 65535};
    EXPECT_EQ(MoveEffectFilter::GetChannelAsFloat(reinterpret_cast<const unsigned char*>(words), 1, 1), 1.0f);
    const uint16_t halves[] = {0x3C00, 0x3800};
    EXPECT_EQ(MoveEffectFilter::GetChannelAsFloat(reinterpret_cast<const unsigned char*>(halves), 1, 2),
              0.5f);
    const float floats[] = {0.25f, 1.75f};
    EXPECT_EQ(MoveEffectFilter::GetChannelAsFloat(reinterpret_cast<const unsigned char*>(floats), 1, 3),
              1.75f);
    EXPECT_EQ(MoveEffectFilter::GetChannelAsFloat(bytes, 1, 9), 0.0f);
    EXPECT_EQ(MoveEffectFilter::GetChannelAsFloat(nullptr, 0, 0), 0.0f);
}

TEST(move_effect_filter_test, rgb_8bit_depth_is_darkness_times_opacity) {
    EXPECT_EQ(Depth(0, 0, {0, 0, 0, 1}), 255);
    EXPECT_EQ(Depth(0, 0, {0, 0, 0, 0}), 0);
    EXPECT_EQ(Depth(0, 0, {0, 0, 0, k128}), 127);
    EXPECT_EQ(Depth(0, 0, {1, 1, 1, 1}), 0);
    // lum = (100*77 + 150*150 + 200*29) >> 8 = 140
    EXPECT_EQ(Depth(0, 0, {100 / 255.0, 150 / 255.0, 200 / 255.0, 1}), 115);
}

TEST(move_effect_filter_test, channel_offsets_pick_the_samples) {
    // Red stored as B, G, R, A.
    TestImage image(0, 0, 1, 1, {0, 0, 1, 1});
    image.offsets = {2, 1, 0, 3};
    image.param.channelOffsets = image.offsets.data();
    EXPECT_EQ(DepthOf(image), 255 - ((255 * 77) >> 8));
}

TEST(move_effect_filter_test, grey_8bit_depth_and_inverted_grey) {
    EXPECT_EQ(Depth(1, 0, {0, 1}), 255);
    EXPECT_EQ(Depth(1, 0, {1, 1}), 0);
    EXPECT_EQ(Depth(1, 0, {0, 1}, true), 0);
    EXPECT_EQ(Depth(1, 0, {1, 1}, true), 255);
    EXPECT_EQ(Depth(1, 0, {0, k128}), 127);
}

TEST(move_effect_filter_test, cmyk_8bit_depth_goes_through_rgb) {
    EXPECT_EQ(Depth(2, 0, {0, 0, 0, 1, 1}), 255);  // full black
    EXPECT_EQ(Depth(2, 0, {0, 0, 0, 0, 1}), 0);    // paper white
    // Cyan: r = 0, g = b = 255; lum = (150*255 + 29*255) >> 8 = 178
    EXPECT_EQ(Depth(2, 0, {1, 0, 0, 0, 1}), 77);
    EXPECT_EQ(Depth(2, 0, {0, 0, 0, 1, 0}), 0);  // transparent
}

TEST(move_effect_filter_test, alpha_only_layers_carry_no_ink) {
    for (int format = 0; format < 4; ++format) {
        EXPECT_EQ(Depth(3, format, {1}), 0) << "format " << format;
        EXPECT_EQ(Depth(3, format, {k128}), 0) << "format " << format;
    }
}

TEST(move_effect_filter_test, an_8bit_mask_scales_opacity) {
    for (auto [mask, depth] : {std::pair{1.0, 255}, std::pair{k128, 127}, std::pair{0.0, 0}}) {
        TestImage image(0, 0, 1, 1, {0, 0, 0, 1});
        image.SetMask(0, mask);
        EXPECT_EQ(DepthOf(image), depth) << "mask " << mask;
    }
}

TEST(move_effect_filter_test, wide_formats_give_the_same_depth_for_plain_pixels) {
    for (int format : {1, 2, 3}) {
        SCOPED_TRACE(format);
        EXPECT_EQ(Depth(0, format, {0, 0, 0, 1}), 255);
        EXPECT_EQ(Depth(0, format, {1, 1, 1, 1}), 0);
        EXPECT_EQ(Depth(0, format, {0, 0, 0, 0}), 0);
        EXPECT_EQ(Depth(1, format, {0, 1}), 255);
        EXPECT_EQ(Depth(1, format, {0, 1}, true), 0);
        EXPECT_EQ(Depth(1, format, {0.25, 1}), 191);
        EXPECT_EQ(Depth(2, format, {0, 0, 0, 1, 1}), 255);
        EXPECT_EQ(Depth(2, format, {0, 0, 0, 0, 1}), 0);
    }
}

TEST(move_effect_filter_test, wide_formats_truncate_opacity_and_darkness) {
    // Half opacity: 32768 / 65535 * 255 = 127.5 -> 127; (127 * 255) >> 8 = 126.
    EXPECT_EQ(Depth(0, 1, {0, 0, 0, 0.5}), 126);
    EXPECT_EQ(Depth(0, 2, {0, 0, 0, 0.5}), 126);
    // Float RGB (0.2, 0.4, 0.6): lum 0.363, (1 - lum) * 255 = 162.4.
    EXPECT_EQ(Depth(0, 3, {0.2, 0.4, 0.6, 1}), 162);
}

TEST(move_effect_filter_test, a_wide_mask_makes_almost_every_pixel_opaque) {
    TestImage image(0, 3, 1, 1, {0, 0, 0, 1});
    image.SetMask(3, 0.01);
    EXPECT_EQ(DepthOf(image), 255);
    // A zero mask still leaves the rounding half: alpha 0.5 -> 127.
    image.SetMask(3, 0.0);
    EXPECT_EQ(DepthOf(image), (127 * 255) >> 8);
}

TEST(move_effect_filter_test, wild_float_samples_give_a_depth_in_range) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (const auto& samples : std::vector<std::vector<double>>{{nan, nan, nan, nan},
                                                                {inf, 0, 0, 1},
                                                                {-inf, 0, 0, 1},
                                                                {0, 0, 0, 1e30},
                                                                {5, 5, 5, 0.5},
                                                                {-3, 0, 0, 2}}) {
        const int depth = Depth(0, 3, samples);
        EXPECT_GE(depth, 0);
        EXPECT_LE(depth, 255);
    }
}

TEST(move_effect_filter_test, pixels_outside_the_image_have_no_depth) {
    TestImage image(0, 0, 3, 2, {0, 0, 0, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    EXPECT_EQ(filter.GetPixelDepth(2, 1), 255);
    EXPECT_EQ(filter.GetPixelDepth(-1, 0), -1);
    EXPECT_EQ(filter.GetPixelDepth(0, -1), -1);
    EXPECT_EQ(filter.GetPixelDepth(3, 0), -1);
    EXPECT_EQ(filter.GetPixelDepth(0, 2), -1);
    EXPECT_EQ(filter.GetPixelDepth(std::numeric_limits<int>::min(), std::numeric_limits<int>::max()), -1);
}

TEST(move_effect_filter_test, point_queries_truncate_toward_zero) {
    TestImage image(0, 0, 2, 1, {0, 0, 0, 1});
    image.pixels[4 + 3] = 0;  // second pixel transparent
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{0.99, 0.5}), 255);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{1.01, 0.5}), 0);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{-0.5, 0.0}), 255);  // -0.5 truncates to column 0
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{-1.0, 0.0}), -1);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{2.0, 0.0}), -1);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{std::nan(""), 0.0}), -1);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{1e300, 0.0}), -1);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{0.0, -1e300}), -1);
}

// --- Bad input --------------------------------------------------------------------------------------

TEST(move_effect_filter_test, without_a_base_image_nothing_is_drawn) {
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(nullptr);
    filter.SetTarget(PointTarget{0, 0, 10, 10, 20, 20});
    filter.ApplyEffect(false);
    EXPECT_EQ(filter.GetCoverage(), nullptr);
    EXPECT_EQ(filter.GetPixelDepth(0, 0), -1);
    std::vector<unsigned char> dest(64, 0);
    filter.DrawToCanvas(0, 0, nullptr, dest.data(), 16);
    EXPECT_EQ(dest, std::vector<unsigned char>(64, 0));
}

TEST(move_effect_filter_test, an_image_without_pixels_is_ignored) {
    TestImage first(0, 0, 2, 2, {0, 0, 0, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&first.param);
    TestImage second(0, 0, 5, 5, {1, 1, 1, 1});
    second.param.pixels = nullptr;
    filter.SetBaseImage(&second.param);
    EXPECT_EQ(filter.GetWidth(), 2);
    EXPECT_EQ(filter.GetPixelDepth(1, 1), 255);
}

TEST(move_effect_filter_test, a_zero_sized_image_has_no_pixels_to_query_or_draw) {
    unsigned char pixel[4] = {0, 0, 0, 255};
    uint8_t offsets[4] = {0, 1, 2, 3};
    MoveEffectImageParam image{};
    image.channelOffsets = offsets;
    image.channelCount = 4;
    image.pixels = pixel;
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image);
    EXPECT_TRUE(filter.HasBaseImage());
    EXPECT_EQ(filter.GetPixelDepth(0, 0), -1);
    EXPECT_EQ(filter.GetPixelDepth(PathPoint{0, 0}), -1);
    filter.ApplyEffect(false);
    filter.DrawToCanvas(0, 0, nullptr, pixel, 0);
    EXPECT_EQ(pixel[3], 255);
}

TEST(move_effect_filter_test, more_than_five_channel_offsets_use_the_first_five) {
    // Exactly one CMYK+A pixel on the heap, so a read past it would be caught by the sanitizers.
    auto pixel = std::make_unique<unsigned char[]>(5);
    const unsigned char black[5] = {0, 0, 0, 255, 255};
    std::memcpy(pixel.get(), black, 5);
    uint8_t offsets[9] = {0, 1, 2, 3, 4, 200, 201, 202, 203};
    MoveEffectImageParam image{};
    image.colorModel = 2;
    image.channelOffsets = offsets;
    image.channelCount = 9;
    image.width = 1;
    image.height = 1;
    image.rowBytes = 5;
    image.pixels = pixel.get();
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image);
    EXPECT_EQ(filter.GetPixelDepth(0, 0), 255);
}

TEST(move_effect_filter_test, channel_offsets_outside_the_pixel_stay_inside_it) {
    auto pixel = std::make_unique<unsigned char[]>(4);
    uint8_t offsets[4] = {250, 251, 252, 253};
    MoveEffectImageParam image{};
    image.colorModel = 0;
    image.channelOffsets = offsets;
    image.channelCount = 4;
    image.width = 1;
    image.height = 1;
    image.rowBytes = 4;
    image.pixels = pixel.get();
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image);
    const int depth = filter.GetPixelDepth(0, 0);
    EXPECT_GE(depth, 0);
    EXPECT_LE(depth, 255);
}

TEST(move_effect_filter_test, odd_channel_tables_do_not_crash) {
    for (int8_t count : {int8_t{-3}, int8_t{0}, int8_t{127}}) {
        TestImage image(0, 1, 2, 2, {0, 0, 0, 1});
        image.offsets.resize(127, 0);  // the table really is as long as it claims
        image.param.channelOffsets = image.offsets.data();
        image.param.channelCount = count;
        MoveEffectFilter filter(MakeParam());
        filter.SetBaseImage(&image.param);
        const int depth = filter.GetPixelDepth(1, 1);
        EXPECT_GE(depth, 0);
    }
    TestImage image(0, 0, 2, 2, {0, 0, 0, 1});
    image.param.channelOffsets = nullptr;
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    EXPECT_GE(filter.GetPixelDepth(1, 1), 0);
}

TEST(move_effect_filter_test, rows_shorter_than_their_pixels_are_refused) {
    TestImage image(0, 0, 4, 4, {0, 0, 0, 1});
    image.param.rowBytes = 8;
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    EXPECT_FALSE(filter.HasBaseImage());
    EXPECT_EQ(filter.GetPixelDepth(0, 0), -1);
}

TEST(move_effect_filter_test, sizes_beyond_the_coverage_range_are_refused) {
    unsigned char pixel[4] = {};
    uint8_t offsets[4] = {0, 1, 2, 3};
    MoveEffectImageParam image{};
    image.channelOffsets = offsets;
    image.channelCount = 4;
    image.width = 0x80000000u;
    image.height = 1;
    image.rowBytes = 0xFFFFFFFFu;
    image.pixels = pixel;
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image);
    EXPECT_FALSE(filter.HasBaseImage());
}

TEST(move_effect_filter_test, a_mask_with_short_rows_is_not_read) {
    TestImage image(0, 0, 4, 1, {0, 0, 0, 1});
    image.SetMask(0, 0.0);
    image.param.maskRowBytes = 2;
    EXPECT_EQ(DepthOf(image), 255);
}

// --- Progress and running -------------------------------------------------------------------------

namespace {

struct ProgressLog {
    int calls = 0;
    int lastTotal = 0;
    int lastDone = 0;
    int answer = 1;
    static int Callback(int total, int done, void* user) {
        auto* log = static_cast<ProgressLog*>(user);
        ++log->calls;
        log->lastTotal = total;
        log->lastDone = done;
        return log->answer;
    }
};

class CountingTask : public ThreadPoolTask {
public:
    explicit CountingTask(std::atomic<int>* runs) : m_runs(runs) {}
    void Run() override { ++*m_runs; }

private:
    std::atomic<int>* m_runs;
};

}  // namespace

TEST(move_effect_filter_test, progress_without_a_callback_goes_on) {
    MoveEffectFilter filter(MakeParam());
    EXPECT_EQ(MoveEffectFilter::OnProgress(10, 1, &filter), 1);
    EXPECT_FALSE(filter.IsCancelled());
    EXPECT_EQ(MoveEffectFilter::OnProgress(10, 1, nullptr), 1);
}

TEST(move_effect_filter_test, progress_is_passed_on_with_the_callers_data) {
    MoveEffectFilter filter(MakeParam());
    ProgressLog log;
    log.answer = 7;
    filter.SetProgressCallback(&ProgressLog::Callback, &log);
    EXPECT_EQ(MoveEffectFilter::OnProgress(12, 5, &filter), 1);
    EXPECT_EQ(log.calls, 1);
    EXPECT_EQ(log.lastTotal, 12);
    EXPECT_EQ(log.lastDone, 5);
    EXPECT_FALSE(filter.IsCancelled());
}

TEST(move_effect_filter_test, a_stop_answer_cancels_the_filter_for_good) {
    MoveEffectFilter filter(MakeParam());
    ProgressLog log;
    log.answer = 0;
    filter.SetProgressCallback(&ProgressLog::Callback, &log);
    EXPECT_EQ(MoveEffectFilter::OnProgress(3, 1, &filter), 0);
    EXPECT_TRUE(filter.IsCancelled());
    log.answer = 1;
    EXPECT_EQ(MoveEffectFilter::OnProgress(3, 2, &filter), 0);
    EXPECT_EQ(log.calls, 1);  // once cancelled, the caller is not asked again
}

TEST(move_effect_filter_test, apply_effect_reports_each_task_through_the_chain) {
    TestImage image(0, 0, 8, 8, {1, 1, 1, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    ProgressLog log;
    filter.SetProgressCallback(&ProgressLog::Callback, &log);
    std::atomic<int> runs{0};
    for (int i = 0; i < 3; ++i)
        filter.GetPool().Enqueue(std::make_shared<CountingTask>(&runs));
    filter.ApplyEffect(true);
    EXPECT_EQ(runs.load(), 3);
    EXPECT_EQ(log.calls, 3);
    EXPECT_EQ(log.lastTotal, 3);
    EXPECT_EQ(log.lastDone, 3);
    EXPECT_FALSE(filter.IsCancelled());
}

TEST(move_effect_filter_test, a_stop_answer_during_apply_effect_cancels_the_tasks) {
    TestImage image(0, 0, 8, 8, {1, 1, 1, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    ProgressLog log;
    log.answer = 0;
    filter.SetProgressCallback(&ProgressLog::Callback, &log);
    std::atomic<int> runs{0};
    filter.GetPool().Enqueue(std::make_shared<CountingTask>(&runs));
    // Waits for the cancel, as a stroke task polling its flag would.
    struct PollingTask : ThreadPoolTask {
        void Run() override {
            const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(20);
            while (!IsCancelled() && std::chrono::steady_clock::now() < giveUp) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
    };
    auto polling = std::make_shared<PollingTask>();
    filter.GetPool().Enqueue(polling);
    filter.ApplyEffect(false);
    EXPECT_TRUE(filter.IsCancelled());
    EXPECT_TRUE(polling->IsCancelled());
    EXPECT_EQ(log.calls, 1);
}

TEST(move_effect_filter_test, apply_effect_without_an_image_runs_no_task) {
    MoveEffectFilter filter(MakeParam());
    std::atomic<int> runs{0};
    filter.GetPool().Enqueue(std::make_shared<CountingTask>(&runs));
    filter.ApplyEffect(false);
    EXPECT_EQ(runs.load(), 0);
    EXPECT_EQ(filter.GetCoverage(), nullptr);
}

TEST(move_effect_filter_test, a_new_base_image_starts_clean_coverage) {
    TestImage image(0, 0, 4, 3, {1, 1, 1, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    ASSERT_NE(filter.GetCoverage(), nullptr);
    const MoveEffectFilter::DirtyRect empty = filter.GetDirtyRect();
    EXPECT_EQ(empty.left, 4);
    EXPECT_EQ(empty.top, 3);
    EXPECT_EQ(empty.right, 0);
    EXPECT_EQ(empty.bottom, 0);
    filter.StampCoverage(2, 1, 200);
    filter.GrowDirtyRect(2, 1, 3, 2);
    filter.SetBaseImage(&image.param);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(filter.GetCoverage()[i], 0);
    EXPECT_EQ(filter.GetDirtyRect().right, 0);
}

// --- Coverage stamping ----------------------------------------------------------------------------

TEST(move_effect_filter_test, stamping_keeps_the_larger_value) {
    TestImage image(0, 0, 2, 2, {1, 1, 1, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    filter.StampCoverage(1, 0, 120);
    filter.StampCoverage(1, 0, 80);
    EXPECT_EQ(filter.GetCoverageAt(1, 0), 120);
    filter.StampCoverage(1, 0, 255);
    EXPECT_EQ(filter.GetCoverageAt(1, 0), 255);
    EXPECT_EQ(filter.GetCoverage()[1], 255);
    EXPECT_EQ(filter.GetCoverage()[0], 0);
}

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
                    const int x = cell % kSize;
                    const int y = cell / kSize;
                    filter.StampCoverage(x, y, value(t, x, y));
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
    EXPECT_EQ(dirty.left, 0);
    EXPECT_EQ(dirty.top, 7);
    EXPECT_EQ(dirty.right, 43);
    EXPECT_EQ(dirty.bottom, 35);
}

// --- Compositing ----------------------------------------------------------------------------------

namespace {

struct LayoutShape {
    int layout;
    int samples;
    int colorSamples;
};

constexpr LayoutShape kLayouts[] = {{0, 4, 3}, {1, 2, 1}, {2, 5, 4}, {3, 1, 0}, {7, 2, 1}};

// A 3x2 filter with coverage 255 at (1, 0), 128 at (2, 1), and the dirty rectangle on columns 1..2.
std::unique_ptr<MoveEffectFilter> MakeStampedFilter(TestImage& image) {
    auto filter = std::make_unique<MoveEffectFilter>(MakeParam());
    filter->SetBaseImage(&image.param);
    filter->StampCoverage(1, 0, 255);
    filter->StampCoverage(2, 1, 128);
    filter->GrowDirtyRect(1, 0, 3, 2);
    return filter;
}

double ReadSample(const unsigned char* at, int format) {
    switch (format) {
        case 0:
            return *at;
        case 1: {
            uint16_t v;
            std::memcpy(&v, at, 2);
            return v;
        }
        case 2: {
            uint16_t v;
            std::memcpy(&v, at, 2);
            return MoveEffectFilter::Float16To32(v);
        }
        default: {
            float v;
            std::memcpy(&v, at, 4);
            return v;
        }
    }
}

}  // namespace

TEST(move_effect_filter_test, compositing_writes_colour_and_coverage_in_every_layout_and_format) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    for (const LayoutShape& shape : kLayouts) {
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

TEST(move_effect_filter_test, full_coverage_in_16_bits_is_65025) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    std::vector<unsigned char> dest(3 * 2 * 8 * 2);
    filter->DrawToCanvas(0, 1, nullptr, dest.data(), 3 * 8);
    uint16_t alpha;
    std::memcpy(&alpha, dest.data() + 1 * 8 + 6, 2);
    EXPECT_EQ(alpha, 65025);
    std::memcpy(&alpha, dest.data() + 3 * 8 + 2 * 8 + 6, 2);
    EXPECT_EQ(alpha, 128 * 255);
}

TEST(move_effect_filter_test, a_null_colour_composites_black) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    std::vector<unsigned char> dest(3 * 2 * 4, 0x55);
    filter->DrawToCanvas(0, 0, nullptr, dest.data(), 12);
    const unsigned char expected[4] = {0, 0, 0, 255};
    EXPECT_EQ(std::memcmp(dest.data() + 4, expected, 4), 0);
}

TEST(move_effect_filter_test, an_unknown_format_leaves_the_destination_zero) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    std::vector<unsigned char> dest(3 * 2 * 4, 0x55);
    unsigned char color[4] = {9, 9, 9, 9};
    filter->DrawToCanvas(0, 4, color, dest.data(), 12);
    EXPECT_EQ(dest, std::vector<unsigned char>(dest.size(), 0));
}

TEST(move_effect_filter_test, nothing_stamped_composites_to_all_zero) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    MoveEffectFilter filter(MakeParam());
    filter.SetBaseImage(&image.param);
    std::vector<unsigned char> dest(3 * 2 * 4, 0x55);
    unsigned char color[4] = {9, 9, 9, 9};
    filter.DrawToCanvas(0, 0, color, dest.data(), 12);
    EXPECT_EQ(dest, std::vector<unsigned char>(dest.size(), 0));
}

TEST(move_effect_filter_test, a_null_destination_is_ignored) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    unsigned char color[4] = {9, 9, 9, 9};
    filter->DrawToCanvas(0, 0, color, nullptr, 12);
    SUCCEED();
}

TEST(move_effect_filter_test, destination_rows_too_short_for_the_image_get_zeros_only) {
    TestImage image(0, 0, 3, 2, {1, 1, 1, 1});
    auto filter = MakeStampedFilter(image);
    // Exactly rowBytes * height on the heap: a write beyond would be caught by the sanitizers.
    auto dest = std::make_unique<unsigned char[]>(2 * 5);
    std::memset(dest.get(), 0x55, 10);
    filter->DrawToCanvas(0, 0, nullptr, dest.get(), 5);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(dest[i], 0);
    filter->DrawToCanvas(0, 0, nullptr, dest.get(), -12);
    SUCCEED();
}
