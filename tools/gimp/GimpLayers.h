// GimpLayers: the engine run on a GIMP layer, from the layer's pixels to a new layer above it.
//
//   InkLayer ink;
//   if (!ReadInk(drawable, ink, error)) ...
//   auto filter = DrawEffect(ink, values, progress, error);   // null: bad values, or cancelled
//   gint32 lines = AddLinesLayer(image, drawable, ink, *filter, ForegroundColour());
//
// The ink is read at the layer's own size and place; the lines layer takes the same size and place,
// so the picture under them is never touched.
#pragma once

#include <libgimp/gimp.h>

#include <memory>
#include <string>

#include "engine/MoveEffectFilter.h"
#include "guide/PathParser.h"
#include "tools/gimp/PluginValues.h"
#include "tools/render/EffectLayer.h"
#include "tools/render/LayerImage.h"

namespace brivane::gimp {

struct InkLayer {
    LayerBox box;
    bool grey = false;  // grey images get grey lines, as brivane-render draws on grey files
    tools::EngineLayer engine;
};

// The layer's pixels as the engine reads them: in 8-bit samples for 8-bit images, 16-bit otherwise,
// as brivane-render reads a PNG file of that depth. False with a reason.
bool ReadInk(gint32 drawable, InkLayer& ink, std::string& error);

// The guide the values name: an image path, a built-in guide, a guide of the guide folder, or an SVG
// file. A guide that cannot be drawn along (missing, too large, too many pieces) becomes the straight
// guide, as in the plug-in module; `warning` then says why.
void LoadGuide(const PluginValues& values, PathParser& guide, std::string& warning);

// Draws the effect of the values on the ink. Null when the values are outside the panel's ranges or a
// point lies too far off the layer (`error` says which), or when `progress` stopped the run (`error`
// empty).
std::unique_ptr<MoveEffectFilter> DrawEffect(InkLayer& ink, const PluginValues& values, PathParser& guide,
                                             const tools::ProgressFn& progress, std::string& error);

// The context's foreground colour, which the lines are drawn in.
tools::Rgb ForegroundColour();

// Rows [top, top + rows) of the lines layer, 8-bit RGBA (grey and alpha for a grey image).
void DrawLinesRows(MoveEffectFilter& filter, const InkLayer& ink, tools::Rgb colour, uint8_t* dest,
                   int rowBytes, int top, int rows);

// Adds the lines as a new layer right above `drawable`, in one undo step; returns the layer.
gint32 AddLinesLayer(gint32 image, gint32 drawable, const InkLayer& ink, MoveEffectFilter& filter,
                     tools::Rgb colour);

}  // namespace brivane::gimp
