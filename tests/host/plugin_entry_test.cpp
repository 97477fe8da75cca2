// The module entry, loaded with dlopen into the simulated host: the slot, the result codes and the
// host faults the module must survive. The run loop itself is checked in plugin_manager_test.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "tools/host/PluginModule.h"
#include "tools/host/SimHost.h"

using namespace brivane::tools;

namespace {

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

}  // namespace
