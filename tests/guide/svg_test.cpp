#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "guide/PathParser.h"
#include "storage/FileHelpers.h"
#include "tests/storage/TestSupport.h"

using brivane_test::DecimalCommaLocale;
using brivane_test::ScratchDataHome;

namespace {

// A compact picture of the commands: "M(10,20) L(15,25) C(16,26)(17,27)(18,28)".
std::string Describe(const PathParser& parser) {
    std::ostringstream out;
    for (const PathSegment& segment : parser.GetSegments()) {
        if (out.tellp() > 0) out << ' ';
        const bool known = segment.type >= PathSegment::kMoveTo && segment.type <= PathSegment::kQuadratic;
        out << (known ? "?MLCQ"[segment.type] : '?');
        for (const PathPoint& p : segment.points)
            out << '(' << p.x << ',' << p.y << ')';
    }
    return out.str();
}

std::string Svg(const std::string& pathAttributes) {
    return "<svg><path " + pathAttributes + "/></svg>\n";
}

PathParser Parsed(const std::string& pathData, const std::string& more = "") {
    PathParser parser;
    parser.Parse(Svg("d=\"" + pathData + "\" " + more));
    return parser;
}

constexpr char kStraightLine[] = "M(0,10) L(100,10)";

}  // namespace

TEST(svg_test, path_data_and_transforms_become_commands_and_a_width) {
    const struct {
        const char* data;
        const char* attributes;
        const char* commands;
        double width;  // measured before the transform; NaN: not checked
    } cases[] = {
        {"M 10 20 l 5 5 c 1 1 2 2 3 3", "", "M(10,20) L(15,25) C(16,26)(17,27)(18,28)", 8},
        // Ignored commands leave a lone move that still counts as a path.
        {"M 0 0 H 50 Z", "", "M(0,0)", 0},
        // Numbers after a command are not repeated into more commands.
        {"M 0 0 L 10 10 20 20", "", "M(0,0) L(10,10)", NAN},
        {"M-5-5l+2-3", "", "M(-5,-5) L(-3,-8)", NAN},              // signs split numbers written back to back
        {"M 1.2.3 4 L 0.5.5 1e1", "", "M(1.2,4) L(0.5,10)", NAN},  // a second point starts a new number
        {"M10,20L,30,,40", "", "M(10,20) L(30,40)", NAN},          // commas separate numbers like spaces
        {"M 0 0 Q 5 5 10 0", "transform=\"translate(10 20)\"", "M(10,20) Q(15,25)(20,20)", 10},
        {"M 0 0 L 1 1", "transform=\"translate(10,20)\"", "M(10,0) L(11,1)", NAN},  // comma: x only
        {"M 1 1 L 2 2", "transform=\"scale(2)\"", "M(1,1) L(2,2)", NAN},
        {"M 1 1 L 2 2", "transform=\"rotate(90)\"", "M(1,1) L(2,2)", NAN},
        {"M 1 2 L 3 4", "transform=\"matrix(2 0 0 3 10 20)\"", "M(12,26) L(16,32)", 2},
        {"M 0 0 L 5 5\"/><path d=\"M 9 9 L 1 1", "", "M(0,0) L(5,5)", NAN},  // only the first path
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.data);
        PathParser parser;
        EXPECT_TRUE(parser.Parse(Svg("d=\"" + std::string(c.data) + "\" " + c.attributes)));
        EXPECT_EQ(Describe(parser), c.commands);
        if (!std::isnan(c.width)) {
            EXPECT_EQ(parser.GetWidth(), c.width);
        }
    }
    // The first command's extent keeps only its last point, and control points count.
    EXPECT_EQ(Parsed("C 0 0 50 0 10 10 L 20 20").GetWidth(), 10);
    EXPECT_EQ(Parsed("M 0 0 Q 100 50 10 0").GetWidth(), 100);
    EXPECT_EQ(Parsed("M 30 0 L 10 0 L 25 0").GetWidth(), 20);
}

TEST(svg_test, a_malformed_number_raises_out_of_loading_and_keeps_what_was_read) {
    ScratchDataHome home;
    home.WriteGuide("bad", Svg("d=\"M 0 0 L 10\""));
    PathParser parser;
    EXPECT_THROW(parser.LoadFromFile(u"bad"), std::invalid_argument);
    EXPECT_EQ(Describe(parser), "M(0,0)");
    EXPECT_THROW(PathParser{u"bad"}, std::invalid_argument);
    // A number too small to represent raises the range error too.
    EXPECT_THROW(parser.Parse(Svg("d=\"M 0 0 L 1e-999 0\"")), std::out_of_range);
}

TEST(svg_test, numbers_keep_the_decimal_point_under_a_decimal_comma_locale) {
    DecimalCommaLocale locale;
    if (!locale.active()) GTEST_SKIP() << "no locale with a decimal comma is available";
    const PathParser parser = Parsed("M 0.5 0.25 L 2.5 1", "transform=\"matrix(1.5 0 0 1 0.5 0)\"");
    ASSERT_EQ(parser.GetSegments().size(), 2u);
    EXPECT_DOUBLE_EQ(parser.GetSegments()[0].points[0].x, 1.25);
    EXPECT_DOUBLE_EQ(parser.GetSegments()[0].points[0].y, 0.25);
    EXPECT_DOUBLE_EQ(parser.GetWidth(), 2.0);
}

// --- Bad guide files: each must end as the straight guide, be read, or raise the documented error. ---

namespace {

enum class Outcome { kStraightLine, kRead, kInvalidArgument, kOutOfRange };

struct BadFile {
    const char* name;
    Outcome outcome;
};

constexpr BadFile kBadFiles[] = {{"empty", Outcome::kStraightLine},
                                 {"binary_junk", Outcome::kStraightLine},
                                 {"no_path", Outcome::kStraightLine},
                                 {"path_without_d", Outcome::kStraightLine},
                                 {"group_named_mypath", Outcome::kStraightLine},
                                 {"multiline_d", Outcome::kStraightLine},
                                 {"gt_in_attribute", Outcome::kStraightLine},
                                 {"single_quotes", Outcome::kStraightLine},
                                 {"comment_names_path", Outcome::kStraightLine},
                                 {"unclosed_tag", Outcome::kStraightLine},
                                 {"only_ignored_commands", Outcome::kStraightLine},
                                 {"empty_d", Outcome::kStraightLine},
                                 {"upper_case_d", Outcome::kStraightLine},
                                 {"broken_transform", Outcome::kRead},
                                 {"bom_and_invalid_utf8", Outcome::kRead},
                                 {"missing_y", Outcome::kInvalidArgument},
                                 {"letter_for_number", Outcome::kInvalidArgument},
                                 {"tab_before_number", Outcome::kInvalidArgument},
                                 {"lone_point_number", Outcome::kInvalidArgument},
                                 {"number_too_large", Outcome::kOutOfRange}};

}  // namespace

TEST(svg_test, bad_guide_files_end_as_documented) {
    ScratchDataHome home;
    const std::filesystem::path folder = std::filesystem::path(BRIVANE_TEST_DATA_DIR) / "svg" / "bad";
    std::size_t listed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        listed += entry.path().extension() == ".svg";
    EXPECT_EQ(listed, std::size(kBadFiles)) << "every file in " << folder << " needs a row in the table";

    for (const BadFile& bad : kBadFiles) {
        SCOPED_TRACE(bad.name);
        const std::string text = ScratchDataHome::Read((folder / (std::string(bad.name) + ".svg")).string());
        ASSERT_EQ(text.empty(), std::string(bad.name) == "empty");
        home.WriteGuide(bad.name, text);
        PathParser parser;
        const std::u16string name = Utf8ToUtf16(bad.name);
        if (bad.outcome == Outcome::kInvalidArgument) {
            EXPECT_THROW(parser.LoadFromFile(name), std::invalid_argument);
        } else if (bad.outcome == Outcome::kOutOfRange) {
            EXPECT_THROW(parser.LoadFromFile(name), std::out_of_range);
        } else {
            parser.LoadFromFile(name);
            EXPECT_EQ(Describe(parser), bad.outcome == Outcome::kRead ? "M(0,0) L(50,50)" : kStraightLine);
        }
    }
}

// Linear time for long lines; past the pattern's limit a value cut by a line break still counts for none.
TEST(svg_test, lines_of_a_million_characters_are_read_in_linear_time) {
    const std::size_t kHuge = 1'000'000;
    std::string data = "M 0 0";
    while (data.size() < kHuge)
        data += " L 1 2";
    EXPECT_EQ(Parsed(data).GetSegments().size(), 1u + (data.size() - 5) / 6);
    EXPECT_FALSE(PathParser().Parse("<path x=\"" + std::string(kHuge, 'a') + "\" d=\"M 0 0\n L 5 5\">"));
}

// A guide the module will not hold: over the byte bound, or over the piece bound once flattened (a
// curve is many pieces). Just within both, it loads as written.
TEST(svg_test, guides_past_the_size_or_piece_bounds_load_as_the_straight_line) {
    ScratchDataHome home;
    auto path = [](std::size_t count, const std::string& piece) {
        std::string data = "M 0 0";
        for (std::size_t i = 0; i < count; ++i)
            data += piece;
        return Svg("d=\"" + data + "\"");
    };
    const std::size_t most = PathParser::kMaxGuidePieces;  // a curve flattens into many pieces
    for (const auto& [name, text, loaded] : {
             std::tuple{"at_the_bounds", path(most, " l 1 1"), true},
             std::tuple{"too_many_pieces", path(most + 1, " l 1 1"), false},
             std::tuple{"too_large", path(1, " l 1 1") + std::string(PathParser::kMaxGuideBytes, ' '), false},
             std::tuple{"curves_of_too_many_pieces", path(most / 2, " c 0 900 900 900 900 0"), false},
         }) {
        SCOPED_TRACE(name);
        home.WriteGuide(name, text);
        PathParser parser;
        parser.LoadFromFile(Utf8ToUtf16(name));
        EXPECT_EQ(Describe(parser) == kStraightLine, !loaded);
    }
}
