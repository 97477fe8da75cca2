// Guide files of 100 MB: read to the end without trouble. Labelled slow.
#include <gtest/gtest.h>

#include <string>

#include "guide/PathParser.h"
#include "tests/storage/TestSupport.h"

using brivane_test::ScratchDataHome;

namespace {

// Loads the guide `start`, then `filler` repeated up to 100 MB, then `end`.
PathParser LoadHuge(const std::string& start, const std::string& filler, const std::string& end) {
    constexpr std::size_t kFileSize = 100u << 20;
    ScratchDataHome home;
    std::string text = start;
    text.reserve(kFileSize + 64);
    while (text.size() < kFileSize)
        text += filler;
    text += end;
    home.WriteGuide("huge", text);
    return PathParser(u"huge");
}

}  // namespace

TEST(svg_large_file_test, a_path_behind_a_hundred_megabytes_of_other_tags_is_found) {
    const PathParser parser =
        LoadHuge("<svg>", "<rect x=\"1\" y=\"2\" width=\"3\"/><g id=\"\xFF\xFE\">text \xC0</g>\n",
                 "<path d=\"M 0 0 L 7 7\"/></svg>");
    ASSERT_EQ(parser.GetSegments().size(), 2u);
    EXPECT_EQ(parser.GetWidth(), 7);
}

TEST(svg_large_file_test, a_hundred_megabytes_of_path_data_is_read_in_one_pass) {
    const PathParser parser = LoadHuge("<svg><path d=\"M 0 0", " L 1 2 H 9", "\"/></svg>");
    EXPECT_GT(parser.GetSegments().size(), 1'000'000u);
    EXPECT_EQ(parser.GetWidth(), 1);
}
