// PluginValues: what one run of the GIMP procedure draws with, apart from GIMP itself.
//
//   PluginValues values;                       // the plug-in's default preset, default places
//   TakePreset(preset, read, layer, values);   // as the plug-in module takes a preset picked in its panel
//   RenderOptions options = ToRenderOptions(values, offsetX, offsetY);
//
// The values are a plain record so that GIMP can keep them between runs (gimp_set_data).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "storage/Preset.h"
#include "tools/render/RenderOptions.h"

namespace brivane::gimp {

// Room for a guide: ":S", ":C", a name in the guide folder, or the path of an SVG file.
inline constexpr std::size_t kGuideCapacity = 1024;

struct PluginValues {
    MoveEffectIniParam settings;  // every effect setting; settings.name is unused here
    double points[3][2];          // p1..p3 in image pixels
    int32_t defaultPoints;        // non-zero: the arrangement's default places, not `points`
    int32_t guidePath;            // an image path (GIMP vectors) to draw along, or -1
    char guide[kGuideCapacity];   // the guide when guidePath is -1; NUL-terminated
};

// Where the drawn-on layer lies in the image, in image pixels.
struct LayerBox {
    int32_t x = 0;
    int32_t y = 0;
    uint32_t width = 0;
    uint32_t height = 0;
};

// The default preset, default places, the straight guide.
PluginValues DefaultValues();

// Stores `guide` when it fits; false (values unchanged) when it is too long.
bool SetGuide(PluginValues& values, const std::string& guide);

// Takes a preset over, key by key, as the plug-in module takes one that is picked in its panel: numbers
// held to the panel's ranges (NaN gives the default), points given as canvas fractions placed on a canvas
// of the layer's size and held within reach of it (a point that is not finite takes the arrangement's
// default place), a guide name used only when it names a built-in guide or a guide of the guide folder.
void TakePreset(const MoveEffectIniParam& preset, const MoveEffectIniReadFlag& read, const LayerBox& layer,
                PluginValues& values);

// Reads a preset given by name (a preset of the plug-in module's folder) or by the path of an .ini file,
// with the module's bound on its size. False with a one-line reason.
bool ReadNamedPreset(const std::string& nameOrPath, MoveEffectIniParam& preset, MoveEffectIniReadFlag& read,
                     std::string& error);

// The settings as the command-line renderer takes them: the points become layer pixels.
tools::RenderOptions ToRenderOptions(const PluginValues& values, const LayerBox& layer);

// The names of the plug-in module's presets and of the SVG guides in its guide folder, in listing order.
std::vector<std::string> ListPresets();
std::vector<std::string> ListGuides();
// The guide of the guide folder whose name is `name`, letter case ignored, as the module matches it;
// empty when there is none.
std::string MatchGuide(const std::string& name);

// The three points that fit an arrangement into a box (a selection's bounds, right and bottom
// exclusive): radiate around the box with its inner radius reaching the box's top, parallel lines up the
// box's left edge stacked toward its right, rings on the ellipse the box bounds.
void PointsForBox(int type, int32_t x1, int32_t y1, int32_t x2, int32_t y2, double points[3][2]);
// The arrangement's default places on the layer, in image pixels, as the renderer places them.
void DefaultPoints(int type, const LayerBox& layer, double points[3][2]);

}  // namespace brivane::gimp
