// RenderOptions: the command line of brivane-render, read into the settings of one rendering.
//
//   RenderOptions options;
//   std::string error;
//   if (!ParseRenderArgs({"page.png", "--type", "parallel", "--size", "3", "-o", "out.png"}, options, error))
//       ...  // error is one line, e.g. "--size: 'x' is not a number"
//
// Effect settings are kept as a preset record under their INI key names and start as the plug-in's
// default preset; arguments are applied from left to right, so settings after a --preset override it.
// Target points left unset follow the chosen arrangement's default points, as the plug-in places them
// when the arrangement changes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/MoveEffectParam.h"
#include "storage/Preset.h"

namespace brivane::tools {

// A target point as given: each coordinate either in pixels or as a fraction of the canvas side.
struct CanvasPoint {
    double x = 0;            // px, or 0..1 of the width when xRelative
    double y = 0;            // px, or 0..1 of the height when yRelative
    bool xRelative = false;  // given with "%" on the command line, or read from a preset
    bool yRelative = false;
};

struct Rgb {
    uint8_t r = 0, g = 0, b = 0;
};

struct RenderOptions {
    std::string input;       // the layer, a PNG file
    std::string output;      // -o: where the RGBA result goes
    std::string savePreset;  // --save-preset: where the settings go as a preset, or empty
    bool over = false;       // --over: lines composited over the input instead of the bare layer
    bool quiet = false;      // --quiet: no progress bar even on a terminal
    bool small = false;      // --small: a smaller PNG at several times the writing time
    bool help = false;       // --help was given: nothing else is checked
    bool version = false;    // --version was given: nothing else is checked

    MoveEffectIniParam settings;        // every effect setting; name is the guide's name for presets
    std::array<CanvasPoint, 3> points;  // p1, p2, p3
    std::array<bool, 3> pointGiven{};   // set by a preset or the command line

    std::string guide = ":S";  // ":S", ":C", an SVG file, or a guide name from a preset
    std::string guideFolder;   // first place to look for a guide name that came from a preset

    Rgb color;                      // --color: line colour (the host's main colour); black by default
    std::optional<Rgb> background;  // --background: flatten the result onto this colour

    std::vector<std::string> readFiles;  // every file read besides the input, never to be overwritten
};

// Whether `guide` names one of the built-in guides, ":S" or ":C", as RenderOptions::guide holds them.
bool IsBuiltInGuide(const std::string& guide);

// Parses the arguments (without the program name). Preset files are read as they are met. Returns false
// with a one-line reason; `options` may then be partly filled.
bool ParseRenderArgs(const std::vector<std::string>& args, RenderOptions& options, std::string& error);

// False, with a one-line reason naming the first setting outside the plug-in panel's range (a value
// the plug-in could never be given); NaN is outside every range.
bool CheckRanges(const MoveEffectIniParam& settings, std::string& error);

// Takes over what a preset gives, field by field, as the plug-in does when a preset is chosen; a guide
// name it gives is looked up in `folder` first.
void ApplyPreset(const MoveEffectIniParam& preset, const MoveEffectIniReadFlag& read,
                 const std::string& folder, RenderOptions& options);

// The --help text.
std::string RenderUsage();

// The target in pixels for a canvas of that size: unset points take the arrangement's default, and
// fractions are scaled and truncated toward zero as the plug-in does. False when a point lies so far
// off the canvas (beyond kMaxPointReach times its longer side) that the plug-in would not take it.
bool ResolveTarget(const RenderOptions& options, uint32_t width, uint32_t height, PointTarget& target,
                   std::string& error);

// The plug-in's conversion of its settings into engine parameters: in/out are thousandths of the line
// length unless asdist, the rest is copied.
MoveEffectParam ToEffectParam(const MoveEffectIniParam& settings);

// The target points as canvas fractions, as the plug-in saves them into a preset.
MoveEffectIniParam ToPresetRecord(const RenderOptions& options, const PointTarget& target, uint32_t width,
                                  uint32_t height);

}  // namespace brivane::tools
