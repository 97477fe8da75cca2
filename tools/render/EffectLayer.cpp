#include "engine/MoveEffectFilter.h"
#include "tools/render/LayerImage.h"
#include "tools/render/Renderer.h"

// The engine run itself, apart from the file handling around it, so that builds without libpng (the
// web page) link the same code path as brivane-render.
namespace brivane::tools {

bool RenderEffectLayer(const MoveEffectParam& param, const PointTarget& target, PathParser& guide,
                       const PngImage& layer, Rgb color, const ProgressFn& progress, PngImage& out) {
    struct Progress {
        const ProgressFn* fn;
        bool stopped;
    } state{&progress, false};

    MoveEffectFilter filter(param);
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
    EngineLayer engineLayer(layer);
    const MoveEffectImageParam image = engineLayer.Describe();
    filter.SetBaseImage(&image);
    filter.ApplyEffect(false);
    if (state.stopped) return false;

    // The plug-in hands a grey layer the grey of its main colour.
    unsigned char colour[5] = {color.r, color.g, color.b, 0, 0};
    if (engineLayer.IsGrey()) {
        const auto grey = static_cast<unsigned char>((77 * color.r + 150 * color.g + 29 * color.b) >> 8);
        colour[0] = colour[1] = colour[2] = grey;
    }
    PngImage result;
    result.width = layer.width;
    result.height = layer.height;
    result.channels = 4;
    result.bitDepth = 8;
    result.pixels.resize(result.RowBytes() * result.height);
    filter.DrawToCanvas(0, 0, colour, result.pixels.data(), static_cast<int>(result.RowBytes()));
    out = std::move(result);
    return true;
}

}  // namespace brivane::tools
