#include "tools/render/EffectLayer.h"

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace brivane::tools {

std::string ReadGuideText(const std::string& svg, PathParser& guide) {
    if (svg.size() > PathParser::kMaxGuideBytes) return GuideTooLarge(svg.size());
    try {
        if (!guide.Parse(svg)) return "no path with drawing commands";
    } catch (const std::exception&) {
        // The reader lets the standard number conversion's error through for a malformed "d".
        return "malformed number in the path data";
    }
    if (!guide.IsWithinGuideLimits())
        return "more than " + std::to_string(PathParser::kMaxGuidePieces) +
               " pieces once flattened (the plug-in draws such a guide as a straight line)";
    if (!(guide.GetWidth() > 0)) return "the path has no horizontal extent";
    return {};
}

std::string GuideTooLarge(std::uintmax_t bytes) {
    return std::to_string(bytes) + " bytes, more than the " +
           std::to_string(PathParser::kMaxGuideBytes / 1024) +
           " KiB a guide may hold (the plug-in draws such a guide as a straight line)";
}

bool ApplyEffectTo(MoveEffectFilter& filter, const PointTarget& target, PathParser& guide, EngineLayer& layer,
                   const ProgressFn& progress) {
    struct Progress {
        const ProgressFn* fn;
        bool stopped;
    } state{&progress, false};

    filter.SetTarget(target);
    filter.AttachGuide(&guide);
    if (progress) {
        filter.SetProgressCallback(
            [](int total, int done, void* user) -> int {
                auto* s = static_cast<Progress*>(user);
                if (!s->stopped && !(*s->fn)(total, done)) s->stopped = true;
                return s->stopped ? 0 : 1;
            },
            &state);
    }
    const MoveEffectImageParam image = layer.Describe();
    filter.SetBaseImage(&image);
    filter.ApplyEffect(false);
    return !state.stopped;
}

bool RenderEffectLayer(const MoveEffectParam& param, const PointTarget& target, PathParser& guide,
                       const PngImage& layer, Rgb color, const ProgressFn& progress, PngImage& out) {
    MoveEffectFilter filter(param);
    EngineLayer engineLayer(layer);
    if (!ApplyEffectTo(filter, target, guide, engineLayer, progress)) return false;

    LineColour colour(color, engineLayer.IsGrey());
    PngImage result;
    result.width = layer.width;
    result.height = layer.height;
    result.channels = 4;
    result.bitDepth = 8;
    result.pixels.resize(result.RowBytes() * result.height);
    filter.DrawToCanvas(0, 0, colour.samples, result.pixels.data(), static_cast<int>(result.RowBytes()));
    out = std::move(result);
    return true;
}

}  // namespace brivane::tools
