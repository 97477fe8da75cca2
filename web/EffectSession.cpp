// The page's way into the engine: one EffectSession per Web Worker holds the page, the settings and
// the guides, and renders with the same code as brivane-render (RenderEffectLayer), the settings kept
// in the plug-in's preset record and changed through its preset grammar.
//
//   const session = new Module.EffectSession();
//   session.setLayer(width, height, rgbaBytes);
//   session.setValue("size", "4");                 // any preset key, any text the preset file accepts
//   if (session.render(0, 0, 0, (total, done) => true)) rows = session.pngRows(false);
//
// Nothing here runs on the page's main thread.
#include <emscripten/bind.h>
#include <emscripten/val.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "engine/MoveEffectFilter.h"
#include "guide/PathParser.h"
#include "storage/Preset.h"
#include "tools/render/EffectLayer.h"
#include "tools/render/LayerImage.h"
#include "tools/render/RenderOptions.h"
#include "tools/render/Renderer.h"
#include "web/PngFile.h"

namespace {

using emscripten::val;
using namespace brivane::tools;

// The live preview is drawn on a copy of the page no larger than this on its longer side: about the
// size the page is shown at, so a preview costs a small fraction of the full render.
constexpr uint32_t kPreviewSide = 1024;

// The word the preset file gives an arrangement (0 radiate, 1 parallel, 2 circle) in, so the page
// can name arrangements by their row in the panel's list.
std::string ArrangementWord(int32_t type) {
    MoveEffectIniParam record;
    GetDefaultPreset(&record);
    record.type = type;
    const std::string text = FormatPresetText(record);
    const size_t start = text.find("type=") + 5;
    return text.substr(start, text.find('\n', start) - start);
}

// Calls visit(section, key, value) for each "key=value" line of a preset text; the section is the
// "[...]" line above it.
template <class Visit>
void ForEachPresetEntry(const std::string& text, Visit&& visit) {
    std::string section, line;
    for (const char c : text + "\n") {
        if (c != '\n') {
            line.push_back(c);
            continue;
        }
        if (line.size() > 2 && line.front() == '[') section = line;
        const size_t equals = line.find('=');
        if (equals != std::string::npos) visit(section, line.substr(0, equals), line.substr(equals + 1));
        line.clear();
    }
}

// The section each preset key is written in, learnt from the preset text itself.
const std::map<std::string, std::string>& KeyCategories() {
    static const std::map<std::string, std::string> categories = [] {
        MoveEffectIniParam defaults;
        GetDefaultPreset(&defaults);
        std::map<std::string, std::string> found;
        ForEachPresetEntry(FormatPresetText(defaults),
                           [&found](const std::string& section, const std::string& key, const std::string&) {
                               found[key] = section;
                           });
        return found;
    }();
    return categories;
}

// The page averaged down so that its longer side is at most `side`: each preview pixel the mean of
// the page pixels it covers, colours weighted by their alpha so that clear areas stay clear.
PngImage Shrink(const PngImage& page, uint32_t side) {
    const double scale = std::min(1.0, static_cast<double>(side) / std::max(page.width, page.height));
    PngImage small;
    small.width = std::max<uint32_t>(1, static_cast<uint32_t>(page.width * scale));
    small.height = std::max<uint32_t>(1, static_cast<uint32_t>(page.height * scale));
    small.channels = 4;
    small.bitDepth = 8;
    small.pixels.resize(small.RowBytes() * small.height);
    for (uint32_t y = 0; y < small.height; ++y) {
        const uint32_t y0 = y * page.height / small.height,
                       y1 = std::max(y0 + 1, (y + 1) * page.height / small.height);
        for (uint32_t x = 0; x < small.width; ++x) {
            const uint32_t x0 = x * page.width / small.width,
                           x1 = std::max(x0 + 1, (x + 1) * page.width / small.width);
            uint64_t sum[4] = {0, 0, 0, 0};
            for (uint32_t sy = y0; sy < y1; ++sy)
                for (uint32_t sx = x0; sx < x1; ++sx) {
                    const uint8_t* p = &page.pixels[(static_cast<size_t>(sy) * page.width + sx) * 4];
                    for (int c = 0; c < 3; ++c)
                        sum[c] += p[c] * p[3];
                    sum[3] += p[3];
                }
            uint8_t* q = &small.pixels[(static_cast<size_t>(y) * small.width + x) * 4];
            const uint64_t count = static_cast<uint64_t>(y1 - y0) * (x1 - x0);
            for (int c = 0; c < 3; ++c)
                q[c] = static_cast<uint8_t>(sum[3] ? sum[c] / sum[3] : 0);
            q[3] = static_cast<uint8_t>(sum[3] / count);
        }
    }
    return small;
}

// Settings measured in page pixels shrink with the page, so the preview looks like the full render
// seen at that size. Radiate spacing is an angle and fractional tapers a share of the line: they stay.
MoveEffectParam ScaleParam(MoveEffectParam p, double scale) {
    const auto px = [scale](int32_t v) { return static_cast<int32_t>(std::lround(v * scale)); };
    // A pen thinner than a screen pixel would vanish from the preview altogether.
    p.size = std::max(1.0, p.size * scale);
    p.position = px(p.position);
    p.length = px(p.length);
    p.lengain *= scale;
    if (p.asdist) {
        p.in *= scale;
        p.out *= scale;
    }
    if (p.type != 0) {
        p.spacing = std::max(1, px(p.spacing));
        p.spcgain *= scale;
    }
    return p;
}

val Bytes(const std::vector<uint8_t>& bytes) {
    // A copy owned by JavaScript: a view into the module's memory would go stale when it grows.
    val array = val::global("Uint8Array").new_(bytes.size());
    array.call<void>("set", val(emscripten::typed_memory_view(bytes.size(), bytes.data())));
    return array;
}

}  // namespace

class EffectSession {
public:
    EffectSession() { GetDefaultPreset(&m_options.settings); }

    // The page as the browser decoded it: straight RGBA, 8 bits a sample.
    void SetLayer(uint32_t width, uint32_t height, const val& rgba) {
        m_page = {};
        m_page.width = width;
        m_page.height = height;
        m_page.channels = 4;
        m_page.pixels = emscripten::convertJSArrayToNumberVector<uint8_t>(rgba);
        m_page.pixels.resize(m_page.RowBytes() * height);
        m_preview = Shrink(m_page, kPreviewSide);
    }

    // One setting by its preset key, read by the preset grammar: false when the key is unknown or the
    // value is one a preset file could not give, and the setting is then unchanged. A guide name must
    // be built in or added first; the arrangement may also be given as its row, "0" to "2", and moves
    // the handles to its default places.
    bool SetValue(const std::string& key, const std::string& text) {
        const auto category = KeyCategories().find(key);
        if (category == KeyCategories().end()) return false;
        if (key == "name" && !IsBuiltInGuide(text) && m_guides.count(text) == 0) return false;
        const bool row = key == "type" && text.size() == 1 && text[0] >= '0' && text[0] <= '2';
        const std::string value = row ? ArrangementWord(text[0] - '0') : text;
        if (Apply(category->second + "\n" + key + "=" + value + "\n") == 0) return false;
        // A new arrangement brings its own default handle places, as the plug-in's panel does.
        if (key == "type") m_options.pointGiven = {};
        return true;
    }

    // Why the last preset or setting was refused; empty when it was taken.
    std::string Refusal() const { return m_refusal; }

    // The largest guide and preset files the plug-in reads, for the page to refuse before reading.
    val Limits() const {
        val limits = val::object();
        limits.set("guideBytes", static_cast<double>(PathParser::kMaxGuideBytes));
        limits.set("presetBytes", static_cast<double>(kPresetMaxBytes));
        return limits;
    }

    // A whole preset file. Returns how many settings it gave; a guide it names that the page has not
    // loaded is ignored, as the plug-in ignores a guide name it does not list.
    int LoadPreset(const std::string& text) { return Apply(text); }

    // The settings as a preset file, points as fractions of the page as the plug-in saves them.
    std::string PresetText() const { return FormatPresetText(Record()); }

    // Every setting under its preset key, as the text the preset file holds; the arrangement as its row.
    val Values() const {
        val values = val::object();
        ForEachPresetEntry(PresetText(), [&values](const std::string&, const std::string& key,
                                                   const std::string& text) { values.set(key, text); });
        values.set("type", m_options.settings.type);
        return values;
    }

    // Reads an SVG guide; an empty answer means it can be chosen by `name`, else it says what is wrong.
    std::string AddGuide(const std::string& name, const std::string& svg) {
        if (svg.empty()) return "no path with drawing commands";
        PathParser guide;
        if (std::string problem = ReadGuideText(svg, guide); !problem.empty()) return problem;
        if (name.empty() || IsBuiltInGuide(name) || name.size() > kIniNameMaxLength) return "unusable name";
        m_guides[name] = svg;
        return {};
    }

    // The handles in page pixels and the ellipse the rings follow, for drawing the outline.
    val Target() const {
        PointTarget t{};
        std::string error;
        ResolveTarget(m_options, m_page.width, m_page.height, t, error);
        CircleTarget circle{};
        MoveEffectFilter::CreateCircleParam(&t, &circle);
        val out = val::object();
        out.set("type", m_options.settings.type);
        out.set("points", val::array(std::vector<int32_t>{t.x1, t.y1, t.x2, t.y2, t.x3, t.y3}));
        out.set("ellipse",
                val::array(std::vector<double>{static_cast<double>(circle.cx), static_cast<double>(circle.cy),
                                               circle.radiusX, circle.radiusY, circle.angle}));
        return out;
    }

    // The effect layer at full size in the colour given, kept for PngRows. `progress(total, done)` is
    // called after each line; a false answer stops the run, and the result is false.
    bool Render(uint8_t r, uint8_t g, uint8_t b, const val& progress) {
        m_result = {};
        const ProgressFn report = [&progress](int total, int done) {
            return progress(total, done).as<bool>();
        };
        return RenderOn(m_page, ToEffectParam(m_options.settings), {r, g, b}, report, m_result);
    }

    // The same on the shrunken page, with the settings shrunk alike: {width, height, pixels}.
    val RenderPreview(uint8_t r, uint8_t g, uint8_t b) const {
        const double scale = m_page.width ? static_cast<double>(m_preview.width) / m_page.width : 1.0;
        PngImage layer;
        RenderOn(m_preview, ScaleParam(ToEffectParam(m_options.settings), scale), {r, g, b}, nullptr, layer);
        val out = val::object();
        out.set("width", layer.width);
        out.set("height", layer.height);
        out.set("pixels", Bytes(layer.pixels));
        return out;
    }

    // The last full render as the rows of a PNG file, to be deflated by the browser: the bare layer,
    // or the lines over the page. Empty before a render has finished.
    val PngRows(bool over) const {
        if (m_result.pixels.empty()) return Bytes({});
        if (!over) return Bytes(PngScanlines(m_result));
        PngImage below = m_page;
        CompositeOver(below, m_result);
        return Bytes(PngScanlines(below));
    }

    // The PNG file of the last render around its deflated rows.
    val PngFile(const val& deflated) const {
        return Bytes(PngFileBytes(m_result.width, m_result.height,
                                  emscripten::convertJSArrayToNumberVector<uint8_t>(deflated)));
    }

private:
    // A preset, or one setting, is taken whole or not at all: a value outside the plug-in panel's
    // range, or a point beyond its reach of the page, refuses it with the reason (Refusal), as the
    // command line refuses them.
    int Apply(const std::string& text) {
        m_refusal.clear();
        MoveEffectIniParam preset;
        MoveEffectIniReadFlag read{};
        if (!ParsePresetText(text, &preset, &read)) return 0;
        if (read.name && !IsBuiltInGuide(preset.name) && m_guides.count(preset.name) == 0) read.name = false;
        RenderOptions options = m_options;
        ApplyPreset(preset, read, "", options);
        PointTarget target{};
        if (!CheckRanges(options.settings, m_refusal) ||
            (!m_page.pixels.empty() &&
             !ResolveTarget(options, m_page.width, m_page.height, target, m_refusal)))
            return 0;
        m_options = std::move(options);
        const bool* flags = &read.type;
        return static_cast<int>(std::count(flags, flags + sizeof read / sizeof(bool), true));
    }

    MoveEffectIniParam Record() const {
        PointTarget target{};
        std::string error;
        ResolveTarget(m_options, m_page.width, m_page.height, target, error);
        return ToPresetRecord(m_options, target, m_page.width, m_page.height);
    }

    bool RenderOn(const PngImage& page, const MoveEffectParam& param, Rgb color, const ProgressFn& progress,
                  PngImage& out) const {
        if (page.pixels.empty()) return false;
        PointTarget target{};
        std::string error;
        if (!ResolveTarget(m_options, page.width, page.height, target, error)) return false;
        PathParser guide;
        const std::string& name = m_options.guide;
        if (IsBuiltInGuide(name)) {
            guide.LoadFromFile(name == ":S" ? u":S" : u":C");
        } else {
            guide.Parse(m_guides.at(name));
        }
        return RenderEffectLayer(param, target, guide, page, color, progress, out);
    }

    PngImage m_page;                              // straight RGBA
    PngImage m_preview;                           // m_page shrunk for the live preview
    PngImage m_result;                            // the last full render
    RenderOptions m_options;                      // settings, points (fractions of the page) and guide
    std::map<std::string, std::string> m_guides;  // SVG text by guide name
    std::string m_refusal;                        // why the last preset or setting was refused
};

EMSCRIPTEN_BINDINGS(brivane) {
    emscripten::class_<EffectSession>("EffectSession")
        .constructor<>()
        .function("setLayer", &EffectSession::SetLayer)
        .function("setValue", &EffectSession::SetValue)
        .function("loadPreset", &EffectSession::LoadPreset)
        .function("refusal", &EffectSession::Refusal)
        .function("limits", &EffectSession::Limits)
        .function("presetText", &EffectSession::PresetText)
        .function("values", &EffectSession::Values)
        .function("addGuide", &EffectSession::AddGuide)
        .function("target", &EffectSession::Target)
        .function("render", &EffectSession::Render)
        .function("renderPreview", &EffectSession::RenderPreview)
        .function("pngRows", &EffectSession::PngRows)
        .function("pngFile", &EffectSession::PngFile);
}
