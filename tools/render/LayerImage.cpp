#include "tools/render/LayerImage.h"

#include <cstring>

namespace brivane::tools {
namespace {

uint8_t To8Bit(uint16_t v) {
    return static_cast<uint8_t>((v * 255u + 32767u) / 65535u);
}

// Reads sample i of a pixel in the image's own depth, as 0..255.
uint8_t Sample8(const PngImage& png, size_t pixel, int i) {
    if (png.bitDepth == 8) return png.pixels[pixel * png.channels + i];
    uint16_t v;
    std::memcpy(&v, &png.pixels[(pixel * png.channels + i) * 2], 2);
    return To8Bit(v);
}

}  // namespace

EngineLayer::EngineLayer(const PngImage& png) : m_png(png) {
    const bool grey = png.channels <= 2;
    const bool hasAlpha = png.channels == 2 || png.channels == 4;
    m_colorModel = grey ? 1 : 0;
    m_channels = grey ? 2 : 4;
    for (int i = 0; i < m_channels; ++i)
        m_offsets[i] = static_cast<uint8_t>(i);
    if (hasAlpha) return;

    // Add an opaque alpha sample after the colour samples of every pixel.
    const size_t sampleBytes = png.bitDepth / 8;
    const size_t colourBytes = png.channels * sampleBytes;
    const size_t count = static_cast<size_t>(png.width) * png.height;
    m_withAlpha.resize(count * (colourBytes + sampleBytes));
    uint8_t* dst = m_withAlpha.data();
    const uint8_t* src = png.pixels.data();
    for (size_t i = 0; i < count; ++i) {
        std::memcpy(dst, src, colourBytes);
        std::memset(dst + colourBytes, 0xFF, sampleBytes);  // 255, or 65535 in either byte order
        dst += colourBytes + sampleBytes;
        src += colourBytes;
    }
}

MoveEffectImageParam EngineLayer::Describe() {
    MoveEffectImageParam image{};
    image.colorModel = m_colorModel;
    image.sampleFormat = m_png.bitDepth == 16 ? 1 : 0;
    image.invertGray = false;  // a grey sample is brightness: black is ink
    image.channelOffsets = m_offsets;
    image.channelCount = static_cast<int8_t>(m_channels);
    image.width = m_png.width;
    image.height = m_png.height;
    image.rowBytes = static_cast<uint32_t>(m_png.width * m_channels * (m_png.bitDepth / 8));
    image.pixels = m_withAlpha.empty() ? m_png.pixels.data() : m_withAlpha.data();
    image.maskFormat = 0;
    image.maskRowBytes = 0;
    image.mask = nullptr;
    return image;
}

PngImage ToRgba8(const PngImage& png) {
    PngImage out;
    out.width = png.width;
    out.height = png.height;
    out.channels = 4;
    out.bitDepth = 8;
    const size_t count = static_cast<size_t>(png.width) * png.height;
    out.pixels.resize(count * 4);
    for (size_t i = 0; i < count; ++i) {
        uint8_t* p = &out.pixels[i * 4];
        switch (png.channels) {
            case 1:
            case 2:
                p[0] = p[1] = p[2] = Sample8(png, i, 0);
                p[3] = png.channels == 2 ? Sample8(png, i, 1) : 255;
                break;
            default:
                for (int c = 0; c < 3; ++c)
                    p[c] = Sample8(png, i, c);
                p[3] = png.channels == 4 ? Sample8(png, i, 3) : 255;
                break;
        }
    }
    return out;
}

void CompositeOver(PngImage& below, const PngImage& above) {
    const size_t count = static_cast<size_t>(below.width) * below.height;
    for (size_t i = 0; i < count; ++i) {
        uint8_t* b = &below.pixels[i * 4];
        const uint8_t* a = &above.pixels[i * 4];
        const uint32_t aa = a[3];
        if (aa == 0) continue;
        // Straight alpha: out = a + b (1 - a), colours weighted by their alphas.
        const uint32_t ba = b[3] * (255 - aa);  // below's share, scaled by 255
        const uint32_t oa = aa * 255 + ba;      // out alpha, scaled by 255
        for (int c = 0; c < 3; ++c)
            b[c] = static_cast<uint8_t>((a[c] * aa * 255 + b[c] * ba + oa / 2) / oa);
        b[3] = static_cast<uint8_t>((oa + 127) / 255);
    }
}

void FlattenOnto(PngImage& rgba, Rgb background) {
    const uint8_t bg[3] = {background.r, background.g, background.b};
    const size_t count = static_cast<size_t>(rgba.width) * rgba.height;
    for (size_t i = 0; i < count; ++i) {
        uint8_t* p = &rgba.pixels[i * 4];
        const uint32_t a = p[3];
        for (int c = 0; c < 3; ++c)
            p[c] = static_cast<uint8_t>((p[c] * a + bg[c] * (255 - a) + 127) / 255);
        p[3] = 255;
    }
}

}  // namespace brivane::tools
