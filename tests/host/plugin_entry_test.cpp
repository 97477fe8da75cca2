// The module entry, loaded with dlopen into the simulated host: the slot, the result codes and the
// host faults the module must survive. The run loop itself is checked in plugin_manager_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tools/host/PluginModule.h"
#include "tools/host/SimHost.h"

using namespace brivane::tools;

namespace {

// A white colour layer in the host's blue, green, red, alpha order.
SimImage WhiteLayer(int64_t width, int64_t height) {
    SimImage layer = MakeImage(width, height, kHostChannelOrderRgbAlpha, {2, 1, 0, 3});
    std::fill(layer.pixels.begin(), layer.pixels.end(), 255);
    return layer;
}

class plugin_entry_test : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(module.Load(BRIVANE_PLUGIN_MODULE, error)) << error;
        TakeProtocolErrors();
        baseline = LiveObjects();
    }

    void TearDown() override {
        if (module.Slot()) {
            EXPECT_EQ(Call(kHostSelectorModuleTerminate), kHostCallSucceeded);
        }
        EXPECT_EQ(module.Slot(), nullptr);
        module.Unload();
        const SimLiveObjects live = LiveObjects();
        EXPECT_EQ(live.strings, baseline.strings) << "host strings left over";
        EXPECT_EQ(live.bitmaps, baseline.bitmaps) << "bitmaps left over";
        EXPECT_EQ(live.properties, baseline.properties) << "property objects left over";
        for (const std::string& misuse : TakeProtocolErrors())
            ADD_FAILURE() << misuse;
    }

    int64_t Call(int64_t selector) { return module.Call(selector, host.GetServer()); }

    // Module and filter initialise on a layer, as a host does before the first run.
    void OpenFilter(SimImage layer) {
        host.SetLayer(std::move(layer));
        ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
        ASSERT_EQ(Call(kHostSelectorFilterInitialize), kHostCallSucceeded);
    }

    SimHost host;
    PluginModule module;
    SimLiveObjects baseline;
};

TEST_F(plugin_entry_test, registration_keeps_the_manager_in_the_slot_even_when_refused) {
    struct Case {
        const char* name;
        std::function<void(SimHost&)> spoil;
        int64_t result;
    };
    const Case cases[] = {
        {"a complete host", [](SimHost&) {}, kHostCallSucceeded},
        {"version 0", [](SimHost& h) { h.hostVersion = 0; }, kHostCallFailed},
        {"no record suite", [](SimHost& h) { h.GetServer()->recordSuite = nullptr; }, kHostCallFailed},
        {"no service suite", [](SimHost& h) { h.GetServer()->serviceSuite = nullptr; }, kHostCallFailed},
        {"no module record", [](SimHost& h) { h.Records().moduleInitRecord = nullptr; }, kHostCallFailed},
        {"no string service", [](SimHost& h) { h.Services().stringService = nullptr; }, kHostCallFailed},
        {"no version query", [](SimHost& h) { h.ModuleInitRecord().getHostVersion = nullptr; },
         kHostCallFailed},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SimHost bare;
        c.spoil(bare);
        EXPECT_EQ(module.Call(kHostSelectorModuleInitialize, bare.GetServer()), c.result);
        EXPECT_NE(module.Slot(), nullptr);
        EXPECT_EQ(bare.Log().moduleId.empty(), c.result != kHostCallSucceeded);
        if (c.result == kHostCallSucceeded) {
            EXPECT_EQ(bare.Log().moduleKind, kHostModuleKindFilter);
        }
        // Every later call still answers, and terminate frees the manager.
        EXPECT_EQ(module.Call(kHostSelectorFilterInitialize, bare.GetServer()), kHostCallSucceeded);
        EXPECT_EQ(module.Call(kHostSelectorFilterRun, bare.GetServer()), kHostCallSucceeded);
        EXPECT_EQ(module.Call(kHostSelectorFilterTerminate, bare.GetServer()), kHostCallSucceeded);
        bare.GetServer()->recordSuite = &bare.Records();
        bare.GetServer()->serviceSuite = &bare.Services();
        EXPECT_EQ(module.Call(kHostSelectorModuleTerminate, bare.GetServer()), kHostCallSucceeded);
        EXPECT_EQ(module.Slot(), nullptr);
    }
}

TEST_F(plugin_entry_test, null_server_or_no_manager_gives_minus_one_and_leaves_the_slot_alone) {
    for (int64_t selector : {257, 258, 513, 514, 515, 516})
        EXPECT_EQ(module.Call(selector, nullptr), -1) << selector;
    for (int64_t selector : {258, 513, 514, 515, 259, 516})
        EXPECT_EQ(Call(selector), -1) << "no manager yet: " << selector;
    EXPECT_EQ(module.Slot(), nullptr);
    EXPECT_TRUE(host.Log().process.empty());

    ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    void* manager = module.Slot();
    for (int64_t selector : {257, 258, 513, 514, 515})
        EXPECT_EQ(module.Call(selector, nullptr), -1) << selector;
    EXPECT_EQ(module.Slot(), manager);
}

TEST_F(plugin_entry_test, missing_filter_records_and_services_are_skipped) {
    host.SetLayer(WhiteLayer(3, 3));
    ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    host.Records().filterInitRecord = nullptr;
    EXPECT_EQ(Call(kHostSelectorFilterInitialize), kHostCallSucceeded);
    EXPECT_FALSE(host.Log().targetKinds.has_value());
    // The property object was made but never handed over: the manager still owns and frees it.
    host.Records().filterRunRecord = nullptr;
    EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
    EXPECT_TRUE(host.Log().process.empty());

    host.Records().filterInitRecord = &host.FilterInitRecord();
    host.Records().filterRunRecord = &host.FilterRunRecord();
    const HostFilterRunRecord run = host.FilterRunRecord();
    const HostBitmapService bitmaps = host.BitmapService();
    for (int variant = 0; variant < 4; ++variant) {
        SCOPED_TRACE(variant);
        host.FilterRunRecord() = run;
        host.BitmapService() = bitmaps;
        host.Services().offscreenService = variant == 0 ? nullptr : &host.OffscreenService();
        host.Services().bitmapService = variant == 1 ? nullptr : &host.BitmapService();
        if (variant == 2) host.FilterRunRecord().getDestinationOffscreen = nullptr;
        if (variant == 3) host.BitmapService().create = nullptr;
        EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
        EXPECT_TRUE(host.Log().updatedAreas.empty()) << "nothing to write back";
        EXPECT_EQ(LiveObjects().bitmaps, baseline.bitmaps);
    }
}

TEST_F(plugin_entry_test, a_missing_selection_offscreen_counts_as_no_selection) {
    host.SetSelection(MakeImage(3, 3, kHostChannelOrderAlpha));
    OpenFilter(WhiteLayer(3, 3));
    host.FilterRunRecord().getSelectionOffscreen = nullptr;
    host.mainColor = {0, 0, 0};
    ASSERT_EQ(host.RunFilter(module), kHostCallSucceeded);
    EXPECT_EQ(host.Destination()->At(1, 1)[0], 0);  // filled everywhere, as without a selection
}

}  // namespace
