// The engine run itself, apart from the file handling around it, so that builds without libpng (the
// web page) run the same code as brivane-render.
#pragma once

#include <cstdint>
#include <string>

#include "engine/MoveEffectFilter.h"
#include "guide/PathParser.h"
#include "tools/render/LayerImage.h"
#include "tools/render/Renderer.h"

namespace brivane::tools {

// Reads the text of an SVG guide into `guide`. Returns what makes it unusable ("no path with drawing
// commands", "malformed number in the path data", past the guide limits, "the path has no horizontal
// extent"), or an empty string when it can be drawn along.
std::string ReadGuideText(const std::string& svg, PathParser& guide);
// The reason given for a guide file of `bytes` bytes, past PathParser::kMaxGuideBytes.
std::string GuideTooLarge(std::uintmax_t bytes);

// Runs the effect over `layer` into the filter's coverage; false when the progress callback stopped it.
bool ApplyEffectTo(MoveEffectFilter& filter, const PointTarget& target, PathParser& guide, EngineLayer& layer,
                   const ProgressFn& progress);

// The colour samples the plug-in hands the engine: on a grey layer the grey of its main colour.
struct LineColour {
    unsigned char samples[5] = {};
    LineColour(Rgb color, bool grey) : samples{color.r, color.g, color.b, 0, 0} {
        if (grey) samples[0] = samples[1] = samples[2] = GreyOf(color.r, color.g, color.b);
    }
};

// Draws the effect of `param` on `layer` into `out` (8-bit RGBA: the line colour, coverage as alpha),
// whole, with the same pixels as brivane-render writes. Returns false, with `out` untouched, when the
// progress callback stopped the run.
bool RenderEffectLayer(const MoveEffectParam& param, const PointTarget& target, PathParser& guide,
                       const PngImage& layer, Rgb color, const ProgressFn& progress, PngImage& out);

}  // namespace brivane::tools
