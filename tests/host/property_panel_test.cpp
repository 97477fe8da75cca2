// The panel operations of PluginManager against the simulated host's property service.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/PluginManager.h"
#include "tools/host/SimHost.h"

using namespace brivane::tools;

namespace {

class PanelManager : public PluginManager {
public:
    void OnGetGuid(char* buffer) override { std::strcpy(buffer, "test"); }
};

class property_panel_test : public ::testing::Test {
protected:
    void SetUp() override {
        TakeProtocolErrors();
        baseline = LiveObjects();
        std::string error;
        ASSERT_TRUE(
            host.Resources().Parse("140 = Preset\n142 = (defaults)\n150 = Arrangement\n151 = Radiate\n"
                                   "152 = Parallel\n153 = Circle\n162 = Curvature\n170 = Point 1\n"
                                   "207 = As distance\n224 = Spacing\n300 =\n",
                                   "test", error))
            << error;
        host.SetCanvasSize(800, 600);
        manager.AttachServer(host.GetServer());
        manager.InitFilter();
    }
    void TearDown() override {
        // Every caption and row string went back to the host right after its call.
        EXPECT_EQ(LiveObjects().strings, baseline.strings);
        for (const std::string& misuse : TakeProtocolErrors())
            ADD_FAILURE() << misuse;
    }
    const SimItem& Item(int64_t key) {
        const SimItem* item = host.FindItem(key);
        if (!item) throw std::runtime_error("no item " + std::to_string(key));
        return *item;
    }
    // One item of each kind, as the effect's panel has them.
    void AddEveryKind(bool asDistance) {
        manager.AddSlider(224, 'a', 1, 1000, 50);
        manager.AddDblSlider(162, 'r', -10.0, 10.0, 1.0);
        manager.AddCheckBox(207, 'd', asDistance);
        const int64_t rows[] = {151, 152, 153};
        manager.AddComboBox(150, 't', rows, 3);
        manager.AddCanvas(170, 'd', kHostPointDefaultCentre);
    }

    SimHost host;
    PanelManager manager;
    SimLiveObjects baseline;
};

TEST_F(property_panel_test, updates_report_a_change_only_when_the_value_differs) {
    EXPECT_EQ(manager.GetResourceText(151), u"Radiate");  // texts need no item
    AddEveryKind(false);
    int64_t spacing = 50;
    double curvature = 1.0;
    bool asDistance = false;
    int64_t arrangement = 0;
    Point point{400, 300};
    EXPECT_FALSE(manager.UpdateIntValue(224, &spacing));
    EXPECT_FALSE(manager.UpdateDoubleValue(162, &curvature));
    EXPECT_FALSE(manager.UpdateBoolValue(207, &asDistance));
    EXPECT_FALSE(manager.UpdateEnumValue(150, &arrangement));
    EXPECT_FALSE(manager.UpdatePointValue(170, &point));
    EXPECT_EQ(curvature, 1.0);

    std::string error;
    for (const auto& [key, text] : {std::pair<int64_t, const char*>{224, "20"},
                                    {162, "1.0000001"},
                                    {207, "true"},
                                    {150, "2"},
                                    {170, "400,301"}})
        ASSERT_TRUE(host.SetItemValue(key, text, error)) << error;
    EXPECT_TRUE(manager.UpdateIntValue(224, &spacing));
    EXPECT_TRUE(manager.UpdateDoubleValue(162, &curvature));  // exact comparison
    EXPECT_TRUE(manager.UpdateBoolValue(207, &asDistance));
    EXPECT_TRUE(manager.UpdateEnumValue(150, &arrangement));
    EXPECT_TRUE(manager.UpdatePointValue(170, &point));
    EXPECT_EQ(spacing, 20);
    EXPECT_EQ(curvature, 1.0000001);
    EXPECT_TRUE(asDistance);
    EXPECT_EQ(arrangement, 2);
    EXPECT_EQ(point, (Point{400, 301}));
    EXPECT_FALSE(manager.UpdatePointValue(170, &point));
}

TEST_F(property_panel_test, a_host_that_cannot_answer_leaves_the_fields_alone) {
    manager.AddSlider(224, 'a', 1, 1000, 50);
    host.PropertyService().getIntegerValue = nullptr;
    host.PropertyService().getIntegerDefault = nullptr;
    int64_t spacing = 9;
    EXPECT_FALSE(manager.UpdateIntValue(224, &spacing));
    EXPECT_EQ(spacing, 9);
    manager.ResetIntValue(224, spacing);
    EXPECT_EQ(spacing, 9);
    host.Services().pointEnumPropertyService = nullptr;
    manager.AttachServer(host.GetServer());
    EXPECT_EQ(manager.GetEnumValue(150), 0);
    Point point{1, 2};
    EXPECT_FALSE(manager.UpdatePointValue(170, &point));
    manager.AddComboBox(150, 't', std::vector<std::u16string>{u"a"});  // item added, rows skipped
    EXPECT_TRUE(Item(150).rows.empty());
}

}  // namespace
