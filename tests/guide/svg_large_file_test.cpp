// Guide files of 100 MB: read to the end without trouble. Labelled slow.
#include <gtest/gtest.h>

#include <string>

#include "guide/PathParser.h"
#include "tests/storage/TestSupport.h"

using brivane_test::ScratchDataHome;

namespace {

constexpr std::size_t kFileSize = 100u << 20;

}  // namespace

TEST(svg_large_file_test, a_path_behind_a_hundred_megabytes_of_other_tags_is_found) {
    ScratchDataHome home;
    std::string text;
    text.reserve(kFileSize + 64);
    text += "<svg>";
    const std::string filler = "<rect x=\"1\" y=\"2\" width=\"3\"/><g id=\"\xFF\xFE\">text \xC0</g>\n";
    while (text.size() < kFileSize)
        text += filler;
    text += "<path d=\"M 0 0 L 7 7\"/></svg>";
    home.WriteGuide("huge", text);
    PathParser parser(u"huge");
    ASSERT_EQ(parser.GetSegments().size(), 2u);
    EXPECT_EQ(parser.GetWidth(), 7);
}

TEST(svg_large_file_test, a_hundred_megabytes_of_path_data_is_read_in_one_pass) {
    ScratchDataHome home;
    std::string text = "<svg><path d=\"M 0 0";
    text.reserve(kFileSize + 64);
    while (text.size() < kFileSize)
        text += " L 1 2 H 9";
    text += "\"/></svg>";
    home.WriteGuide("data", text);
    PathParser parser(u"data");
    EXPECT_GT(parser.GetSegments().size(), 1'000'000u);
    EXPECT_EQ(parser.GetWidth(), 1);
}
