// The module as an artist meets a shared preset and guide: each input writes the preset file and the
// guide file into an empty data folder; the simulated host opens the filter, picks that preset (which
// may name the guide, or the guide row is picked after it) and runs it on a canvas of at most 64 x 64.
// The host answers as a host does; only the layer, the progress answers (cancel, restarts) and the two
// files come from the input, so that values, points and guide shapes of every kind reach the engine.
// A stall or a blown memory budget is the finding: run with -timeout=5 -rss_limit_mb=512.
#include <fuzzer/FuzzedDataProvider.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/PluginEntry.h"
#include "tools/host/SimHost.h"

namespace {

namespace fs = std::filesystem;
using brivane::tools::SimHost;

constexpr int64_t kMaxSide = 64;          // pixels a side: one run in about a millisecond
constexpr int kMaxRestarts = 2;           // passes after the first, when the input asks for them
constexpr size_t kMaxPresetBytes = 2048;  // far beyond any real preset; the guide takes the rest
constexpr int64_t kPresetItem = 140, kGuideItem = 161;

const fs::path kData = fs::temp_directory_path() / ("brivane-files-fuzz-" + std::to_string(getpid()));
const fs::path kPresets = kData / "quorvel/brivane/preset";
const fs::path kGuides = kData / "quorvel/brivane/guide";
brivane::tools::ResourceTable* resources = nullptr;

void Require(bool condition, const std::string& what) {
    if (condition) return;
    std::fprintf(stderr, "module fault: %s\n", what.c_str());
    std::abort();
}

void WriteFile(const fs::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(bytes.data(), std::streamsize(bytes.size()));
}

// A layer with ink where the input's mask says: every pixel whose (x ^ y) shares no bit with it, so 0
// inks everything and larger masks leave sparser lattices.
brivane::tools::SimImage MakeLayer(int64_t width, int64_t height, uint8_t mask) {
    brivane::tools::SimImage layer = brivane::tools::MakeImage(width, height, kHostChannelOrderRgbAlpha);
    for (int64_t y = 0; y < height; ++y)
        for (int64_t x = 0; x < width; ++x)
            if (((x ^ y) & mask) == 0) layer.At(x, y)[3] = 0xff;
    return layer;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fs::create_directories(kPresets);
    fs::create_directories(kGuides);
    setenv("XDG_DATA_HOME", kData.c_str(), 1);
    std::atexit([] { fs::remove_all(kData); });
    resources = new brivane::tools::ResourceTable;
    std::string error;
    Require(resources->Load(BRIVANE_RESOURCES, error), error);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int64_t width = in.ConsumeIntegralInRange<int64_t>(1, kMaxSide);
    const int64_t height = in.ConsumeIntegralInRange<int64_t>(1, kMaxSide);
    const uint8_t inkMask = in.ConsumeIntegral<uint8_t>();
    const int restarts = in.ConsumeIntegralInRange(0, kMaxRestarts);
    const int64_t cancelAt = in.ConsumeBool() ? in.ConsumeIntegralInRange<int64_t>(0, 100) : -1;
    const bool pickGuideRow = in.ConsumeBool();
    const std::string preset = in.ConsumeRandomLengthString(kMaxPresetBytes);
    const std::string guide = in.ConsumeRemainingBytesAsString();

    // Only this input's files: presets saved by a run would pile up over millions of runs.
    for (const fs::path& folder : {kPresets, kGuides})
        for (const fs::directory_entry& entry : fs::directory_iterator(folder))
            fs::remove(entry.path());
    WriteFile(kPresets / "fuzz.ini", preset);
    WriteFile(kGuides / "fuzz.svg", guide);

    SimHost host;
    host.Resources() = *resources;
    host.SetLayer(MakeLayer(width, height, inkMask));
    host.restartsLeft = restarts;
    host.cancelAtStep = cancelAt;
    brivane::tools::PluginModule module;
    module.Attach(TriglavPluginCall);
    Require(module.Call(kHostSelectorModuleInitialize, host.GetServer()) == kHostCallSucceeded, "init");
    Require(module.Call(kHostSelectorFilterInitialize, host.GetServer()) == kHostCallSucceeded,
            "filter init");
    std::string error;
    // Row 1 is the preset file (row 0 the defaults); the guide rows are the two built-in ones, then the file.
    Require(host.SetItemValue(kPresetItem, "1", error), "preset row: " + error);
    if (pickGuideRow) Require(host.SetItemValue(kGuideItem, "2", error), "guide row: " + error);
    host.RunFilter(module);
    module.Call(kHostSelectorFilterTerminate, host.GetServer());
    module.Call(kHostSelectorModuleTerminate, host.GetServer());
    for (const std::string& fault : brivane::tools::TakeProtocolErrors())
        Require(false, fault);
    const brivane::tools::SimLiveObjects live = brivane::tools::LiveObjects();
    Require(live.strings == 0 && live.bitmaps == 0 && live.properties == 0, "objects left alive");
    return 0;
}
