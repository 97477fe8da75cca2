#include "tools/render/Renderer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "engine/MoveEffectFilter.h"
#include "storage/FileHelpers.h"
#include "tools/render/LayerImage.h"
#include "tools/render/PresetFile.h"

namespace brivane::tools {
namespace {

namespace fs = std::filesystem;

bool IsBuiltInGuide(const std::string& name) {
    return name == ":S" || name == ":C";
}

// A bare guide name is matched as the plug-in matches it against its guide list: against the file names
// without ".svg", letter case ignored, first match in listing order.
std::string FindGuideByName(const std::string& folder, const std::string& name) {
    const std::u16string wanted = ToLowerCase(Utf8ToUtf16(name));
    for (const std::u16string& path : EnumFiles(Utf8ToUtf16(folder), u".svg")) {
        std::error_code ec;
        if (ToLowerCase(GetFileNameWithoutExt(path)) == wanted && fs::is_regular_file(Utf16ToUtf8(path), ec))
            return Utf16ToUtf8(path);
    }
    return {};
}

// The guide file the options name, or empty. From the command line the name may be a path; a bare name
// (no folder, no ".svg") is looked up in the preset's folder (or the current one) and then in the
// plug-in's guide folder.
std::string FindGuideFile(const RenderOptions& options, std::string& places) {
    const std::string& given = options.guide;
    std::error_code ec;
    if (options.guideFolder.empty()) {
        places = given;
        if (fs::is_regular_file(given, ec)) return given;
    }
    const bool bare = given.find('/') == std::string::npos && fs::path(given).extension() != ".svg";
    if (!bare) return {};
    const std::string folder = options.guideFolder.empty() ? "." : options.guideFolder;
    const std::string pluginFolder = Utf16ToUtf8(GetPluginDir(false));
    places = folder + "/" + given + ".svg and in " + pluginFolder;
    for (const std::string& where : {folder, pluginFolder}) {
        const std::string found = FindGuideByName(where, given);
        if (!found.empty()) return found;
    }
    return {};
}

bool SameFile(const std::string& a, const std::string& b) {
    std::error_code ec;
    if (fs::equivalent(a, b, ec)) return true;
    // A file that does not exist yet is compared by its would-be absolute path.
    std::error_code ecA, ecB;
    const fs::path pa = fs::weakly_canonical(a, ecA), pb = fs::weakly_canonical(b, ecB);
    return !ecA && !ecB && pa == pb;
}

// A bar that redraws itself in place on a terminal, only when the shown percentage changes.
class ProgressBar {
public:
    explicit ProgressBar(std::ostream& err) : m_err(err) {}
    void Show(int total, int done) {
        if (total <= 0) return;
        const int percent = static_cast<int>(100LL * std::min(done, total) / total);
        if (percent == m_shown) return;
        m_shown = percent;
        constexpr int kWidth = 40;
        const int filled = percent * kWidth / 100;
        m_err << "\rrendering [" << std::string(filled, '#') << std::string(kWidth - filled, '.') << "] "
              << percent << "%" << std::flush;
    }
    void Clear() {
        if (m_shown >= 0) m_err << "\r" << std::string(60, ' ') << "\r" << std::flush;
        m_shown = -1;
    }

private:
    std::ostream& m_err;
    int m_shown = -1;
};

}  // namespace

bool LoadGuide(const RenderOptions& options, PathParser& guide, std::string& error, std::string* file) {
    if (IsBuiltInGuide(options.guide)) {
        guide.LoadFromFile(Utf8ToUtf16(options.guide));
        return true;
    }
    std::string places;
    const std::string path = FindGuideFile(options, places);
    if (path.empty()) {
        error = "guide '" + options.guide + "' not found (looked for " + places + ")";
        return false;
    }
    std::ifstream in(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (!in && !in.eof()) {
        error = path + ": cannot read guide file: " + std::strerror(errno);
        return false;
    }
    if (file) *file = path;
    if (text.empty()) {
        error = path + ": bad guide file: empty";
        return false;
    }
    try {
        if (!guide.Parse(text)) {
            error = path + ": bad guide file: no path with drawing commands";
            return false;
        }
    } catch (const std::exception&) {
        // The reader lets the standard number conversion's error through for a malformed "d".
        error = path + ": bad guide file: malformed number in the path data";
        return false;
    }
    if (!(guide.GetWidth() > 0)) {
        error = path + ": bad guide file: the path has no horizontal extent";
        return false;
    }
    return true;
}

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

int RunRender(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
              const RenderEnvironment& environment) {
    auto fail = [&](const std::string& message) {
        err << "brivane-render: " << message << "\n";
        return kExitBadInput;
    };

    RenderOptions options;
    std::string error;
    if (!ParseRenderArgs(args, options, error)) return fail(error);
    if (options.help) {
        out << RenderUsage();
        return kExitOk;
    }
    if (options.version) {
        out << "brivane-render " BRIVANE_VERSION "\n";
        return kExitOk;
    }

    PngImage input;
    if (!ReadPng(options.input, input, error)) return fail(error);

    PointTarget target{};
    if (!ResolveTarget(options, input.width, input.height, target, error)) return fail(error);

    PathParser guide;
    std::string guideFile;
    if (!LoadGuide(options, guide, error, &guideFile)) return fail(error);

    // Nothing read may be overwritten, and the two outputs may not be one file.
    std::vector<std::string> inputs = options.readFiles;
    inputs.push_back(options.input);
    if (!guideFile.empty()) inputs.push_back(guideFile);
    for (const std::string& source : inputs) {
        if (SameFile(options.output, source))
            return fail("refusing to overwrite " + source + " with the output (-o " + options.output + ")");
        if (!options.savePreset.empty() && SameFile(options.savePreset, source))
            return fail("refusing to overwrite " + source + " with --save-preset " + options.savePreset);
    }
    if (!options.savePreset.empty() && SameFile(options.savePreset, options.output))
        return fail("--save-preset and -o name the same file " + options.output);

    ProgressBar bar(err);
    const bool showBar = environment.errIsTerminal && !options.quiet;
    const ProgressFn progress = [&](int total, int done) {
        if (environment.interrupted && *environment.interrupted) return false;
        if (showBar) bar.Show(total, done);
        return true;
    };
    PngImage layer;
    const bool finished = RenderEffectLayer(ToEffectParam(options.settings), target, guide, input,
                                            options.color, progress, layer);
    bar.Clear();
    if (!finished) {
        err << "brivane-render: interrupted; nothing written\n";
        return kExitInterrupted;
    }

    if (options.over) {
        PngImage below = ToRgba8(input);
        CompositeOver(below, layer);
        layer = std::move(below);
    }
    if (options.background) FlattenOnto(layer, *options.background);
    if (!WritePng(options.output, layer, error)) return fail(error);

    if (!options.savePreset.empty()) {
        const MoveEffectIniParam record = ToPresetRecord(options, target, input.width, input.height);
        if (!WritePresetFile(options.savePreset, record, error)) return fail(error);
    }
    return kExitOk;
}

}  // namespace brivane::tools
