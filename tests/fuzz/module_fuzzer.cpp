// The module through its one entry (its libraries linked in, so coverage and the sanitizers see them),
// in a host whose every answer comes from the input: image sizes, channel orders and indices, row bytes
// and depths, selection, panel values, progress answers with restart and cancel, refused objects, missing
// services, and the order of the selectors. The host aborts when the module uses a handle it was not
// given or gave back, copies or reports more than an image holds, or holds objects after module
// terminate; ASan watches every block handed out, each allocated to the byte. The data folder starts
// empty: presets and guides are the files target's.
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "host/HostApi.h"
#include "host/PluginEntry.h"

namespace {

constexpr int64_t kMaxSide = 160;  // pixels a side of any image, so one run takes milliseconds
constexpr int kMaxActions = 32;    // selector calls and notifications one input may make
FuzzedDataProvider* in = nullptr;  // the input of the current run
HostObject const kHost = reinterpret_cast<HostObject>(0x4057);
constexpr HostResult kOk = kHostResultOk;

void Require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "module fault: %s\n", what);
    std::abort();
}
// True about once in fifty calls, never once the input is used up.
bool Rarely() {
    return in->ConsumeIntegral<uint8_t>() >= 250;
}
// Mostly the usual answer; when the input says so, anything in [low, high].
int64_t Pick(int64_t usual, int64_t low, int64_t high) {
    return in->ConsumeBool() ? in->ConsumeIntegralInRange(low, high) : usual;
}
double PickDecimal() {
    static const double kOdd[] = {std::nan(""), INFINITY, -INFINITY, 1e308, -1e308, 5e-324, -0.0, 1e9};
    return in->ConsumeBool() ? in->PickValueInArray(kOdd) : in->ConsumeFloatingPointInRange(-200.0, 200.0);
}

// Objects the module creates (strings, property objects, bitmaps), and the host's images.
struct Object {
    enum Kind { String, Property, Bitmap } kind;
    explicit Object(Kind k, std::u16string t = {}) : kind(k), text(std::move(t)) {}
    std::u16string text;          // strings
    std::map<int64_t, int> rows;  // property objects: each item's key and its number of list rows
    std::vector<uint8_t> pixels;  // bitmaps: exactly rowBytes * height bytes
    int64_t width = 0, height = 0, rowBytes = 0, depth = 0;
};
std::set<Object*> live;

template <Object::Kind kKind, typename Handle>
Object* Take(Handle handle) {
    auto* object = reinterpret_cast<Object*>(handle);
    Require(live.count(object) && object->kind == kKind, "used a handle the host does not hold");
    return object;
}
template <typename Handle>
HostResult Give(Handle* out, Object* object) {
    live.insert(object);
    *out = reinterpret_cast<Handle>(object);
    return kOk;
}
template <Object::Kind kKind, typename Handle>
HostResult Release(Handle handle) {
    delete Take<kKind>(handle);
    live.erase(reinterpret_cast<Object*>(handle));
    return kOk;
}

struct Image {
    int64_t width, height, order, index[4];
};
Image images[3];  // source, destination, selection
int64_t canvasWidth = 0, canvasHeight = 0;
int restartsLeft = 0;
_Property* panel = nullptr;
HostPropertyCallbackProc callback = nullptr;
void* callbackData = nullptr;

Image* TakeImage(HostOffscreen offscreen) {
    auto* image = reinterpret_cast<Image*>(offscreen);
    Require(image == &images[0] || image == &images[1] || image == &images[2], "used an unknown offscreen");
    return image;
}
void Check(HostObject host) {
    Require(host == kHost, "passed a host object the host never gave");
}
void Check(_Property* property) {
    Take<Object::Property>(property);
}
// Operations that only take note: the first argument is checked, the rest accepted.
template <typename First, typename... Rest>
HostResult Accept(First first, Rest...) {
    return Check(first), kOk;
}
// The module's identifier and the filter's names must be strings the host holds (captions may be null).
template <typename... Rest>
HostResult Named(HostObject host, HostString name, Rest...) {
    return Check(host), Take<Object::String>(name), kOk;
}
template <typename Char>
HostResult MakeString(HostString* out, const Char* text, int64_t length) {
    Require(out && length >= 0 && length < (1 << 20) && (text || length == 0), "string of a bad length");
    std::u16string copy(text, text + length);  // reads every unit the module named
    return Rarely() ? kHostResultFailed : Give(out, new Object(Object::String, std::move(copy)));
}
// Values the module reads back from its panel: list items have rows, integer items none.
template <typename Value>
HostResult Get(_Property* property, int64_t key, Value* value) {
    const int rows = Take<Object::Property>(property)->rows[key];
    const auto coordinate = [] {
        return Pick(in->ConsumeIntegralInRange<int64_t>(-160, 320), INT64_MIN, INT64_MAX);
    };
    if constexpr (std::is_same_v<Value, double>) *value = PickDecimal();
    if constexpr (std::is_same_v<Value, HostPoint>) *value = {coordinate(), coordinate()};
    if constexpr (std::is_same_v<Value, HostBool>)
        *value = HostBool(Pick(in->ConsumeBool(), INT32_MIN, INT32_MAX));
    if constexpr (std::is_same_v<Value, int64_t>)
        *value = Pick(in->ConsumeIntegralInRange(-1, rows > 0 ? rows : 1100), INT64_MIN, INT64_MAX);
    return kOk;
}
// Both copies: the module may name no more than the bitmap and the image hold, from the origin.
Object* CheckCopy(HostBitmap bitmap, const HostPoint* at, HostOffscreen offscreen, const HostPoint* from,
                  int64_t width, int64_t height) {
    Object* object = Take<Object::Bitmap>(bitmap);
    const Image* image = TakeImage(offscreen);
    Require(at && from && at->x == 0 && at->y == 0 && from->x == 0 && from->y == 0 &&
                width <= std::min(object->width, image->width) &&
                height <= std::min(object->height, image->height),
            "copy larger than the bitmap or the image");
    return object;
}
// The image's content: blank, with a rectangle of a short pattern from the input (by default opaque
// black over the left half), so that lines meet both inked and clear runs.
HostResult CopyToBitmap(HostBitmap bitmap, const HostPoint* at, HostOffscreen offscreen,
                        const HostPoint* from, int64_t width, int64_t height, int64_t) {
    Object* object = CheckCopy(bitmap, at, offscreen, from, width, height);
    const int64_t left = Pick(0, 0, width), right = Pick(width / 2, 0, width);
    const int64_t top = Pick(0, 0, height), bottom = Pick(height, 0, height);
    std::vector<uint8_t> pattern = in->ConsumeBytes<uint8_t>(in->ConsumeIntegralInRange(0, 24));
    if (pattern.empty()) pattern = {0, 0, 0, 0xff};
    std::fill(object->pixels.begin(), object->pixels.end(), 0);
    for (int64_t y = top; y < bottom; ++y) {
        for (int64_t x = left * object->depth; x < std::min(right * object->depth, object->rowBytes); ++x)
            object->pixels[static_cast<size_t>(y * object->rowBytes + x)] = pattern[x % pattern.size()];
    }
    return kOk;
}
HostResult MakeBitmap(HostBitmap* out, int64_t width, int64_t height, int64_t code, int64_t) {
    if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide) return kHostResultBadArgument;
    auto* bitmap = new Object(Object::Bitmap);
    bitmap->width = width;
    bitmap->height = height;
    // Depth and row bytes as a host may choose them: usually as the code says, padded or not.
    bitmap->depth = Pick(code == kHostChannelCodeAlpha ? 1 : code == kHostChannelCodeGrayAlpha ? 2 : 4, 0, 6);
    bitmap->rowBytes = std::max<int64_t>(0, width * bitmap->depth + Pick(0, -3, 9));
    bitmap->pixels.resize(static_cast<size_t>(bitmap->rowBytes * height));
    return Give(out, bitmap);
}
template <int kIndex>
HostResult GetImage(HostObject host, HostOffscreen* out) {
    *out = Rarely() ? nullptr : reinterpret_cast<HostOffscreen>(&images[kIndex]);
    return Check(host), kOk;
}
// clang-format off
const HostStringService kStrings = {
    MakeString<char>, MakeString<char16_t>,
    [](HostString* out, int64_t id, HostObject host) {
        const std::string text = in->ConsumeBool() ? in->ConsumeRandomLengthString(12) : std::to_string(id);
        return Check(host), MakeString(out, text.data(), int64_t(text.size())); },
    [](HostString s, const char16_t** chars) {
        return *chars = Rarely() ? nullptr : Take<Object::String>(s)->text.c_str(), kOk; },
    [](HostString s, int64_t* length) { return *length = int64_t(Take<Object::String>(s)->text.size()), kOk; },
    Release<Object::String>,
};
const HostPropertyService kProperties = {
    [](HostObject host, _Property** out) {
        return Check(host), Rarely() ? kHostResultFailed : Give(out, new Object(Object::Property)); },
    Release<Object::Property>,
    [](_Property* p, int64_t key, int64_t, int64_t, int64_t, HostString caption, char) {
        return Take<Object::Property>(p)->rows[key] = 0, caption ? Take<Object::String>(caption) : 0, kOk; },
    Accept, Get, Accept, Get,
    Accept, Get, Accept, Get, Accept, Accept,
    Accept, Get, Accept, Get, Accept, Accept,
};
const HostPointEnumPropertyService kPointEnum = {
    [](_Property* p, int64_t key, int64_t, HostString text, char) {
        return ++Take<Object::Property>(p)->rows[key], text ? Take<Object::String>(text) : 0, kOk; },
    Accept, Get, Accept, Get,
    [](_Property* p, int64_t, const HostPoint* point) { return Check(p), Require(point, "no point"), kOk; },
    Get, Accept, Accept,
};
const HostOffscreenService kOffscreens = {
    [](HostOffscreen o, int64_t* width) { return *width = TakeImage(o)->width, kOk; },
    [](HostOffscreen o, int64_t* height) { return *height = TakeImage(o)->height, kOk; },
    [](HostOffscreen o, int64_t* order) { return *order = TakeImage(o)->order, kOk; },
    [](HostOffscreen o, int64_t* r, int64_t* g, int64_t* b) {
        const int64_t* index = TakeImage(o)->index;
        return *r = index[0], *g = index[1], *b = index[2], kOk; },
    [](HostOffscreen o, int64_t* r, int64_t* g, int64_t* b, int64_t* a) {
        const int64_t* index = TakeImage(o)->index;
        return *r = index[0], *g = index[1], *b = index[2], *a = index[3], kOk; },
    CopyToBitmap,
    [](HostBitmap b, const HostPoint* at, HostOffscreen o, const HostPoint* from, int64_t w, int64_t h, int64_t) {
        return CheckCopy(b, at, o, from, w, h), kOk; },
};
const HostBitmapService kBitmaps = {
    MakeBitmap,
    [](HostBitmap b, int64_t* rowBytes) { return *rowBytes = Take<Object::Bitmap>(b)->rowBytes, kOk; },
    [](HostBitmap b, int64_t* depth) { return *depth = Take<Object::Bitmap>(b)->depth, kOk; },
    [](HostBitmap b, const HostPoint* at, void** address) {
        std::vector<uint8_t>& pixels = Take<Object::Bitmap>(b)->pixels;
        Require(at && at->x == 0 && at->y == 0, "address off the origin");
        return *address = pixels.empty() ? nullptr : pixels.data(), kOk; },
    Release<Object::Bitmap>,
};
const HostModuleInitRecord kModuleInit = {
    [](HostObject host, int64_t* version) { return Check(host), *version = Pick(1, -1, 3), kOk; },
    Named, Accept,
};
const HostFilterInitRecord kFilterInit = {
    Named, Named, Accept, Accept,
    [](HostObject host, const int64_t* kinds, int64_t count) {
        Require(count >= 0 && count <= kHostTargetKindCount && (kinds || count == 0), "bad target kinds");
        for (int64_t i = 0; i < count; ++i) Require(kinds[i] >= 0x101 && kinds[i] <= 0x106, "unknown kind");
        return Check(host), kOk; },
    [](HostObject host, _Property* property) { return Check(host), Check(property), panel = property, kOk; },
    [](HostObject host, HostPropertyCallbackProc proc, void* data) {
        return Check(host), callback = proc, callbackData = data, kOk; },
};
const HostFilterRunRecord kFilterRun = {
    [](HostObject host, ProcessState state, int64_t* answer) {
        Require(state >= kHostProcessStateStart && state <= kHostProcessStateEnd, "unknown process state");
        *answer = Pick(kHostProcessAnswerContinue, kHostProcessAnswerContinue - 1, kHostProcessAnswerExit + 1);
        if (*answer == kHostProcessAnswerRestart && restartsLeft-- <= 0) *answer = kHostProcessAnswerExit;
        return Check(host), kOk; },
    GetImage<0>, GetImage<1>,
    [](HostObject host, HostBool* present) { return Check(host), *present = in->ConsumeBool(), kOk; },
    GetImage<2>,
    [](HostObject host, const HostRect* area) {
        Require(area && area->left >= 0 && area->top >= 0 && area->right <= images[1].width &&
                area->bottom <= images[1].height, "updated an area outside the destination");
        return Check(host), kOk; },
    Accept, Accept,
    [](HostObject host, double* dpi) { return Check(host), *dpi = PickDecimal(), kOk; },
    [](HostObject host, int64_t* width) { return Check(host), *width = canvasWidth, kOk; },
    [](HostObject host, int64_t* height) { return Check(host), *height = canvasHeight, kOk; },
    [](HostObject host, HostColor* color, uint8_t* alpha) {
        *color = {in->ConsumeIntegral<uint8_t>(), in->ConsumeIntegral<uint8_t>(), in->ConsumeIntegral<uint8_t>()};
        return Check(host), *alpha = in->ConsumeIntegral<uint8_t>(), kOk; },
};
// clang-format on

// The document of one filter run.
void NewDocument() {
    canvasWidth = Pick(64, 1, kMaxSide);
    canvasHeight = Pick(48, 1, kMaxSide);
    for (Image& image : images) {
        image.width = Pick(canvasWidth, -1, kMaxSide);
        image.height = Pick(canvasHeight, -1, kMaxSide);
        image.order = Pick(&image == &images[2] ? kHostChannelOrderAlpha : kHostChannelOrderRgbAlpha, 0, 7);
        for (int64_t i = 0; i < 4; ++i)
            image.index[i] = Pick(i, -2, 6);
    }
    canvasWidth = Pick(canvasWidth, -1, kMaxSide);
    canvasHeight = Pick(canvasHeight, -1, kMaxSide);
    restartsLeft = 3;  // each restart is a whole further pass
}
// The user changes an item of the panel (the choice-th one), or pushes it.
void Notify(size_t choice) {
    if (!callback || !live.count(reinterpret_cast<Object*>(panel))) return;
    const std::map<int64_t, int>& rows = reinterpret_cast<Object*>(panel)->rows;
    auto item = rows.begin();
    if (!rows.empty()) std::advance(item, choice % rows.size());
    int64_t changed = 0;
    callback(&changed, panel, item == rows.end() ? 0 : item->first, Pick(kHostNotifyValueChanged, 0, 40),
             callbackData);
    Require(changed == kHostPropertyUnchanged || changed == kHostPropertyModified, "unknown callback result");
}
const std::filesystem::path kData =
    std::filesystem::temp_directory_path() / ("brivane-fuzz-" + std::to_string(getpid()));
const std::filesystem::path kPresets = kData / "quorvel/brivane/preset";

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    std::filesystem::create_directories(kPresets);
    setenv("XDG_DATA_HOME", kData.c_str(), 1);
    std::atexit([] { std::filesystem::remove_all(kData); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider input(data, size);
    in = &input;
    HostRecordSuite records{&kModuleInit, &kFilterInit, &kFilterRun};
    HostServiceSuite services{&kStrings, &kProperties, &kPointEnum, &kOffscreens, &kBitmaps};
    // clang-format off
    const void** tables[] = {reinterpret_cast<const void**>(&records.moduleInitRecord),
        reinterpret_cast<const void**>(&records.filterInitRecord), reinterpret_cast<const void**>(&records.filterRunRecord),
        reinterpret_cast<const void**>(&services.stringService), reinterpret_cast<const void**>(&services.propertyService),
        reinterpret_cast<const void**>(&services.pointEnumPropertyService),
        reinterpret_cast<const void**>(&services.offscreenService), reinterpret_cast<const void**>(&services.bitmapService)};
    // clang-format on
    Server server{&records, &services, kHost};
    void* slot = nullptr;
    bool lacking = false;
    auto call = [&](int64_t selector) {
        // A host initialises a module once, until it terminates it.
        if (selector == kHostSelectorModuleInitialize && slot) return;
        int64_t result = 0;
        TriglavPluginCall(&result, &slot, selector, &server, nullptr);
        Require(result == kHostCallSucceeded || result == kHostCallFailed, "entry wrote an unknown result");
        if (selector == kHostSelectorFilterTerminate || !slot) callback = nullptr;  // the panel is gone
    };
    // Usually the filter is open and runs once more at the end, so that short inputs reach the drawing.
    // The steps in between are bytes from the front of the input, the host's answers come from its back.
    const bool usual = !input.ConsumeBool();
    const std::vector<uint8_t> steps =
        input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange(0, kMaxActions));
    if (usual) call(kHostSelectorModuleInitialize), call(kHostSelectorFilterInitialize);
    for (const uint8_t step : steps) {
        const int action = step % 5, choice = step / 5;
        if (action == 0) {
            NewDocument(), call(kHostSelectorFilterRun);
        } else if (action == 1) {
            Notify(choice);
        } else if (action < 4) {
            constexpr int64_t kSelectors[] = {0x101, 0x102, 0x201, 0x203};
            call(action == 2 ? kSelectors[choice % 4] : input.ConsumeIntegral<int64_t>());
        } else {  // a host that lacks a record or a service from now on
            *tables[choice % std::size(tables)] = nullptr;
            lacking = true;
        }
    }
    records = {&kModuleInit, &kFilterInit, &kFilterRun};
    services = {&kStrings, &kProperties, &kPointEnum, &kOffscreens, &kBitmaps};
    if (usual) NewDocument(), call(kHostSelectorFilterRun);
    call(kHostSelectorFilterTerminate);
    call(kHostSelectorModuleTerminate);
    // Without the release operations the module cannot give objects back; that is the host's loss.
    Require(live.empty() || lacking, "module terminate left host objects alive");
    for (Object* object : std::exchange(live, {}))
        delete object;

    // Presets saved on exit, named by date ("2026..."), would pile up over millions of runs.
    for (const auto& entry : std::filesystem::directory_iterator(kPresets))
        if (entry.path().filename().string().rfind("20", 0) == 0) std::filesystem::remove(entry.path());
    return 0;
}
