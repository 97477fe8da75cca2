// LayerImage: the bridge between PNG pixels and the engine's view of a host layer.
//
//   EngineLayer layer;
//   ReadPngRows("page.png", layer, error);            // decoded straight into the engine's layout
//   MoveEffectImageParam image = layer.Describe();     // for MoveEffectFilter::SetBaseImage
//
// The engine reads only how much ink a pixel holds, so 8-bit files become 8-bit grey with alpha (two
// bytes a pixel), colour turned into grey with the engine's own luminance weights: it finds the same
// ink as in the colour pixels. 16-bit files keep their samples, with an opaque alpha added where the
// file has none.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/MoveEffectParam.h"
#include "tools/common/PngImage.h"
#include "tools/render/RenderOptions.h"

namespace brivane::tools {

class EngineLayer : public PngRowSink {
public:
    EngineLayer() = default;
    // The layer of an image already in memory.
    explicit EngineLayer(const PngImage& png);
    EngineLayer(const EngineLayer&) = delete;
    EngineLayer& operator=(const EngineLayer&) = delete;

    // PngRowSink: the decoded rows go into the layer, each converted as it arrives.
    bool Begin(const PngImage& header, std::string& error) override;
    uint8_t* Row(uint32_t y) override;
    void RowDone(uint32_t y) override;

    // Points into this object; valid while it lives.
    MoveEffectImageParam Describe();
    // Grey files get grey lines, as the plug-in draws on a grey layer.
    bool IsGrey() const { return m_fileChannels <= 2; }
    uint32_t Width() const { return m_width; }
    uint32_t Height() const { return m_height; }

private:
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    int m_fileChannels = 0;          // samples per pixel in the file
    int m_sampleBytes = 1;           // 1 or 2
    int m_channels = 0;              // samples per pixel in the layer, alpha included
    uint8_t m_colorModel = 0;        // 0 RGB+A, 1 grey+A
    uint8_t m_offsets[5] = {};       // sample index of each channel
    std::vector<uint8_t> m_pixels;   // the layer, rows without padding
    std::vector<uint8_t> m_fileRow;  // one row as decoded, when it must be converted
};

// The 8-bit luminance the engine and the plug-in use for colour: (77 R + 150 G + 29 B) >> 8.
uint8_t GreyOf(unsigned red, unsigned green, unsigned blue);

// One row of any PNG layout as 8-bit RGBA with straight alpha (16-bit samples rounded to the nearest
// 8-bit value); `out` holds width * 4 bytes.
void ToRgba8Row(const PngImage& layout, const uint8_t* row, uint8_t* out);
// Puts `above` over `below` (`count` 8-bit RGBA pixels each, straight alpha), in place.
void CompositeOverRow(uint8_t* below, const uint8_t* above, size_t count);
// Makes `count` 8-bit RGBA pixels opaque by laying them over a solid colour.
void FlattenRow(uint8_t* rgba, size_t count, Rgb background);

// CompositeOverRow over whole images of the same size.
void CompositeOver(PngImage& below, const PngImage& above);

}  // namespace brivane::tools
