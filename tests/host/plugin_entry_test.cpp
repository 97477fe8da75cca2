// The built plug-in module, loaded with dlopen into the simulated host, driven through its entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "tools/host/PluginModule.h"
#include "tools/host/SimHost.h"

using namespace brivane::tools;

namespace {

constexpr const char* kGuid = "3A7C51E2-94B0-4F6D-8E21-C5D90B7A4F13";

// A white colour layer in the host's blue, green, red, alpha order.
SimImage WhiteLayer(int64_t width, int64_t height, int64_t order = kHostChannelOrderRgbAlpha) {
    SimImage layer = MakeImage(width, height, order, {2, 1, 0, 3});
    std::fill(layer.pixels.begin(), layer.pixels.end(), 255);
    return layer;
}

class plugin_entry_test : public ::testing::Test {
protected:
    void SetUp() override {
        std::string error;
        ASSERT_TRUE(module.Load(BRIVANE_PLUGIN_MODULE, error)) << error;
        ASSERT_TRUE(
            host.Resources().Parse("101 = Effect lines\n102 = Speed and focus lines\n", "test", error));
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
        if (expectCleanProtocol) {
            for (const std::string& misuse : TakeProtocolErrors())
                ADD_FAILURE() << misuse;
        }
    }

    int64_t Call(int64_t selector) { return module.Call(selector, host.GetServer()); }

    // Module and filter initialise on a layer, as a host does before the first run.
    void OpenFilter(SimImage layer) {
        host.SetLayer(std::move(layer));
        ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
        ASSERT_EQ(Call(kHostSelectorFilterInitialize), kHostCallSucceeded);
    }

    std::vector<int64_t> ProcessStates() const {
        std::vector<int64_t> states;
        for (const auto& [state, answer] : log().process)
            states.push_back(state);
        return states;
    }
    const SimHostLog& log() const { return const_cast<SimHost&>(host).Log(); }

    SimHost host;
    PluginModule module;
    SimLiveObjects baseline;
    bool expectCleanProtocol = true;
};

TEST_F(plugin_entry_test, registers_the_module_identifier_and_the_filter_kind) {
    EXPECT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    EXPECT_NE(module.Slot(), nullptr);
    EXPECT_EQ(log().moduleId, kGuid);
    EXPECT_EQ(log().moduleKind, 17280);
}

TEST_F(plugin_entry_test, version_0_refuses_registration_but_keeps_the_manager_in_the_slot) {
    host.hostVersion = 0;
    EXPECT_EQ(Call(kHostSelectorModuleInitialize), kHostCallFailed);
    EXPECT_NE(module.Slot(), nullptr);
    EXPECT_TRUE(log().moduleId.empty());
    EXPECT_EQ(Call(kHostSelectorModuleTerminate), kHostCallSucceeded);
    EXPECT_EQ(module.Slot(), nullptr);
}

TEST_F(plugin_entry_test, null_server_gives_minus_one_and_leaves_the_slot_alone) {
    for (int64_t selector : {257, 258, 513, 514, 515, 516})
        EXPECT_EQ(module.Call(selector, nullptr), -1);
    EXPECT_EQ(module.Slot(), nullptr);

    ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    void* manager = module.Slot();
    for (int64_t selector : {257, 258, 513, 514, 515})
        EXPECT_EQ(module.Call(selector, nullptr), -1);
    EXPECT_EQ(module.Slot(), manager);
}

TEST_F(plugin_entry_test, selectors_without_a_manager_give_minus_one) {
    for (int64_t selector : {258, 513, 514, 515, 259, 516})
        EXPECT_EQ(Call(selector), -1) << selector;
    EXPECT_TRUE(log().process.empty());
}

TEST_F(plugin_entry_test, missing_result_or_slot_pointers_are_survived) {
    int64_t result = 0;
    module.Entry()(nullptr, nullptr, kHostSelectorModuleInitialize, host.GetServer(), nullptr);
    module.Entry()(&result, nullptr, kHostSelectorModuleInitialize, host.GetServer(), nullptr);
    EXPECT_EQ(result, -1);
    void* slot = nullptr;
    module.Entry()(nullptr, &slot, kHostSelectorModuleInitialize, host.GetServer(), nullptr);
    EXPECT_EQ(slot, nullptr);
}

TEST_F(plugin_entry_test, unknown_selectors_give_zero_and_do_nothing) {
    ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    for (int64_t selector : {0, 259, 512, 516, -1})
        EXPECT_EQ(Call(selector), kHostCallSucceeded) << selector;
    EXPECT_FALSE(log().targetKinds.has_value());
    EXPECT_TRUE(log().process.empty());
    EXPECT_EQ(host.Panel(), nullptr);
}

TEST_F(plugin_entry_test, filter_initialise_names_the_filter_and_installs_the_panel) {
    ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    EXPECT_EQ(Call(kHostSelectorFilterInitialize), kHostCallSucceeded);
    EXPECT_EQ(log().categoryName, u"Effect lines");
    EXPECT_EQ(log().categoryKey, 't');
    EXPECT_EQ(log().filterName, u"Speed and focus lines");
    EXPECT_EQ(log().filterKey, 's');
    EXPECT_EQ(log().targetKinds, (std::vector<int64_t>{257, 258, 262}));
    EXPECT_EQ(log().canPreview, true);
    EXPECT_EQ(log().useEmptyArea, true);
    EXPECT_TRUE(log().propertyCallbackSet);
    EXPECT_NE(host.Panel(), nullptr);
    EXPECT_EQ(Call(kHostSelectorFilterTerminate), kHostCallSucceeded);
}

TEST_F(plugin_entry_test, property_notifications_reach_the_manager) {
    OpenFilter(WhiteLayer(2, 2));
    // The stand-in manager redraws on every change; buttons and other notifications never do.
    EXPECT_EQ(host.Notify(224, kHostNotifyValueChanged), kHostPropertyModified);
    EXPECT_EQ(host.Notify(224, kHostNotifyButtonPushed), kHostPropertyUnchanged);
    EXPECT_EQ(host.Notify(224, 99), kHostPropertyUnchanged);
}

TEST_F(plugin_entry_test, exit_answer_to_the_first_start_skips_the_calculation) {
    OpenFilter(WhiteLayer(4, 3));
    host.scriptedAnswers = {kHostProcessAnswerExit};
    EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
    EXPECT_EQ(ProcessStates(), (std::vector<int64_t>{kHostProcessStateStart}));
    EXPECT_EQ(log().progressTotals, (std::vector<int64_t>{500}));  // prepared
    EXPECT_TRUE(log().progressValues.empty());                     // never calculated
    EXPECT_TRUE(log().updatedAreas.empty());
    EXPECT_EQ(host.Destination()->pixels, host.Layer()->pixels);
    EXPECT_EQ(LiveObjects().bitmaps, baseline.bitmaps);  // released on exit
}

TEST_F(plugin_entry_test, restart_after_a_pass_recalculates_without_a_second_preparation) {
    OpenFilter(WhiteLayer(4, 3));
    host.restartsLeft = 1;
    EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
    const std::vector<int64_t> states = ProcessStates();
    EXPECT_EQ(std::count(states.begin(), states.end(), kHostProcessStateStart), 2);
    EXPECT_EQ(std::count(states.begin(), states.end(), kHostProcessStateEnd), 2);
    EXPECT_EQ(
        log().process[std::find(states.begin(), states.end(), kHostProcessStateEnd) - states.begin()].second,
        kHostProcessAnswerRestart);
    EXPECT_EQ(log().progressTotals.size(), 1u);
    EXPECT_EQ(log().updatedAreas.size(), 2u);
}

TEST_F(plugin_entry_test, a_run_writes_back_the_whole_destination) {
    OpenFilter(WhiteLayer(5, 3));
    host.mainColor = {10, 20, 30};
    EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
    ASSERT_EQ(log().updatedAreas.size(), 1u);
    const HostRect area = log().updatedAreas[0];
    EXPECT_EQ(area.left, 0);
    EXPECT_EQ(area.top, 0);
    EXPECT_EQ(area.right, 5);
    EXPECT_EQ(area.bottom, 3);
    for (int64_t y = 0; y < 3; ++y) {
        for (int64_t x = 0; x < 5; ++x) {
            const uint8_t* p = host.Destination()->At(x, y);
            EXPECT_EQ(std::vector<uint8_t>(p, p + 4), (std::vector<uint8_t>{30, 20, 10, 255}))
                << x << "," << y;
        }
    }
    EXPECT_EQ(log().progressValues.back(), 500);
}

TEST_F(plugin_entry_test, the_selection_reaches_the_manager) {
    SimImage selection = MakeImage(4, 2, kHostChannelOrderAlpha);
    *selection.At(1, 0) = 255;
    *selection.At(3, 1) = 1;
    host.SetSelection(selection);
    OpenFilter(WhiteLayer(4, 2));
    host.mainColor = {0, 0, 0};
    ASSERT_EQ(host.RunFilter(module), kHostCallSucceeded);
    for (int64_t y = 0; y < 2; ++y) {
        for (int64_t x = 0; x < 4; ++x) {
            const bool selected = (x == 1 && y == 0) || (x == 3 && y == 1);
            EXPECT_EQ(host.Destination()->At(x, y)[0], selected ? 0 : 255) << x << "," << y;
        }
    }
}

TEST_F(plugin_entry_test, every_channel_order_is_filled_through_its_channel_indices) {
    struct Case {
        int64_t order;
        int64_t indices[4];
        std::vector<uint8_t> expected;  // first pixel after filling with main colour (200, 100, 50)
    };
    const uint8_t grey = (77 * 200 + 150 * 100 + 29 * 50) >> 8;
    const Case cases[] = {
        {kHostChannelOrderGrayAlpha, {0, 1, 2, 3}, {grey, 255}},
        {kHostChannelOrderRgbAlpha, {2, 1, 0, 3}, {50, 100, 200, 255}},
        {kHostChannelOrderRgba, {1, 2, 3, 0}, {255, 200, 100, 50}},
        {kHostChannelOrderAlpha, {0, 1, 2, 3}, {255}},
        {kHostChannelOrderMask, {0, 1, 2, 3}, {0, 255}},  // grey 121 is below half: black
    };
    host.SetLayer(MakeImage(3, 2, kHostChannelOrderRgbAlpha));
    ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    ASSERT_EQ(Call(kHostSelectorFilterInitialize), kHostCallSucceeded);
    host.mainColor = {200, 100, 50};
    for (const Case& c : cases) {
        host.SetLayer(MakeImage(3, 2, c.order, c.indices));
        ASSERT_EQ(host.RunFilter(module), kHostCallSucceeded);
        const uint8_t* p = host.Destination()->At(2, 1);
        EXPECT_EQ(std::vector<uint8_t>(p, p + host.Destination()->depth), c.expected) << "order " << c.order;
    }
}

TEST_F(plugin_entry_test, a_cancelled_run_leaves_the_layer_as_it_was) {
    OpenFilter(WhiteLayer(10, 10));
    host.cancelAtStep = 100;
    ASSERT_EQ(host.RunFilter(module), kHostCallSucceeded);
    EXPECT_TRUE(host.Cancelled());
    EXPECT_TRUE(log().updatedAreas.empty());
    EXPECT_EQ(host.Destination()->pixels, host.Layer()->pixels);
    EXPECT_LT(log().progressValues.back(), 200);  // stopped at the first step past the cancel
}

TEST_F(plugin_entry_test, a_zero_sized_canvas_runs_without_drawing) {
    OpenFilter(MakeImage(0, 0, kHostChannelOrderRgbAlpha));
    EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
    EXPECT_TRUE(log().updatedAreas.empty());
    EXPECT_EQ(LiveObjects().bitmaps, baseline.bitmaps);
}

TEST_F(plugin_entry_test, a_host_without_records_or_services_is_refused_at_registration) {
    for (int variant = 0; variant < 5; ++variant) {
        SimHost bare;
        switch (variant) {
            case 0:
                bare.GetServer()->recordSuite = nullptr;
                break;
            case 1:
                bare.GetServer()->serviceSuite = nullptr;
                break;
            case 2:
                bare.Records().moduleInitRecord = nullptr;
                break;
            case 3:
                bare.Services().stringService = nullptr;
                break;
            case 4:
                bare.ModuleInitRecord().getHostVersion = nullptr;
                break;
        }
        EXPECT_EQ(module.Call(kHostSelectorModuleInitialize, bare.GetServer()), -1) << variant;
        EXPECT_NE(module.Slot(), nullptr);
        // Every later call still works on the manager, and terminate frees it.
        EXPECT_EQ(module.Call(kHostSelectorFilterInitialize, bare.GetServer()), 0) << variant;
        EXPECT_EQ(module.Call(kHostSelectorFilterRun, bare.GetServer()), 0) << variant;
        EXPECT_EQ(module.Call(kHostSelectorFilterTerminate, bare.GetServer()), 0) << variant;
        bare.GetServer()->recordSuite = &bare.Records();
        bare.GetServer()->serviceSuite = &bare.Services();
        EXPECT_EQ(module.Call(kHostSelectorModuleTerminate, bare.GetServer()), 0) << variant;
        EXPECT_EQ(module.Slot(), nullptr);
    }
}

TEST_F(plugin_entry_test, missing_filter_records_and_services_are_skipped) {
    host.SetLayer(WhiteLayer(3, 3));
    ASSERT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    host.Records().filterInitRecord = nullptr;
    EXPECT_EQ(Call(kHostSelectorFilterInitialize), kHostCallSucceeded);
    EXPECT_FALSE(log().targetKinds.has_value());
    // The property object was made but never handed over: the manager still owns and frees it.
    host.Records().filterRunRecord = nullptr;
    EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
    EXPECT_TRUE(log().process.empty());

    HostRecordSuite& records = host.Records();
    records.filterInitRecord = &host.FilterInitRecord();
    records.filterRunRecord = &host.FilterRunRecord();
    const HostFilterRunRecord run = host.FilterRunRecord();
    const HostBitmapService bitmaps = host.BitmapService();
    for (int variant = 0; variant < 4; ++variant) {
        host.FilterRunRecord() = run;
        host.BitmapService() = bitmaps;
        host.Services().offscreenService = variant == 0 ? nullptr : &host.OffscreenService();
        host.Services().bitmapService = variant == 1 ? nullptr : &host.BitmapService();
        if (variant == 2) host.FilterRunRecord().getDestinationOffscreen = nullptr;
        if (variant == 3) host.BitmapService().create = nullptr;
        const size_t areas = log().updatedAreas.size();
        EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded) << variant;
        EXPECT_EQ(log().updatedAreas.size(), areas) << "nothing to write back, variant " << variant;
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

TEST_F(plugin_entry_test, the_module_can_be_loaded_and_driven_again_after_unloading) {
    OpenFilter(WhiteLayer(2, 2));
    ASSERT_EQ(host.RunFilter(module), kHostCallSucceeded);
    ASSERT_EQ(Call(kHostSelectorFilterTerminate), kHostCallSucceeded);
    ASSERT_EQ(Call(kHostSelectorModuleTerminate), kHostCallSucceeded);
    module.Unload();
    std::string error;
    ASSERT_TRUE(module.Load(BRIVANE_PLUGIN_MODULE, error)) << error;
    EXPECT_EQ(Call(kHostSelectorModuleInitialize), kHostCallSucceeded);
    EXPECT_EQ(Call(kHostSelectorFilterInitialize), kHostCallSucceeded);
    EXPECT_EQ(host.RunFilter(module), kHostCallSucceeded);
}

}  // namespace
