// LayerImage: the bridge between PNG pixels and the engine's view of a host layer.
//
//   EngineLayer layer(png);                          // png must outlive layer
//   MoveEffectImageParam image = layer.Describe();   // for MoveEffectFilter::SetBaseImage
//
// A host layer always carries alpha, so grey and RGB files without it get an opaque alpha channel in a
// copy; files with alpha are handed over as they are. 16-bit samples stay 16-bit.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/MoveEffectParam.h"
#include "tools/common/PngImage.h"
#include "tools/render/RenderOptions.h"

namespace brivane::tools {

class EngineLayer {
public:
    explicit EngineLayer(const PngImage& png);
    EngineLayer(const EngineLayer&) = delete;
    EngineLayer& operator=(const EngineLayer&) = delete;

    // Points into this object and the PNG; valid while both live.
    MoveEffectImageParam Describe();
    // Grey layers (colour model 1) get grey lines, as in the plug-in.
    bool IsGrey() const { return m_colorModel == 1; }

private:
    const PngImage& m_png;
    std::vector<uint8_t> m_withAlpha;  // the pixels with an opaque alpha added, when the file had none
    uint8_t m_colorModel = 0;          // 0 RGB+A, 1 grey+A
    uint8_t m_offsets[5] = {};         // sample index of each channel
    int m_channels = 0;                // samples per pixel as handed over
};

// Any PNG layout as 8-bit RGBA with straight alpha (16-bit samples rounded to the nearest 8-bit value).
PngImage ToRgba8(const PngImage& png);
// Puts `above` over `below` (both 8-bit RGBA of the same size, straight alpha), in place.
void CompositeOver(PngImage& below, const PngImage& above);
// Makes an 8-bit RGBA image opaque by laying it over a solid colour.
void FlattenOnto(PngImage& rgba, Rgb background);

}  // namespace brivane::tools
