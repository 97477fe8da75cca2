#include "tools/render/LayerImage.h"

#include <cstring>

namespace brivane::tools {
namespace {

uint8_t To8Bit(uint16_t v) {
    return static_cast<uint8_t>((v * 255u + 32767u) / 65535u);
}

// Reads sample i of a row in the layout's own depth, as 0..255.
uint8_t Sample8(const PngImage& layout, const uint8_t* row, size_t i) {
    if (layout.bitDepth == 8) return row[i];
    uint16_t v;
    std::memcpy(&v, row + i * 2, 2);
    return To8Bit(v);
}

}  // namespace

uint8_t GreyOf(unsigned red, unsigned green, unsigned blue) {
    return static_cast<uint8_t>((77 * red + 150 * green + 29 * blue) >> 8);
}

namespace {

// RGB or RGBA 8-bit to grey and alpha. The pixel size is fixed per instance, which lets the compiler
// turn the loop into vector code; with the size read at run time it went a pixel at a time.
template <int kChannels>
void GreyAlphaRow(const uint8_t* in, uint8_t* out, uint32_t width) {
    for (uint32_t x = 0; x < width; ++x, in += kChannels, out += 2) {
        out[0] = GreyOf(in[0], in[1], in[2]);
        out[1] = kChannels == 4 ? in[3] : 255;
    }
}

}  // namespace

EngineLayer::EngineLayer(const PngImage& png) {
    std::string ignored;
    Begin(png, ignored);
    for (uint32_t y = 0; y < m_height; ++y) {
        std::memcpy(Row(y), png.pixels.data() + y * png.RowBytes(), png.RowBytes());
        RowDone(y);
    }
}

bool EngineLayer::Begin(const PngImage& header, std::string&) {
    m_width = header.width;
    m_height = header.height;
    m_fileChannels = header.channels;
    m_sampleBytes = header.bitDepth / 8;
    const bool grey = header.channels <= 2;
    m_colorModel = grey || m_sampleBytes == 1 ? 1 : 0;
    m_channels = m_colorModel == 1 ? 2 : 4;
    for (int i = 0; i < m_channels; ++i)
        m_offsets[i] = static_cast<uint8_t>(i);
    const size_t layerRow = static_cast<size_t>(m_width) * m_channels * m_sampleBytes;
    m_pixels.assign(layerRow * m_height, 0);
    // Files already in the layer's layout are decoded in place.
    if (m_fileChannels != m_channels) m_fileRow.assign(header.RowBytes(), 0);
    return true;
}

uint8_t* EngineLayer::Row(uint32_t y) {
    if (!m_fileRow.empty()) return m_fileRow.data();
    return m_pixels.data() + static_cast<size_t>(y) * m_width * m_channels * m_sampleBytes;
}

void EngineLayer::RowDone(uint32_t y) {
    if (m_fileRow.empty()) return;
    const uint8_t* in = m_fileRow.data();
    uint8_t* out = m_pixels.data() + static_cast<size_t>(y) * m_width * m_channels * m_sampleBytes;
    if (m_sampleBytes == 1 && m_fileChannels >= 3) {
        // Colour as grey: the engine's depth of (grey, alpha) equals that of (R, G, B, alpha).
        if (m_fileChannels == 4) {
            GreyAlphaRow<4>(in, out, m_width);
        } else {
            GreyAlphaRow<3>(in, out, m_width);
        }
        return;
    }
    // No alpha in the file: add an opaque sample after the colour samples of every pixel.
    const size_t colourBytes = static_cast<size_t>(m_fileChannels) * m_sampleBytes;
    for (uint32_t x = 0; x < m_width; ++x) {
        std::memcpy(out, in, colourBytes);
        std::memset(out + colourBytes, 0xFF, m_sampleBytes);  // 255, or 65535 in either byte order
        in += colourBytes;
        out += colourBytes + m_sampleBytes;
    }
}

MoveEffectImageParam EngineLayer::Describe() {
    MoveEffectImageParam image{};
    image.colorModel = m_colorModel;
    image.sampleFormat = m_sampleBytes == 2 ? 1 : 0;
    image.invertGray = false;  // a grey sample is brightness: black is ink
    image.channelOffsets = m_offsets;
    image.channelCount = static_cast<int8_t>(m_channels);
    image.width = m_width;
    image.height = m_height;
    image.rowBytes = static_cast<uint32_t>(m_width * m_channels * m_sampleBytes);
    image.pixels = m_pixels.data();
    image.maskFormat = 0;
    image.maskRowBytes = 0;
    image.mask = nullptr;
    return image;
}

void ToRgba8Row(const PngImage& layout, const uint8_t* row, uint8_t* out) {
    const size_t channels = static_cast<size_t>(layout.channels);
    for (size_t i = 0; i < layout.width; ++i, out += 4) {
        const size_t at = i * channels;
        switch (channels) {
            case 1:
            case 2:
                out[0] = out[1] = out[2] = Sample8(layout, row, at);
                out[3] = channels == 2 ? Sample8(layout, row, at + 1) : 255;
                break;
            default:
                for (size_t c = 0; c < 3; ++c)
                    out[c] = Sample8(layout, row, at + c);
                out[3] = channels == 4 ? Sample8(layout, row, at + 3) : 255;
                break;
        }
    }
}

void CompositeOverRow(uint8_t* below, const uint8_t* above, size_t count) {
    for (size_t i = 0; i < count; ++i, below += 4, above += 4) {
        const uint32_t aa = above[3];
        if (aa == 0) continue;
        // Straight alpha: out = a + b (1 - a), colours weighted by their alphas.
        const uint32_t ba = below[3] * (255 - aa);  // below's share, scaled by 255
        const uint32_t oa = aa * 255 + ba;          // out alpha, scaled by 255
        for (int c = 0; c < 3; ++c)
            below[c] = static_cast<uint8_t>((above[c] * aa * 255 + below[c] * ba + oa / 2) / oa);
        below[3] = static_cast<uint8_t>((oa + 127) / 255);
    }
}

void FlattenRow(uint8_t* rgba, size_t count, Rgb background) {
    const uint8_t bg[3] = {background.r, background.g, background.b};
    for (size_t i = 0; i < count; ++i, rgba += 4) {
        const uint32_t a = rgba[3];
        for (int c = 0; c < 3; ++c)
            rgba[c] = static_cast<uint8_t>((rgba[c] * a + bg[c] * (255 - a) + 127) / 255);
        rgba[3] = 255;
    }
}

void CompositeOver(PngImage& below, const PngImage& above) {
    CompositeOverRow(below.pixels.data(), above.pixels.data(),
                     static_cast<size_t>(below.width) * below.height);
}

}  // namespace brivane::tools
