#include "tools/host/LayerImage.h"

#include <cstring>
#include <vector>

namespace brivane::tools {
namespace {

struct Rgba8 {
    uint8_t r, g, b, a;
};

// One PNG row as RGBA (16-bit samples by their high byte), with the layout fixed so the loop is tight.
template <int kChannels, int kSampleBytes>
void RowToRgba8(const uint8_t* row, size_t width, Rgba8* out) {
    auto sample = [row](size_t i) -> uint8_t {
        if constexpr (kSampleBytes == 1) {
            return row[i];
        } else {
            uint16_t value;
            std::memcpy(&value, row + i * 2, 2);
            return static_cast<uint8_t>(value >> 8);
        }
    };
    for (size_t x = 0; x < width; ++x) {
        const size_t at = x * kChannels;
        if constexpr (kChannels <= 2) {
            const uint8_t grey = sample(at);
            out[x] = {grey, grey, grey, kChannels == 2 ? sample(at + 1) : uint8_t{255}};
        } else {
            out[x] = {sample(at), sample(at + 1), sample(at + 2),
                      kChannels == 4 ? sample(at + 3) : uint8_t{255}};
        }
    }
}

void RowToRgba8(const PngImage& png, uint32_t y, Rgba8* out) {
    const uint8_t* row = png.pixels.data() + y * png.RowBytes();
    const bool wide = png.bitDepth == 16;
    switch (png.channels) {
        case 1:
            return wide ? RowToRgba8<1, 2>(row, png.width, out) : RowToRgba8<1, 1>(row, png.width, out);
        case 2:
            return wide ? RowToRgba8<2, 2>(row, png.width, out) : RowToRgba8<2, 1>(row, png.width, out);
        case 3:
            return wide ? RowToRgba8<3, 2>(row, png.width, out) : RowToRgba8<3, 1>(row, png.width, out);
        default:
            return wide ? RowToRgba8<4, 2>(row, png.width, out) : RowToRgba8<4, 1>(row, png.width, out);
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
    std::vector<Rgba8> rgba(png.width);
    const bool hasAlpha = HasAlpha(png);
    const int64_t* index = layer.channelIndex;
    for (uint32_t y = 0; y < png.height; ++y) {
        RowToRgba8(png, y, rgba.data());
        uint8_t* out = layer.At(0, y);
        switch (layer.channelOrder) {
            case kHostChannelOrderRgbAlpha:
            case kHostChannelOrderRgba:
                for (const Rgba8& p : rgba) {
                    out[index[0]] = p.r;
                    out[index[1]] = p.g;
                    out[index[2]] = p.b;
                    out[index[3]] = p.a;
                    out += 4;
                }
                break;
            case kHostChannelOrderAlpha:
                for (const Rgba8& p : rgba)
                    *out++ = hasAlpha ? p.a : static_cast<uint8_t>(255 - Luminance(p));
                break;
            default:
                for (const Rgba8& p : rgba) {
                    *out++ = Luminance(p);
                    *out++ = p.a;
                }
                break;
        }
    }
    return layer;
}

SimImage SelectionFromPng(const PngImage& png) {
    SimImage mask = MakeImage(png.width, png.height, kHostChannelOrderAlpha);
    std::vector<Rgba8> rgba(png.width);
    for (uint32_t y = 0; y < png.height; ++y) {
        RowToRgba8(png, y, rgba.data());
        uint8_t* out = mask.At(0, y);
        for (const Rgba8& p : rgba)
            *out++ = static_cast<uint8_t>((Luminance(p) * p.a + 127) / 255);
    }
    return mask;
}

namespace {

// The PNG layout of a layer: RGBA for colour layers, grey with alpha for grey and mask layers, grey
// for an alpha layer; `pixels` left empty.
PngImage PngLayoutOf(const SimImage& layer) {
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
    return png;
}

// Row y of the layer in its PNG layout.
void LayerRowToPng(const SimImage& layer, int channels, int64_t y, uint8_t* out) {
    const size_t width = static_cast<size_t>(layer.width);
    const uint8_t* in = layer.At(0, y);
    if (channels == 4) {
        const int64_t* index = layer.channelIndex;
        for (size_t x = 0; x < width; ++x, in += 4, out += 4) {
            out[0] = in[index[0]];
            out[1] = in[index[1]];
            out[2] = in[index[2]];
            out[3] = in[index[3]];
        }
    } else if (layer.depth == channels) {
        std::memcpy(out, in, width * channels);
    } else {
        for (size_t x = 0; x < width; ++x, in += layer.depth) {
            for (int c = 0; c < channels; ++c)
                *out++ = in[c];
        }
    }
}

}  // namespace

PngImage PngFromLayer(const SimImage& layer) {
    PngImage png = PngLayoutOf(layer);
    png.pixels.resize(png.RowBytes() * png.height);
    for (int64_t y = 0; y < layer.height; ++y)
        LayerRowToPng(layer, png.channels, y, png.pixels.data() + y * png.RowBytes());
    return png;
}

bool WriteLayerPng(const std::string& path, const SimImage& layer, std::string& error) {
    const PngImage header = PngLayoutOf(layer);
    PngWriter writer;
    if (!writer.Open(path, header, PngCompression::kFast, error)) return false;
    std::vector<uint8_t> row(header.RowBytes());
    for (int64_t y = 0; y < layer.height; ++y) {
        LayerRowToPng(layer, header.channels, y, row.data());
        if (!writer.WriteRow(row.data(), error)) return false;
    }
    return writer.Finish(error);
}

}  // namespace brivane::tools
