#include "tools/gimp/Dialog.h"

#include <libgimp/gimpui.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "storage/FileHelpers.h"
#include "storage/SettingRanges.h"
#include "tools/host/ResourceTable.h"

// The plug-in module's caption file, built in (CaptionText.cpp is made from it).
extern const char kBrivaneCaptionText[];

namespace brivane::gimp {
namespace {

constexpr int kPreviewSide = 360;  // px, the preview's longer side
constexpr guint kPreviewDelayMs = 150;
constexpr int kCaptionWidth = 190;  // px
constexpr unsigned kInkFade = 40;   // of 255: how dark full ink shows under the lines

// Caption ids of the number settings, in the order of kSettingRanges, and of the switches, in the order
// of kSwitchSettings.
constexpr int kNumberCaptions[] = {162, 202, 203, 204, 205, 206, 220, 221, 222, 223, 224, 225, 226, 227};
static_assert(std::size(kNumberCaptions) == std::size(kSettingRanges));
constexpr int kSwitchCaptions[] = {207, 208, 228};
static_assert(std::size(kSwitchCaptions) == std::size(kSwitchSettings));
// Guide rows past the built-in two and the folder's files: the image's paths.
constexpr int kPathRows = 1 << 20;

struct Dialog {
    gint32 image = -1;
    InkLayer* ink = nullptr;
    PluginValues values{};
    bool updating = false;  // widgets are being set from the values: no feedback
    guint pending = 0;      // the preview's timeout, or 0

    GtkWidget* preview = nullptr;
    GtkWidget* showPreview = nullptr;
    GtkWidget* presetCombo = nullptr;
    GtkWidget* typeCombo = nullptr;
    GtkWidget* guideCombo = nullptr;
    GtkAdjustment* points[6] = {};
    GtkObject* numbers[std::size(kSettingRanges)] = {};
    GtkWidget* switches[std::size(kSwitchSettings)] = {};
    std::vector<std::string> presets;
    std::vector<std::string> guides;  // the guide folder's
    std::vector<gint32> paths;        // the image's
    std::string otherGuide;           // a guide file named by the values but not in the folder

    // The layer scaled into the preview, RGB over white, and the preview's size.
    std::vector<uint8_t> base;
    int previewWidth = 1;
    int previewHeight = 1;
};

// --- Values and widgets -----------------------------------------------------------------------------

void SchedulePreview(Dialog& d);

void ShowValues(Dialog& d) {
    const bool was = d.updating;
    d.updating = true;
    const PluginValues& v = d.values;
    gimp_int_combo_box_set_active(GIMP_INT_COMBO_BOX(d.typeCombo), v.settings.type);
    double places[3][2];
    if (v.defaultPoints) DefaultPoints(v.settings.type, d.ink->box, places);
    for (int i = 0; i < 6; ++i)
        gtk_adjustment_set_value(d.points[i],
                                 v.defaultPoints ? places[i / 2][i % 2] : v.points[i / 2][i % 2]);
    for (std::size_t i = 0; i < std::size(kSettingRanges); ++i)
        gtk_adjustment_set_value(GTK_ADJUSTMENT(d.numbers[i]), kSettingRanges[i].Get(v.settings));
    for (std::size_t i = 0; i < std::size(kSwitchSettings); ++i)
        gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(d.switches[i]), v.settings.*kSwitchSettings[i].field);
    int row = 0;
    if (v.guidePath >= 0) {
        const auto at = std::find(d.paths.begin(), d.paths.end(), v.guidePath);
        row = at == d.paths.end() ? 0 : kPathRows + static_cast<int>(at - d.paths.begin());
    } else if (std::string(v.guide) == ":C") {
        row = 1;
    } else if (!tools::IsBuiltInGuide(v.guide)) {
        const std::string listed = MatchGuide(v.guide);
        const auto at = std::find(d.guides.begin(), d.guides.end(), listed);
        row = at == d.guides.end() ? -1 : 2 + static_cast<int>(at - d.guides.begin());
    }
    gimp_int_combo_box_set_active(GIMP_INT_COMBO_BOX(d.guideCombo), row);
    d.updating = was;
}

void Changed(Dialog& d) {
    if (!d.updating) SchedulePreview(d);
}

void OnNumber(GtkAdjustment* adjustment, Dialog* d) {
    if (d->updating) return;
    for (std::size_t i = 0; i < std::size(kSettingRanges); ++i) {
        if (GTK_ADJUSTMENT(d->numbers[i]) != adjustment) continue;
        const SettingRange& range = kSettingRanges[i];
        const double value = gtk_adjustment_get_value(adjustment);
        if (range.decimal)
            d->values.settings.*range.decimal = value;
        else
            d->values.settings.*range.whole = static_cast<int32_t>(std::lround(value));
    }
    Changed(*d);
}

void OnPoint(GtkAdjustment*, Dialog* d) {
    if (d->updating) return;
    for (int i = 0; i < 6; ++i)
        d->values.points[i / 2][i % 2] = gtk_adjustment_get_value(d->points[i]);
    d->values.defaultPoints = 0;
    Changed(*d);
}

void OnSwitch(GtkToggleButton*, Dialog* d) {
    if (d->updating) return;
    for (std::size_t i = 0; i < std::size(kSwitchSettings); ++i)
        d->values.settings.*kSwitchSettings[i].field =
            gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(d->switches[i]));
    Changed(*d);
}

// A new arrangement starts from its own default places, as in the plug-in's panel.
void OnType(GtkWidget* combo, Dialog* d) {
    if (d->updating) return;
    gint type = 0;
    gimp_int_combo_box_get_active(GIMP_INT_COMBO_BOX(combo), &type);
    d->values.settings.type = type;
    d->values.defaultPoints = 1;
    ShowValues(*d);
    SchedulePreview(*d);
}

void OnGuide(GtkWidget* combo, Dialog* d) {
    if (d->updating) return;
    gint row = 0;
    if (!gimp_int_combo_box_get_active(GIMP_INT_COMBO_BOX(combo), &row)) return;
    d->values.guidePath = -1;
    if (row >= kPathRows) {
        d->values.guidePath = d->paths[static_cast<std::size_t>(row - kPathRows)];
    } else if (row >= 2 && row - 2 < static_cast<int>(d->guides.size())) {
        SetGuide(d->values, d->guides[static_cast<std::size_t>(row - 2)]);
    } else if (row == -1) {
        SetGuide(d->values, d->otherGuide);
    } else {
        SetGuide(d->values, row == 1 ? ":C" : ":S");
    }
    Changed(*d);
}

void OnPreset(GtkWidget* combo, Dialog* d) {
    if (d->updating) return;
    gint row = -1;
    if (!gimp_int_combo_box_get_active(GIMP_INT_COMBO_BOX(combo), &row)) return;
    if (row < 0) {
        // The default settings, at the arrangement's default places.
        d->values = DefaultValues();
    } else {
        MoveEffectIniParam preset{};
        MoveEffectIniReadFlag read{};
        std::string error;
        if (!ReadNamedPreset(d->presets[static_cast<std::size_t>(row)], preset, read, error)) {
            g_message("%s", error.c_str());
            return;
        }
        TakePreset(preset, read, d->ink->box, d->values);
    }
    ShowValues(*d);
    SchedulePreview(*d);
}

void FillPresets(Dialog& d) {
    d.presets = ListPresets();
    // A fresh store each time: GIMP's combo keeps a placeholder row of its own that clearing upsets.
    GtkListStore* store = gimp_int_store_new();
    auto add = [store](gint value, const char* label) {
        GtkTreeIter row;
        gtk_list_store_append(store, &row);
        gtk_list_store_set(store, &row, GIMP_INT_STORE_VALUE, value, GIMP_INT_STORE_LABEL, label, -1);
    };
    add(-1, Caption(142));
    for (std::size_t i = 0; i < d.presets.size(); ++i)
        add(static_cast<gint>(i), d.presets[i].c_str());
    const bool was = d.updating;
    d.updating = true;
    gtk_combo_box_set_model(GTK_COMBO_BOX(d.presetCombo), GTK_TREE_MODEL(store));
    d.updating = was;
    g_object_unref(store);
}

// Saves the settings as the plug-in module saves a preset: under the date and time, the points as
// fractions of the layer. An image path cannot travel with a preset; the straight guide stands in.
void OnSavePreset(GtkButton*, Dialog* d) {
    const LayerBox& box = d->ink->box;
    MoveEffectIniParam record = d->values.settings;
    double places[3][2];
    if (d->values.defaultPoints) DefaultPoints(record.type, box, places);
    PathPoint* points[3] = {&record.p1, &record.p2, &record.p3};
    for (int i = 0; i < 3; ++i) {
        const double* p = d->values.defaultPoints ? places[i] : d->values.points[i];
        *points[i] = {(p[0] - box.x) / std::max(1u, box.width), (p[1] - box.y) / std::max(1u, box.height)};
    }
    const std::string guide = d->values.guidePath >= 0 ? ":S" : d->values.guide;
    std::fill(std::begin(record.name), std::end(record.name), '\0');
    guide.copy(record.name, std::min(guide.size(), kIniNameMaxLength));
    CreateDataDirectory(GetPluginDir(true));
    std::u16string name;
    if (!SavePresetAsDate(&record, &name)) {
        g_message("The preset could not be saved in %s", Utf16ToUtf8(GetPluginDir(true)).c_str());
        return;
    }
    FillPresets(*d);
    const auto at = std::find(d->presets.begin(), d->presets.end(), Utf16ToUtf8(name));
    d->updating = true;
    gimp_int_combo_box_set_active(GIMP_INT_COMBO_BOX(d->presetCombo),
                                  at == d->presets.end() ? -1 : static_cast<gint>(at - d->presets.begin()));
    d->updating = false;
}

void OnDefaultPlaces(GtkButton*, Dialog* d) {
    d->values.defaultPoints = 1;
    ShowValues(*d);
    SchedulePreview(*d);
}

void OnFromSelection(GtkButton*, Dialog* d) {
    gboolean any = FALSE;
    gint x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    gimp_selection_bounds(d->image, &any, &x1, &y1, &x2, &y2);
    if (!any) {
        const LayerBox& box = d->ink->box;
        x1 = box.x, y1 = box.y;
        x2 = box.x + static_cast<gint>(box.width), y2 = box.y + static_cast<gint>(box.height);
    }
    PointsForBox(d->values.settings.type, x1, y1, x2, y2, d->values.points);
    d->values.defaultPoints = 0;
    ShowValues(*d);
    SchedulePreview(*d);
}

// --- Preview ----------------------------------------------------------------------------------------

// The lines over the layer, scaled down: each preview pixel takes the mean cover of the pixels it stands
// for, so thin lines stay visible as they would on screen at that zoom.
gboolean DrawPreview(gpointer data) {
    Dialog& d = *static_cast<Dialog*>(data);
    d.pending = 0;
    const int pw = d.previewWidth, ph = d.previewHeight;
    std::vector<uint8_t> rgb = d.base;
    if (gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(d.showPreview))) {
        PathParser guide;
        std::string warning, error;
        LoadGuide(d.values, guide, warning);
        auto filter = DrawEffect(*d.ink, d.values, guide, {}, error);
        if (filter) {
            const tools::Rgb colour = ForegroundColour();
            const uint32_t w = d.ink->box.width, h = d.ink->box.height;
            std::vector<uint8_t> row(static_cast<std::size_t>(w) * 4);
            std::vector<uint32_t> cover(static_cast<std::size_t>(pw)), count(static_cast<std::size_t>(pw));
            InkLayer colourLayer;  // the lines in RGBA whatever the image, for the screen
            colourLayer.box = d.ink->box;
            for (int py = 0; py < ph; ++py) {
                std::fill(cover.begin(), cover.end(), 0);
                std::fill(count.begin(), count.end(), 0);
                const uint32_t top = static_cast<uint32_t>(uint64_t{h} * py / ph);
                const uint32_t end = std::max(top + 1, static_cast<uint32_t>(uint64_t{h} * (py + 1) / ph));
                for (uint32_t y = top; y < end && y < h; ++y) {
                    DrawLinesRows(*filter, colourLayer, colour, row.data(), static_cast<int>(w * 4),
                                  static_cast<int>(y), 1);
                    for (uint32_t x = 0; x < w; ++x) {
                        const std::size_t px = static_cast<std::size_t>(uint64_t{x} * pw / w);
                        cover[px] += row[x * 4 + 3];
                        ++count[px];
                    }
                }
                for (int px = 0; px < pw; ++px) {
                    const double alpha = count[px] ? cover[px] / (255.0 * count[px]) : 0;
                    uint8_t* out = rgb.data() + (static_cast<std::size_t>(py) * pw + px) * 3;
                    const uint8_t line[3] = {colour.r, colour.g, colour.b};
                    for (int c = 0; c < 3; ++c)
                        out[c] = static_cast<uint8_t>(std::lround(out[c] * (1 - alpha) + line[c] * alpha));
                }
            }
        }
    }
    GdkPixbuf* pixbuf = gdk_pixbuf_new(GDK_COLORSPACE_RGB, FALSE, 8, pw, ph);
    const int stride = gdk_pixbuf_get_rowstride(pixbuf);
    guchar* pixels = gdk_pixbuf_get_pixels(pixbuf);
    for (int y = 0; y < ph; ++y)
        std::copy_n(rgb.data() + static_cast<std::size_t>(y) * pw * 3, pw * 3, pixels + y * stride);
    gtk_image_set_from_pixbuf(GTK_IMAGE(d.preview), pixbuf);
    g_object_unref(pixbuf);
    return FALSE;
}

void SchedulePreview(Dialog& d) {
    if (d.pending != 0) g_source_remove(d.pending);
    d.pending = g_timeout_add(kPreviewDelayMs, DrawPreview, &d);
}

void OnShowPreview(GtkToggleButton*, Dialog* d) {
    SchedulePreview(*d);
}

// The layer over white, scaled to the preview by GEGL and faded, so that lines in any colour (black
// lines over black ink, as often as not) stand out from the ink they follow.
void MakeBase(Dialog& d, gint32 drawable) {
    const LayerBox& box = d.ink->box;
    const double scale =
        std::min(1.0, static_cast<double>(kPreviewSide) / std::max({box.width, box.height, 1u}));
    d.previewWidth = std::max(1, static_cast<int>(box.width * scale));
    d.previewHeight = std::max(1, static_cast<int>(box.height * scale));
    std::vector<uint8_t> rgba(static_cast<std::size_t>(d.previewWidth) * d.previewHeight * 4);
    GeglBuffer* buffer = gimp_drawable_get_buffer(drawable);
    const GeglRectangle area{0, 0, d.previewWidth, d.previewHeight};
    gegl_buffer_get(buffer, &area, scale, babl_format("R'G'B'A u8"), rgba.data(), GEGL_AUTO_ROWSTRIDE,
                    GEGL_ABYSS_NONE);
    g_object_unref(buffer);
    d.base.resize(rgba.size() / 4 * 3);
    for (std::size_t i = 0; i < rgba.size() / 4; ++i) {
        const unsigned alpha = rgba[i * 4 + 3];
        for (int c = 0; c < 3; ++c)
            d.base[i * 3 + c] =
                static_cast<uint8_t>(255 - alpha * (255 - rgba[i * 4 + c]) * kInkFade / (255 * 255));
    }
}

// --- Layout -----------------------------------------------------------------------------------------

GtkWidget* Label(const char* text) {
    GtkWidget* label = gtk_label_new(text);
    gtk_misc_set_alignment(GTK_MISC(label), 0.0, 0.5);
    // The point captions name all three arrangements' meanings: wrapped, not one wide column.
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    gtk_widget_set_size_request(label, kCaptionWidth, -1);
    return label;
}

void Attach(GtkWidget* table, GtkWidget* widget, int left, int right, int row) {
    gtk_table_attach(GTK_TABLE(table), widget, left, right, row, row + 1,
                     static_cast<GtkAttachOptions>(GTK_EXPAND | GTK_FILL), GTK_FILL, 0, 0);
}

GtkWidget* MakeControls(Dialog& d) {
    GtkWidget* table = gtk_table_new(16 + std::size(kSettingRanges), 3, FALSE);
    gtk_table_set_col_spacings(GTK_TABLE(table), 6);
    gtk_table_set_row_spacings(GTK_TABLE(table), 4);
    int row = 0;

    // Presets.
    Attach(table, Label(Caption(140)), 0, 1, row);
    d.presetCombo = gimp_int_combo_box_new(nullptr, 0, nullptr);
    FillPresets(d);
    gimp_int_combo_box_set_active(GIMP_INT_COMBO_BOX(d.presetCombo), -1);
    g_signal_connect(d.presetCombo, "changed", G_CALLBACK(OnPreset), &d);
    Attach(table, d.presetCombo, 1, 2, row);
    GtkWidget* save = gtk_button_new_with_label("Save");
    gtk_widget_set_tooltip_text(save, "Save these settings as a preset named by the date and time");
    g_signal_connect(save, "clicked", G_CALLBACK(OnSavePreset), &d);
    Attach(table, save, 2, 3, row++);

    // Arrangement and points.
    Attach(table, Label(Caption(150)), 0, 1, row);
    d.typeCombo = gimp_int_combo_box_new(Caption(151), 0, Caption(152), 1, Caption(153), 2, nullptr);
    g_signal_connect(d.typeCombo, "changed", G_CALLBACK(OnType), &d);
    Attach(table, d.typeCombo, 1, 3, row++);
    const LayerBox& box = d.ink->box;
    const double reach = kMaxPointReach * std::max(box.width, box.height);
    for (int p = 0; p < 3; ++p, ++row) {
        Attach(table, Label(Caption(170 + p)), 0, 1, row);
        GtkWidget* pair = gtk_hbox_new(TRUE, 6);
        for (int c = 0; c < 2; ++c) {
            const double low = (c == 0 ? box.x : box.y) - reach;
            const double high = (c == 0 ? box.x + box.width : box.y + box.height) + reach;
            d.points[p * 2 + c] = GTK_ADJUSTMENT(gtk_adjustment_new(0, low, high, 1, 10, 0));
            g_signal_connect(d.points[p * 2 + c], "value-changed", G_CALLBACK(OnPoint), &d);
            GtkWidget* spin = gtk_spin_button_new(d.points[p * 2 + c], 1, 0);
            gtk_entry_set_width_chars(GTK_ENTRY(spin), 7);
            gtk_box_pack_start(GTK_BOX(pair), spin, TRUE, TRUE, 0);
        }
        Attach(table, pair, 1, 3, row);
    }
    GtkWidget* places = gtk_hbox_new(TRUE, 6);
    GtkWidget* defaults = gtk_button_new_with_label("Default places");
    GtkWidget* selection = gtk_button_new_with_label("From selection");
    g_signal_connect(defaults, "clicked", G_CALLBACK(OnDefaultPlaces), &d);
    g_signal_connect(selection, "clicked", G_CALLBACK(OnFromSelection), &d);
    gtk_box_pack_start(GTK_BOX(places), defaults, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(places), selection, TRUE, TRUE, 0);
    Attach(table, places, 1, 3, row++);

    // Guide: the built-in two, the folder's files, the image's paths.
    Attach(table, Label(Caption(161)), 0, 1, row);
    d.guideCombo = gimp_int_combo_box_new(Caption(163), 0, Caption(164), 1, nullptr);
    d.guides = ListGuides();
    for (std::size_t i = 0; i < d.guides.size(); ++i)
        gimp_int_combo_box_append(GIMP_INT_COMBO_BOX(d.guideCombo), GIMP_INT_STORE_VALUE,
                                  static_cast<gint>(2 + i), GIMP_INT_STORE_LABEL, d.guides[i].c_str(), -1);
    gint pathCount = 0;
    gint* paths = gimp_image_get_vectors(d.image, &pathCount);
    for (gint i = 0; i < pathCount; ++i) {
        d.paths.push_back(paths[i]);
        char* name = gimp_item_get_name(paths[i]);
        const std::string label = std::string("Path: ") + (name ? name : "");
        g_free(name);
        gimp_int_combo_box_append(GIMP_INT_COMBO_BOX(d.guideCombo), GIMP_INT_STORE_VALUE, kPathRows + i,
                                  GIMP_INT_STORE_LABEL, label.c_str(), -1);
    }
    g_free(paths);
    if (d.values.guidePath < 0 && !tools::IsBuiltInGuide(d.values.guide) &&
        MatchGuide(d.values.guide).empty()) {
        d.otherGuide = d.values.guide;
        gimp_int_combo_box_append(GIMP_INT_COMBO_BOX(d.guideCombo), GIMP_INT_STORE_VALUE, -1,
                                  GIMP_INT_STORE_LABEL, d.otherGuide.c_str(), -1);
    }
    g_signal_connect(d.guideCombo, "changed", G_CALLBACK(OnGuide), &d);
    Attach(table, d.guideCombo, 1, 3, row++);

    // The numbers, with the panel's ranges; whole-number settings step by one.
    for (std::size_t i = 0; i < std::size(kSettingRanges); ++i, ++row) {
        const SettingRange& range = kSettingRanges[i];
        const bool whole = range.whole != nullptr;
        const double span = range.max - range.min;
        d.numbers[i] =
            gimp_scale_entry_new(GTK_TABLE(table), 0, row, Caption(kNumberCaptions[i]), 160, 6,
                                 range.Get(d.values.settings), range.min, range.max, whole ? 1 : span / 100,
                                 whole ? 10 : span / 10, whole ? 0 : 2, TRUE, 0, 0, nullptr, nullptr);
        g_signal_connect(d.numbers[i], "value-changed", G_CALLBACK(OnNumber), &d);
    }
    for (std::size_t i = 0; i < std::size(kSwitchSettings); ++i, ++row) {
        d.switches[i] = gtk_check_button_new_with_label(Caption(kSwitchCaptions[i]));
        g_signal_connect(d.switches[i], "toggled", G_CALLBACK(OnSwitch), &d);
        Attach(table, d.switches[i], 0, 3, row);
    }
    return table;
}

}  // namespace

const char* Caption(int id) {
    static const std::map<int, std::string> captions = [] {
        tools::ResourceTable table;
        std::string error;
        table.Parse(kBrivaneCaptionText, "captions", error);
        std::map<int, std::string> texts;
        for (int caption = 100; caption < 300; ++caption)
            if (const std::u16string* text = table.Find(caption))
                texts[caption] = tools::Utf16ToUtf8Text(*text);
        return texts;
    }();
    const auto found = captions.find(id);
    return found == captions.end() ? "" : found->second.c_str();
}

bool RunDialog(gint32 image, gint32 drawable, InkLayer& ink, PluginValues& values) {
    gimp_ui_init("brivane-gimp", FALSE);
    Dialog d;
    d.image = image;
    d.ink = &ink;
    d.values = values;

    GtkWidget* dialog =
        gimp_dialog_new(Caption(101), "brivane-gimp", nullptr, GtkDialogFlags(0), gimp_standard_help_func,
                        "plug-in-brivane", "_Cancel", GTK_RESPONSE_CANCEL, "_OK", GTK_RESPONSE_OK, nullptr);
    gimp_window_set_transient(GTK_WINDOW(dialog));
    GtkWidget* columns = gtk_hbox_new(FALSE, 12);
    gtk_container_set_border_width(GTK_CONTAINER(columns), 12);
    gtk_box_pack_start(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), columns, TRUE, TRUE, 0);

    GtkWidget* left = gtk_vbox_new(FALSE, 6);
    MakeBase(d, drawable);
    d.preview = gtk_image_new();
    GtkWidget* frame = gtk_frame_new(nullptr);
    gtk_frame_set_shadow_type(GTK_FRAME(frame), GTK_SHADOW_IN);
    gtk_container_add(GTK_CONTAINER(frame), d.preview);
    gtk_box_pack_start(GTK_BOX(left), frame, FALSE, FALSE, 0);
    d.showPreview = gtk_check_button_new_with_mnemonic("_Preview");
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(d.showPreview), TRUE);
    g_signal_connect(d.showPreview, "toggled", G_CALLBACK(OnShowPreview), &d);
    gtk_box_pack_start(GTK_BOX(left), d.showPreview, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(columns), left, FALSE, FALSE, 0);
    // Widgets report their first values as changes while they are made; those are not the artist's.
    d.updating = true;
    gtk_box_pack_start(GTK_BOX(columns), MakeControls(d), TRUE, TRUE, 0);
    d.updating = false;

    ShowValues(d);
    gtk_widget_show_all(dialog);
    DrawPreview(&d);
    const bool ok = gimp_dialog_run(GIMP_DIALOG(dialog)) == GTK_RESPONSE_OK;
    if (d.pending != 0) g_source_remove(d.pending);
    gtk_widget_destroy(dialog);
    if (ok) values = d.values;
    return ok;
}

}  // namespace brivane::gimp
