#include "tools/host/SimHost.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <unordered_set>
#include <utility>

namespace brivane::tools {
namespace {

struct SimString {
    std::u16string text;
};

struct FreeBitmapData {
    void operator()(uint8_t* data) const { std::free(data); }
};

struct SimBitmap {
    SimBitmapInfo info;
    // calloc: a large bitmap starts as untouched zero pages, so the copy that usually follows writes
    // each byte once rather than twice.
    std::unique_ptr<uint8_t[], FreeBitmapData> data;
};

struct SimProperty {
    SimHost* host = nullptr;  // cleared when the host goes away first
    std::vector<SimItem> items;
};

// Largest bitmap the host hands out, 4 GiB: a bigger request is a plug-in bug, not a drawing.
constexpr int64_t kMaxBitmapBytes = int64_t{1} << 32;
// Longest text the string service accepts, in code units or bytes.
constexpr int64_t kMaxStringLength = int64_t{1} << 24;
// Most target kinds one call may list; there are six, so anything far beyond is garbage.
constexpr int64_t kMaxTargetKinds = 64;

enum class Kind { String, Bitmap, Property, Offscreen, Host, Count };

// Every handle the host gave out, so that a plug-in using a wrong one gets an error, not a crash.
// Process-wide because strings and bitmaps are created without a host object.
class Registry {
public:
    void Add(Kind kind, const void* handle) {
        std::lock_guard lock(m_mutex);
        m_sets[Index(kind)].insert(handle);
    }
    bool Remove(Kind kind, const void* handle) {
        std::lock_guard lock(m_mutex);
        return m_sets[Index(kind)].erase(handle) > 0;
    }
    bool Has(Kind kind, const void* handle) {
        std::lock_guard lock(m_mutex);
        return handle && m_sets[Index(kind)].count(handle) > 0;
    }
    int Count(Kind kind) {
        std::lock_guard lock(m_mutex);
        return static_cast<int>(m_sets[Index(kind)].size());
    }
    std::vector<const void*> All(Kind kind) {
        std::lock_guard lock(m_mutex);
        return {m_sets[Index(kind)].begin(), m_sets[Index(kind)].end()};
    }
    void Error(std::string message) {
        std::lock_guard lock(m_mutex);
        m_errors.push_back(std::move(message));
    }
    std::vector<std::string> TakeErrors() {
        std::lock_guard lock(m_mutex);
        return std::exchange(m_errors, {});
    }

private:
    static size_t Index(Kind kind) { return static_cast<size_t>(kind); }
    std::mutex m_mutex;
    std::unordered_set<const void*> m_sets[static_cast<size_t>(Kind::Count)];
    std::vector<std::string> m_errors;
};

Registry& TheRegistry() {
    // Never destroyed: a module may still release handles while static objects are torn down.
    static Registry* registry = new Registry;
    return *registry;
}

template <typename T>
T* Lookup(Kind kind, const void* handle, const char* operation, const char* what) {
    if (TheRegistry().Has(kind, handle)) return static_cast<T*>(const_cast<void*>(handle));
    TheRegistry().Error(std::string(operation) + ": " + (handle ? "unknown " : "null ") + what);
    return nullptr;
}

SimHost* AsHost(HostObject host, const char* op) {
    return Lookup<SimHost>(Kind::Host, host, op, "host object");
}
SimString* AsString(HostString string, const char* op) {
    return Lookup<SimString>(Kind::String, string, op, "string");
}
SimBitmap* AsBitmap(HostBitmap bitmap, const char* op) {
    return Lookup<SimBitmap>(Kind::Bitmap, bitmap, op, "bitmap");
}
SimProperty* AsProperty(_Property* property, const char* op) {
    return Lookup<SimProperty>(Kind::Property, property, op, "property object");
}
SimImage* AsOffscreen(HostOffscreen offscreen, const char* op) {
    return Lookup<SimImage>(Kind::Offscreen, offscreen, op, "offscreen");
}

HostResult BadArgument(const char* op, const std::string& what) {
    TheRegistry().Error(std::string(op) + ": " + what);
    return kHostResultBadArgument;
}

// The item `key` of a property object, when it exists and has the kind the operation works on.
SimItem* ItemOf(_Property* property, int64_t key, int64_t kind, const char* op) {
    SimProperty* owner = AsProperty(property, op);
    if (!owner) return nullptr;
    for (SimItem& item : owner->items) {
        if (item.key != key) continue;
        if (item.valueKind == kind) return &item;
        TheRegistry().Error(std::string(op) + ": item " + std::to_string(key) + " has value kind " +
                            std::to_string(item.valueKind));
        return nullptr;
    }
    TheRegistry().Error(std::string(op) + ": no item " + std::to_string(key));
    return nullptr;
}

HostString NewString(std::u16string text) {
    auto* string = new SimString{std::move(text)};
    TheRegistry().Add(Kind::String, string);
    return reinterpret_cast<HostString>(string);
}

// ---- Module-initialise record ----

HostResult GetHostVersion(HostObject host, int64_t* version) {
    SimHost* sim = AsHost(host, "getHostVersion");
    if (!sim || !version) return kHostResultBadArgument;
    *version = sim->hostVersion;
    return kHostResultOk;
}

HostResult SetModuleId(HostObject host, HostString id) {
    SimHost* sim = AsHost(host, "setModuleId");
    SimString* text = AsString(id, "setModuleId");
    if (!sim || !text) return kHostResultBadArgument;
    sim->Log().moduleId = Utf16ToUtf8Text(text->text);
    return kHostResultOk;
}

HostResult SetModuleKind(HostObject host, int64_t kind) {
    SimHost* sim = AsHost(host, "setModuleKind");
    if (!sim) return kHostResultBadArgument;
    sim->Log().moduleKind = kind;
    return kHostResultOk;
}

// ---- Filter-initialise record ----

HostResult SetName(HostObject host, HostString name, const char* op, std::optional<std::u16string>& text) {
    SimHost* sim = AsHost(host, op);
    SimString* string = AsString(name, op);
    if (!sim || !string) return kHostResultBadArgument;
    text = string->text;
    return kHostResultOk;
}

HostResult SetFilterCategoryName(HostObject host, HostString name, char accessKey) {
    SimHost* sim = AsHost(host, "setFilterCategoryName");
    if (!sim) return kHostResultBadArgument;
    sim->Log().categoryKey = accessKey;
    return SetName(host, name, "setFilterCategoryName", sim->Log().categoryName);
}

HostResult SetFilterName(HostObject host, HostString name, char accessKey) {
    SimHost* sim = AsHost(host, "setFilterName");
    if (!sim) return kHostResultBadArgument;
    sim->Log().filterKey = accessKey;
    return SetName(host, name, "setFilterName", sim->Log().filterName);
}

HostResult SetCanPreview(HostObject host, HostBool canPreview) {
    SimHost* sim = AsHost(host, "setCanPreview");
    if (!sim) return kHostResultBadArgument;
    sim->Log().canPreview = canPreview != 0;
    return kHostResultOk;
}

HostResult SetUseEmptyArea(HostObject host, HostBool useEmptyArea) {
    SimHost* sim = AsHost(host, "setUseEmptyArea");
    if (!sim) return kHostResultBadArgument;
    sim->Log().useEmptyArea = useEmptyArea != 0;
    return kHostResultOk;
}

HostResult SetTargetKinds(HostObject host, const int64_t* kinds, int64_t count) {
    SimHost* sim = AsHost(host, "setTargetKinds");
    if (!sim) return kHostResultBadArgument;
    if (count < 0 || count > kMaxTargetKinds || (count > 0 && !kinds))
        return BadArgument("setTargetKinds", "bad list of " + std::to_string(count) + " kinds");
    sim->Log().targetKinds = std::vector<int64_t>(kinds, kinds + count);
    return kHostResultOk;
}

HostResult SetProperty(HostObject host, _Property* property) {
    SimHost* sim = AsHost(host, "setProperty");
    if (!sim || !AsProperty(property, "setProperty")) return kHostResultBadArgument;
    sim->SetPanel(property);
    return kHostResultOk;
}

HostResult InstallPropertyCallback(HostObject host, HostPropertyCallbackProc callback, void* userData) {
    SimHost* sim = AsHost(host, "setPropertyCallback");
    if (!sim) return kHostResultBadArgument;
    sim->SetPropertyCallback(callback, userData);
    sim->Log().propertyCallbackSet = callback != nullptr;
    return kHostResultOk;
}

// ---- Filter-run record ----

HostResult Process(HostObject host, ProcessState state, int64_t* answer) {
    SimHost* sim = AsHost(host, "process");
    if (!sim || !answer) return kHostResultBadArgument;
    *answer = sim->AnswerProcess(state);
    return kHostResultOk;
}

HostResult GetOffscreen(HostObject host, HostOffscreen* out, const char* op,
                        HostOffscreen (SimHost::*get)() const) {
    SimHost* sim = AsHost(host, op);
    if (!sim || !out) return kHostResultBadArgument;
    *out = (sim->*get)();
    return *out ? kHostResultOk : kHostResultFailed;
}

HostResult GetSourceOffscreen(HostObject host, HostOffscreen* out) {
    return GetOffscreen(host, out, "getSourceOffscreen", &SimHost::SourceOffscreen);
}

HostResult GetDestinationOffscreen(HostObject host, HostOffscreen* out) {
    return GetOffscreen(host, out, "getDestinationOffscreen", &SimHost::DestinationOffscreen);
}

HostResult GetSelectionOffscreen(HostObject host, HostOffscreen* out) {
    return GetOffscreen(host, out, "getSelectionOffscreen", &SimHost::SelectionOffscreen);
}

HostResult HasSelection(HostObject host, HostBool* present) {
    SimHost* sim = AsHost(host, "hasSelection");
    if (!sim || !present) return kHostResultBadArgument;
    *present = sim->SelectionOffscreen() != nullptr;
    return kHostResultOk;
}

HostResult UpdateDestinationArea(HostObject host, const HostRect* area) {
    SimHost* sim = AsHost(host, "updateDestinationArea");
    if (!sim || !area) return kHostResultBadArgument;
    sim->Log().updatedAreas.push_back(*area);
    return kHostResultOk;
}

HostResult SetProgressTotal(HostObject host, int64_t total) {
    SimHost* sim = AsHost(host, "setProgressTotal");
    if (!sim) return kHostResultBadArgument;
    sim->Log().progressTotals.push_back(total);
    return kHostResultOk;
}

HostResult SetProgressValue(HostObject host, int64_t value) {
    SimHost* sim = AsHost(host, "setProgressValue");
    if (!sim) return kHostResultBadArgument;
    sim->NoteProgress(value);
    return kHostResultOk;
}

HostResult GetResolution(HostObject host, double* dpi) {
    SimHost* sim = AsHost(host, "getResolution");
    if (!sim || !dpi) return kHostResultBadArgument;
    *dpi = sim->resolution;
    return kHostResultOk;
}

HostResult GetCanvasWidth(HostObject host, int64_t* width) {
    SimHost* sim = AsHost(host, "getCanvasWidth");
    if (!sim || !width) return kHostResultBadArgument;
    *width = sim->CanvasWidth();
    return kHostResultOk;
}

HostResult GetCanvasHeight(HostObject host, int64_t* height) {
    SimHost* sim = AsHost(host, "getCanvasHeight");
    if (!sim || !height) return kHostResultBadArgument;
    *height = sim->CanvasHeight();
    return kHostResultOk;
}

HostResult GetMainColor(HostObject host, HostColor* color, uint8_t* alpha) {
    SimHost* sim = AsHost(host, "getMainColor");
    if (!sim || !color || !alpha) return kHostResultBadArgument;
    *color = sim->mainColor;
    *alpha = sim->mainAlpha;
    return kHostResultOk;
}

// ---- String service ----

HostResult CreateWithBytes(HostString* out, const char* text, int64_t length) {
    if (!out || length < 0 || length > kMaxStringLength || (length > 0 && !text))
        return BadArgument("createWithBytes", "bad text or length " + std::to_string(length));
    *out = NewString(Utf8ToUtf16Text(std::string_view(text ? text : "", static_cast<size_t>(length))));
    return kHostResultOk;
}

HostResult CreateWithUtf16(HostString* out, const char16_t* text, int64_t length) {
    if (!out || length < 0 || length > kMaxStringLength || (length > 0 && !text))
        return BadArgument("createWithUtf16", "bad text or length " + std::to_string(length));
    *out = NewString(length > 0 ? std::u16string(text, static_cast<size_t>(length)) : std::u16string());
    return kHostResultOk;
}

HostResult CreateWithResourceId(HostString* out, int64_t id, HostObject host) {
    SimHost* sim = AsHost(host, "createWithResourceId");
    if (!sim || !out) return kHostResultBadArgument;
    const std::u16string* text = sim->Resources().Find(id);
    if (!text) {
        auto& missing = sim->Log().missingResourceIds;
        if (std::find(missing.begin(), missing.end(), id) == missing.end()) missing.push_back(id);
        return kHostResultFailed;
    }
    *out = NewString(*text);
    return kHostResultOk;
}

HostResult GetUtf16Chars(HostString string, const char16_t** chars) {
    SimString* sim = AsString(string, "getUtf16Chars");
    if (!sim || !chars) return kHostResultBadArgument;
    *chars = sim->text.c_str();
    return kHostResultOk;
}

HostResult GetUtf16Length(HostString string, int64_t* length) {
    SimString* sim = AsString(string, "getUtf16Length");
    if (!sim || !length) return kHostResultBadArgument;
    *length = static_cast<int64_t>(sim->text.size());
    return kHostResultOk;
}

HostResult ReleaseString(HostString string) {
    SimString* sim = AsString(string, "releaseString");
    if (!sim) return kHostResultBadArgument;
    TheRegistry().Remove(Kind::String, sim);
    delete sim;
    return kHostResultOk;
}

// ---- Property service ----

HostResult CreateProperty(HostObject host, _Property** out) {
    SimHost* sim = AsHost(host, "createProperty");
    if (!sim || !out) return kHostResultBadArgument;
    auto* property = new SimProperty{sim, {}};
    TheRegistry().Add(Kind::Property, property);
    *out = reinterpret_cast<_Property*>(property);
    return kHostResultOk;
}

HostResult ReleaseProperty(_Property* property) {
    SimProperty* sim = AsProperty(property, "releaseProperty");
    if (!sim) return kHostResultBadArgument;
    if (sim->host && sim->host->Panel() == property) sim->host->SetPanel(nullptr);
    TheRegistry().Remove(Kind::Property, sim);
    delete sim;
    return kHostResultOk;
}

HostResult AddItem(_Property* property, int64_t key, int64_t valueKind, int64_t displayKind,
                   int64_t inputKind, HostString caption, char accessKey) {
    SimProperty* sim = AsProperty(property, "addItem");
    if (!sim) return kHostResultBadArgument;
    switch (valueKind) {
        case kHostValueKindBoolean:
        case kHostValueKindEnumeration:
        case kHostValueKindInteger:
        case kHostValueKindDecimal:
        case kHostValueKindPoint:
            break;
        default:
            return BadArgument("addItem", "unknown value kind " + std::to_string(valueKind));
    }
    for (const SimItem& item : sim->items) {
        if (item.key == key) return BadArgument("addItem", "item " + std::to_string(key) + " added twice");
    }
    SimItem item;
    item.key = key;
    item.valueKind = valueKind;
    item.displayKind = displayKind;
    item.inputKind = inputKind;
    item.accessKey = accessKey;
    // A missing caption is allowed (the plug-in could not make the string); the panel shows the key.
    if (caption) {
        SimString* text = AsString(caption, "addItem");
        if (!text) return kHostResultBadArgument;
        item.caption = text->text;
    }
    sim->items.push_back(std::move(item));
    return kHostResultOk;
}

// Typed set and get helpers: one item field each.
template <typename T, typename Field>
HostResult SetField(_Property* property, int64_t key, int64_t kind, const char* op, Field SimItem::*field,
                    T value) {
    SimItem* item = ItemOf(property, key, kind, op);
    if (!item) return kHostResultFailed;
    item->*field = value;
    return kHostResultOk;
}

template <typename T, typename Field>
HostResult GetField(_Property* property, int64_t key, int64_t kind, const char* op, Field SimItem::*field,
                    T* out) {
    if (!out) return BadArgument(op, "null out-parameter");
    SimItem* item = ItemOf(property, key, kind, op);
    if (!item) return kHostResultFailed;
    *out = static_cast<T>(item->*field);
    return kHostResultOk;
}

// The slider cannot show a value outside its range, so the host keeps it inside.
template <typename T>
HostResult SetClampedValue(_Property* property, int64_t key, int64_t kind, const char* op, T SimItem::*value,
                           T SimItem::*minimum, T SimItem::*maximum, T wanted) {
    SimItem* item = ItemOf(property, key, kind, op);
    if (!item) return kHostResultFailed;
    item->*value = std::clamp(wanted, item->*minimum, std::max(item->*minimum, item->*maximum));
    return kHostResultOk;
}

HostResult SetBooleanValue(_Property* p, int64_t key, HostBool value) {
    return SetField(p, key, kHostValueKindBoolean, "setBooleanValue", &SimItem::boolValue, value != 0);
}
HostResult GetBooleanValue(_Property* p, int64_t key, HostBool* value) {
    return GetField(p, key, kHostValueKindBoolean, "getBooleanValue", &SimItem::boolValue, value);
}
HostResult SetBooleanDefault(_Property* p, int64_t key, HostBool value) {
    return SetField(p, key, kHostValueKindBoolean, "setBooleanDefault", &SimItem::boolDefault, value != 0);
}
HostResult GetBooleanDefault(_Property* p, int64_t key, HostBool* value) {
    return GetField(p, key, kHostValueKindBoolean, "getBooleanDefault", &SimItem::boolDefault, value);
}

HostResult SetIntegerValue(_Property* p, int64_t key, int64_t value) {
    return SetClampedValue(p, key, kHostValueKindInteger, "setIntegerValue", &SimItem::intValue,
                           &SimItem::intMin, &SimItem::intMax, value);
}
HostResult GetIntegerValue(_Property* p, int64_t key, int64_t* value) {
    return GetField(p, key, kHostValueKindInteger, "getIntegerValue", &SimItem::intValue, value);
}
HostResult SetIntegerDefault(_Property* p, int64_t key, int64_t value) {
    return SetField(p, key, kHostValueKindInteger, "setIntegerDefault", &SimItem::intDefault, value);
}
HostResult GetIntegerDefault(_Property* p, int64_t key, int64_t* value) {
    return GetField(p, key, kHostValueKindInteger, "getIntegerDefault", &SimItem::intDefault, value);
}
HostResult SetIntegerMinimum(_Property* p, int64_t key, int64_t value) {
    return SetField(p, key, kHostValueKindInteger, "setIntegerMinimum", &SimItem::intMin, value);
}
HostResult SetIntegerMaximum(_Property* p, int64_t key, int64_t value) {
    return SetField(p, key, kHostValueKindInteger, "setIntegerMaximum", &SimItem::intMax, value);
}

HostResult SetDecimalValue(_Property* p, int64_t key, double value) {
    return SetClampedValue(p, key, kHostValueKindDecimal, "setDecimalValue", &SimItem::decValue,
                           &SimItem::decMin, &SimItem::decMax, value);
}
HostResult GetDecimalValue(_Property* p, int64_t key, double* value) {
    return GetField(p, key, kHostValueKindDecimal, "getDecimalValue", &SimItem::decValue, value);
}
HostResult SetDecimalDefault(_Property* p, int64_t key, double value) {
    return SetField(p, key, kHostValueKindDecimal, "setDecimalDefault", &SimItem::decDefault, value);
}
HostResult GetDecimalDefault(_Property* p, int64_t key, double* value) {
    return GetField(p, key, kHostValueKindDecimal, "getDecimalDefault", &SimItem::decDefault, value);
}
HostResult SetDecimalMinimum(_Property* p, int64_t key, double value) {
    return SetField(p, key, kHostValueKindDecimal, "setDecimalMinimum", &SimItem::decMin, value);
}
HostResult SetDecimalMaximum(_Property* p, int64_t key, double value) {
    return SetField(p, key, kHostValueKindDecimal, "setDecimalMaximum", &SimItem::decMax, value);
}

// ---- Point and enumeration service ----

HostResult AddEnumerationItem(_Property* p, int64_t key, int64_t value, HostString text, char) {
    SimItem* item = ItemOf(p, key, kHostValueKindEnumeration, "addEnumerationItem");
    if (!item) return kHostResultFailed;
    SimString* string = nullptr;
    if (text && !(string = AsString(text, "addEnumerationItem"))) return kHostResultBadArgument;
    for (const SimEnumRow& row : item->rows) {
        if (row.value == value)
            return BadArgument("addEnumerationItem", "item " + std::to_string(key) + " has a row " +
                                                         std::to_string(value) + " already");
    }
    item->rows.push_back({value, string ? string->text : std::u16string()});
    return kHostResultOk;
}
HostResult SetEnumerationValue(_Property* p, int64_t key, int64_t value) {
    return SetField(p, key, kHostValueKindEnumeration, "setEnumerationValue", &SimItem::enumValue, value);
}
HostResult GetEnumerationValue(_Property* p, int64_t key, int64_t* value) {
    return GetField(p, key, kHostValueKindEnumeration, "getEnumerationValue", &SimItem::enumValue, value);
}
HostResult SetEnumerationDefault(_Property* p, int64_t key, int64_t value) {
    return SetField(p, key, kHostValueKindEnumeration, "setEnumerationDefault", &SimItem::enumDefault, value);
}
HostResult GetEnumerationDefault(_Property* p, int64_t key, int64_t* value) {
    return GetField(p, key, kHostValueKindEnumeration, "getEnumerationDefault", &SimItem::enumDefault, value);
}

HostResult SetPointValue(_Property* p, int64_t key, const HostPoint* value) {
    if (!value) return BadArgument("setPointValue", "null point");
    return SetField(p, key, kHostValueKindPoint, "setPointValue", &SimItem::pointValue, *value);
}
HostResult GetPointValue(_Property* p, int64_t key, HostPoint* value) {
    return GetField(p, key, kHostValueKindPoint, "getPointValue", &SimItem::pointValue, value);
}
HostResult SetPointDefaultKind(_Property* p, int64_t key, PointDefault kind) {
    SimItem* item = ItemOf(p, key, kHostValueKindPoint, "setPointDefaultKind");
    if (!item) return kHostResultFailed;
    item->pointDefaultKind = kind;
    SimProperty* owner = reinterpret_cast<SimProperty*>(p);
    if (kind == kHostPointDefaultCentre && owner->host)
        item->pointValue = {owner->host->CanvasWidth() / 2, owner->host->CanvasHeight() / 2};
    return kHostResultOk;
}
HostResult SetPointLimitKind(_Property* p, int64_t key, int64_t kind) {
    return SetField(p, key, kHostValueKindPoint, "setPointLimitKind", &SimItem::pointLimitKind, kind);
}

// ---- Offscreen service ----

HostResult GetOffscreenWidth(HostOffscreen offscreen, int64_t* width) {
    SimImage* image = AsOffscreen(offscreen, "getWidth");
    if (!image || !width) return kHostResultBadArgument;
    *width = image->width;
    return kHostResultOk;
}

HostResult GetOffscreenHeight(HostOffscreen offscreen, int64_t* height) {
    SimImage* image = AsOffscreen(offscreen, "getHeight");
    if (!image || !height) return kHostResultBadArgument;
    *height = image->height;
    return kHostResultOk;
}

HostResult GetChannelOrder(HostOffscreen offscreen, int64_t* order) {
    SimImage* image = AsOffscreen(offscreen, "getChannelOrder");
    if (!image || !order) return kHostResultBadArgument;
    *order = image->channelOrder;
    return kHostResultOk;
}

HostResult GetRgbChannelIndex(HostOffscreen offscreen, int64_t* red, int64_t* green, int64_t* blue) {
    SimImage* image = AsOffscreen(offscreen, "getRgbChannelIndex");
    if (!image || !red || !green || !blue) return kHostResultBadArgument;
    if (image->channelOrder != kHostChannelOrderRgbAlpha && image->channelOrder != kHostChannelOrderRgba)
        return BadArgument("getRgbChannelIndex", "offscreen of channel order " +
                                                     std::to_string(image->channelOrder) + " has no colour");
    *red = image->channelIndex[0];
    *green = image->channelIndex[1];
    *blue = image->channelIndex[2];
    return kHostResultOk;
}

HostResult GetRgbaChannelIndex(HostOffscreen offscreen, int64_t* red, int64_t* green, int64_t* blue,
                               int64_t* alpha) {
    SimImage* image = AsOffscreen(offscreen, "getRgbaChannelIndex");
    if (!image || !red || !green || !blue || !alpha) return kHostResultBadArgument;
    if (image->channelOrder != kHostChannelOrderRgbAlpha && image->channelOrder != kHostChannelOrderRgba)
        return BadArgument("getRgbaChannelIndex", "offscreen of channel order " +
                                                      std::to_string(image->channelOrder) + " has no colour");
    *red = image->channelIndex[0];
    *green = image->channelIndex[1];
    *blue = image->channelIndex[2];
    *alpha = image->channelIndex[3];
    return kHostResultOk;
}

std::atomic<int64_t> g_bitmapServiceNanoseconds{0};

// Adds the lifetime of the object to BitmapServiceSeconds.
class ServiceClock {
public:
    ServiceClock() : m_start(std::chrono::steady_clock::now()) {}
    ~ServiceClock() {
        const auto spent = std::chrono::steady_clock::now() - m_start;
        g_bitmapServiceNanoseconds += std::chrono::duration_cast<std::chrono::nanoseconds>(spent).count();
    }
    ServiceClock(const ServiceClock&) = delete;
    ServiceClock& operator=(const ServiceClock&) = delete;

private:
    std::chrono::steady_clock::time_point m_start;
};

// Copies the overlap of a width x height area between a bitmap and an offscreen of the same depth.
HostResult Copy(const char* op, bool toBitmap, HostBitmap bitmap, const HostPoint* bitmapPosition,
                HostOffscreen offscreen, const HostPoint* offscreenPosition, int64_t width, int64_t height,
                int64_t mode) {
    const ServiceClock clock;
    SimBitmap* target = AsBitmap(bitmap, op);
    SimImage* image = AsOffscreen(offscreen, op);
    if (!target || !image) return kHostResultBadArgument;
    if (!bitmapPosition || !offscreenPosition) return BadArgument(op, "null position");
    if (mode != kHostCopyModeReplace) return BadArgument(op, "unknown copy mode " + std::to_string(mode));
    if (width < 0 || height < 0) return BadArgument(op, "negative size");
    const int64_t depth = image->depth;
    if (target->info.depth != depth)
        return BadArgument(op, "bitmap of " + std::to_string(target->info.depth) +
                                   " bytes a pixel and offscreen of " + std::to_string(depth));
    const HostPoint b = *bitmapPosition;
    const HostPoint o = *offscreenPosition;
    const int64_t x0 = std::max({int64_t{0}, -b.x, -o.x});
    const int64_t y0 = std::max({int64_t{0}, -b.y, -o.y});
    const int64_t x1 = std::min({width, target->info.width - b.x, image->width - o.x});
    const int64_t y1 = std::min({height, target->info.height - b.y, image->height - o.y});
    for (int64_t y = y0; y < y1; ++y) {
        uint8_t* bitmapRow = target->data.get() + (b.y + y) * target->info.rowBytes + (b.x + x0) * depth;
        uint8_t* imageRow = image->At(o.x + x0, o.y + y);
        const size_t bytes = static_cast<size_t>((x1 - x0) * depth);
        if (x1 <= x0) break;
        if (toBitmap)
            std::memcpy(bitmapRow, imageRow, bytes);
        else
            std::memcpy(imageRow, bitmapRow, bytes);
    }
    return kHostResultOk;
}

HostResult CopyToBitmap(HostBitmap bitmap, const HostPoint* bitmapPosition, HostOffscreen offscreen,
                        const HostPoint* offscreenPosition, int64_t width, int64_t height, int64_t mode) {
    return Copy("copyToBitmap", true, bitmap, bitmapPosition, offscreen, offscreenPosition, width, height,
                mode);
}

HostResult CopyFromBitmap(HostBitmap bitmap, const HostPoint* bitmapPosition, HostOffscreen offscreen,
                          const HostPoint* offscreenPosition, int64_t width, int64_t height, int64_t mode) {
    return Copy("copyFromBitmap", false, bitmap, bitmapPosition, offscreen, offscreenPosition, width, height,
                mode);
}

// ---- Bitmap service ----

HostResult CreateBitmap(HostBitmap* out, int64_t width, int64_t height, int64_t channelCode,
                        int64_t scanline) {
    const ServiceClock clock;
    const int64_t depth = DepthOfChannelCode(channelCode);
    if (!out) return BadArgument("createBitmap", "null out-parameter");
    if (depth == 0) return BadArgument("createBitmap", "unknown channel code " + std::to_string(channelCode));
    if (scanline != kHostScanlineTopDown)
        return BadArgument("createBitmap", "unknown scan-line code " + std::to_string(scanline));
    if (width <= 0 || height <= 0)
        return BadArgument("createBitmap",
                           "empty size " + std::to_string(width) + "x" + std::to_string(height));
    if (width > kMaxBitmapBytes / depth / height) return kHostResultFailed;
    // Rows are padded to 16 bytes, as hosts commonly align them, so a plug-in must honour rowBytes.
    const int64_t rowBytes = (width * depth + 15) / 16 * 16;
    std::unique_ptr<uint8_t[], FreeBitmapData> data(
        static_cast<uint8_t*>(std::calloc(static_cast<size_t>(rowBytes * height), 1)));
    if (!data) return kHostResultFailed;
    auto* bitmap = new SimBitmap;
    bitmap->info = {width, height, channelCode, scanline, depth, rowBytes};
    bitmap->data = std::move(data);
    TheRegistry().Add(Kind::Bitmap, bitmap);
    *out = reinterpret_cast<HostBitmap>(bitmap);
    return kHostResultOk;
}

HostResult GetRowBytes(HostBitmap bitmap, int64_t* rowBytes) {
    SimBitmap* sim = AsBitmap(bitmap, "getRowBytes");
    if (!sim || !rowBytes) return kHostResultBadArgument;
    *rowBytes = sim->info.rowBytes;
    return kHostResultOk;
}

HostResult GetDepth(HostBitmap bitmap, int64_t* depth) {
    SimBitmap* sim = AsBitmap(bitmap, "getDepth");
    if (!sim || !depth) return kHostResultBadArgument;
    *depth = sim->info.depth;
    return kHostResultOk;
}

HostResult GetAddress(HostBitmap bitmap, const HostPoint* position, void** address) {
    SimBitmap* sim = AsBitmap(bitmap, "getAddress");
    if (!sim || !position || !address) return kHostResultBadArgument;
    if (position->x < 0 || position->y < 0 || position->x >= sim->info.width ||
        position->y >= sim->info.height)
        return BadArgument("getAddress", "position outside the bitmap");
    *address = sim->data.get() + position->y * sim->info.rowBytes + position->x * sim->info.depth;
    return kHostResultOk;
}

HostResult ReleaseBitmap(HostBitmap bitmap) {
    SimBitmap* sim = AsBitmap(bitmap, "releaseBitmap");
    if (!sim) return kHostResultBadArgument;
    TheRegistry().Remove(Kind::Bitmap, sim);
    delete sim;
    return kHostResultOk;
}

std::unique_ptr<SimImage> RegisterImage(std::optional<SimImage> image) {
    if (!image) return nullptr;
    auto owned = std::make_unique<SimImage>(std::move(*image));
    TheRegistry().Add(Kind::Offscreen, owned.get());
    return owned;
}

void UnregisterImage(std::unique_ptr<SimImage>& image) {
    if (image) TheRegistry().Remove(Kind::Offscreen, image.get());
    image.reset();
}

HostOffscreen HandleOf(const std::unique_ptr<SimImage>& image) {
    return reinterpret_cast<HostOffscreen>(image.get());
}

}  // namespace

int64_t DepthOfChannelOrder(int64_t order) {
    switch (order) {
        case kHostChannelOrderGrayAlpha:
        case kHostChannelOrderMask:
            return 2;
        case kHostChannelOrderRgbAlpha:
        case kHostChannelOrderRgba:
            return 4;
        case kHostChannelOrderAlpha:
            return 1;
        default:
            return 0;
    }
}

int64_t DepthOfChannelCode(int64_t code) {
    switch (code) {
        case kHostChannelCodeAlpha:
            return 1;
        case kHostChannelCodeGrayAlpha:
            return 2;
        case kHostChannelCodeRgbAlpha:
        case kHostChannelCodeRgba:
            return 4;
        default:
            return 0;
    }
}

SimImage MakeImage(int64_t width, int64_t height, int64_t order, const int64_t (&indices)[4]) {
    SimImage image;
    image.width = std::max<int64_t>(width, 0);
    image.height = std::max<int64_t>(height, 0);
    image.channelOrder = order;
    std::copy(std::begin(indices), std::end(indices), image.channelIndex);
    // An order the host does not know is kept as one byte a pixel, like the bitmaps made for it.
    image.depth = std::max<int64_t>(DepthOfChannelOrder(order), 1);
    image.pixels.assign(static_cast<size_t>(image.width * image.height * image.depth), 0);
    return image;
}

SimLiveObjects LiveObjects() {
    Registry& registry = TheRegistry();
    return {registry.Count(Kind::String), registry.Count(Kind::Bitmap), registry.Count(Kind::Property)};
}

bool DescribeBitmap(HostBitmap bitmap, SimBitmapInfo& info) {
    if (!TheRegistry().Has(Kind::Bitmap, bitmap)) return false;
    info = reinterpret_cast<SimBitmap*>(bitmap)->info;
    return true;
}

double BitmapServiceSeconds() {
    return static_cast<double>(g_bitmapServiceNanoseconds.load()) * 1e-9;
}

std::vector<std::string> TakeProtocolErrors() {
    return TheRegistry().TakeErrors();
}

SimHost::SimHost() {
    m_moduleInit = {GetHostVersion, SetModuleId, SetModuleKind};
    m_filterInit = {SetFilterCategoryName, SetFilterName, SetCanPreview,          SetUseEmptyArea,
                    SetTargetKinds,        SetProperty,   InstallPropertyCallback};
    m_filterRun = {Process,          GetSourceOffscreen,    GetDestinationOffscreen,
                   HasSelection,     GetSelectionOffscreen, UpdateDestinationArea,
                   SetProgressTotal, SetProgressValue,      GetResolution,
                   GetCanvasWidth,   GetCanvasHeight,       GetMainColor};
    m_stringService = {CreateWithBytes, CreateWithUtf16, CreateWithResourceId,
                       GetUtf16Chars,   GetUtf16Length,  ReleaseString};
    m_propertyService = {CreateProperty,    ReleaseProperty,   AddItem,           SetBooleanValue,
                         GetBooleanValue,   SetBooleanDefault, GetBooleanDefault, SetIntegerValue,
                         GetIntegerValue,   SetIntegerDefault, GetIntegerDefault, SetIntegerMinimum,
                         SetIntegerMaximum, SetDecimalValue,   GetDecimalValue,   SetDecimalDefault,
                         GetDecimalDefault, SetDecimalMinimum, SetDecimalMaximum};
    m_pointEnumService = {AddEnumerationItem,    SetEnumerationValue,   GetEnumerationValue,
                          SetEnumerationDefault, GetEnumerationDefault, SetPointValue,
                          GetPointValue,         SetPointDefaultKind,   SetPointLimitKind};
    m_offscreenService = {GetOffscreenWidth,   GetOffscreenHeight, GetChannelOrder, GetRgbChannelIndex,
                          GetRgbaChannelIndex, CopyToBitmap,       CopyFromBitmap};
    m_bitmapService = {CreateBitmap, GetRowBytes, GetDepth, GetAddress, ReleaseBitmap};

    m_records = {&m_moduleInit, &m_filterInit, &m_filterRun};
    m_services = {&m_stringService, &m_propertyService, &m_pointEnumService, &m_offscreenService,
                  &m_bitmapService};
    m_server = {&m_records, &m_services, reinterpret_cast<HostObject>(this)};
    TheRegistry().Add(Kind::Host, this);
}

SimHost::~SimHost() {
    TheRegistry().Remove(Kind::Host, this);
    // Property objects the plug-in still holds outlive the host; they must not reach back into it.
    for (const void* handle : TheRegistry().All(Kind::Property)) {
        auto* property = static_cast<SimProperty*>(const_cast<void*>(handle));
        if (property->host == this) property->host = nullptr;
    }
    UnregisterImage(m_source);
    UnregisterImage(m_destination);
    UnregisterImage(m_selection);
}

void SimHost::SetLayer(SimImage layer) {
    UnregisterImage(m_source);
    UnregisterImage(m_destination);
    m_canvasWidth = layer.width;
    m_canvasHeight = layer.height;
    m_destination = RegisterImage(layer);
    m_source = RegisterImage(std::move(layer));
}

void SimHost::SetSelection(std::optional<SimImage> selection) {
    UnregisterImage(m_selection);
    m_selection = RegisterImage(std::move(selection));
}

void SimHost::SetCanvasSize(int64_t width, int64_t height) {
    m_canvasWidth = width;
    m_canvasHeight = height;
}

HostOffscreen SimHost::SourceOffscreen() const {
    return HandleOf(m_source);
}
HostOffscreen SimHost::DestinationOffscreen() const {
    return HandleOf(m_destination);
}
HostOffscreen SimHost::SelectionOffscreen() const {
    return HandleOf(m_selection);
}

int64_t SimHost::RunFilter(PluginModule& module) {
    // Every run, previews included, starts again from the untouched layer.
    if (m_source && m_destination) m_destination->pixels = m_source->pixels;
    m_cancelled = false;
    m_stopToReturn = -1;
    m_passProgress = -1;
    const auto start = std::chrono::steady_clock::now();
    const int64_t result = module.Call(kHostSelectorFilterRun, GetServer());
    const auto end = std::chrono::steady_clock::now();
    m_pluginSeconds += std::chrono::duration<double>(end - start).count();
    if (m_cancelled) m_stopToReturn = std::chrono::duration<double>(end - m_stoppedAt).count();
    return result;
}

void SimHost::NoteProgress(int64_t value) {
    m_log.progressValues.push_back(value);
    m_passProgress = value;
    if (onProgress) onProgress(value, m_log.progressTotals.empty() ? 0 : m_log.progressTotals.back());
}

int64_t SimHost::AnswerProcess(int64_t state) {
    const bool known = state == kHostProcessStateStart || state == kHostProcessStateContinue ||
                       state == kHostProcessStateEnd;
    if (state == kHostProcessStateStart) m_passProgress = -1;
    int64_t answer = kHostProcessAnswerContinue;
    if (!scriptedAnswers.empty()) {
        answer = scriptedAnswers.front();
        scriptedAnswers.pop_front();
    } else if (!known) {
        TheRegistry().Error("process: unknown state " + std::to_string(state));
        answer = kHostProcessAnswerExit;
    } else if (state == kHostProcessStateContinue && cancelAtStep >= 0 && m_passProgress >= cancelAtStep) {
        answer = kHostProcessAnswerExit;
    } else if (state == kHostProcessStateEnd && restartsLeft > 0) {
        --restartsLeft;
        answer = kHostProcessAnswerRestart;
    }
    if (state == kHostProcessStateContinue && answer != kHostProcessAnswerContinue && !m_cancelled) {
        m_cancelled = true;
        m_stoppedAt = std::chrono::steady_clock::now();
    }
    m_log.process.emplace_back(state, answer);
    return answer;
}

const std::vector<SimItem>& SimHost::Items() const {
    static const std::vector<SimItem> kNone;
    if (!TheRegistry().Has(Kind::Property, m_panel)) return kNone;
    return reinterpret_cast<SimProperty*>(m_panel)->items;
}

SimItem* SimHost::FindItem(int64_t key) {
    if (!TheRegistry().Has(Kind::Property, m_panel)) return nullptr;
    for (SimItem& item : reinterpret_cast<SimProperty*>(m_panel)->items) {
        if (item.key == key) return &item;
    }
    return nullptr;
}

int64_t SimHost::Notify(int64_t key, int64_t notification) {
    if (!m_callback) return 0;
    int64_t result = 0;
    m_callback(&result, m_panel, key, notification, m_callbackData);
    return result;
}

namespace {

template <typename T>
bool ParseNumber(std::string_view text, T& value) {
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    // from_chars ignores the process locale: "0.5" means the same everywhere.
    const auto [next, status] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && status == std::errc() && next == text.data() + text.size();
}

bool ParseBool(std::string_view text, bool& value) {
    for (const char* yes : {"true", "1", "yes", "on"}) {
        if (text == yes) return value = true, true;
    }
    for (const char* no : {"false", "0", "no", "off"}) {
        if (text == no) return value = false, true;
    }
    return false;
}

std::string Decimal(double value) {
    char buffer[64];
    const auto [end, status] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return status == std::errc() ? std::string(buffer, end) : "?";
}

}  // namespace

bool SimHost::SetItemValue(int64_t key, const std::string& text, std::string& error, int64_t* result) {
    SimItem* item = FindItem(key);
    const std::string name = "item " + std::to_string(key);
    if (!item) {
        error = "the panel has no item " + std::to_string(key);
        return false;
    }
    switch (item->valueKind) {
        case kHostValueKindBoolean: {
            bool value = false;
            if (!ParseBool(text, value)) {
                error = name + " is a check box: '" + text + "' is not true or false";
                return false;
            }
            item->boolValue = value;
            break;
        }
        case kHostValueKindInteger: {
            int64_t value = 0;
            if (!ParseNumber(text, value)) {
                error = name + " is an integer slider: '" + text + "' is not a whole number";
                return false;
            }
            if (value < item->intMin || value > item->intMax) {
                error = name + ": " + text + " is outside " + std::to_string(item->intMin) + " .. " +
                        std::to_string(item->intMax);
                return false;
            }
            item->intValue = value;
            break;
        }
        case kHostValueKindDecimal: {
            double value = 0.0;
            if (!ParseNumber(text, value)) {
                error = name + " is a decimal slider: '" + text + "' is not a number";
                return false;
            }
            if (!(value >= item->decMin && value <= item->decMax)) {
                error = name + ": " + text + " is outside " + Decimal(item->decMin) + " .. " +
                        Decimal(item->decMax);
                return false;
            }
            item->decValue = value;
            break;
        }
        case kHostValueKindEnumeration: {
            int64_t value = 0;
            const bool known = ParseNumber(text, value) &&
                               std::any_of(item->rows.begin(), item->rows.end(),
                                           [&](const SimEnumRow& row) { return row.value == value; });
            if (!known) {
                error = name + " is a list: '" + text + "' is not the value of one of its " +
                        std::to_string(item->rows.size()) + " rows";
                return false;
            }
            item->enumValue = value;
            break;
        }
        case kHostValueKindPoint: {
            const size_t comma = text.find(',');
            HostPoint value{};
            if (comma == std::string::npos ||
                !ParseNumber(std::string_view(text).substr(0, comma), value.x) ||
                !ParseNumber(std::string_view(text).substr(comma + 1), value.y)) {
                error = name + " is a canvas point: '" + text + "' is not x,y";
                return false;
            }
            item->pointValue = value;
            break;
        }
        default:
            error = name + " has a value kind the host cannot set";
            return false;
    }
    const int64_t answer = Notify(key, kHostNotifyValueChanged);
    if (result) *result = answer;
    return true;
}

}  // namespace brivane::tools
