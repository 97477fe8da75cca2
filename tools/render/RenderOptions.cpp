#include "tools/render/RenderOptions.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "storage/SettingRanges.h"
#include "tools/render/PresetFile.h"

namespace brivane::tools {
namespace {

using P = MoveEffectIniParam;

// Strings here are built by appending: GCC 12 at -O3 raises a false -Wrestrict on literal + std::string.
std::string Quote(std::string_view text) {
    std::string quoted;
    quoted.append("'").append(text).append("'");
    return quoted;
}

// Numbers on the command line are read with "." as the decimal point whatever the locale, and must be
// numbers from end to end: "3x" is a typo, not 3.
bool ReadDouble(std::string_view text, double& value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    double v = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (text.empty() || ec != std::errc{} || end != text.data() + text.size() || !std::isfinite(v))
        return false;
    value = v;
    return true;
}

bool ReadInt(std::string_view text, int32_t& value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    int32_t v = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (text.empty() || ec != std::errc{} || end != text.data() + text.size()) return false;
    value = v;
    return true;
}

std::string Lower(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return lower;
}

std::optional<bool> ReadBoolWord(std::string_view text) {
    const std::string word = Lower(text);
    if (word == "1" || word == "true" || word == "yes" || word == "on") return true;
    if (word == "0" || word == "false" || word == "no" || word == "off") return false;
    return std::nullopt;
}

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool ReadColor(std::string_view text, Rgb& color) {
    const std::string word = Lower(text);
    if (word == "black") return color = Rgb{0, 0, 0}, true;
    if (word == "white") return color = Rgb{255, 255, 255}, true;
    if (!text.empty() && text.front() == '#') text.remove_prefix(1);
    if (text.size() != 3 && text.size() != 6) return false;
    int digits[6];
    for (size_t i = 0; i < text.size(); ++i)
        if ((digits[i] = HexDigit(text[i])) < 0) return false;
    if (text.size() == 3) {
        color = {static_cast<uint8_t>(digits[0] * 17), static_cast<uint8_t>(digits[1] * 17),
                 static_cast<uint8_t>(digits[2] * 17)};
    } else {
        color = {static_cast<uint8_t>(digits[0] * 16 + digits[1]),
                 static_cast<uint8_t>(digits[2] * 16 + digits[3]),
                 static_cast<uint8_t>(digits[4] * 16 + digits[5])};
    }
    return true;
}

bool ReadCoordinate(std::string_view text, double& value, bool& relative) {
    relative = !text.empty() && text.back() == '%';
    if (relative) text.remove_suffix(1);
    if (!ReadDouble(text, value)) return false;
    if (relative) value /= 100.0;
    return true;
}

bool ReadPoint(std::string_view text, CanvasPoint& point) {
    const size_t comma = text.find(',');
    if (comma == std::string_view::npos) return false;
    CanvasPoint p;
    if (!ReadCoordinate(text.substr(0, comma), p.x, p.xRelative) ||
        !ReadCoordinate(text.substr(comma + 1), p.y, p.yRelative))
        return false;
    point = p;
    return true;
}

bool ReadType(std::string_view text, int32_t& type) {
    int32_t value = -1;
    if (GetIniPath(text, value) || (ReadInt(text, value) && value >= 0 && value <= 2)) {
        type = value;
        return true;
    }
    return false;
}

// The plug-in matches guide names without regard to letter case, the built-in ones included.
std::string BuiltInOrAsGiven(const std::string& guide) {
    const std::string lower = Lower(guide);
    if (lower == ":s") return ":S";
    if (lower == ":c") return ":C";
    return guide;
}

// The guide's name as the plug-in keeps it: a file by its name without folder and extension, a bare
// name (or a built-in one) as it is. A name the plug-in could not store is left empty.
void StoreGuideName(const std::string& guide, P& settings) {
    std::string name = guide;
    const std::filesystem::path path(guide);
    if (guide.find('/') != std::string::npos || path.extension() == ".svg") name = path.stem().string();
    if (name.size() > kIniNameMaxLength) name.clear();
    std::memset(settings.name, 0, sizeof settings.name);
    name.copy(settings.name, name.size());
}

}  // namespace

bool CheckRanges(const P& s, std::string& error) {
    for (const SettingRange& n : kSettingRanges) {
        const double value = n.Get(s);
        if (!(value >= n.min && value <= n.max)) {
            char text[160];
            std::snprintf(text, sizeof text, "%s %g is outside the plug-in's range %g to %g",
                          std::string(n.key).c_str(), value, n.min, n.max);
            error = text;
            return false;
        }
    }
    return true;
}

bool IsBuiltInGuide(const std::string& guide) {
    return guide == ":S" || guide == ":C";
}

bool ParseRenderArgs(const std::vector<std::string>& args, RenderOptions& options, std::string& error) {
    GetDefaultPreset(&options.settings);
    std::vector<std::string> inputs;
    bool optionsEnded = false;

    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.empty() || arg[0] != '-' || arg == "-") {
            inputs.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        // "--key=value" and "--key value" are both accepted.
        std::string key = arg;
        std::optional<std::string> inlineValue;
        if (const size_t equals = arg.find('='); arg.rfind("--", 0) == 0 && equals != std::string::npos) {
            key = arg.substr(0, equals);
            inlineValue = arg.substr(equals + 1);
        }
        auto takeValue = [&](std::string& value) {
            if (inlineValue) {
                value = *inlineValue;
                return true;
            }
            if (i + 1 >= args.size()) {
                error = key + ": missing value";
                return false;
            }
            value = args[++i];
            return true;
        };
        auto noValue = [&] {
            if (!inlineValue) return true;
            error = key + ": takes no value";
            return false;
        };

        if (key == "-h" || key == "--help") {
            options.help = true;
            return true;
        }
        if (key == "--version") {
            options.version = true;
            return true;
        }
        std::string value;
        if (key == "-o" || key == "--output") {
            if (!takeValue(value)) return false;
            options.output = value;
        } else if (key == "--over") {
            if (!noValue()) return false;
            options.over = true;
        } else if (key == "-q" || key == "--quiet") {
            if (!noValue()) return false;
            options.quiet = true;
        } else if (key == "--small") {
            if (!noValue()) return false;
            options.small = true;
        } else if (key == "--save-preset") {
            if (!takeValue(value)) return false;
            options.savePreset = value;
        } else if (key == "--preset") {
            if (!takeValue(value)) return false;
            P preset;
            MoveEffectIniReadFlag read;
            if (!ReadPresetFile(value, &preset, &read, error)) return false;
            const std::string folder = std::filesystem::path(value).parent_path().string();
            ApplyPreset(preset, read, folder.empty() ? "." : folder, options);
            options.readFiles.push_back(value);
        } else if (key == "--guide" || key == "--name") {
            if (!takeValue(value)) return false;
            if (value.empty()) {
                error = key + ": empty guide name";
                return false;
            }
            options.guide = BuiltInOrAsGiven(value);
            options.guideFolder.clear();
            StoreGuideName(options.guide, options.settings);
        } else if (key == "--color" || key == "--background") {
            if (!takeValue(value)) return false;
            Rgb color;
            if (!ReadColor(value, color)) {
                error = key + ": " + Quote(value) + " is not a colour (#rrggbb, #rgb, black or white)";
                return false;
            }
            if (key == "--color")
                options.color = color;
            else
                options.background = color;
        } else if (key == "--type") {
            if (!takeValue(value)) return false;
            if (!ReadType(value, options.settings.type)) {
                error = key + ": " + Quote(value) + " is not radiate, parallel, circle, 0, 1 or 2";
                return false;
            }
        } else if (key == "--p1" || key == "--p2" || key == "--p3") {
            if (!takeValue(value)) return false;
            const int index = key[3] - '1';
            if (!ReadPoint(value, options.points[index])) {
                error = key + ": " + Quote(value) +
                        " is not a point X,Y (pixels, or percent of the canvas with %)";
                return false;
            }
            options.pointGiven[index] = true;
        } else {
            const std::string_view name = std::string_view(key).substr(key.rfind("--", 0) == 0 ? 2 : 0);
            // Number settings take the plug-in panel's ranges: a value outside them is one the plug-in
            // could never be given, so the picture would not match.
            const SettingRange* number = key.size() > 2 ? FindSettingRange(name) : nullptr;
            const SwitchSetting* flag = nullptr;
            bool negated = false;
            for (const SwitchSetting& b : kSwitchSettings) {
                if (key.size() > 2 && name == b.key) flag = &b;
                if (name.size() > 3 && name.substr(0, 3) == "no-" && name.substr(3) == b.key) {
                    flag = &b;
                    negated = true;
                }
            }
            if (number) {
                if (!takeValue(value)) return false;
                const bool ok = number->decimal ? ReadDouble(value, options.settings.*number->decimal)
                                                : ReadInt(value, options.settings.*number->whole);
                if (!ok) {
                    error = key + ": " + Quote(value) +
                            (number->decimal ? " is not a number" : " is not a whole number");
                    return false;
                }
            } else if (flag) {
                bool on = !negated;
                if (inlineValue) {
                    const std::optional<bool> word = ReadBoolWord(*inlineValue);
                    if (!word || negated) {
                        error = key + ": " + Quote(*inlineValue) + " is not true or false";
                        return false;
                    }
                    on = *word;
                } else if (!negated && i + 1 < args.size() && ReadBoolWord(args[i + 1])) {
                    on = *ReadBoolWord(args[++i]);
                }
                options.settings.*flag->field = on;
            } else {
                error = "unknown option " + key;
                return false;
            }
        }
    }

    if (inputs.empty()) {
        error = "no input layer given (usage: brivane-render LAYER.png -o OUT.png [options]; see --help)";
        return false;
    }
    if (inputs.size() > 1) {
        error = "more than one input layer given (" + inputs[0] + ", " + inputs[1] + ")";
        return false;
    }
    options.input = inputs[0];
    if (options.output.empty()) {
        error = "no output file given (-o FILE.png)";
        return false;
    }
    return CheckRanges(options.settings, error);
}

void ApplyPreset(const P& preset, const MoveEffectIniReadFlag& read, const std::string& folder,
                 RenderOptions& options) {
    P& s = options.settings;
    if (read.type) s.type = preset.type;
    const PathPoint* points[3] = {&preset.p1, &preset.p2, &preset.p3};
    const bool given[3] = {read.p1, read.p2, read.p3};
    for (int i = 0; i < 3; ++i) {
        if (!given[i]) continue;
        options.points[i] = {points[i]->x, points[i]->y, true, true};
        options.pointGiven[i] = true;
    }
    // The plug-in ignores a guide name that matches none of its guides; an empty one never does.
    if (read.name && preset.name[0] != '\0') {
        options.guide = BuiltInOrAsGiven(preset.name);
        options.guideFolder = IsBuiltInGuide(options.guide) ? "" : folder;
        std::memset(s.name, 0, sizeof s.name);
        options.guide.copy(s.name, sizeof s.name - 1);
    }
    if (read.curvature) s.curvature = preset.curvature;
    if (read.size) s.size = preset.size;
    if (read.hardness) s.hardness = preset.hardness;
    if (read.fluction) s.fluction = preset.fluction;
    if (read.in) s.in = preset.in;
    if (read.out) s.out = preset.out;
    if (read.asdist) s.asdist = preset.asdist;
    if (read.easing) s.easing = preset.easing;
    if (read.position) s.position = preset.position;
    if (read.posfluct) s.posfluct = preset.posfluct;
    if (read.length) s.length = preset.length;
    if (read.lenfluct) s.lenfluct = preset.lenfluct;
    if (read.spacing) s.spacing = preset.spacing;
    if (read.spcfluct) s.spcfluct = preset.spcfluct;
    if (read.lengain) s.lengain = preset.lengain;
    if (read.spcgain) s.spcgain = preset.spcgain;
    if (read.connect) s.connect = preset.connect;
}

bool ResolveTarget(const RenderOptions& options, uint32_t width, uint32_t height, PointTarget& target,
                   std::string& error) {
    int32_t* xy[3][2] = {{&target.x1, &target.y1}, {&target.x2, &target.y2}, {&target.x3, &target.y3}};
    const double side = std::max(width, height);
    for (int i = 0; i < 3; ++i) {
        CanvasPoint p = options.points[i];
        if (!options.pointGiven[i]) {
            PathPoint relative{0, 0};
            GetDefaultTargetPoint(options.settings.type, i, relative);
            p = {relative.x, relative.y, true, true};
        }
        // Fractions are scaled and truncated toward zero, as the plug-in places its handles.
        const double x = p.xRelative ? std::trunc(width * p.x) : std::trunc(p.x);
        const double y = p.yRelative ? std::trunc(height * p.y) : std::trunc(p.y);
        const double limit = kMaxPointReach * side;
        if (!(x >= -limit && x <= width + limit && y >= -limit && y <= height + limit)) {
            char message[96];
            std::snprintf(message, sizeof message, "p%d lies more than %d canvas sides off the canvas", i + 1,
                          static_cast<int>(kMaxPointReach));
            error = message;
            return false;
        }
        *xy[i][0] = static_cast<int32_t>(x);
        *xy[i][1] = static_cast<int32_t>(y);
    }
    return true;
}

MoveEffectParam ToEffectParam(const MoveEffectIniParam& s) {
    MoveEffectParam p{};
    p.type = s.type;
    p.curvature = s.curvature;
    p.size = s.size;
    p.hardness = s.hardness;
    p.fluction = s.fluction;
    // The sliders give thousandths of the line length, or pixels with asdist.
    p.in = s.asdist ? static_cast<double>(s.in) : s.in / 1000.0;
    p.out = s.asdist ? static_cast<double>(s.out) : s.out / 1000.0;
    p.asdist = s.asdist;
    p.easing = s.easing;
    p.position = s.position;
    p.posfluct = s.posfluct;
    p.length = s.length;
    p.lenfluct = s.lenfluct;
    p.spacing = s.spacing;
    p.spcfluct = s.spcfluct;
    p.lengain = s.lengain;
    p.spcgain = s.spcgain;
    p.connect = s.connect;
    return p;
}

MoveEffectIniParam ToPresetRecord(const RenderOptions& options, const PointTarget& target, uint32_t width,
                                  uint32_t height) {
    MoveEffectIniParam record = options.settings;
    const double w = width, h = height;
    record.p1 = {target.x1 / w, target.y1 / h};
    record.p2 = {target.x2 / w, target.y2 / h};
    record.p3 = {target.x3 / w, target.y3 / h};
    return record;
}

std::string RenderUsage() {
    return R"(Usage: brivane-render LAYER.png -o OUT.png [options]

Draws manga effect lines (focus lines, speed lines, rings) where LAYER is dark and opaque, and writes
them as an RGBA layer. LAYER may be 8- or 16-bit, grey or RGB, with or without alpha.

Output:
  -o, --output FILE      the effect layer (RGBA PNG); never the input itself
  --over                 write the lines composited over the input instead
  --background COLOR     flatten the result onto an opaque colour
  --color COLOR          line colour: #rrggbb, #rgb, black or white (default black; grey on a grey layer)
  --save-preset FILE     also save the settings as a preset file
  --small                smaller PNG files, written several times slower (default: fast compression)
  -q, --quiet            no progress bar (shown only when standard error is a terminal)

Arrangement:
  --type TYPE            radiate, parallel or circle (or 0, 1, 2); default radiate
  --p1 X,Y --p2 X,Y --p3 X,Y
                         target points in pixels, or in percent of the canvas with %: --p1 50%,50%
                         radiate: centre, then inner and outer radius; parallel: origin, line end,
                         stacking end; circle: the ellipse's axis ends, then a point on it.
                         Points not given take the arrangement's default places.
  --guide NAME|FILE.svg  line shape: :S straight (default), :C arch, or the first path of an SVG file

Settings (the preset keys; defaults are the plug-in's default preset):
  --preset FILE.ini      take the settings of a preset file; settings given after it win
  --curvature N (-10..10, 1)   --size N (1..50, 2)          --hardness N (0..1, 1)
  --fluction N (0..1, 0)       --in N (0..1000, 500)        --out N (0..1000, 500)
  --asdist [BOOL] (false)      --easing [BOOL] (false)      --position N (-1000..1000, 0)
  --posfluct N (0..1, 0)       --length N (0..1000, 10)     --lenfluct N (0..1, 0)
  --spacing N (1..1000, 50)    --spcfluct N (0..1, 0)       --lengain N (-100..100, 0)
  --spcgain N (-100..100, 0)   --connect [BOOL] (true)
  in/out: thousandths of the line length, or pixels with --asdist. spacing: pixels, or for radiate
  thousandths of a right angle. BOOL: true/false/1/0; --no-connect etc. switch off.

Information:
  -h, --help             show this text
  --version              show the version

Exit status: 0 done, 2 bad arguments or files, 130 interrupted.
)";
}

}  // namespace brivane::tools
