#include "controller/ZephrineManager.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

#include "engine/MoveEffectFilter.h"
#include "storage/FileHelpers.h"
#include "storage/Preset.h"
#include "storage/SettingRanges.h"

namespace {

// Caption and row texts of the host-side resource file.
constexpr int64_t kTextCategory = 101;
constexpr int64_t kTextFilterName = 102;
constexpr int64_t kTextDefaultsRow = 142;
constexpr int64_t kTextPathTypes[] = {151, 152, 153};  // radiate, parallel, circle
constexpr int64_t kTextStraightGuide = 163;
constexpr int64_t kTextArchGuide = 164;

// Target kinds the filter accepts: RGB with alpha, grey with alpha, and mask layers.
constexpr int kLayerModeMask = 35;

constexpr char16_t kStraightGuideName[] = u":S";
constexpr char16_t kArchGuideName[] = u":C";

// The longest guide name a saved preset keeps; a longer one is saved empty because it could not be
// read back anyway.
constexpr size_t kSavedGuideNameMax = kIniNameCapacity - 1;

// Runs a hook so that no exception reaches the host: the module has no way to report one, and a
// throw across the C entry would take the host down.
template <typename Result, typename Hook>
Result RunGuarded(Result fallback, Hook&& hook) noexcept {
    try {
        return hook();
    } catch (...) {
        return fallback;
    }
}

template <typename Hook>
void RunGuarded(Hook&& hook) noexcept {
    try {
        hook();
    } catch (...) {
    }
}

// The item keys of the number settings and their preset keys, for the ranges every front shares.
struct RangedItem {
    int64_t item;
    std::string_view key;
};
constexpr RangedItem kRangedItems[] = {
    {ZephrineManager::kItemCurvature, "curvature"},
    {ZephrineManager::kItemSize, "size"},
    {ZephrineManager::kItemHardness, "hardness"},
    {ZephrineManager::kItemFluction, "fluction"},
    {ZephrineManager::kItemIn, "in"},
    {ZephrineManager::kItemOut, "out"},
    {ZephrineManager::kItemPosition, "position"},
    {ZephrineManager::kItemPosFluct, "posfluct"},
    {ZephrineManager::kItemLength, "length"},
    {ZephrineManager::kItemLenFluct, "lenfluct"},
    {ZephrineManager::kItemSpacing, "spacing"},
    {ZephrineManager::kItemSpcFluct, "spcfluct"},
    {ZephrineManager::kItemLenGain, "lengain"},
    {ZephrineManager::kItemSpcGain, "spcgain"},
};

// The range of a number item; every item of kRangedItems has one in the shared table.
const SettingRange& RangeOf(int64_t item) {
    for (const RangedItem& ranged : kRangedItems)
        if (ranged.item == item) return *FindSettingRange(ranged.key);
    throw std::logic_error("an item without a range");
}

// A number item's value as the item can hold it.
double Held(int64_t item, double value) {
    return HoldToRange(RangeOf(item), value);
}
int64_t HeldWhole(int64_t item, int64_t value) {
    const SettingRange& range = RangeOf(item);
    return std::clamp(value, static_cast<int64_t>(range.min), static_cast<int64_t>(range.max));
}

// Canvas-relative coordinate of a point for a saved preset; 0 on a canvas without extent.
double RelativeToCanvas(int64_t value, int64_t extent) {
    return extent > 0 ? static_cast<double>(value) / static_cast<double>(extent) : 0.0;
}

// The engine's colour model for a host channel order. RGBA layers (order 4) are read as alpha only.
uint8_t ColorModelOfChannelOrder(int64_t order) {
    switch (order) {
        case kHostChannelOrderGrayAlpha:
        case kHostChannelOrderMask:
            return 1;
        case kHostChannelOrderRgbAlpha:
            return 0;
        default:
            return 3;
    }
}

// Images the engine addresses with 32-bit sizes and strides.
constexpr int64_t kMaxImageSide = std::numeric_limits<int32_t>::max();
constexpr int64_t kMaxRowBytes = std::numeric_limits<int32_t>::max();

// Bytes a pixel that DrawToCanvas writes in 8-bit samples for a layout (colour model).
int64_t BytesPerPixelOfLayout(uint8_t layout) {
    switch (layout) {
        case 0:
            return 4;
        case 2:
            return 5;
        case 3:
            return 1;
        default:
            return 2;
    }
}

// Whether the engine can read every pixel of the layer in the given colour model without leaving
// the host's bitmap: pixels wide enough for the model, rows long enough, channels inside a pixel.
bool IsReadable(const BitmapBlock& layer, uint8_t colorModel, const uint8_t* channels) {
    if (!layer.pixels || layer.width <= 0 || layer.height <= 0) return false;
    if (layer.width > kMaxImageSide || layer.height > kMaxImageSide || layer.rowBytes > kMaxRowBytes)
        return false;
    const int64_t pixelBytes = BytesPerPixelOfLayout(colorModel);
    if (layer.depth < pixelBytes || layer.rowBytes < layer.width * layer.depth) return false;
    // Alpha-only pixels are read at their first byte whatever the indices say.
    if (colorModel == 3) return true;
    for (int64_t i = 0; i < pixelBytes; ++i) {
        if (channels[i] >= pixelBytes) return false;
    }
    return true;
}

// Whether a one-byte-a-pixel mask block has a byte for every pixel of the layer.
bool CoversLayer(const BitmapBlock& mask, const BitmapBlock& layer) {
    return mask.pixels && mask.width >= layer.width && mask.height >= layer.height &&
           mask.rowBytes >= mask.width && mask.rowBytes <= kMaxRowBytes;
}

}  // namespace

ZephrineManager::ZephrineManager() {
    ApplyDefaultPreset();
}

ZephrineManager::~ZephrineManager() = default;

void ZephrineManager::ApplyDefaultPreset() {
    MoveEffectIniParam defaults;
    GetDefaultPreset(&defaults);
    m_saveOnExit = false;
    m_pathType = defaults.type;
    m_point1 = m_point2 = m_point3 = Point{};
    m_guideIndex = 0;
    curvature = defaults.curvature;
    size = defaults.size;
    hardness = defaults.hardness;
    fluction = defaults.fluction;
    in = defaults.in;
    out = defaults.out;
    asdist = defaults.asdist;
    easing = defaults.easing;
    position = defaults.position;
    posfluct = defaults.posfluct;
    length = defaults.length;
    lenfluct = defaults.lenfluct;
    spacing = defaults.spacing;
    spcfluct = defaults.spcfluct;
    lengain = defaults.lengain;
    spcgain = defaults.spcgain;
    connect = defaults.connect;
}

void ZephrineManager::OnGetGuid(char* buffer) {
    std::memcpy(buffer, kGuid, sizeof kGuid);
}

// ---- Panel ----

bool ZephrineManager::OnInitFilter() {
    return RunGuarded(false, [this] {
        SetPluginName(kTextCategory, 't', kTextFilterName, 's');
        SetLayerMode(kLayerModeMask);
        EnablePreview(true);
        EnableDrawEmptyArea(true);

        const std::u16string presetDir = GetPluginDir(true);
        const std::u16string guideDir = GetPluginDir(false);
        CreateDataDirectory(presetDir);
        CreateDataDirectory(guideDir);

        // A new panel shows its defaults, so the fields start from them again when the filter is
        // opened a second time.
        ApplyDefaultPreset();

        std::vector<std::u16string> presetRows{GetResourceText(kTextDefaultsRow)};
        m_presetNames.assign(1, std::u16string());
        for (const std::u16string& path : EnumFiles(presetDir, u".ini")) {
            std::u16string name = GetFileNameWithoutExt(path);
            presetRows.push_back(name);
            m_presetNames.push_back(std::move(name));
        }

        AddComboBox(kItemPreset, 'r', presetRows);
        AddCheckBox(kItemSaveOnExit, 'v', m_saveOnExit);
        AddComboBox(kItemPathType, 't', kTextPathTypes, static_cast<int>(std::size(kTextPathTypes)));
        AddCanvas(kItemPoint1, 'd', kHostPointDefaultCentre);
        AddCanvas(kItemPoint2, 'd', kHostPointDefaultCentre);
        AddCanvas(kItemPoint3, 'd', kHostPointDefaultCentre);

        // Guides already loaded stay cached under their name: a guide file is read once per manager.
        std::vector<GuideEntry> previous = std::move(m_guides);
        auto takeCached = [&previous](const std::u16string& name) {
            for (GuideEntry& entry : previous) {
                if (entry.parser && entry.name == name) return std::move(entry.parser);
            }
            return std::unique_ptr<PathParser>();
        };
        m_guides.clear();
        std::vector<std::u16string> guideRows{GetResourceText(kTextStraightGuide),
                                              GetResourceText(kTextArchGuide)};
        for (const char16_t* builtIn : {kStraightGuideName, kArchGuideName}) {
            m_guides.push_back(GuideEntry{builtIn, takeCached(builtIn)});
        }
        for (const std::u16string& path : EnumFiles(guideDir, u".svg")) {
            std::u16string name = GetFileNameWithoutExt(path);
            guideRows.push_back(name);
            m_guides.push_back(GuideEntry{name, takeCached(name)});
        }

        AddComboBox(kItemGuide, 'r', guideRows);
        // Sliders with the ranges every front shares.
        const auto decimal = [this](int64_t item, char access, double value) {
            AddDblSlider(item, access, RangeOf(item).min, RangeOf(item).max, value);
        };
        const auto whole = [this](int64_t item, char access, int64_t value) {
            AddSlider(item, access, static_cast<int64_t>(RangeOf(item).min),
                      static_cast<int64_t>(RangeOf(item).max), value);
        };
        decimal(kItemCurvature, 'r', curvature);
        decimal(kItemSize, 's', size);
        decimal(kItemHardness, 'h', hardness);
        decimal(kItemFluction, 'f', fluction);
        whole(kItemIn, 'i', in);
        whole(kItemOut, 'o', out);
        AddCheckBox(kItemAsDist, 'd', asdist);
        AddCheckBox(kItemEasing, 'e', easing);
        whole(kItemPosition, 'p', position);
        decimal(kItemPosFluct, 'u', posfluct);
        whole(kItemLength, 'l', length);
        decimal(kItemLenFluct, 'l', lenfluct);
        whole(kItemSpacing, 'a', spacing);
        decimal(kItemSpcFluct, 'a', spcfluct);
        decimal(kItemLenGain, 'g', lengain);
        decimal(kItemSpcGain, 'g', spcgain);
        AddCheckBox(kItemConnect, 'c', connect);
        return true;
    });
}

bool ZephrineManager::OnPropertyChanged(int64_t itemKey, _Property*) {
    return RunGuarded(false, [this, itemKey] {
        switch (itemKey) {
            case kItemPreset:
                return LoadPreset();
            case kItemSaveOnExit:
                // Only the end of the run reads it; the drawing stays as it is.
                UpdateBoolValue(itemKey, &m_saveOnExit);
                return false;
            case kItemPathType:
                return UpdateTemplate();
            case kItemGuide:
                return UpdateEnumValue(itemKey, &m_guideIndex);
            case kItemCurvature:
                return UpdateDoubleValue(itemKey, &curvature);
            case kItemPoint1:
                return UpdatePointValue(itemKey, &m_point1);
            case kItemPoint2:
                return UpdatePointValue(itemKey, &m_point2);
            case kItemPoint3:
                return UpdatePointValue(itemKey, &m_point3);
            case kItemSize:
                return UpdateDoubleValue(itemKey, &size);
            case kItemHardness:
                return UpdateDoubleValue(itemKey, &hardness);
            case kItemFluction:
                return UpdateDoubleValue(itemKey, &fluction);
            case kItemIn:
                return UpdateIntValue(itemKey, &in);
            case kItemOut:
                return UpdateIntValue(itemKey, &out);
            case kItemAsDist:
                return UpdateBoolValue(itemKey, &asdist);
            case kItemEasing:
                return UpdateBoolValue(itemKey, &easing);
            case kItemPosition:
                return UpdateIntValue(itemKey, &position);
            case kItemPosFluct:
                return UpdateDoubleValue(itemKey, &posfluct);
            case kItemLength:
                return UpdateIntValue(itemKey, &length);
            case kItemLenFluct:
                return UpdateDoubleValue(itemKey, &lenfluct);
            case kItemSpacing:
                return UpdateIntValue(itemKey, &spacing);
            case kItemSpcFluct:
                return UpdateDoubleValue(itemKey, &spcfluct);
            case kItemLenGain:
                return UpdateDoubleValue(itemKey, &lengain);
            case kItemSpcGain:
                return UpdateDoubleValue(itemKey, &spcgain);
            case kItemConnect:
                return UpdateBoolValue(itemKey, &connect);
            default:
                return false;
        }
    });
}

bool ZephrineManager::UpdateTemplate() {
    m_pathType = GetEnumValue(kItemPathType);
    ResetPointFromCurrentPathType(kItemPoint1, m_point1);
    ResetPointFromCurrentPathType(kItemPoint2, m_point2);
    ResetPointFromCurrentPathType(kItemPoint3, m_point3);
    return true;
}

void ZephrineManager::ResetPointFromCurrentPathType(int64_t itemKey, Point& point) {
    const int index = itemKey == kItemPoint3 ? 2 : itemKey == kItemPoint2 ? 1 : 0;
    // An arrangement the table does not know leaves the point at the canvas origin.
    PathPoint relative{0.0, 0.0};
    GetDefaultTargetPoint(static_cast<int>(m_pathType), index, relative);
    int64_t width = 0;
    int64_t height = 0;
    GetCanvasSize(width, height);
    point.x = ScaleToCanvas(width, relative.x);
    point.y = ScaleToCanvas(height, relative.y);
    SetPointValue(itemKey, point);
}

// ---- Presets ----

void ZephrineManager::ResetPreset() {
    ResetEnumValue(kItemPathType, m_pathType);
    ResetPointFromCurrentPathType(kItemPoint1, m_point1);
    ResetPointFromCurrentPathType(kItemPoint2, m_point2);
    ResetPointFromCurrentPathType(kItemPoint3, m_point3);
    ResetEnumValue(kItemGuide, m_guideIndex);
    ResetDoubleValue(kItemCurvature, curvature);
    ResetDoubleValue(kItemSize, size);
    ResetDoubleValue(kItemHardness, hardness);
    ResetDoubleValue(kItemFluction, fluction);
    ResetIntValue(kItemIn, in);
    ResetIntValue(kItemOut, out);
    ResetBoolValue(kItemAsDist, asdist);
    ResetBoolValue(kItemEasing, easing);
    ResetIntValue(kItemPosition, position);
    ResetDoubleValue(kItemPosFluct, posfluct);
    ResetIntValue(kItemLength, length);
    ResetDoubleValue(kItemLenFluct, lenfluct);
    ResetIntValue(kItemSpacing, spacing);
    ResetDoubleValue(kItemSpcFluct, spcfluct);
    ResetDoubleValue(kItemLenGain, lengain);
    ResetDoubleValue(kItemSpcGain, spcgain);
    ResetBoolValue(kItemConnect, connect);
}

bool ZephrineManager::LoadPreset() {
    const int64_t index = GetEnumValue(kItemPreset);
    if (index < 0 || static_cast<uint64_t>(index) >= m_presetNames.size()) return false;
    const std::u16string& name = m_presetNames[static_cast<size_t>(index)];
    if (name.empty()) {
        ResetPreset();
        return true;
    }

    MoveEffectIniParam preset;
    MoveEffectIniReadFlag read;
    if (!::LoadPreset(name, &preset, &read)) return false;

    // Keys the file does not give keep their current values.
    if (read.type) SetIniPathType(kItemPathType, preset.type, m_pathType);
    if (read.p1) SetIniCanvasPoint(kItemPoint1, preset.p1, m_point1);
    if (read.p2) SetIniCanvasPoint(kItemPoint2, preset.p2, m_point2);
    if (read.p3) SetIniCanvasPoint(kItemPoint3, preset.p3, m_point3);
    if (read.name) SetIniGuideName(kItemGuide, preset.name, m_guideIndex);
    if (read.curvature) SetIniDouble(kItemCurvature, preset.curvature, curvature);
    if (read.size) SetIniDouble(kItemSize, preset.size, size);
    if (read.hardness) SetIniDouble(kItemHardness, preset.hardness, hardness);
    if (read.fluction) SetIniDouble(kItemFluction, preset.fluction, fluction);
    if (read.in) SetIniInteger(kItemIn, preset.in, in);
    if (read.out) SetIniInteger(kItemOut, preset.out, out);
    if (read.asdist) SetIniBool(kItemAsDist, preset.asdist, asdist);
    if (read.easing) SetIniBool(kItemEasing, preset.easing, easing);
    if (read.position) SetIniInteger(kItemPosition, preset.position, position);
    if (read.posfluct) SetIniDouble(kItemPosFluct, preset.posfluct, posfluct);
    if (read.length) SetIniInteger(kItemLength, preset.length, length);
    if (read.lenfluct) SetIniDouble(kItemLenFluct, preset.lenfluct, lenfluct);
    if (read.spacing) SetIniInteger(kItemSpacing, preset.spacing, spacing);
    if (read.spcfluct) SetIniDouble(kItemSpcFluct, preset.spcfluct, spcfluct);
    if (read.lengain) SetIniDouble(kItemLenGain, preset.lengain, lengain);
    if (read.spcgain) SetIniDouble(kItemSpcGain, preset.spcgain, spcgain);
    if (read.connect) SetIniBool(kItemConnect, preset.connect, connect);
    return true;
}

void ZephrineManager::SavePreset() {
    int64_t width = 0;
    int64_t height = 0;
    GetCanvasSize(width, height);

    MoveEffectIniParam preset;
    std::memset(&preset, 0, sizeof preset);
    preset.type = static_cast<int32_t>(m_pathType);
    preset.p1 = {RelativeToCanvas(m_point1.x, width), RelativeToCanvas(m_point1.y, height)};
    preset.p2 = {RelativeToCanvas(m_point2.x, width), RelativeToCanvas(m_point2.y, height)};
    preset.p3 = {RelativeToCanvas(m_point3.x, width), RelativeToCanvas(m_point3.y, height)};
    if (m_guideIndex >= 0 && static_cast<uint64_t>(m_guideIndex) < m_guides.size()) {
        const std::string guide = Utf16ToUtf8(m_guides[static_cast<size_t>(m_guideIndex)].name);
        if (guide.size() <= kSavedGuideNameMax) std::memcpy(preset.name, guide.c_str(), guide.size() + 1);
    }
    preset.curvature = curvature;
    preset.size = size;
    preset.hardness = hardness;
    preset.fluction = fluction;
    preset.in = static_cast<int32_t>(in);
    preset.out = static_cast<int32_t>(out);
    preset.asdist = asdist;
    preset.easing = easing;
    preset.position = static_cast<int32_t>(position);
    preset.posfluct = posfluct;
    preset.length = static_cast<int32_t>(length);
    preset.lenfluct = lenfluct;
    preset.spacing = static_cast<int32_t>(spacing);
    preset.spcfluct = spcfluct;
    preset.lengain = lengain;
    preset.spcgain = spcgain;
    preset.connect = connect;

    std::u16string newName;
    if (!SavePresetAsDate(&preset, &newName)) return;
    // Listed at once, without the filter being opened again; the chosen row stays as it is.
    m_presetNames.push_back(newName);
    AddComboBoxItem(kItemPreset, newName, static_cast<int64_t>(m_presetNames.size()) - 1);
}

void ZephrineManager::SetIniPathType(int64_t itemKey, int value, int64_t& field) {
    // The points stay where the preset or the user put them.
    field = value;
    SetEnumValue(itemKey, value);
}

void ZephrineManager::SetIniCanvasPoint(int64_t itemKey, const PathPoint& relative, Point& point) {
    PathPoint place = relative;
    if (!std::isfinite(place.x) || !std::isfinite(place.y)) {
        const int index = itemKey == kItemPoint3 ? 2 : itemKey == kItemPoint2 ? 1 : 0;
        place = PathPoint{0.0, 0.0};
        GetDefaultTargetPoint(static_cast<int>(m_pathType), index, place);
    }
    int64_t width = 0;
    int64_t height = 0;
    GetCanvasSize(width, height);
    point = HoldOnCanvas(Point{ScaleToCanvas(width, place.x), ScaleToCanvas(height, place.y)});
    SetPointValue(itemKey, point);
}

Point ZephrineManager::HoldOnCanvas(Point point) {
    int64_t width = 0;
    int64_t height = 0;
    GetCanvasSize(width, height);
    const int64_t reach = ScaleToCanvas(std::max<int64_t>({width, height, 0}), kMaxPointReach);
    point.x = std::clamp(point.x, -reach, std::max<int64_t>(width, 0) + reach);
    point.y = std::clamp(point.y, -reach, std::max<int64_t>(height, 0) + reach);
    return point;
}

void ZephrineManager::SetIniGuideName(int64_t itemKey, const std::string& name, int64_t& field) {
    const std::u16string wanted = ToLowerCase(Utf8ToUtf16(name));
    for (size_t i = 0; i < m_guides.size(); ++i) {
        if (ToLowerCase(m_guides[i].name) != wanted) continue;
        field = static_cast<int64_t>(i);
        SetEnumValue(itemKey, field);
        return;
    }
}

void ZephrineManager::SetIniDouble(int64_t itemKey, double value, double& field) {
    value = Held(itemKey, value);
    field = value;
    SetDoubleValue(itemKey, value);
}

void ZephrineManager::SetIniInteger(int64_t itemKey, int64_t value, int64_t& field) {
    value = HeldWhole(itemKey, value);
    field = value;
    SetIntValue(itemKey, value);
}

void ZephrineManager::SetIniBool(int64_t itemKey, bool value, bool& field) {
    field = value;
    SetBoolValue(itemKey, value);
}

// ---- Filter run ----

void ZephrineManager::OnPrepareDraw() {
    RunGuarded([this] {
        SetProgressMax(kProgressSteps);
        AllocBitmap();
    });
}

void ZephrineManager::OnUpdateParameter() {
    // The host's answers are held to the items' ranges before anything is narrowed: a host may answer
    // values its panel was never given.
    const Point p1 = HoldOnCanvas(m_point1), p2 = HoldOnCanvas(m_point2), p3 = HoldOnCanvas(m_point3);
    m_param = MoveEffectParam{};
    m_param.type = static_cast<int32_t>(m_pathType);
    m_target.x1 = static_cast<int32_t>(p1.x);
    m_target.y1 = static_cast<int32_t>(p1.y);
    m_target.x2 = static_cast<int32_t>(p2.x);
    m_target.y2 = static_cast<int32_t>(p2.y);
    m_target.x3 = static_cast<int32_t>(p3.x);
    m_target.y3 = static_cast<int32_t>(p3.y);
    m_param.curvature = Held(kItemCurvature, curvature);
    m_param.size = Held(kItemSize, size);
    m_param.hardness = Held(kItemHardness, hardness);
    m_param.fluction = Held(kItemFluction, fluction);
    m_param.asdist = asdist;
    m_param.easing = easing;
    m_param.posfluct = Held(kItemPosFluct, posfluct);
    m_param.lenfluct = Held(kItemLenFluct, lenfluct);
    m_param.spcfluct = Held(kItemSpcFluct, spcfluct);
    m_param.lengain = Held(kItemLenGain, lengain);
    m_param.spcgain = Held(kItemSpcGain, spcgain);
    m_param.connect = connect;
    // The sliders run 0 .. 1000: pixels as they stand, or thousandths of the line length.
    const auto taper = [this](int64_t item, int64_t value) {
        const double held = static_cast<double>(HeldWhole(item, value));
        return asdist ? held : held / 1000.0;
    };
    m_param.in = taper(kItemIn, in);
    m_param.out = taper(kItemOut, out);
    m_param.position = static_cast<int32_t>(HeldWhole(kItemPosition, position));
    m_param.length = static_cast<int32_t>(HeldWhole(kItemLength, length));
    m_param.spacing = static_cast<int32_t>(HeldWhole(kItemSpacing, spacing));
}

void ZephrineManager::OnCalculate() {
    RunGuarded([this] { Calculate(); });
}

PathParser* ZephrineManager::GetCurrentGuide() {
    if (m_guideIndex < 0 || static_cast<uint64_t>(m_guideIndex) >= m_guides.size()) return nullptr;
    GuideEntry& entry = m_guides[static_cast<size_t>(m_guideIndex)];
    if (!entry.parser) {
        auto parser = std::make_unique<PathParser>();
        try {
            parser->LoadFromFile(entry.name);
        } catch (const std::invalid_argument&) {
            // A malformed number in the path data: the guide is unusable, like a file without a path.
            parser->CreateLine();
        } catch (const std::out_of_range&) {
            parser->CreateLine();
        }
        entry.parser = std::move(parser);
    }
    return entry.parser.get();
}

void ZephrineManager::Calculate() {
    PathParser* guide = GetCurrentGuide();
    m_lastProgress = 0;
    m_hostState = kHostProcessAnswerContinue;
    // Without a guide row (no panel yet) there is nothing to lay lines along.
    if (!guide) return;

    MoveEffectFilter filter(m_param);
    filter.SetTarget(m_target);
    filter.AttachGuide(guide);
    filter.SetProgressCallback(&ZephrineManager::OnProgress, this);
    filter.SetSpareCoverage(&m_spareCoverage);

    const BitmapBlock& source = m_source;
    const uint8_t colorModel = ColorModelOfChannelOrder(source.channelOrder);
    // Channel indices as the host reports them; the last channel of a pixel is always its alpha.
    uint8_t channels[MoveEffectFilter::kMaxChannels] = {};
    const int64_t depth = std::clamp<int64_t>(source.depth, 0, MoveEffectFilter::kMaxChannels);
    for (int64_t i = 0; i < depth; ++i)
        channels[i] = static_cast<uint8_t>(source.channelIndex[i]);
    if (depth > 0) channels[depth - 1] = static_cast<uint8_t>(depth - 1);

    MoveEffectImageParam image{};
    image.colorModel = colorModel;
    image.sampleFormat = 0;
    image.invertGray = false;
    image.channelOffsets = channels;
    image.channelCount = MoveEffectFilter::kMaxChannels;
    if (IsReadable(source, colorModel, channels)) {
        image.width = static_cast<uint32_t>(source.width);
        image.height = static_cast<uint32_t>(source.height);
        image.rowBytes = static_cast<uint32_t>(source.rowBytes);
        image.pixels = source.pixels;
    }
    if (m_selection.offscreen) {
        // The engine reads one mask byte per layer pixel; a selection that does not cover the layer
        // cannot say where to draw.
        if (!CoversLayer(m_selection, source)) return;
        image.maskFormat = 0;
        image.maskRowBytes = static_cast<uint32_t>(m_selection.rowBytes);
        image.mask = m_selection.pixels;
    }
    filter.SetBaseImage(&image);
    filter.ApplyEffect(false);

    // The host asked to stop: its destination stays as it gave it.
    if (m_hostState != kHostProcessAnswerContinue) return;

    const uint32_t rgb = GetMainColor();
    const unsigned red = rgb & 0xff;
    const unsigned green = (rgb >> 8) & 0xff;
    const unsigned blue = (rgb >> 16) & 0xff;
    const unsigned grey = (77 * red + 150 * green + 29 * blue) >> 8;

    const BitmapBlock& dest = m_destination;
    unsigned char color[MoveEffectFilter::kMaxChannels] = {};
    switch (dest.channelOrder) {
        case kHostChannelOrderAlpha:
        case kHostChannelOrderMask:
            // A mask is drawn in black or white only.
            color[0] = grey >= 128 ? 255 : 0;
            break;
        case kHostChannelOrderGrayAlpha:
            color[0] = static_cast<unsigned char>(grey);
            break;
        case kHostChannelOrderRgbAlpha: {
            const unsigned values[3] = {red, green, blue};
            for (int i = 0; i < 3; ++i) {
                const int64_t at = dest.channelIndex[i];
                if (at >= 0 && at < MoveEffectFilter::kMaxChannels)
                    color[at] = static_cast<unsigned char>(values[i]);
            }
            break;
        }
        default:
            // RGBA layers (order 4) and unknown orders get no colour, on purpose.
            break;
    }

    // The engine writes rows of the source's size in the layout of the source; a destination that
    // cannot hold them is left alone rather than overrun.
    if (!dest.pixels) return;
    if (dest.width < filter.GetWidth() || dest.height < filter.GetHeight()) return;
    if (dest.depth < BytesPerPixelOfLayout(colorModel) && filter.GetHeight() > 0) return;
    if (dest.rowBytes < dest.width * dest.depth || dest.rowBytes > kMaxRowBytes) return;
    filter.DrawToCanvas(colorModel, 0, color, dest.pixels, static_cast<int>(dest.rowBytes));
    ApplyBitmap();
}

int ZephrineManager::OnProgress(int total, int done, void* manager) {
    auto* self = static_cast<ZephrineManager*>(manager);
    // The engine never reports an empty total; a zero one must not divide.
    if (!self || total <= 0) return 1;
    const int32_t value = static_cast<int32_t>(int64_t{done} * kProgressSteps / total);
    if (value <= self->m_lastProgress) return 1;
    self->SetProgressValue(value);
    self->m_lastProgress = value;
    self->m_hostState = self->GetCurrentHostState(kHostProcessStateContinue);
    return self->m_hostState == kHostProcessAnswerContinue ? 1 : 0;
}

void ZephrineManager::OnExitDraw() {
    RunGuarded([this] {
        ReleaseBitmap();
        m_spareCoverage.Release();
        if (m_saveOnExit) SavePreset();
    });
}

PluginManager* CreatePluginManager() {
    return RunGuarded<PluginManager*>(nullptr, [] { return new ZephrineManager; });
}
