#include "tools/gimp/PluginValues.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "storage/FileHelpers.h"
#include "storage/SettingRanges.h"
#include "tools/render/PresetFile.h"

namespace brivane::gimp {
namespace {

std::vector<std::string> ListNames(bool presets) {
    std::vector<std::string> names;
    for (const std::u16string& path : EnumFiles(GetPluginDir(presets), presets ? u".ini" : u".svg"))
        names.push_back(Utf16ToUtf8(GetFileNameWithoutExt(path)));
    return names;
}

}  // namespace

PluginValues DefaultValues() {
    PluginValues values;
    std::memset(&values, 0, sizeof values);
    GetDefaultPreset(&values.settings);
    values.defaultPoints = 1;
    values.guidePath = -1;
    SetGuide(values, ":S");
    return values;
}

bool SetGuide(PluginValues& values, const std::string& guide) {
    if (guide.size() >= kGuideCapacity) return false;
    std::memset(values.guide, 0, sizeof values.guide);
    guide.copy(values.guide, guide.size());
    return true;
}

void TakePreset(const MoveEffectIniParam& preset, const MoveEffectIniReadFlag& read, const LayerBox& layer,
                PluginValues& values) {
    tools::RenderOptions taken;
    taken.settings = values.settings;
    tools::ApplyPreset(preset, read, "", taken);
    values.settings = taken.settings;
    for (const SettingRange& range : kSettingRanges) {
        if (range.decimal)
            values.settings.*range.decimal = HoldToRange(range, values.settings.*range.decimal);
        else
            values.settings.*range.whole =
                static_cast<int32_t>(std::clamp<double>(values.settings.*range.whole, range.min, range.max));
    }
    if (values.settings.type < 0 || values.settings.type > 2) values.settings.type = 0;

    // Points: the module places all three whenever the preset gives any, from the new arrangement.
    if (read.p1 || read.p2 || read.p3) {
        const PathPoint* given[3] = {&preset.p1, &preset.p2, &preset.p3};
        const bool have[3] = {read.p1, read.p2, read.p3};
        double fallback[3][2];
        DefaultPoints(values.settings.type, layer, fallback);
        const int64_t reach = ScaleToCanvas(std::max(layer.width, layer.height), kMaxPointReach);
        for (int i = 0; i < 3; ++i) {
            if (!have[i]) {
                if (values.defaultPoints) std::copy_n(fallback[i], 2, values.points[i]);
                continue;
            }
            PathPoint place = *given[i];
            if (!std::isfinite(place.x) || !std::isfinite(place.y)) {
                place = {0, 0};
                GetDefaultTargetPoint(values.settings.type, i, place);
            }
            values.points[i][0] = static_cast<double>(
                layer.x + std::clamp(ScaleToCanvas(layer.width, place.x), -reach, layer.width + reach));
            values.points[i][1] = static_cast<double>(
                layer.y + std::clamp(ScaleToCanvas(layer.height, place.y), -reach, layer.height + reach));
        }
        values.defaultPoints = 0;
    }

    // A guide name the module does not list is passed over; the built-in ones always match.
    if (read.name && preset.name[0] != '\0') {
        const std::string name = preset.name;
        const std::string guide = tools::IsBuiltInGuide(taken.guide) ? taken.guide : MatchGuide(name);
        if (!guide.empty()) {
            SetGuide(values, guide);
            values.guidePath = -1;
        }
    }
}

bool ReadNamedPreset(const std::string& nameOrPath, MoveEffectIniParam& preset, MoveEffectIniReadFlag& read,
                     std::string& error) {
    const bool isPath =
        nameOrPath.find('/') != std::string::npos || HasExtension(Utf8ToUtf16(nameOrPath), u".ini");
    if (isPath) return tools::ReadPresetFile(nameOrPath, &preset, &read, error);
    if (LoadPreset(Utf8ToUtf16(nameOrPath), &preset, &read)) return true;
    error = "no usable preset '" + nameOrPath + "' in " + Utf16ToUtf8(GetPluginDir(true));
    return false;
}

tools::RenderOptions ToRenderOptions(const PluginValues& values, const LayerBox& layer) {
    tools::RenderOptions options;
    options.settings = values.settings;
    options.guide = values.guide;
    for (int i = 0; i < 3 && !values.defaultPoints; ++i) {
        options.points[i] = {values.points[i][0] - layer.x, values.points[i][1] - layer.y, false, false};
        options.pointGiven[i] = true;
    }
    return options;
}

std::vector<std::string> ListPresets() {
    return ListNames(true);
}

std::vector<std::string> ListGuides() {
    return ListNames(false);
}

std::string MatchGuide(const std::string& name) {
    const std::u16string wanted = ToLowerCase(Utf8ToUtf16(name));
    for (const std::string& guide : ListGuides())
        if (ToLowerCase(Utf8ToUtf16(guide)) == wanted) return guide;
    return {};
}

void PointsForBox(int type, int32_t x1, int32_t y1, int32_t x2, int32_t y2, double points[3][2]) {
    // Places as fractions of the box, per arrangement.
    static constexpr double kPlaces[3][3][2] = {
        {{0.5, 0.5}, {0.5, 0}, {0.5, -0.5}},  // radiate: centre, inner and outer radius
        {{0, 1}, {0, 0}, {1, 1}},             // parallel: origin, line end, stacking end
        {{0, 0.5}, {1, 0.5}, {0.5, 0}},       // rings: the axis ends, a point on the ellipse
    };
    const int t = type >= 0 && type <= 2 ? type : 0;
    for (int i = 0; i < 3; ++i) {
        points[i][0] = std::trunc(x1 + (x2 - x1) * kPlaces[t][i][0]);
        points[i][1] = std::trunc(y1 + (y2 - y1) * kPlaces[t][i][1]);
    }
}

void DefaultPoints(int type, const LayerBox& layer, double points[3][2]) {
    for (int i = 0; i < 3; ++i) {
        PathPoint place{0, 0};
        GetDefaultTargetPoint(type, i, place);
        points[i][0] = layer.x + std::trunc(layer.width * place.x);
        points[i][1] = layer.y + std::trunc(layer.height * place.y);
    }
}

}  // namespace brivane::gimp
