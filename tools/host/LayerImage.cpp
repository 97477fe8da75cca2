#include "tools/host/LayerImage.h"

#include <cstring>

namespace brivane::tools {
namespace {

struct Rgba8 {
    uint8_t r, g, b, a;
};

uint8_t Sample(const PngImage& png, size_t index) {
    if (png.bitDepth != 16) return png.pixels[index];
    uint16_t value;
    std::memcpy(&value, png.pixels.data() + index * 2, 2);
    return static_cast<uint8_t>(value >> 8);
}

Rgba8 PixelOf(const PngImage& png, size_t x, size_t y) {
    const size_t base = (y * png.width + x) * static_cast<size_t>(png.channels);
    switch (png.channels) {
        case 1: {
            const uint8_t grey = Sample(png, base);
            return {grey, grey, grey, 255};
        }
        case 2: {
            const uint8_t grey = Sample(png, base);
            return {grey, grey, grey, Sample(png, base + 1)};
        }
        case 3:
            return {Sample(png, base), Sample(png, base + 1), Sample(png, base + 2), 255};
        default:
            return {Sample(png, base), Sample(png, base + 1), Sample(png, base + 2), Sample(png, base + 3)};
    }
}

uint8_t Luminance(const Rgba8& p) {
    return static_cast<uint8_t>((77 * p.r + 150 * p.g + 29 * p.b) >> 8);
}

bool HasAlpha(const PngImage& png) {
    return png.channels == 2 || png.channels == 4;
}

}  // namespace

bool ParseLayerKind(std::string_view name, LayerKind& kind) {
    for (LayerKind candidate :
         {LayerKind::Rgb, LayerKind::Gray, LayerKind::Rgba, LayerKind::Alpha, LayerKind::Mask}) {
        if (name == LayerKindName(candidate)) {
            kind = candidate;
            return true;
        }
    }
    return false;
}

const char* LayerKindName(LayerKind kind) {
    switch (kind) {
        case LayerKind::Rgb:
            return "rgb";
        case LayerKind::Gray:
            return "gray";
        case LayerKind::Rgba:
            return "rgba";
        case LayerKind::Alpha:
            return "alpha";
        case LayerKind::Mask:
            return "mask";
    }
    return "?";
}

int64_t TargetKindOf(LayerKind kind) {
    switch (kind) {
        case LayerKind::Rgb:
            return kHostTargetKindRgbAlpha;
        case LayerKind::Gray:
            return kHostTargetKindGrayAlpha;
        case LayerKind::Rgba:
            return kHostTargetKindRgba;
        case LayerKind::Alpha:
            return kHostTargetKindAlpha;
        case LayerKind::Mask:
            return kHostTargetKindMask;
    }
    return 0;
}

LayerKind DefaultLayerKind(const PngImage& png) {
    return png.channels <= 2 ? LayerKind::Gray : LayerKind::Rgb;
}

SimImage LayerFromPng(const PngImage& png, LayerKind kind) {
    SimImage layer;
    switch (kind) {
        case LayerKind::Rgb:
            layer = MakeImage(png.width, png.height, kHostChannelOrderRgbAlpha, {2, 1, 0, 3});
            break;
        case LayerKind::Rgba:
            layer = MakeImage(png.width, png.height, kHostChannelOrderRgba, {1, 2, 3, 0});
            break;
        case LayerKind::Gray:
            layer = MakeImage(png.width, png.height, kHostChannelOrderGrayAlpha);
            break;
        case LayerKind::Mask:
            layer = MakeImage(png.width, png.height, kHostChannelOrderMask);
            break;
        case LayerKind::Alpha:
            layer = MakeImage(png.width, png.height, kHostChannelOrderAlpha);
            break;
    }
    for (size_t y = 0; y < png.height; ++y) {
        for (size_t x = 0; x < png.width; ++x) {
            const Rgba8 p = PixelOf(png, x, y);
            uint8_t* out = layer.At(static_cast<int64_t>(x), static_cast<int64_t>(y));
            switch (layer.channelOrder) {
                case kHostChannelOrderRgbAlpha:
                case kHostChannelOrderRgba:
                    out[layer.channelIndex[0]] = p.r;
                    out[layer.channelIndex[1]] = p.g;
                    out[layer.channelIndex[2]] = p.b;
                    out[layer.channelIndex[3]] = p.a;
                    break;
                case kHostChannelOrderAlpha:
                    out[0] = HasAlpha(png) ? p.a : static_cast<uint8_t>(255 - Luminance(p));
                    break;
                default:
                    out[0] = Luminance(p);
                    out[1] = p.a;
                    break;
            }
        }
    }
    return layer;
}

SimImage SelectionFromPng(const PngImage& png) {
    SimImage mask = MakeImage(png.width, png.height, kHostChannelOrderAlpha);
    for (size_t y = 0; y < png.height; ++y) {
        for (size_t x = 0; x < png.width; ++x) {
            const Rgba8 p = PixelOf(png, x, y);
            *mask.At(static_cast<int64_t>(x), static_cast<int64_t>(y)) =
                static_cast<uint8_t>((Luminance(p) * p.a + 127) / 255);
        }
    }
    return mask;
}

PngImage PngFromLayer(const SimImage& layer) {
    PngImage png;
    png.width = static_cast<uint32_t>(layer.width);
    png.height = static_cast<uint32_t>(layer.height);
    png.bitDepth = 8;
    switch (layer.channelOrder) {
        case kHostChannelOrderRgbAlpha:
        case kHostChannelOrderRgba:
            png.channels = 4;
            break;
        case kHostChannelOrderGrayAlpha:
        case kHostChannelOrderMask:
            png.channels = 2;
            break;
        default:
            png.channels = 1;
            break;
    }
    png.pixels.resize(png.RowBytes() * png.height);
    uint8_t* out = png.pixels.data();
    for (int64_t y = 0; y < layer.height; ++y) {
        for (int64_t x = 0; x < layer.width; ++x) {
            const uint8_t* in = layer.At(x, y);
            if (png.channels == 4) {
                for (int c = 0; c < 4; ++c)
                    *out++ = in[layer.channelIndex[c]];
            } else {
                for (int c = 0; c < png.channels; ++c)
                    *out++ = in[c];
            }
        }
    }
    return png;
}

}  // namespace brivane::tools
