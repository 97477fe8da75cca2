#include "tools/render/Renderer.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <vector>

#include "storage/FileHelpers.h"
#include "tools/render/EffectLayer.h"
#include "tools/render/LayerImage.h"
#include "tools/render/PresetFile.h"

namespace brivane::tools {
namespace {

namespace fs = std::filesystem;

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
    // The plug-in's own bound, checked before anything is read.
    std::string text;
    errno = 0;
    switch (ReadAllTextWithin(path, PathParser::kMaxGuideBytes, text)) {
        case ReadResult::kRead:
            break;
        case ReadResult::kTooLarge: {
            std::error_code sizeError;
            error = path + ": bad guide file: " + GuideTooLarge(fs::file_size(path, sizeError));
            return false;
        }
        case ReadResult::kUnreadable:
            error = path + ": cannot read guide file" +
                    (errno != 0 ? std::string(": ") + std::strerror(errno) : "");
            return false;
    }
    if (file) *file = path;
    if (text.empty()) {
        error = path + ": bad guide file: empty";
        return false;
    }
    const std::string problem = ReadGuideText(text, guide);
    if (!problem.empty()) {
        error = path + ": bad guide file: " + problem;
        return false;
    }
    return true;
}

namespace {

// The effect layer (8-bit RGBA) row by row, made from the coverage a band of rows at a time, so it is
// never held whole.
class LayerRows {
public:
    LayerRows(MoveEffectFilter& filter, const LineColour& colour, uint32_t width, uint32_t height)
        : m_filter(filter),
          m_colour(colour),
          m_width(width),
          m_height(height),
          m_rowBytes(static_cast<size_t>(width) * 4),
          m_band(m_rowBytes * kBandRows) {}
    uint32_t Width() const { return m_width; }
    uint32_t Height() const { return m_height; }
    // Row y, to be read (or changed) before asking for a row of a later band.
    uint8_t* Row(uint32_t y) {
        const int first = static_cast<int>(y - y % kBandRows);
        if (first != m_first) {
            m_filter.DrawRowsToCanvas(0, 0, m_colour.samples, m_band.data(), static_cast<int>(m_rowBytes),
                                      first, kBandRows);
            m_first = first;
        }
        return m_band.data() + (y - first) * m_rowBytes;
    }

private:
    static constexpr int kBandRows = 64;  // a few megabytes at most: kept in cache-friendly pieces
    MoveEffectFilter& m_filter;
    LineColour m_colour;  // a copy: the engine takes the samples as writable
    uint32_t m_width;
    uint32_t m_height;
    size_t m_rowBytes;
    std::vector<uint8_t> m_band;
    int m_first = -1;
};

// Writes the effect layer, or with --over the lines over the input (read again row by row), and with
// --background flattened; one row at a time from first to last.
bool WriteResult(const RenderOptions& options, MoveEffectFilter& filter, const EngineLayer& layer,
                 const LineColour& colour, std::string& error) {
    PngImage header;
    header.width = layer.Width();
    header.height = layer.Height();
    header.channels = 4;
    header.bitDepth = 8;
    PngWriter writer;
    if (!writer.Open(options.output, header, options.small ? PngCompression::kSmall : PngCompression::kFast,
                     error))
        return false;
    LayerRows lines(filter, colour, header.width, header.height);
    auto writeRow = [&](uint8_t* rgba) {
        if (options.background) FlattenRow(rgba, header.width, *options.background);
        return writer.WriteRow(rgba, error);
    };
    if (!options.over) {
        for (uint32_t y = 0; y < header.height; ++y) {
            if (!writeRow(lines.Row(y))) return false;
        }
        return writer.Finish(error);
    }

    // Each input row, as it is decoded, becomes the RGBA row below the lines.
    struct Below : PngRowSink {
        const std::string* path;
        LayerRows* lines;
        const std::function<bool(uint8_t*)>* writeRow;
        PngImage layout;
        std::vector<uint8_t> fileRow, rgba;
        bool failed = false;
        bool Begin(const PngImage& header, std::string& error) override {
            if (header.width != lines->Width() || header.height != lines->Height()) {
                error = *path + ": changed while it was being drawn on";
                return false;
            }
            layout = header;
            fileRow.resize(header.RowBytes());
            rgba.resize(static_cast<size_t>(header.width) * 4);
            return true;
        }
        uint8_t* Row(uint32_t) override { return fileRow.data(); }
        void RowDone(uint32_t y) override {
            if (failed) return;
            ToRgba8Row(layout, fileRow.data(), rgba.data());
            CompositeOverRow(rgba.data(), lines->Row(y), layout.width);
            failed = !(*writeRow)(rgba.data());
        }
    } below;
    const std::function<bool(uint8_t*)> write = writeRow;
    below.path = &options.input;
    below.lines = &lines;
    below.writeRow = &write;
    if (!ReadPngRows(options.input, below, error) || below.failed) return false;
    return writer.Finish(error);
}

}  // namespace

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

    // The file is decoded straight into the layer the engine reads.
    EngineLayer layer;
    if (!ReadPngRows(options.input, layer, error)) return fail(error);

    PointTarget target{};
    if (!ResolveTarget(options, layer.Width(), layer.Height(), target, error)) return fail(error);

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
    MoveEffectFilter filter(ToEffectParam(options.settings));
    const bool finished = ApplyEffectTo(filter, target, guide, layer, progress);
    bar.Clear();
    if (!finished) {
        err << "brivane-render: interrupted; nothing written\n";
        return kExitInterrupted;
    }
    if (!WriteResult(options, filter, layer, LineColour(options.color, layer.IsGrey()), error))
        return fail(error);

    if (!options.savePreset.empty()) {
        const MoveEffectIniParam record = ToPresetRecord(options, target, layer.Width(), layer.Height());
        if (!WritePresetFile(options.savePreset, record, error)) return fail(error);
    }
    return kExitOk;
}

}  // namespace brivane::tools
