// What the benchmark programs share: the B4 page fully inked, the default preset and points, and the
// dense speed-line case, so that every program measures the same renders.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/MoveEffectFilter.h"

namespace bench {

inline constexpr int32_t kPageWidth = 6071;  // B4 at 600 dpi
inline constexpr int32_t kPageHeight = 8598;

// A fully inked (black, opaque) 8-bit grey + alpha layer.
struct InkedLayer {
    int32_t width;
    int32_t height;
    std::vector<uint8_t> layer;
    uint8_t offsets[2] = {0, 1};

    InkedLayer(int32_t w, int32_t h) : width(w), height(h), layer(static_cast<std::size_t>(w) * h * 2) {
        for (std::size_t i = 0; i < layer.size(); i += 2) {
            layer[i] = 0;        // black
            layer[i + 1] = 255;  // opaque
        }
    }
    MoveEffectImageParam Image() {
        MoveEffectImageParam image{};
        image.colorModel = 1;
        image.channelOffsets = offsets;
        image.channelCount = 2;
        image.width = static_cast<uint32_t>(width);
        image.height = static_cast<uint32_t>(height);
        image.rowBytes = static_cast<uint32_t>(width) * 2;
        image.pixels = layer.data();
        return image;
    }
};

// The default preset, with `in` and `out` as the controller hands them over (thousandths -> fraction).
inline MoveEffectParam DefaultParam(int32_t type) {
    MoveEffectParam p{};
    p.type = type;
    p.curvature = 1.0;
    p.size = 2.0;
    p.hardness = 1.0;
    p.in = 0.5;
    p.out = 0.5;
    p.length = 10;
    p.spacing = 50;
    p.connect = true;
    return p;
}

// Dense speed lines: the parallel default at size 20, spacing 5.
inline MoveEffectParam DenseParallelParam(double hardness) {
    MoveEffectParam p = DefaultParam(1);
    p.size = 20;
    p.spacing = 5;
    p.hardness = hardness;
    return p;
}

// The default target points of an arrangement, as fractions of the canvas, truncated to pixels.
inline PointTarget DefaultTarget(int32_t type, int32_t width, int32_t height) {
    static const double kPoints[3][6] = {{0.5, 0.5, 0.5, 0.325, 0.5, 0.125},
                                         {0.25, 0.875, 0.25, 0.125, 0.75, 0.875},
                                         {0.25, 0.5, 0.75, 0.5, 0.5, 0.25}};
    const double* p = kPoints[type];
    auto x = [width](double f) { return static_cast<int32_t>(width * f); };
    auto y = [height](double f) { return static_cast<int32_t>(height * f); };
    return PointTarget{x(p[0]), y(p[1]), x(p[2]), y(p[3]), x(p[4]), y(p[5])};
}

}  // namespace bench
