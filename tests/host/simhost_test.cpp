// The simulated host itself: its resource table, text conversion, handle checks, bitmaps and copies,
// panel input, process answers and layer conversions. The plug-in tests rely on all of these.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tools/host/LayerImage.h"
#include "tools/host/ResourceTable.h"
#include "tools/host/SimHost.h"

using namespace brivane::tools;

namespace {

const std::string kBadDir = std::string(BRIVANE_TEST_DATA_DIR) + "/host/bad/";

TEST(simhost_test, bad_resource_files_are_refused_with_their_line) {
    struct Case {
        const char* file;
        const char* reason;
    };
    const Case cases[] = {
        {"resources_without_equals.txt", ":2: expected 'id = text'"},
        {"resources_with_a_bad_id.txt", ":2: resource id 'abc' is not a whole number"},
        {"resources_with_a_repeated_id.txt", ":2: resource id 101 is given twice"},
        {"resources_without_an_id.txt", ":1: resource id '' is not a whole number"},
        {"resources_with_trailing_junk.txt", ":1: resource id '12x' is not a whole number"},
        {"no_such_file.txt", "cannot open resource file"},
    };
    for (const Case& c : cases) {
        ResourceTable table;
        table.Set(7, u"kept");
        std::string error;
        EXPECT_FALSE(table.Load(kBadDir + c.file, error)) << c.file;
        EXPECT_NE(error.find(c.reason), std::string::npos) << error;
        EXPECT_NE(error.find(c.file), std::string::npos) << error;
        EXPECT_EQ(table.Size(), 1u) << "a failed load adds nothing: " << c.file;
    }
}

TEST(simhost_test, text_converts_between_utf8_and_utf16) {
    const std::string utf8 = "a\xC3\xA9\xE6\xBC\xAB\xF0\x9F\x98\x80";
    const std::u16string utf16 = u"a\u00E9\u6F2B\U0001F600";
    EXPECT_EQ(Utf8ToUtf16Text(utf8), utf16);
    EXPECT_EQ(Utf16ToUtf8Text(utf16), utf8);
    EXPECT_EQ(Utf8ToUtf16Text("x\xFFy\xC3"), u"x\uFFFDy\uFFFD");
    EXPECT_EQ(Utf8ToUtf16Text("\xC0\xAF"), u"\uFFFD\uFFFD");            // overlong
    EXPECT_EQ(Utf8ToUtf16Text("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");  // encoded surrogate
    EXPECT_EQ(Utf16ToUtf8Text(std::u16string(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

TEST(simhost_test, unknown_and_released_handles_are_refused_and_recorded) {
    SimHost host;
    TakeProtocolErrors();
    const HostStringService& strings = host.StringService();
    HostString string = nullptr;
    ASSERT_EQ(strings.createWithBytes(&string, "abc", 3), kHostResultOk);
    EXPECT_EQ(strings.release(string), kHostResultOk);
    EXPECT_EQ(strings.release(string), kHostResultBadArgument);
    int64_t length = -1;
    EXPECT_EQ(strings.getUtf16Length(reinterpret_cast<HostString>(&length), &length), kHostResultBadArgument);
    EXPECT_EQ(length, -1);
    EXPECT_EQ(host.BitmapService().release(nullptr), kHostResultBadArgument);
    EXPECT_EQ(host.FilterRunRecord().setProgressValue(reinterpret_cast<HostObject>(&length), 5),
              kHostResultBadArgument);
    EXPECT_EQ(TakeProtocolErrors().size(), 4u);
}

TEST(simhost_test, panel_input_is_checked_against_the_item) {
    SimHost host;
    _Property* property = nullptr;
    host.PropertyService().create(host.GetServer()->hostObject, &property);
    host.SetPanel(property);
    const HostPropertyService& p = host.PropertyService();
    const HostPointEnumPropertyService& e = host.PointEnumService();
    p.addItem(property, 1, kHostValueKindInteger, 17, 17, nullptr, 'a');
    p.setIntegerMinimum(property, 1, 1);
    p.setIntegerMaximum(property, 1, 1000);
    p.addItem(property, 2, kHostValueKindDecimal, 17, 17, nullptr, 'b');
    p.setDecimalMinimum(property, 2, 0.0);
    p.setDecimalMaximum(property, 2, 1.0);
    p.addItem(property, 3, kHostValueKindBoolean, 17, 17, nullptr, 'c');
    p.addItem(property, 4, kHostValueKindEnumeration, 17, 17, nullptr, 'd');
    HostString row = nullptr;
    host.StringService().createWithBytes(&row, "row", 3);
    e.addEnumerationItem(property, 4, 0, row, 0);
    e.addEnumerationItem(property, 4, 5, row, 0);
    host.StringService().release(row);
    p.addItem(property, 5, kHostValueKindPoint, 17, 49, nullptr, 'e');

    struct Case {
        int64_t key;
        const char* text;
        bool accepted;
    };
    const Case cases[] = {
        {1, "20", true},    {1, "+7", true},     {1, "0", false},   {1, "1001", false}, {1, "2.5", false},
        {1, "", false},     {2, "0.25", true},   {2, "1.5", false}, {2, "nan", false},  {2, "x", false},
        {3, "on", true},    {3, "maybe", false}, {4, "5", true},    {4, "1", false},    {4, "row", false},
        {5, "-3,40", true}, {5, "3;4", false},   {5, "3,", false},  {9, "1", false},
    };
    for (const Case& c : cases) {
        std::string error;
        EXPECT_EQ(host.SetItemValue(c.key, c.text, error), c.accepted)
            << c.key << "=" << c.text << ": " << error;
        EXPECT_EQ(error.empty(), c.accepted) << c.key << "=" << c.text;
    }
    EXPECT_EQ(host.FindItem(1)->intValue, 7);
    EXPECT_EQ(host.FindItem(4)->enumValue, 5);
    EXPECT_EQ(host.FindItem(5)->pointValue.x, -3);
    EXPECT_EQ(host.Notify(1, kHostNotifyValueChanged), 0);  // no callback installed
    p.release(property);
    EXPECT_EQ(host.Panel(), nullptr);
    EXPECT_TRUE(TakeProtocolErrors().empty());
}

TEST(simhost_test, colour_layers_round_trip_through_png) {
    PngImage png;
    png.width = 2;
    png.height = 1;
    png.channels = 4;
    png.pixels = {10, 20, 30, 40, 50, 60, 70, 80};
    for (LayerKind kind : {LayerKind::Rgb, LayerKind::Rgba}) {
        const SimImage layer = LayerFromPng(png, kind);
        EXPECT_EQ(layer.At(1, 0)[layer.channelIndex[0]], 50);
        EXPECT_EQ(layer.At(1, 0)[layer.channelIndex[3]], 80);
        const PngImage back = PngFromLayer(layer);
        EXPECT_EQ(back.channels, 4);
        EXPECT_EQ(back.pixels, png.pixels) << LayerKindName(kind);
    }
    const SimImage rgb = LayerFromPng(png, LayerKind::Rgb);
    EXPECT_EQ(rgb.At(0, 0)[0], 30);  // stored blue first
}

TEST(simhost_test, grey_alpha_and_selection_layers_come_from_any_png) {
    PngImage png;
    png.width = 2;
    png.height = 1;
    png.channels = 1;
    png.pixels = {0, 200};
    EXPECT_EQ(DefaultLayerKind(png), LayerKind::Gray);
    const SimImage alpha = LayerFromPng(png, LayerKind::Alpha);
    EXPECT_EQ(alpha.depth, 1);
    EXPECT_EQ(alpha.pixels, (std::vector<uint8_t>{255, 55}));  // dark ink covers
    const SimImage grey = LayerFromPng(png, LayerKind::Gray);
    EXPECT_EQ(grey.pixels, (std::vector<uint8_t>{0, 255, 200, 255}));
    const SimImage selection = SelectionFromPng(png);
    EXPECT_EQ(selection.pixels, (std::vector<uint8_t>{0, 200}));
    EXPECT_EQ(PngFromLayer(alpha).channels, 1);
    EXPECT_EQ(PngFromLayer(LayerFromPng(png, LayerKind::Mask)).channels, 2);
    LayerKind kind;
    EXPECT_TRUE(ParseLayerKind("mask", kind));
    EXPECT_EQ(kind, LayerKind::Mask);
    EXPECT_FALSE(ParseLayerKind("cmyk", kind));
}

}  // namespace
