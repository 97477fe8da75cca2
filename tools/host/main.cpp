// brivane-host: loads the plug-in module into the simulated host and drives it as the painting host
// would, from PNG files in to a PNG file out. See kUsage.
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/common/PngImage.h"
#include "tools/host/LayerImage.h"
#include "tools/host/PluginModule.h"
#include "tools/host/SimHost.h"

namespace brivane::tools {
namespace {

constexpr const char* kUsage =
    R"(Usage: brivane-host [options]

Loads the brivane plug-in module into a simulated painting host and drives it: module initialise,
filter initialise, panel changes, one or more filter runs, filter terminate, module terminate.

  -i, --input FILE.png      the layer to filter; its size is the canvas size
  -o, --output FILE.png     where to write the layer after the last run
  -s, --selection FILE.png  selection mask, white selects; the size of the layer
      --layer-kind KIND     rgb, gray, rgba, alpha or mask (default: gray for grey images, else rgb)
      --set KEY=VALUE       change panel item KEY as the user would: true/false, a number, the value
                            of a list row, or X,Y for a canvas point; repeatable, applied in order
      --press KEY           push button KEY; repeatable, in order with --set
      --color RRGGBB        main colour (default 000000)
      --dpi N               document resolution (default 350)
      --runs N              number of filter runs, as previews and then the final one (default 1)
      --restart N           answer "restart" at the end of the first N passes of each run
      --cancel-at STEP      cancel each run once its progress reaches STEP of the plug-in's total
                            (and print how many ms the plug-in took to return after that)
      --panel               print the panel the plug-in built (after the --set and --press changes)
      --module FILE.so      the plug-in module (default: the installed one, else the built one)
      --resources FILE      caption texts, lines of id = text (default: beside the module)
  -q, --quiet               no progress bar and no notes
      --timings             print where the time went: reading, making layers, inside the plug-in
                            (its own work and the host's bitmap services it called), writing
  -h, --help                show this text
      --version             show the version

Exit status: 0 done, 1 the plug-in failed a call or misused the host, 2 bad input.
)";

constexpr const char* kResourceFileName = "brivane-resources.txt";
constexpr const char* kModuleFileName = "brivane.so";

struct PanelAction {
    bool press = false;  // push a button, else set a value
    int64_t key = 0;
    std::string value;
};

struct Options {
    std::string input, output, selection, module, resources;
    std::optional<LayerKind> layerKind;
    std::vector<PanelAction> actions;
    HostColor color{0, 0, 0};
    double dpi = 350.0;
    int64_t runs = 1;
    int64_t restarts = 0;
    int64_t cancelAt = -1;
    bool panel = false;
    bool quiet = false;
    bool timings = false;
    bool help = false;
    bool version = false;
};

int Fail(const std::string& message) {
    std::fprintf(stderr, "brivane-host: error: %s\n", message.c_str());
    return 2;
}

void Note(const Options& options, const std::string& message) {
    if (!options.quiet) std::fprintf(stderr, "brivane-host: %s\n", message.c_str());
}

void Warn(const std::string& message) {
    std::fprintf(stderr, "brivane-host: warning: %s\n", message.c_str());
}

template <typename T>
bool ParseNumber(std::string_view text, T& value) {
    // from_chars ignores the process locale.
    const auto [next, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && status == std::errc() && next == text.data() + text.size();
}

bool ParseColor(std::string_view text, HostColor& color) {
    if (!text.empty() && text.front() == '#') text.remove_prefix(1);
    uint32_t value = 0;
    if (text.size() != 6) return false;
    const auto [next, status] = std::from_chars(text.data(), text.data() + 6, value, 16);
    if (status != std::errc() || next != text.data() + 6) return false;
    color = {static_cast<uint8_t>(value >> 16), static_cast<uint8_t>(value >> 8),
             static_cast<uint8_t>(value)};
    return true;
}

// Parses argv into options; false with a one-line reason.
bool ParseOptions(int argc, char** argv, Options& options, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::optional<std::string> inlineValue;
        if (arg.rfind("--", 0) == 0) {
            const size_t equals = arg.find('=');
            if (equals != std::string::npos) {
                inlineValue = arg.substr(equals + 1);
                arg.resize(equals);
            }
        }
        auto value = [&](std::string& out) {
            if (inlineValue) {
                out = *inlineValue;
                return true;
            }
            if (i + 1 >= argc) {
                error = "option " + arg + " needs a value";
                return false;
            }
            out = argv[++i];
            return true;
        };
        auto count = [&](int64_t& out, int64_t min) {
            std::string text;
            if (!value(text)) return false;
            if (!ParseNumber(text, out) || out < min) {
                error = "option " + arg + ": '" + text + "' is not a whole number of at least " +
                        std::to_string(min);
                return false;
            }
            return true;
        };
        std::string text;
        if (arg == "-h" || arg == "--help") {
            options.help = true;
        } else if (arg == "--version") {
            options.version = true;
        } else if (arg == "-q" || arg == "--quiet") {
            options.quiet = true;
        } else if (arg == "--panel") {
            options.panel = true;
        } else if (arg == "--timings") {
            options.timings = true;
        } else if (arg == "-i" || arg == "--input") {
            if (!value(options.input)) return false;
        } else if (arg == "-o" || arg == "--output") {
            if (!value(options.output)) return false;
        } else if (arg == "-s" || arg == "--selection") {
            if (!value(options.selection)) return false;
        } else if (arg == "--module") {
            if (!value(options.module)) return false;
        } else if (arg == "--resources") {
            if (!value(options.resources)) return false;
        } else if (arg == "--layer-kind") {
            LayerKind kind;
            if (!value(text)) return false;
            if (!ParseLayerKind(text, kind)) {
                error = "unknown layer kind '" + text + "' (rgb, gray, rgba, alpha or mask)";
                return false;
            }
            options.layerKind = kind;
        } else if (arg == "--set") {
            if (!value(text)) return false;
            const size_t equals = text.find('=');
            PanelAction action;
            if (equals == std::string::npos ||
                !ParseNumber(std::string_view(text).substr(0, equals), action.key)) {
                error = "--set '" + text + "': expected KEY=VALUE";
                return false;
            }
            action.value = text.substr(equals + 1);
            options.actions.push_back(action);
        } else if (arg == "--press") {
            PanelAction action;
            action.press = true;
            if (!value(text)) return false;
            if (!ParseNumber(text, action.key)) {
                error = "--press '" + text + "': expected an item key";
                return false;
            }
            options.actions.push_back(action);
        } else if (arg == "--color") {
            if (!value(text)) return false;
            if (!ParseColor(text, options.color)) {
                error = "--color '" + text + "': expected six hex digits RRGGBB";
                return false;
            }
        } else if (arg == "--dpi") {
            if (!value(text)) return false;
            if (!ParseNumber(text, options.dpi) || !(options.dpi > 0)) {
                error = "--dpi '" + text + "': expected a positive number";
                return false;
            }
        } else if (arg == "--runs") {
            if (!count(options.runs, 1)) return false;
        } else if (arg == "--restart") {
            if (!count(options.restarts, 0)) return false;
        } else if (arg == "--cancel-at") {
            if (!count(options.cancelAt, 0)) return false;
        } else {
            error = "unknown option '" + arg + "' (see --help)";
            return false;
        }
    }
    return true;
}

std::filesystem::path ExecutableDir() {
    std::error_code error;
    const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : exe.parent_path();
}

// The first of the candidates that exists, or empty.
std::string FirstExisting(const std::vector<std::filesystem::path>& candidates) {
    for (const auto& path : candidates) {
        std::error_code error;
        if (!path.empty() && std::filesystem::is_regular_file(path, error)) return path.string();
    }
    return {};
}

std::string ModulePath(const Options& options) {
    if (!options.module.empty()) return options.module;
    // Beside the program, then where an install puts it (relative, so a moved prefix still works), then
    // the one built with it.
    const std::string found = FirstExisting({ExecutableDir() / kModuleFileName,
                                             ExecutableDir() / BRIVANE_INSTALLED_MODULE_DIR / kModuleFileName,
                                             BRIVANE_DEFAULT_MODULE});
    return found.empty() ? std::string(BRIVANE_DEFAULT_MODULE) : found;
}

std::string ResourcePath(const Options& options, const std::string& modulePath) {
    if (!options.resources.empty()) return options.resources;
    return FirstExisting({std::filesystem::path(modulePath).parent_path() / kResourceFileName,
                          ExecutableDir() / kResourceFileName, BRIVANE_SOURCE_RESOURCES});
}

const char* TargetKindName(int64_t kind) {
    switch (kind) {
        case kHostTargetKindRgbAlpha:
            return "rgb";
        case kHostTargetKindGrayAlpha:
            return "gray";
        case kHostTargetKindRgba:
            return "rgba";
        case kHostTargetKindAlpha:
            return "alpha";
        case kHostTargetKindSelection:
            return "selection";
        case kHostTargetKindMask:
            return "mask";
        default:
            return "unknown";
    }
}

std::string Quoted(const std::optional<std::u16string>& text, int64_t id) {
    // Built by appending: GCC 12 at -O3 raises a false -Wrestrict on literal + std::string.
    std::string out;
    if (!text) {
        out.append("(no text for ").append(std::to_string(id)).append(")");
    } else {
        out.append("\"").append(Utf16ToUtf8Text(*text)).append("\"");
    }
    return out;
}

std::string Decimal(double value) {
    char buffer[64];
    const auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return status == std::errc() ? std::string(buffer, end) : "?";
}

std::string KeyText(char key) {
    return key ? std::string(1, key) : std::string("-");
}

void PrintPanel(SimHost& host) {
    const SimHostLog& log = host.Log();
    std::printf("filter: %s > %s  (access keys %s, %s)\n", Quoted(log.categoryName, 101).c_str(),
                Quoted(log.filterName, 102).c_str(), KeyText(log.categoryKey).c_str(),
                KeyText(log.filterKey).c_str());
    std::string targets;
    for (int64_t kind : log.targetKinds.value_or(std::vector<int64_t>{}))
        targets += std::string(targets.empty() ? "" : " ") + TargetKindName(kind);
    std::printf("targets: %s; preview: %s; draws on empty areas: %s\n",
                targets.empty() ? "none" : targets.c_str(), log.canPreview.value_or(false) ? "yes" : "no",
                log.useEmptyArea.value_or(false) ? "yes" : "no");
    std::printf("items: %zu\n", host.Items().size());
    for (const SimItem& item : host.Items()) {
        const std::string head = std::to_string(item.key) + "  ";
        const std::string caption = Quoted(item.caption, item.key);
        const std::string key = KeyText(item.accessKey);
        switch (item.valueKind) {
            case kHostValueKindBoolean:
                std::printf("  %-5s check    %s  %s = %s  (default %s)\n", head.c_str(), key.c_str(),
                            caption.c_str(), item.boolValue ? "true" : "false",
                            item.boolDefault ? "true" : "false");
                break;
            case kHostValueKindInteger:
                std::printf("  %-5s integer  %s  %s = %lld  (%lld .. %lld, default %lld)\n", head.c_str(),
                            key.c_str(), caption.c_str(), static_cast<long long>(item.intValue),
                            static_cast<long long>(item.intMin), static_cast<long long>(item.intMax),
                            static_cast<long long>(item.intDefault));
                break;
            case kHostValueKindDecimal:
                std::printf("  %-5s decimal  %s  %s = %s  (%s .. %s, default %s)\n", head.c_str(),
                            key.c_str(), caption.c_str(), Decimal(item.decValue).c_str(),
                            Decimal(item.decMin).c_str(), Decimal(item.decMax).c_str(),
                            Decimal(item.decDefault).c_str());
                break;
            case kHostValueKindPoint:
                std::printf(
                    "  %-5s point    %s  %s = %lld,%lld  (default kind %lld, limit kind %lld)\n",
                    head.c_str(), key.c_str(), caption.c_str(), static_cast<long long>(item.pointValue.x),
                    static_cast<long long>(item.pointValue.y), static_cast<long long>(item.pointDefaultKind),
                    static_cast<long long>(item.pointLimitKind));
                break;
            case kHostValueKindEnumeration:
                std::printf("  %-5s list     %s  %s = %lld  (default %lld)\n", head.c_str(), key.c_str(),
                            caption.c_str(), static_cast<long long>(item.enumValue),
                            static_cast<long long>(item.enumDefault));
                for (const SimEnumRow& row : item.rows)
                    std::printf("           %lld: \"%s\"\n", static_cast<long long>(row.value),
                                Utf16ToUtf8Text(row.text).c_str());
                break;
            default:
                break;
        }
    }
}

// Draws the progress bar on a terminal.
class ProgressBar {
public:
    explicit ProgressBar(bool enabled) : m_enabled(enabled) {}
    void Begin(int64_t run) {
        m_run = run;
        m_drawn = false;
    }
    void Show(int64_t value, int64_t total) {
        if (!m_enabled || total <= 0) return;
        constexpr int kWidth = 40;
        const double fraction = std::clamp(static_cast<double>(value) / static_cast<double>(total), 0.0, 1.0);
        const int filled = static_cast<int>(fraction * kWidth);
        std::fprintf(stderr, "\rrun %lld [%s%s] %3d%%", static_cast<long long>(m_run),
                     std::string(filled, '#').c_str(), std::string(kWidth - filled, '.').c_str(),
                     static_cast<int>(fraction * 100));
        m_drawn = true;
    }
    void End() {
        if (m_drawn) std::fputc('\n', stderr);
        m_drawn = false;
    }

private:
    bool m_enabled;
    int64_t m_run = 0;
    bool m_drawn = false;
};

// Wall-clock seconds of the phases --timings reports.
struct Timings {
    std::chrono::steady_clock::time_point mark = std::chrono::steady_clock::now();
    double read = 0, layers = 0, runs = 0, write = 0;
    // Seconds since the last call (or since construction).
    double Lap() {
        const auto now = std::chrono::steady_clock::now();
        const double seconds = std::chrono::duration<double>(now - mark).count();
        mark = now;
        return seconds;
    }
    void Print(const SimHost& host, double services) const {
        const double inside = host.PluginSeconds();
        std::fprintf(stderr,
                     "brivane-host: timings: read %.3f s, layers %.3f s, filter runs %.3f s, write %.3f s\n"
                     "brivane-host: timings: inside the plug-in %.3f s = its own work %.3f s + host bitmap "
                     "services %.3f s; the host's own work %.3f s\n",
                     read, layers, runs, write, inside, inside - services, services,
                     read + layers + (runs - inside) + write + services);
    }
};

int Run(const Options& options) {
    if (!options.output.empty() && options.input.empty()) return Fail("--output needs an --input layer");
    if (!options.selection.empty() && options.input.empty())
        return Fail("--selection needs an --input layer");
    if (options.input.empty() && !options.panel)
        return Fail("nothing to do: give --input (and --output) to run the filter, or --panel");

    SimHost host;
    host.mainColor = options.color;
    host.resolution = options.dpi;
    host.restartsLeft = 0;
    host.cancelAtStep = options.cancelAt;

    std::string error;
    std::optional<LayerKind> layerKind;
    Timings timings;
    if (!options.input.empty()) {
        PngImage png;
        if (!ReadPng(options.input, png, error)) return Fail(error);
        if (png.width == 0 || png.height == 0) return Fail(options.input + ": empty image");
        timings.read += timings.Lap();
        layerKind = options.layerKind.value_or(DefaultLayerKind(png));
        host.SetLayer(LayerFromPng(png, *layerKind));
        timings.layers += timings.Lap();
        if (!options.selection.empty()) {
            PngImage mask;
            if (!ReadPng(options.selection, mask, error)) return Fail(error);
            if (mask.width != png.width || mask.height != png.height)
                return Fail(options.selection + ": selection is " + std::to_string(mask.width) + "x" +
                            std::to_string(mask.height) + ", the layer " + std::to_string(png.width) + "x" +
                            std::to_string(png.height));
            host.SetSelection(SelectionFromPng(mask));
            timings.layers += timings.Lap();
        }
    }

    const std::string modulePath = ModulePath(options);
    const std::string resourcePath = ResourcePath(options, modulePath);
    if (resourcePath.empty()) {
        Warn("no resource file " + std::string(kResourceFileName) + " found; captions will be missing");
    } else if (!host.Resources().Load(resourcePath, error)) {
        return Fail(error);
    }

    PluginModule module;
    if (!module.Load(modulePath, error)) return Fail(error);

    int status = 0;
    Server* server = host.GetServer();
    if (module.Call(kHostSelectorModuleInitialize, server) != kHostCallSucceeded) {
        std::fprintf(stderr, "brivane-host: error: %s refused to register\n", modulePath.c_str());
        status = 1;
    } else if (module.Call(kHostSelectorFilterInitialize, server) != kHostCallSucceeded) {
        std::fprintf(stderr, "brivane-host: error: the filter failed to initialise\n");
        status = 1;
    }

    // Everything from here ends with the filter and module terminated, as a host does.
    if (status == 0 && layerKind) {
        const std::vector<int64_t> kinds = host.Log().targetKinds.value_or(std::vector<int64_t>{});
        if (std::find(kinds.begin(), kinds.end(), TargetKindOf(*layerKind)) == kinds.end())
            status =
                Fail(std::string("the filter does not work on ") + LayerKindName(*layerKind) + " layers");
    }
    for (size_t i = 0; status == 0 && i < options.actions.size(); ++i) {
        const PanelAction& action = options.actions[i];
        if (action.press) {
            if (!host.FindItem(action.key))
                status = Fail("--press " + std::to_string(action.key) + ": the panel has no such item");
            else
                host.Notify(action.key, kHostNotifyButtonPushed);
        } else if (!host.SetItemValue(action.key, action.value, error)) {
            status = Fail("--set " + std::to_string(action.key) + "=" + action.value + ": " + error);
        }
    }
    if (status == 0 && options.panel) PrintPanel(host);

    ProgressBar bar(!options.quiet && isatty(STDERR_FILENO));
    host.onProgress = [&bar](int64_t value, int64_t total) { bar.Show(value, total); };
    const double servicesBefore = BitmapServiceSeconds();
    timings.Lap();
    for (int64_t run = 1; status == 0 && layerKind && run <= options.runs; ++run) {
        host.restartsLeft = static_cast<int>(options.restarts);
        bar.Begin(run);
        const int64_t result = host.RunFilter(module);
        bar.End();
        if (result != kHostCallSucceeded) {
            std::fprintf(stderr, "brivane-host: error: filter run %lld failed\n",
                         static_cast<long long>(run));
            status = 1;
        } else if (host.Cancelled()) {
            Note(options, "run " + std::to_string(run) + " cancelled");
            // Even with -q: how quickly a stop takes effect is what scripts measure.
            std::fprintf(stderr, "brivane-host: run %lld: returned %.1f ms after the stop answer\n",
                         static_cast<long long>(run), host.StopToReturnSeconds() * 1000);
        }
    }

    timings.runs += timings.Lap();
    const double services = BitmapServiceSeconds() - servicesBefore;

    if (module.Slot()) {
        if (module.Call(kHostSelectorFilterTerminate, server) != kHostCallSucceeded && status == 0) {
            std::fprintf(stderr, "brivane-host: error: the filter failed to terminate\n");
            status = 1;
        }
        module.Call(kHostSelectorModuleTerminate, server);
    }
    module.Unload();

    for (int64_t id : host.Log().missingResourceIds)
        Warn("the resource file has no text for id " + std::to_string(id));
    const SimLiveObjects live = LiveObjects();
    if (live.strings || live.bitmaps || live.properties) {
        Warn("the plug-in did not release " + std::to_string(live.strings) + " strings, " +
             std::to_string(live.bitmaps) + " bitmaps and " + std::to_string(live.properties) +
             " property objects");
        if (status == 0) status = 1;
    }
    for (const std::string& misuse : TakeProtocolErrors()) {
        Warn("host misuse: " + misuse);
        if (status == 0) status = 1;
    }

    if (status != 2 && !options.output.empty() && host.Destination()) {
        timings.Lap();
        if (!WriteLayerPng(options.output, *host.Destination(), error)) return Fail(error);
        timings.write += timings.Lap();
    }
    if (options.timings) timings.Print(host, services);
    return status;
}

}  // namespace
}  // namespace brivane::tools

int main(int argc, char** argv) {
    using namespace brivane::tools;
    Options options;
    std::string error;
    if (!ParseOptions(argc, argv, options, error)) return Fail(error);
    if (options.help) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (options.version) {
        std::puts("brivane-host " BRIVANE_VERSION);
        return 0;
    }
    return Run(options);
}
