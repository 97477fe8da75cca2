#include "tools/gimp/GimpLayers.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <vector>

#include "storage/FileHelpers.h"

namespace brivane::gimp {
namespace {

// Rows moved between GIMP and the engine at a time: a few megabytes on the widest pages.
constexpr int kBandRows = 64;

// The image path as SVG path data, so that it meets the same reader and bounds as a guide file. Each
// stroke is a chain of anchors with a control point before and after each.
std::string PathAsSvg(gint32 vectors) {
    std::string svg = "<svg><path d=\"";
    gint strokeCount = 0;
    gint* strokes = gimp_vectors_get_strokes(vectors, &strokeCount);
    char number[64];
    auto point = [&](const double* p) {
        std::snprintf(number, sizeof number, " %.17g %.17g", p[0], p[1]);
        svg += number;
    };
    for (gint s = 0; s < strokeCount && svg.size() <= PathParser::kMaxGuideBytes; ++s) {
        gint count = 0;
        gdouble* points = nullptr;
        gboolean closed = FALSE;
        const GimpVectorsStrokeType type =
            gimp_vectors_stroke_get_points(vectors, strokes[s], &count, &points, &closed);
        const int anchors = type == GIMP_VECTORS_STROKE_TYPE_BEZIER ? count / 6 : 0;
        for (int a = 0; a < anchors; ++a) {
            const double* at = points + a * 6;  // before, anchor, after
            if (a == 0) {
                svg += " M";
                point(at + 2);
                continue;
            }
            svg += " C";
            point(at - 2);
            point(at);
            point(at + 2);
        }
        if (closed && anchors > 1) {
            svg += " C";
            point(points + anchors * 6 - 2);
            point(points);
            point(points + 2);
        }
        g_free(points);
    }
    g_free(strokes);
    return svg + "\"/></svg>";
}

}  // namespace

bool ReadInk(gint32 drawable, InkLayer& ink, std::string& error) {
    if (!gimp_item_is_layer(drawable)) {
        error = "the lines are drawn from a layer: pick a layer, not a mask or channel";
        return false;
    }
    if (gimp_drawable_is_indexed(drawable)) {
        error = "the lines are drawn on RGB and grey images: convert the image with Image > Mode first";
        return false;
    }
    gint x = 0, y = 0;
    gimp_drawable_offsets(drawable, &x, &y);
    ink.box = {x, y, static_cast<uint32_t>(gimp_drawable_width(drawable)),
               static_cast<uint32_t>(gimp_drawable_height(drawable))};
    ink.grey = gimp_drawable_is_gray(drawable);
    const bool alpha = gimp_drawable_has_alpha(drawable);
    const GimpPrecision precision = gimp_image_get_precision(gimp_item_get_image(drawable));
    const bool wide = precision != GIMP_PRECISION_U8_GAMMA && precision != GIMP_PRECISION_U8_LINEAR;

    tools::PngImage header;
    header.width = ink.box.width;
    header.height = ink.box.height;
    header.channels = (ink.grey ? 1 : 3) + (alpha ? 1 : 0);
    header.bitDepth = wide ? 16 : 8;
    if (!ink.engine.Begin(header, error)) return false;
    std::string name = ink.grey ? "Y'" : "R'G'B'";
    name += alpha ? "A" : "";
    name += wide ? " u16" : " u8";
    const Babl* format = babl_format(name.c_str());

    GeglBuffer* buffer = gimp_drawable_get_buffer(drawable);
    const std::size_t rowBytes = header.RowBytes();
    std::vector<uint8_t> band(rowBytes * kBandRows);
    for (uint32_t top = 0; top < header.height; top += kBandRows) {
        const int rows = static_cast<int>(std::min<uint32_t>(kBandRows, header.height - top));
        const GeglRectangle area{0, static_cast<gint>(top), static_cast<gint>(header.width), rows};
        gegl_buffer_get(buffer, &area, 1.0, format, band.data(), static_cast<gint>(rowBytes),
                        GEGL_ABYSS_NONE);
        for (int r = 0; r < rows; ++r) {
            std::copy_n(band.data() + r * rowBytes, rowBytes, ink.engine.Row(top + r));
            ink.engine.RowDone(top + r);
        }
    }
    g_object_unref(buffer);
    return true;
}

void LoadGuide(const PluginValues& values, PathParser& guide, std::string& warning) {
    std::string text;
    std::string what;
    std::string problem;
    if (values.guidePath >= 0) {
        char* name = gimp_item_get_name(values.guidePath);
        what = std::string("the path '") + (name ? name : "") + "'";
        g_free(name);
        if (gimp_item_is_vectors(values.guidePath)) text = PathAsSvg(values.guidePath);
    } else if (tools::IsBuiltInGuide(values.guide)) {
        guide.LoadFromFile(Utf8ToUtf16(values.guide));
        return;
    } else {
        // A bare name is one of the guide folder's, letter case ignored; anything else is a file.
        const std::string listed = MatchGuide(values.guide);
        const std::string path = listed.empty() ? std::string(values.guide)
                                                : Utf16ToUtf8(GetPluginDataPath(Utf8ToUtf16(listed), false));
        what = "the guide " + path;
        if (ReadAllTextWithin(path, PathParser::kMaxGuideBytes, text) == ReadResult::kTooLarge) {
            std::error_code ignored;
            problem = tools::GuideTooLarge(std::filesystem::file_size(path, ignored));
        }
    }
    if (problem.empty()) problem = text.empty() ? "it cannot be read" : tools::ReadGuideText(text, guide);
    if (problem.empty()) return;
    warning = what + " is drawn as a straight line: " + problem;
    guide.CreateLine();
}

std::unique_ptr<MoveEffectFilter> DrawEffect(InkLayer& ink, const PluginValues& values, PathParser& guide,
                                             const tools::ProgressFn& progress, std::string& error) {
    const tools::RenderOptions options = ToRenderOptions(values, ink.box);
    if (!tools::CheckRanges(options.settings, error)) return nullptr;
    if (options.settings.type < 0 || options.settings.type > 2) {
        error = "the arrangement is 0 (radiate), 1 (parallel) or 2 (rings)";
        return nullptr;
    }
    PointTarget target{};
    if (!tools::ResolveTarget(options, ink.box.width, ink.box.height, target, error)) return nullptr;
    auto filter = std::make_unique<MoveEffectFilter>(tools::ToEffectParam(options.settings));
    if (!tools::ApplyEffectTo(*filter, target, guide, ink.engine, progress)) return nullptr;
    return filter;
}

tools::Rgb ForegroundColour() {
    GimpRGB colour;
    gimp_context_get_foreground(&colour);
    tools::Rgb rgb;
    gimp_rgb_get_uchar(&colour, &rgb.r, &rgb.g, &rgb.b);
    return rgb;
}

void DrawLinesRows(MoveEffectFilter& filter, const InkLayer& ink, tools::Rgb colour, uint8_t* dest,
                   int rowBytes, int top, int rows) {
    tools::LineColour samples(colour, ink.grey);
    filter.DrawRowsToCanvas(ink.grey ? 1 : 0, 0, samples.samples, dest, rowBytes, top, rows);
}

gint32 AddLinesLayer(gint32 image, gint32 drawable, const InkLayer& ink, MoveEffectFilter& filter,
                     tools::Rgb colour) {
    const gint width = static_cast<gint>(ink.box.width);
    const gint height = static_cast<gint>(ink.box.height);
    gimp_image_undo_group_start(image);
    const gint32 layer =
        gimp_layer_new(image, "Effect lines", width, height, ink.grey ? GIMP_GRAYA_IMAGE : GIMP_RGBA_IMAGE,
                       100.0, GIMP_LAYER_MODE_NORMAL);
    gimp_layer_set_offsets(layer, ink.box.x, ink.box.y);
    // At the artist's layer's own place in the stack, which puts it right above that layer.
    gimp_image_insert_layer(image, layer, gimp_item_get_parent(drawable),
                            gimp_image_get_item_position(image, drawable));

    GeglBuffer* buffer = gimp_drawable_get_buffer(layer);
    const Babl* format = babl_format(ink.grey ? "Y'A u8" : "R'G'B'A u8");
    const int rowBytes = width * (ink.grey ? 2 : 4);
    std::vector<uint8_t> band(static_cast<std::size_t>(rowBytes) * kBandRows);
    // A new layer starts as zero bytes, and every tile handed to GIMP costs a round trip: runs of tiles
    // that hold anything else are written, the rest left as they are.
    const int pixelBytes = ink.grey ? 2 : 4;
    auto tileIsEmpty = [&](int rows, gint left) {
        const gint right = std::min(width, left + kBandRows);
        for (int r = 0; r < rows; ++r) {
            const uint8_t* row = band.data() + static_cast<std::size_t>(r) * rowBytes;
            if (std::any_of(row + left * pixelBytes, row + right * pixelBytes,
                            [](uint8_t b) { return b != 0; }))
                return false;
        }
        return true;
    };
    for (gint top = 0; top < height; top += kBandRows) {
        const int rows = std::min(kBandRows, height - top);
        DrawLinesRows(filter, ink, colour, band.data(), rowBytes, top, rows);
        for (gint left = 0; left < width;) {
            gint right = left;
            while (right < width && !tileIsEmpty(rows, right))
                right += kBandRows;
            if (right > left) {
                const GeglRectangle area{left, top, std::min(right, width) - left, rows};
                gegl_buffer_set(buffer, &area, 0, format, band.data() + left * pixelBytes, rowBytes);
            }
            left = right + kBandRows;
        }
    }
    gegl_buffer_flush(buffer);
    g_object_unref(buffer);
    gimp_drawable_update(layer, 0, 0, width, height);
    gimp_image_undo_group_end(image);
    return layer;
}

}  // namespace brivane::gimp
