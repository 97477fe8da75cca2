// Shared set-up of the stroke and layout tests: an 8-bit grey layer to ink, a parameter record with
// every fluctuation off (so that rendering is deterministic), the built-in straight guide, and a
// filter wired to all three.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/MoveEffectFilter.h"
#include "engine/MoveEffectParam.h"
#include "guide/PathParser.h"

namespace stroke_test {

// Grey + alpha, 8-bit, opaque white until inked.
struct Layer {
    int32_t width;
    int32_t height;
    std::vector<uint8_t> pixels;
    uint8_t offsets[2] = {0, 1};

    Layer(int32_t w, int32_t h, bool inked = false)
        : width(w), height(h), pixels(static_cast<std::size_t>(w) * h * 2) {
        for (std::size_t i = 0; i < pixels.size(); i += 2) {
            pixels[i] = inked ? 0 : 255;
            pixels[i + 1] = 255;
        }
    }
    void InkRect(int32_t x0, int32_t y0, int32_t x1, int32_t y1) {
        for (int32_t y = y0; y < y1; ++y) {
            for (int32_t x = x0; x < x1; ++x)
                pixels[(static_cast<std::size_t>(y) * width + x) * 2] = 0;  // grey only: stays opaque
        }
    }
    MoveEffectImageParam Image() {
        MoveEffectImageParam image{};
        image.colorModel = 1;
        image.sampleFormat = 0;
        image.channelOffsets = offsets;
        image.channelCount = 2;
        image.width = static_cast<uint32_t>(width);
        image.height = static_cast<uint32_t>(height);
        image.rowBytes = static_cast<uint32_t>(width) * 2;
        image.pixels = pixels.data();
        return image;
    }
};

// Hard 2 px pen, no taper, no extension, no fluctuation of any kind.
inline MoveEffectParam QuietParam(int32_t type) {
    MoveEffectParam p{};
    p.type = type;
    p.curvature = 1;
    p.size = 2;
    p.hardness = 1;
    p.in = 0;
    p.out = 0;
    p.spacing = 10;
    return p;
}

inline PathParser StraightGuide() {
    PathParser guide;
    guide.CreateLine();
    return guide;
}

// A filter with a target, the guide and the layer attached (all borrowed: keep them alive).
inline std::unique_ptr<MoveEffectFilter> MakeFilter(const MoveEffectParam& param, const PointTarget& target,
                                                    PathParser& guide, Layer& layer) {
    auto filter = std::make_unique<MoveEffectFilter>(param);
    filter->SetTarget(target);
    filter->AttachGuide(&guide);
    const MoveEffectImageParam image = layer.Image();
    filter->SetBaseImage(&image);
    return filter;
}

inline uint8_t CoverageAt(const MoveEffectFilter& filter, int32_t x, int32_t y) {
    return filter.GetCoverage()[static_cast<std::size_t>(y) * filter.GetWidth() + x];
}

// Lays out the filter's arrangement and runs its tasks on this thread; returns the task count.
inline int RenderSingleThreaded(MoveEffectFilter& filter) {
    filter.CreatePathTasks();
    filter.GetPool().RunAsSingleThread();
    return filter.GetPool().GetTotalTasks();
}

}  // namespace stroke_test
