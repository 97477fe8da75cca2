// SampleLayers: the bundled demo layers, drawn in code so that they can be remade at any time
// (`make samples`) and checked against the copies in samples/.
//
//   PngImage focus = MakeFocusSample();   // black page, clear ellipse in the middle
//   WritePng("samples/focus.png", focus, error);
//
// Each layer is the kind of rough ink mask an artist paints before running the effect: lines are laid
// only where it is dark and opaque. The three cover the three colour layouts the renderer reads, so the
// demo exercises each of them.
#pragma once

#include <string>
#include <vector>

#include "tools/common/PngImage.h"

namespace brivane::tools {

// 8-bit RGBA, 1200 x 850: opaque black with a transparent ellipse in the middle (focus lines).
PngImage MakeFocusSample();
// 8-bit grey without alpha, 1200 x 850: white page with a black band that trails a round object on
// the right (speed lines).
PngImage MakeSpeedSample();
// 16-bit grey with alpha, 1000 x 1000: a black ring with a few wedges cut out, on transparency (rings).
PngImage MakeRingsSample();

struct SampleLayer {
    std::string fileName;  // e.g. "focus.png"
    PngImage image;
};

// All of the above with their file names.
std::vector<SampleLayer> MakeSampleLayers();

}  // namespace brivane::tools
