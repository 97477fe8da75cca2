// The module as an artist meets a shared preset and guide: each input writes both files into an empty
// data folder; the simulated host picks the preset (which may name the guide) and runs it on a canvas of
// at most 64 x 64, with progress answers from the input. Stalls and memory blow-ups are the findings.
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
using namespace brivane::tools;

constexpr int64_t kMaxSide = 64;          // pixels a side
constexpr size_t kMaxPresetBytes = 2048;  // far beyond any real preset; the guide takes the rest
const fs::path kData = fs::temp_directory_path() / ("brivane-files-fuzz-" + std::to_string(getpid()));
const fs::path kFolders[] = {kData / "quorvel/brivane/preset", kData / "quorvel/brivane/guide"};
ResourceTable* resources = nullptr;

void Require(bool condition, const std::string& what) {
    if (condition) return;
    std::fprintf(stderr, "module fault: %s\n", what.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    for (const fs::path& folder : kFolders)
        fs::create_directories(folder);
    setenv("XDG_DATA_HOME", kData.c_str(), 1);
    std::atexit([] { fs::remove_all(kData); });
    resources = new ResourceTable;
    std::string error;
    Require(resources->Load(BRIVANE_RESOURCES, error), error);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    SimHost host;
    host.Resources() = *resources;
    // Ink wherever (x ^ y) shares no bit with the mask: 0 inks everything, larger masks sparser lattices.
    SimImage layer = MakeImage(in.ConsumeIntegralInRange<int64_t>(1, kMaxSide),
                               in.ConsumeIntegralInRange<int64_t>(1, kMaxSide), kHostChannelOrderRgbAlpha);
    const uint8_t mask = in.ConsumeIntegral<uint8_t>();
    for (int64_t y = 0; y < layer.height; ++y)
        for (int64_t x = 0; x < layer.width; ++x)
            if (((x ^ y) & mask) == 0) layer.At(x, y)[3] = 0xff;
    host.SetLayer(std::move(layer));
    host.restartsLeft = in.ConsumeIntegralInRange(0, 2);
    host.cancelAtStep = in.ConsumeBool() ? in.ConsumeIntegralInRange<int64_t>(0, 100) : -1;
    const bool pickGuideRow = in.ConsumeBool();
    // Only this input's files: presets saved by a run would pile up over millions of runs.
    for (const fs::path& folder : kFolders)
        for (const fs::directory_entry& entry : fs::directory_iterator(folder))
            fs::remove(entry.path());
    const std::string preset = in.ConsumeRandomLengthString(kMaxPresetBytes);
    std::ofstream(kFolders[0] / "fuzz.ini", std::ios::binary) << preset;
    std::ofstream(kFolders[1] / "fuzz.svg", std::ios::binary) << in.ConsumeRemainingBytesAsString();

    PluginModule module;
    module.Attach(TriglavPluginCall);
    Require(module.Call(kHostSelectorModuleInitialize, host.GetServer()) == kHostCallSucceeded, "init");
    Require(module.Call(kHostSelectorFilterInitialize, host.GetServer()) == kHostCallSucceeded,
            "filter init");
    std::string error;
    // Row 1 is the preset file (row 0 the defaults); the guide rows are the two built-in ones, then the file.
    Require(host.SetItemValue(140, "1", error), "preset row: " + error);
    if (pickGuideRow) Require(host.SetItemValue(161, "2", error), "guide row: " + error);
    host.RunFilter(module);
    module.Call(kHostSelectorFilterTerminate, host.GetServer());
    module.Call(kHostSelectorModuleTerminate, host.GetServer());
    for (const std::string& fault : TakeProtocolErrors())
        Require(false, fault);
    const SimLiveObjects live = LiveObjects();
    Require(live.strings == 0 && live.bitmaps == 0 && live.properties == 0, "objects left alive");
    return 0;
}
