// The number settings of the panel and their ranges: one table for every front. The plug-in's panel
// declares its sliders from it, a preset's values are held to it when the preset is picked, and the
// command line and the page refuse values outside it, so that a setting is the same wherever it is set.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string_view>

#include "storage/Preset.h"

struct SettingRange {
    std::string_view key;                 // the preset key
    double MoveEffectIniParam::*decimal;  // the field of a decimal setting, else null
    int32_t MoveEffectIniParam::*whole;   // the field of a whole-number setting, else null
    double min;
    double max;

    double Get(const MoveEffectIniParam& preset) const { return decimal ? preset.*decimal : preset.*whole; }
    // The setting's default: its value in the default preset.
    double GetDefault() const {
        MoveEffectIniParam defaults;
        GetDefaultPreset(&defaults);
        return Get(defaults);
    }
};

// clang-format off
inline constexpr SettingRange kSettingRanges[] = {
    {"curvature", &MoveEffectIniParam::curvature, nullptr, -10, 10},
    {"size", &MoveEffectIniParam::size, nullptr, 1, 50},
    {"hardness", &MoveEffectIniParam::hardness, nullptr, 0, 1},
    {"fluction", &MoveEffectIniParam::fluction, nullptr, 0, 1},
    {"in", nullptr, &MoveEffectIniParam::in, 0, 1000},
    {"out", nullptr, &MoveEffectIniParam::out, 0, 1000},
    {"position", nullptr, &MoveEffectIniParam::position, -1000, 1000},
    {"posfluct", &MoveEffectIniParam::posfluct, nullptr, 0, 1},
    {"length", nullptr, &MoveEffectIniParam::length, 0, 1000},
    {"lenfluct", &MoveEffectIniParam::lenfluct, nullptr, 0, 1},
    {"spacing", nullptr, &MoveEffectIniParam::spacing, 1, 1000},
    {"spcfluct", &MoveEffectIniParam::spcfluct, nullptr, 0, 1},
    {"lengain", &MoveEffectIniParam::lengain, nullptr, -100, 100},
    {"spcgain", &MoveEffectIniParam::spcgain, nullptr, -100, 100},
};
// clang-format on

// The switches of the panel, by preset key.
struct SwitchSetting {
    std::string_view key;
    bool MoveEffectIniParam::*field;
};
inline constexpr SwitchSetting kSwitchSettings[] = {
    {"asdist", &MoveEffectIniParam::asdist},
    {"easing", &MoveEffectIniParam::easing},
    {"connect", &MoveEffectIniParam::connect},
};

// How far a canvas point may lie off the canvas: this many times the canvas's longer side beyond any
// edge. A focus centre further away gives spokes no eye can tell from parallel ones, and points further
// apart only make lines the canvas never shows; a preset's points are held within it, and the command
// line and the page refuse points beyond it.
inline constexpr double kMaxPointReach = 4;

// A preset's canvas fraction in pixels, as the plug-in places it: extent * fraction truncated toward
// zero; values a preset could make absurd are held to the representable range instead of overflowing.
inline int64_t ScaleToCanvas(int64_t extent, double fraction) {
    const double scaled = static_cast<double>(extent) * fraction;
    if (std::isnan(scaled)) return 0;
    constexpr double kLimit = 9.2e18;  // just inside the 64-bit range
    if (scaled >= kLimit) return static_cast<int64_t>(kLimit);
    if (scaled <= -kLimit) return -static_cast<int64_t>(kLimit);
    return static_cast<int64_t>(scaled);
}

// The range of a preset key; null for the keys without one (the arrangement, points, guide, switches).
constexpr const SettingRange* FindSettingRange(std::string_view key) {
    for (const SettingRange& range : kSettingRanges)
        if (range.key == key) return &range;
    return nullptr;
}

// value held to the range; NaN gives the setting's default.
inline double HoldToRange(const SettingRange& range, double value) {
    return std::isnan(value) ? range.GetDefault() : std::clamp(value, range.min, range.max);
}
