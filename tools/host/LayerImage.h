// Conversions between PNG files and the simulated host's layers and selection.
#pragma once

#include <string>
#include <string_view>

#include "tools/common/PngImage.h"
#include "tools/host/SimHost.h"

namespace brivane::tools {

// The kinds of layer the simulated host can hand to a filter; each has its channel order and target kind.
enum class LayerKind {
    Rgb,    // colour with alpha, channel order 3, stored blue, green, red, alpha
    Gray,   // grey with alpha, channel order 2
    Rgba,   // colour with alpha, channel order 4, stored alpha, red, green, blue
    Alpha,  // coverage only, channel order 5
    Mask,   // black-or-white mask layer, channel order 6
};

// "rgb", "gray", "rgba", "alpha", "mask".
bool ParseLayerKind(std::string_view name, LayerKind& kind);
const char* LayerKindName(LayerKind kind);
int64_t TargetKindOf(LayerKind kind);
// Grey images become grey layers, colour images colour layers.
LayerKind DefaultLayerKind(const PngImage& png);

// A layer of the given kind from any PNG the reader returns (16-bit samples keep their high byte). An
// alpha layer takes the PNG's alpha, or the darkness of an image without alpha.
SimImage LayerFromPng(const PngImage& png, LayerKind kind);
// A one-byte selection mask: white selects; transparent pixels do not.
SimImage SelectionFromPng(const PngImage& png);
// An 8-bit PNG of a layer: RGBA for colour layers, grey with alpha for grey and mask layers, grey for an
// alpha layer.
PngImage PngFromLayer(const SimImage& layer);
// Writes that PNG a row at a time, without holding it whole.
bool WriteLayerPng(const std::string& path, const SimImage& layer, std::string& error);

}  // namespace brivane::tools
