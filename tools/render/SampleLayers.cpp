#include "tools/render/SampleLayers.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <numbers>

namespace brivane::tools {
namespace {

// Share (0..1) of a pixel inside a shape, from a 4 x 4 grid of samples: soft enough edges that the
// pictures do not look jagged, and exact to the byte on every machine.
template <typename Inside>
double Coverage(uint32_t x, uint32_t y, const Inside& inside) {
    int hits = 0;
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 4; ++i)
            if (inside(x + (i + 0.5) / 4.0, y + (j + 0.5) / 4.0)) ++hits;
    return hits / 16.0;
}

PngImage NewImage(uint32_t width, uint32_t height, int channels, int bitDepth) {
    PngImage image;
    image.width = width;
    image.height = height;
    image.channels = channels;
    image.bitDepth = bitDepth;
    image.pixels.assign(image.RowBytes() * height, 0);
    return image;
}

}  // namespace

PngImage MakeFocusSample() {
    const uint32_t width = 1200, height = 850;
    const double cx = width / 2.0, cy = height / 2.0, rx = 330, ry = 220;
    PngImage image = NewImage(width, height, 4, 8);
    auto clear = [&](double x, double y) {
        const double u = (x - cx) / rx, v = (y - cy) / ry;
        return u * u + v * v < 1.0;
    };
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            uint8_t* p = &image.pixels[(static_cast<size_t>(y) * width + x) * 4];
            p[0] = p[1] = p[2] = 0;
            p[3] = static_cast<uint8_t>(std::lround(255 * (1.0 - Coverage(x, y, clear))));
        }
    }
    return image;
}

PngImage MakeSpeedSample() {
    const uint32_t width = 1200, height = 850;
    const double cy = height / 2.0, radius = 170, ballX = 0.72 * width;
    PngImage image = NewImage(width, height, 1, 8);
    auto ink = [&](double x, double y) {
        const double dy = y - cy;
        if (std::abs(dy) >= radius) return false;
        // The trail ends against the left half of the object and starts at a wavy edge on the left.
        const double trailEnd = ballX - std::sqrt(radius * radius - dy * dy);
        const double trailStart =
            0.04 * width + 0.1 * width * (0.5 + 0.5 * std::sin(y * 0.045) * std::cos(y * 0.011));
        return x > trailStart && x < trailEnd;
    };
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            image.pixels[static_cast<size_t>(y) * width + x] =
                static_cast<uint8_t>(std::lround(255 * (1.0 - Coverage(x, y, ink))));
    return image;
}

PngImage MakeRingsSample() {
    const uint32_t width = 1000, height = 1000;
    const double cx = width / 2.0, cy = height / 2.0, inner = 180, outer = 460;
    // Wedges cut out of the ring, as (centre angle, width) in degrees: the rings break there.
    const double gaps[][2] = {{20, 14}, {95, 6}, {160, 22}, {230, 9}, {300, 16}};
    PngImage image = NewImage(width, height, 2, 16);
    auto ink = [&](double x, double y) {
        const double r = std::hypot(x - cx, y - cy);
        if (r < inner || r > outer) return false;
        double degrees = std::atan2(y - cy, x - cx) * 180.0 / std::numbers::pi;
        if (degrees < 0) degrees += 360.0;
        for (const auto& gap : gaps) {
            double off = std::abs(degrees - gap[0]);
            off = std::min(off, 360.0 - off);
            if (off < gap[1] / 2) return false;
        }
        return true;
    };
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            const uint16_t sample[2] = {0, static_cast<uint16_t>(std::lround(65535 * Coverage(x, y, ink)))};
            std::memcpy(&image.pixels[(static_cast<size_t>(y) * width + x) * 4], sample, sizeof sample);
        }
    }
    return image;
}

std::vector<SampleLayer> MakeSampleLayers() {
    std::vector<SampleLayer> layers;
    layers.push_back({"focus.png", MakeFocusSample()});
    layers.push_back({"speed.png", MakeSpeedSample()});
    layers.push_back({"rings.png", MakeRingsSample()});
    return layers;
}

}  // namespace brivane::tools
