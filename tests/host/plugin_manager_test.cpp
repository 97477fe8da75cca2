// PluginManager in-process against the simulated host: the run loop, the buffer exchange, the property
// callback and the small host queries, observed through a manager that records its hooks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/PluginManager.h"
#include "tools/host/SimHost.h"

using namespace brivane::tools;

namespace {

using Calls = std::vector<std::string>;
using Kinds = std::vector<int64_t>;

class RecordingManager : public PluginManager {
public:
    void OnGetGuid(char* buffer) override { std::strncpy(buffer, guid.c_str(), kGuidBufferSize); }
    void OnPrepareDraw() override {
        calls.push_back("prepare");
        if (allocate) AllocBitmap();
    }
    void OnUpdateParameter() override { calls.push_back("update"); }
    void OnCalculate() override { calls.push_back("calculate"); }
    void OnEndDraw() override { calls.push_back("end"); }
    void OnExitDraw() override {
        calls.push_back("exit");
        ReleaseBitmap();
    }
    bool OnPropertyChanged(int64_t key, _Property* property) override {
        calls.push_back("changed " + std::to_string(key));
        changedProperty = property;
        return redraw;
    }
    void OnButtonPushed(int64_t key) override { calls.push_back("pushed " + std::to_string(key)); }

    const BitmapBlock& Source() const { return m_source; }
    const BitmapBlock& Destination() const { return m_destination; }
    const BitmapBlock& Selection() const { return m_selection; }
    _Property* Property() const { return m_property; }

    std::string guid = "3A7C51E2-94B0-4F6D-8E21-C5D90B7A4F13";
    Calls calls;
    bool allocate = false;
    bool redraw = true;
    _Property* changedProperty = nullptr;
};

bool IsZero(const BitmapBlock& block) {
    static const BitmapBlock kZero{};
    return std::memcmp(&block, &kZero, sizeof block) == 0;
}

class plugin_manager_test : public ::testing::Test {
protected:
    void SetUp() override {
        TakeProtocolErrors();
        baseline = LiveObjects();
        manager = std::make_unique<RecordingManager>();
    }
    void TearDown() override {
        manager.reset();
        EXPECT_EQ(LiveObjects().bitmaps, baseline.bitmaps);
        EXPECT_EQ(LiveObjects().strings, baseline.strings);
        EXPECT_EQ(LiveObjects().properties, baseline.properties);
        for (const std::string& misuse : TakeProtocolErrors())
            ADD_FAILURE() << misuse;
    }
    // The manager as the entry prepares it for a later call.
    void Attach() { manager->AttachServer(host.GetServer()); }

    SimHost host;
    std::unique_ptr<RecordingManager> manager;
    SimLiveObjects baseline;
};

TEST_F(plugin_manager_test, the_run_loop_follows_the_host_answers) {
    constexpr int64_t go = kHostProcessAnswerContinue, again = kHostProcessAnswerRestart,
                      stop = kHostProcessAnswerExit;
    struct Case {
        const char* name;
        std::vector<int64_t> answers;  // the host's answers in turn; continue once they run out
        Calls expected;
    };
    const Case cases[] = {
        {"exit at the first start skips the calculation", {stop}, {"prepare", "exit"}},
        {"restarts repeat parameters and calculation, prepared once",
         {go, again, go, again, stop},
         {"prepare", "update", "calculate", "update", "calculate", "exit"}},
        {"exit at the end", {go, stop}, {"prepare", "update", "calculate", "exit"}},
        {"an unknown end answer", {go, 999}, {"prepare", "update", "calculate", "exit"}},
    };
    Attach();
    EXPECT_TRUE(manager->ExecuteFilter());
    EXPECT_EQ(manager->calls, (Calls{"prepare", "update", "calculate", "exit"})) << "one pass";
    ASSERT_EQ(host.Log().process.size(), 2u);
    EXPECT_EQ(host.Log().process[0].first, kHostProcessStateStart);
    EXPECT_EQ(host.Log().process[1].first, kHostProcessStateEnd);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        manager->calls.clear();
        host.scriptedAnswers.assign(c.answers.begin(), c.answers.end());
        EXPECT_TRUE(manager->ExecuteFilter());
        EXPECT_EQ(manager->calls, c.expected);
    }
    EXPECT_EQ(host.Log().process.back().first, kHostProcessStateEnd);

    host.scriptedAnswers = {again};
    EXPECT_EQ(manager->GetCurrentHostState(kHostProcessStateContinue), again);
    EXPECT_EQ(host.Log().process.back().first, kHostProcessStateContinue);
}

TEST_F(plugin_manager_test, blocks_map_each_channel_order_and_write_back_their_rectangle) {
    struct Case {
        int64_t order;
        int64_t indices[4];
        int64_t channelCode;
        int64_t depth;
        std::vector<int64_t> channelIndex;  // all five entries of the block
    };
    const Case cases[] = {
        {kHostChannelOrderGrayAlpha, {0, 1, 2, 3}, kHostChannelCodeGrayAlpha, 2, {0, 0, 0, 0, 0}},
        {kHostChannelOrderRgbAlpha, {2, 1, 0, 3}, kHostChannelCodeRgbAlpha, 4, {2, 1, 0, 0, 0}},
        {kHostChannelOrderRgba, {1, 2, 3, 0}, kHostChannelCodeRgba, 4, {1, 2, 3, 0, 0}},
        {kHostChannelOrderAlpha, {0, 1, 2, 3}, kHostChannelCodeAlpha, 1, {0, 0, 0, 0, 0}},
        {kHostChannelOrderMask, {0, 1, 2, 3}, kHostChannelCodeGrayAlpha, 2, {0, 0, 0, 0, 0}},
        {9, {0, 1, 2, 3}, kHostChannelCodeAlpha, 1, {0, 0, 0, 0, 0}},  // an order the plug-in does not know
    };
    Attach();
    for (const Case& c : cases) {
        SCOPED_TRACE("order " + std::to_string(c.order));
        SimImage layer = MakeImage(5, 3, c.order, c.indices);
        for (size_t i = 0; i < layer.pixels.size(); ++i)
            layer.pixels[i] = static_cast<uint8_t>(i * 7 + 1);
        host.SetLayer(layer);
        manager->AllocBitmap();
        for (const BitmapBlock* block : {&manager->Source(), &manager->Destination()}) {
            EXPECT_EQ(block->offscreen,
                      block == &manager->Source() ? host.SourceOffscreen() : host.DestinationOffscreen());
            EXPECT_EQ(block->channelOrder, c.order);
            EXPECT_EQ(std::vector<int64_t>(block->channelIndex, block->channelIndex + 5), c.channelIndex);
            EXPECT_EQ(block->width, 5);
            EXPECT_EQ(block->height, 3);
            EXPECT_EQ(block->depth, c.depth);
            SimBitmapInfo info;
            ASSERT_TRUE(DescribeBitmap(block->bitmap, info));
            EXPECT_EQ(info.channelCode, c.channelCode);
            EXPECT_EQ(info.scanline, 16);
            EXPECT_EQ(block->rowBytes, info.rowBytes);
            ASSERT_NE(block->pixels, nullptr);
            for (int64_t y = 0; y < 3; ++y)
                EXPECT_EQ(0, std::memcmp(block->pixels + y * block->rowBytes, layer.At(0, y), 5 * c.depth))
                    << y;
        }
        EXPECT_TRUE(IsZero(manager->Selection())) << "no selection";

        // Only the destination goes back, over the whole layer.
        const BitmapBlock& dest = manager->Destination();
        dest.pixels[dest.rowBytes * 2 + 4 * c.depth] = 0xEE;
        EXPECT_NE(host.Destination()->At(4, 2)[0], 0xEE) << "not before the write-back";
        manager->ApplyBitmap();
        EXPECT_EQ(host.Destination()->At(4, 2)[0], 0xEE);
        EXPECT_EQ(host.Layer()->At(4, 2)[0], layer.At(4, 2)[0]);
        const HostRect area = host.Log().updatedAreas.back();
        EXPECT_EQ((std::vector<int64_t>{area.left, area.top, area.right, area.bottom}),
                  (std::vector<int64_t>{0, 0, 5, 3}));
        manager->ReleaseBitmap();
        EXPECT_TRUE(IsZero(manager->Source()));
        EXPECT_TRUE(IsZero(manager->Destination()));
        EXPECT_EQ(LiveObjects().bitmaps, baseline.bitmaps);
    }
}

TEST_F(plugin_manager_test, a_manager_without_a_usable_server_answers_safely_and_ignores_notifications) {
    int64_t result = 0;
    PluginManager::PropertyCallback(&result, nullptr, 224, kHostNotifyValueChanged, manager.get());
    EXPECT_EQ(result, kHostPropertyUnchanged);
    manager->allocate = true;
    EXPECT_TRUE(manager->ExecuteFilter());
    EXPECT_FALSE(manager->RegisterPlugin(nullptr));
    int64_t width = 9, height = 9;
    manager->GetCanvasSize(width, height);
    EXPECT_EQ(width, 0);
    EXPECT_EQ(height, 0);
    EXPECT_EQ(manager->GetDpi(), 0.0);
    EXPECT_EQ(manager->GetMainColor(), 0u);
    manager->InitFilter();
    EXPECT_EQ(manager->Property(), nullptr);
    manager->SetPluginName(101, 'a', 102, 'b');
    manager->SetLayerMode(35);
    manager->EnablePreview(true);
    manager->ApplyBitmap();
    EXPECT_TRUE(manager->GetResourceText(101).empty());
    EXPECT_EQ(manager->calls, (Calls{"prepare", "exit"}));

    EXPECT_FALSE(manager->IsValid());
    Attach();
    EXPECT_TRUE(manager->IsValid());
    host.Services().stringService = nullptr;
    Attach();
    EXPECT_FALSE(manager->IsValid()) << "needs the string service";
    PluginManager::PropertyCallback(&result, nullptr, 224, kHostNotifyButtonPushed, manager.get());
    EXPECT_EQ(manager->calls.size(), 2u) << "no hook";
    host.GetServer()->recordSuite = nullptr;
    Attach();
    EXPECT_FALSE(manager->IsValid()) << "needs the records";
    manager->AttachServer(nullptr);
    EXPECT_FALSE(manager->IsValid());
}

}  // namespace
