// brivane-gimp: the effect lines as a GIMP 2.10 filter. GIMP starts the plug-in as a program of its own
// and calls its one procedure, plug-in-brivane, from the Filters menu, from scripts or in batch runs.
#include <libgimp/gimp.h>

#include <cmath>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "storage/SettingRanges.h"
#include "tools/gimp/Dialog.h"
#include "tools/gimp/GimpLayers.h"
#include "tools/gimp/PluginValues.h"

namespace {

using brivane::gimp::PluginValues;

constexpr const char* kProcedure = "plug-in-brivane";

// Arguments before the number settings, after them the three switches.
enum Argument {
    kRunMode,
    kImage,
    kDrawable,
    kPreset,
    kType,
    kDefaultPoints,
    kPoint1X,  // ... kPoint3Y: six coordinates
    kGuide = kPoint1X + 6,
    kGuidePath,
    kFirstNumber,
    kFirstSwitch = kFirstNumber + static_cast<int>(std::size(kSettingRanges)),
    kArgumentCount = kFirstSwitch + static_cast<int>(std::size(kSwitchSettings)),
};

gchar* Text(const std::string& text) {
    return g_strdup(text.c_str());
}

void Query() {
    std::vector<GimpParamDef> arguments = {
        {GIMP_PDB_INT32, Text("run-mode"),
         Text("The run mode { RUN-INTERACTIVE (0), RUN-NONINTERACTIVE (1) }")},
        {GIMP_PDB_IMAGE, Text("image"), Text("Input image")},
        {GIMP_PDB_DRAWABLE, Text("drawable"), Text("The layer whose ink the lines follow")},
        {GIMP_PDB_STRING, Text("preset"),
         Text(
             "A preset of the plug-in's preset folder by name, or an .ini file by path, or \"\"; the keys it "
             "gives replace the arguments below, held to their ranges")},
        {GIMP_PDB_INT32, Text("type"), Text("Arrangement: 0 radiate, 1 parallel, 2 rings")},
        {GIMP_PDB_INT32, Text("default-points"),
         Text("TRUE: the arrangement's default places on the layer instead of the points below")},
    };
    for (int i = 0; i < 6; ++i) {
        // Appended: GCC 12 at -O3 raises a false -Wrestrict on literal + std::string.
        std::string name = "p";
        name.append(std::to_string(i / 2 + 1)).append(i % 2 ? "-y" : "-x");
        arguments.push_back({GIMP_PDB_FLOAT, Text(name), Text(std::string(name).append(" in image pixels"))});
    }
    arguments.push_back(
        {GIMP_PDB_STRING, Text("guide"),
         Text("Line shape: \":S\" straight, \":C\" arch, a guide of the guide folder by name, "
              "or an SVG file by path")});
    arguments.push_back({GIMP_PDB_VECTORS, Text("guide-path"),
                         Text("An image path as the line shape instead of the guide, or -1")});
    for (const SettingRange& range : kSettingRanges) {
        char description[96];
        std::snprintf(description, sizeof description, "%s (%g to %g%s)", std::string(range.key).c_str(),
                      range.min, range.max, range.whole ? ", whole numbers" : "");
        arguments.push_back({GIMP_PDB_FLOAT, Text(std::string(range.key)), Text(description)});
    }
    for (const SwitchSetting& setting : kSwitchSettings)
        arguments.push_back({GIMP_PDB_INT32, Text(std::string(setting.key)), Text("TRUE or FALSE")});

    static const GimpParamDef results[] = {
        {GIMP_PDB_LAYER, const_cast<gchar*>("layer"), const_cast<gchar*>("The new layer of lines")},
    };
    gimp_install_procedure(kProcedure, "Speed and focus lines where the layer is inked",
                           "Draws manga effect lines (focus lines from a centre, parallel speed lines, rings "
                           "around an ellipse) into a new layer above the active one, only where that layer "
                           "is inked, in the foreground colour. Every setting of the brivane plug-in, its "
                           "presets and guides.",
                           "brivane developers", "brivane developers", "2026", "_Effect lines...",
                           "RGB*, GRAY*", GIMP_PLUGIN, static_cast<gint>(arguments.size()),
                           G_N_ELEMENTS(results), arguments.data(), results);
    gimp_plugin_menu_register(kProcedure, "<Image>/Filters/Artistic");
}

// Arguments of a non-interactive call: false with a reason for one of the wrong type or count.
bool ReadArguments(gint count, const GimpParam* param, PluginValues& values, std::string& error) {
    if (count != kArgumentCount) {
        error = "plug-in-brivane takes " + std::to_string(kArgumentCount) + " arguments, not " +
                std::to_string(count);
        return false;
    }
    values.settings.type = param[kType].data.d_int32;
    values.defaultPoints = param[kDefaultPoints].data.d_int32 != 0;
    for (int i = 0; i < 6; ++i)
        values.points[i / 2][i % 2] = param[kPoint1X + i].data.d_float;
    const char* guide = param[kGuide].data.d_string;
    if (!brivane::gimp::SetGuide(values, guide ? guide : ":S")) {
        error = "the guide's name is too long";
        return false;
    }
    values.guidePath = param[kGuidePath].data.d_vectors;
    for (std::size_t i = 0; i < std::size(kSettingRanges); ++i) {
        const SettingRange& range = kSettingRanges[i];
        const double value = param[kFirstNumber + i].data.d_float;
        if (range.decimal) {
            values.settings.*range.decimal = value;
        } else if (value == std::trunc(value) && std::fabs(value) < 1e9) {
            values.settings.*range.whole = static_cast<int32_t>(value);
        } else {
            error = std::string(range.key) + " takes whole numbers";
            return false;
        }
    }
    for (std::size_t i = 0; i < std::size(kSwitchSettings); ++i)
        values.settings.*kSwitchSettings[i].field = param[kFirstSwitch + i].data.d_int32 != 0;
    return true;
}

// Progress in GIMP's bar, once per percent; a failed update (the run was cancelled) stops the engine.
brivane::tools::ProgressFn GimpProgress() {
    return [shown = -1](int total, int done) mutable {
        if (total <= 0) return true;
        const int percent = static_cast<int>(100LL * std::min(done, total) / total);
        if (percent == shown) return true;
        shown = percent;
        return gimp_progress_update(percent / 100.0) != FALSE;
    };
}

// With BRIVANE_GIMP_TIMINGS set, where a run's time went, on standard error (for the benchmark).
class Timings {
public:
    void Mark(const char* what) {
        const gint64 now = g_get_monotonic_time();
        m_text.append(m_text.empty() ? "" : ", ").append(what).append(" ");
        m_text.append(std::to_string((now - m_last) / 1000)).append(" ms");
        m_last = now;
    }
    ~Timings() {
        if (g_getenv("BRIVANE_GIMP_TIMINGS")) g_printerr("brivane-gimp: timings: %s\n", m_text.c_str());
    }

private:
    gint64 m_last = g_get_monotonic_time();
    std::string m_text;
};

// What a run hands back to GIMP: the status, then the new layer or the reason for an error.
GimpParam g_results[2];
gint g_resultCount = 1;
std::string g_message;

void Fail(GimpPDBStatusType status, const std::string& reason) {
    g_message = reason;
    g_results[0].data.d_status = status;
    g_results[1].type = GIMP_PDB_STRING;
    g_results[1].data.d_string = const_cast<gchar*>(g_message.c_str());
    g_resultCount = 2;
}

void RunProcedure(gint count, const GimpParam* param) {
    if (count < kDrawable + 1) return Fail(GIMP_PDB_CALLING_ERROR, "no image and layer given");

    gegl_init(nullptr, nullptr);
    const auto mode = static_cast<GimpRunMode>(param[kRunMode].data.d_int32);
    const gint32 image = param[kImage].data.d_image;
    const gint32 drawable = param[kDrawable].data.d_drawable;

    brivane::gimp::InkLayer ink;
    std::string error;
    Timings timings;
    if (!brivane::gimp::ReadInk(drawable, ink, error)) return Fail(GIMP_PDB_EXECUTION_ERROR, error);
    timings.Mark("reading the layer");

    PluginValues settings = brivane::gimp::DefaultValues();
    if (mode == GIMP_RUN_NONINTERACTIVE) {
        if (!ReadArguments(count, param, settings, error)) return Fail(GIMP_PDB_CALLING_ERROR, error);
        const gint32 path = settings.guidePath;
        if (path >= 0 &&
            !(gimp_item_is_valid(path) && gimp_item_is_vectors(path) && gimp_item_get_image(path) == image))
            return Fail(GIMP_PDB_CALLING_ERROR, "guide-path is not a path of this image");
        const char* preset = param[kPreset].data.d_string;
        if (preset != nullptr && preset[0] != '\0') {
            MoveEffectIniParam read{};
            MoveEffectIniReadFlag given{};
            if (!brivane::gimp::ReadNamedPreset(preset, read, given, error))
                return Fail(GIMP_PDB_CALLING_ERROR, error);
            brivane::gimp::TakePreset(read, given, ink.box, settings);
        }
    } else {
        // The last settings of this session; an image path belongs to the image it came from.
        if (gimp_get_data_size(kProcedure) == sizeof settings) gimp_get_data(kProcedure, &settings);
        if (settings.guidePath >= 0 && !gimp_item_is_valid(settings.guidePath)) settings.guidePath = -1;
        if (mode == GIMP_RUN_INTERACTIVE && !brivane::gimp::RunDialog(image, drawable, ink, settings))
            return Fail(GIMP_PDB_CANCEL, "cancelled");
    }

    PathParser guide;
    std::string warning;
    brivane::gimp::LoadGuide(settings, guide, warning);
    if (!warning.empty()) g_message("%s", warning.c_str());

    gimp_progress_init("Effect lines");
    timings.Mark("the dialog");
    auto filter = brivane::gimp::DrawEffect(ink, settings, guide, GimpProgress(), error);
    if (!filter) {
        if (error.empty()) return Fail(GIMP_PDB_CANCEL, "cancelled");
        return Fail(GIMP_PDB_CALLING_ERROR, error);
    }
    timings.Mark("rendering");
    const gint32 layer =
        brivane::gimp::AddLinesLayer(image, drawable, ink, *filter, brivane::gimp::ForegroundColour());
    timings.Mark("the new layer");
    gimp_progress_end();
    if (mode != GIMP_RUN_NONINTERACTIVE) gimp_displays_flush();
    gimp_set_data(kProcedure, &settings, sizeof settings);

    g_results[1].type = GIMP_PDB_LAYER;
    g_results[1].data.d_layer = layer;
    g_resultCount = 2;
}

void Run(const gchar*, gint count, const GimpParam* param, gint* resultCount, GimpParam** results) {
    g_results[0].type = GIMP_PDB_STATUS;
    g_results[0].data.d_status = GIMP_PDB_SUCCESS;
    g_resultCount = 1;
    try {
        RunProcedure(count, param);
    } catch (const std::bad_alloc&) {
        // A page larger than this machine's memory: the image lives in GIMP's process and stays as it was.
        Fail(GIMP_PDB_EXECUTION_ERROR, "not enough memory for the effect lines on this layer");
    }
    *results = g_results;
    *resultCount = g_resultCount;
}

}  // namespace

const GimpPlugInInfo PLUG_IN_INFO = {nullptr, nullptr, Query, Run};

MAIN()
