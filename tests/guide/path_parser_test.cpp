#include "guide/PathParser.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

namespace {

constexpr double kNear = 1e-9;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

#define EXPECT_POINT(actual, ex, ey)           \
    do {                                       \
        const PathPoint p_ = (actual);         \
        EXPECT_NEAR(p_.x, (ex), kNear) << "x"; \
        EXPECT_NEAR(p_.y, (ey), kNear) << "y"; \
    } while (false)

PathParser MakePath(const std::vector<PathPoint>& points, bool loop) {
    PathParser path;
    path.AppendMoveTo(points.front());
    for (std::size_t i = 1; i < points.size(); ++i)
        path.AppendLineTo(points[i]);
    path.PrepareSegments(loop);
    return path;
}

// An open path of length 100 with a corner: 60 to the right, then 40 down.
PathParser MakeOpenCorner() {
    return MakePath({{0, 0}, {60, 0}, {60, 40}}, false);
}

// A closed 25 x 25 square, length 100, walked in looping mode.
PathParser MakeSquareRing() {
    return MakePath({{0, 0}, {25, 0}, {25, 25}, {0, 25}, {0, 0}}, true);
}

// A closed cubic: one zero-length piece.
PathParser MakeClosedCubic(bool loop) {
    PathParser path;
    path.AppendMoveTo({10, 10});
    path.AppendCubicBezier({50, 80}, {90, -20}, {10, 10});
    path.PrepareSegments(loop);
    return path;
}

}  // namespace

// --- Geometry helpers ---------------------------------------------------------------------------------

TEST(geometry_test, measures_distances_between_points_and_from_infinite_lines) {
    EXPECT_DOUBLE_EQ(PathParser::Dist({1, 2}, {4, 6}), 5);
    // Beyond the end of a and b still counts: the line is infinite.
    EXPECT_DOUBLE_EQ(PathParser::LineDistance({30, 7}, {0, 0}, {10, 0}), 7);
    EXPECT_NEAR(PathParser::LineDistance({0, 10}, {0, 0}, {10, 10}), std::sqrt(50.0), kNear);
    EXPECT_EQ(PathParser::LineDistance({3, 4}, {1, 1}, {1, 1}), 0);
    // Short chords far out are what curve halving meets on large guides.
    const double far = 1e8;
    EXPECT_NEAR(PathParser::LineDistance({far + 5, far + 0.25}, {far, far}, {far + 0.001, far}), 0.25, 1e-6);
}

// --- Flattening ---------------------------------------------------------------------------------------

// --- Preparation --------------------------------------------------------------------------------------

// --- Walking ------------------------------------------------------------------------------------------

namespace {

// One call of MoveNext ('n'), MovePrev ('p') or another cursor call and what must follow; NaN, -1 and INT_MIN
// leave a field unchecked.
struct Step {
    char move;
    double by;
    PathPoint at;
    double distance = kNaN;
    int passedEnd = -1;
    int index = INT_MIN;
    double t = kNaN;
};

constexpr PathPoint kAny{kNaN, kNaN};

struct Walk {
    const char* behaviour;
    std::function<PathParser()> make;
    std::vector<Step> steps;
};

}  // namespace

TEST(walk_test, walks_open_looping_and_empty_paths_as_each_behaviour_requires) {
    const auto zeroPiece = [] { return MakePath({{0, 0}, {10, 0}, {10, 0}, {20, 0}}, false); };
    const auto empty = [](bool loop) {
        return [loop] {
            PathParser path;
            path.AppendMoveTo({10, 10});
            path.PrepareSegments(loop);
            return path;
        };
    };
    // clang-format off
    const Walk walks[] = {
        // The last 10 are walked; the 20 left over count twice along the last piece's direction. Further
        // off the end the point stays one step ahead of the distance.
        {"runs_past_the_end_of_an_open_path", MakeOpenCorner,
         {{'n', 30, {30, 0}}, {'n', 30, {60, 0}}, {'n', 30, {60, 30}, 90, 0}, {'n', 30, {60, 80}, 120, 1},
          {'n', 30, {60, 120}, 150}}},
        {"stops_on_the_end_when_the_step_ends_there", MakeOpenCorner, {{'n', 100, {60, 40}, 100, 1}}},
        {"wraps_round_a_looping_path", MakeSquareRing, {{'n', 130, {25, 5}, 130, 1}}},
        {"marks_the_end_of_a_looping_path_only_when_it_wraps", MakeSquareRing,
         {{'n', 70, kAny}, {'n', 20, kAny, kNaN, 0}, {'n', 20, {10, 0}, kNaN, 1}}},
        {"walks_back_across_the_start_of_a_looping_path_without_marking_the_end", MakeSquareRing,
         {{'n', 10, kAny}, {'p', 20, {0, 10}, -10, 0}}},
        {"walks_back_along_the_path", MakeOpenCorner,
         {{'n', 80, kAny}, {'p', 45, {35, 0}, 35}, {'n', -5, {30, 0}}, {'p', -10, {40, 0}}}},
        {"steps_off_the_start_from_zero_onto_the_backward_extension", MakeOpenCorner,
         {{'p', 10, {-10, 0}, -10, -1, 0, 0}, {'p', 10, {-20, 0}, -20}}},
        {"stops_at_the_start_when_stepping_off_it_from_5", MakeOpenCorner,
         {{'n', 5, kAny}, {'p', 10, {0, 0}, -5, -1, -1, 1}, {'p', 10, {-15, 0}, -15}}},
        // The point lands at the old distance less the step while the distance grows by the step.
        {"moves_forward_on_the_backward_extension_behind_the_start", MakeOpenCorner,
         {{'p', 20, kAny}, {'n', 5, {-25, 0}, -15, 0}}},
        {"passes_over_zero_length_pieces", zeroPiece, {{'n', 15, {15, 0}}, {'p', 12, {3, 0}}, {'n', 22, {30, 0}}}},
        // The distance still runs out on an empty path, so a walker waiting for the end gets there.
        {"walks_an_empty_path_without_moving", empty(false), {{'n', 5, {0, 0}, 5, 1}, {'p', 20, {0, 0}, -15}}},
        {"walks_an_empty_looping_path_without_moving", empty(true), {{'n', 5, {0, 0}, kNaN, 1}}},
        {"walks_back_from_past_the_end_from_the_last_piece", MakeOpenCorner,
         {{'n', 120, kAny, kNaN, -1, 2}, {'p', 10, {60, 30}, 110, 1, 1}}},
        {"walks_a_looping_path_of_no_length_without_spinning", [] { return MakeClosedCubic(true); },
         {{'n', 5, {10, 10}, kNaN, 1}, {'p', 50, {10, 10}, -45}}},
        {"drops_whole_laps_of_a_huge_step_on_a_ring", MakeSquareRing,
         {{'n', 1e9 + 30, {25, 5}, kNaN, 1}, {'p', 1e12 + 5, {25, 0}}}},
        // 's' stores the position, 'r' restores it in full, 'z' resets to the start.
        {"restores_a_stored_position_in_full", MakeOpenCorner,
         {{'n', 30, kAny}, {'s', 0, {30, 0}, 30, 0, 0, 0.5}, {'n', 200, kAny, kNaN, 1},
          {'r', 0, {30, 0}, 30, 0, 0, 0.5}, {'n', 45, {60, 15}}}},
        {"returns_to_the_start_on_reset", MakeOpenCorner,
         {{'n', 130, kAny}, {'z', 0, {0, 0}, 0, 0, 0, 0}}},
    };
    // clang-format on
    for (const Walk& walk : walks) {
        PathParser path = walk.make();
        PositionData stored{};
        for (std::size_t i = 0; i < walk.steps.size(); ++i) {
            const Step& step = walk.steps[i];
            SCOPED_TRACE(testing::Message() << walk.behaviour << ", step " << i + 1);
            if (step.move == 's') stored = path.StorePosition();
            if (step.move == 'r') path.RestorePosition(stored);
            if (step.move == 'z') path.ResetPosition();
            const PathPoint point = step.move == 'n'   ? path.MoveNext(step.by)
                                    : step.move == 'p' ? path.MovePrev(step.by)
                                                       : path.GetPosition().point;
            const PositionData& at = path.GetPosition();
            // An unchecked field is compared with itself.
            const PathPoint want = std::isnan(step.at.x) ? point : step.at;
            EXPECT_POINT(point, want.x, want.y);
            EXPECT_DOUBLE_EQ(at.distance, std::isnan(step.distance) ? at.distance : step.distance);
            EXPECT_EQ(at.passedEnd, step.passedEnd < 0 ? at.passedEnd : step.passedEnd == 1);
            EXPECT_EQ(at.index, step.index == INT_MIN ? at.index : step.index);
            EXPECT_EQ(at.t, std::isnan(step.t) ? at.t : step.t);
        }
    }
}

// --- Input the walk and the flattening must survive ---------------------------------------------------

TEST(robustness_test, stops_halving_curves_that_overflow_or_exceed_the_budget_of_their_path) {
    // Differences of these coordinates overflow, so no halving ever makes the curve flat.
    const double big = std::numeric_limits<double>::max();
    std::vector<LineSegment> lines;
    PathParser::FlattenQuadratic(lines, {-big, 0}, {big, big}, {big, -big}, 0.5);
    EXPECT_LE(lines.size(), (1u << 17) + 32);

    const std::vector<PathPoint> polyline =
        PathParser::FlattenCubic({-big, 0}, {big, big}, {-big, big}, {big, 0}, 0.5);
    EXPECT_LE(polyline.size(), (1u << 17) + 32);

    // A guide of a few huge curves (the fuzzer's 60-byte file): one budget for the whole path.
    PathParser path;
    path.AppendMoveTo({0, 0});
    for (int i = 0; i < 8; ++i)
        path.AppendCubicBezier({0, 1e300}, {1, -1e300}, {1, 0});
    path.AppendQuadBezier({0, 1e300}, {1, 0});
    path.PrepareSegments(false);
    EXPECT_LE(path.GetLines().size(), (1u << 17) + 9 * 32);
}

TEST(robustness_test, survives_non_finite_steps) {
    PathParser ring = MakeSquareRing();
    ring.MoveNext(kInf);
    ring.MoveNext(kNaN);
    ring.MovePrev(kInf);
    PathParser open = MakeOpenCorner();
    open.MoveNext(kInf);
    open.MovePrev(kNaN);
    // A ring whose total length overflows (the fuzzer's guide): endless moves return at once.
    PathParser huge;
    for (const PathPoint& p : {PathPoint{0, 0}, PathPoint{1e308, 0}, PathPoint{0, 0}})
        huge.AppendLineTo(p);
    huge.PrepareSegments(true);
    ASSERT_TRUE(std::isinf(huge.GetTotalLength()));
    huge.MovePrev(kInf);
    huge.MoveNext(kInf);
}
