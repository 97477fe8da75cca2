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

PathPoint QuadraticAt(const PathPoint& p0, const PathPoint& p1, const PathPoint& p2, double t) {
    const double u = 1 - t;
    return {u * u * p0.x + 2 * u * t * p1.x + t * t * p2.x, u * u * p0.y + 2 * u * t * p1.y + t * t * p2.y};
}

PathPoint CubicAt(const PathPoint& p0, const PathPoint& p1, const PathPoint& p2, const PathPoint& p3,
                  double t) {
    const double u = 1 - t;
    const double a = u * u * u, b = 3 * u * u * t, c = 3 * u * t * t, d = t * t * t;
    return {a * p0.x + b * p1.x + c * p2.x + d * p3.x, a * p0.y + b * p1.y + c * p2.y + d * p3.y};
}

double DistanceToPiece(const PathPoint& p, const LineSegment& line) {
    const double dx = line.end.x - line.start.x, dy = line.end.y - line.start.y;
    const double squared = dx * dx + dy * dy;
    double t = squared > 0 ? ((p.x - line.start.x) * dx + (p.y - line.start.y) * dy) / squared : 0;
    t = std::clamp(t, 0.0, 1.0);
    return std::hypot(p.x - (line.start.x + t * dx), p.y - (line.start.y + t * dy));
}

double DistanceToPolyline(const PathPoint& p, const std::vector<LineSegment>& lines) {
    double best = kInf;
    for (const LineSegment& line : lines)
        best = std::min(best, DistanceToPiece(p, line));
    return best;
}

// The pieces join up end to end, from `from` to `to`, and each carries its own length.
void ExpectChain(const std::vector<LineSegment>& lines, const PathPoint& from, const PathPoint& to) {
    ASSERT_FALSE(lines.empty());
    EXPECT_POINT(lines.front().start, from.x, from.y);
    EXPECT_POINT(lines.back().end, to.x, to.y);
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_DOUBLE_EQ(lines[i].length, PathParser::Dist(lines[i].start, lines[i].end)) << i;
        if (i > 0) {
            EXPECT_EQ(lines[i].start.x, lines[i - 1].end.x) << i;
            EXPECT_EQ(lines[i].start.y, lines[i - 1].end.y) << i;
        }
    }
}

// Every sampled point of the curve lies within the tolerance of the pieces.
void ExpectWithin(const std::function<PathPoint(double)>& curve, const std::vector<LineSegment>& lines,
                  int samples) {
    for (int i = 0; i <= samples; ++i)
        ASSERT_LE(DistanceToPolyline(curve(static_cast<double>(i) / samples), lines), 0.5) << i;
}

std::vector<LineSegment> ToPieces(const std::vector<PathPoint>& polyline) {
    std::vector<LineSegment> lines;
    for (size_t i = 1; i < polyline.size(); ++i) {
        lines.push_back({polyline[i - 1], polyline[i], PathParser::Dist(polyline[i - 1], polyline[i])});
    }
    return lines;
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

TEST(flatten_test, flattens_the_arch_within_tolerance_with_lengths_that_add_up) {
    const PathPoint p0{0, 50}, p1{50, 0}, p2{100, 50};
    std::vector<LineSegment> lines;
    const double total = PathParser::FlattenQuadratic(lines, p0, p1, p2, 0.5);

    // Midpoint gaps 25, 6.25, 1.5625, 0.39: three halvings, eight pieces.
    ASSERT_EQ(lines.size(), 8u);
    ExpectChain(lines, p0, p2);
    double sum = 0;
    for (const LineSegment& line : lines)
        sum += line.length;
    EXPECT_DOUBLE_EQ(total, sum);
    ExpectWithin([&](double t) { return QuadraticAt(p0, p1, p2, t); }, lines, 1000);
    // Pieces come in path order: left to right along the arch.
    for (size_t i = 1; i < lines.size(); ++i)
        EXPECT_GT(lines[i].start.x, lines[i - 1].start.x);

    // Further pieces are appended after what is there.
    std::vector<LineSegment> more{{{-5, 0}, {0, 0}, 5}};
    EXPECT_DOUBLE_EQ(PathParser::FlattenQuadratic(more, {0, 0}, {5, 0}, {10, 0}, 0.5), 10);
    ASSERT_EQ(more.size(), 2u);
    EXPECT_POINT(more[1].end, 10, 0);
}

TEST(flatten_test, flattens_curves_up_to_1e8_within_tolerance_without_repeated_points) {
    for (const double r : {50.0, 1e8}) {
        SCOPED_TRACE(r);
        const PathPoint c0{-r, -r}, c1{-r, r}, c2{r, r}, c3{r, -r};
        const std::vector<LineSegment> lines = ToPieces(PathParser::FlattenCubic(c0, c1, c2, c3, 0.5));
        ASSERT_GT(lines.size(), 1u);
        ExpectChain(lines, c0, c3);
        for (const LineSegment& line : lines)
            EXPECT_GT(line.length, 0);
        ExpectWithin([&](double t) { return CubicAt(c0, c1, c2, c3, t); }, lines, 2000);
    }
    const double r = 1e8;
    const PathPoint q0{-r, r}, q1{0, -r}, q2{r, r};
    std::vector<LineSegment> arch;
    PathParser::FlattenQuadratic(arch, q0, q1, q2, 0.5);
    ExpectChain(arch, q0, q2);
    ExpectWithin([&](double t) { return QuadraticAt(q0, q1, q2, t); }, arch, 2000);
    const PathPoint l0{-r, -r}, l1{r, r}, l2{-r, r}, l3{r, -r};  // a self-crossing loop
    const std::vector<LineSegment> loop = ToPieces(PathParser::FlattenCubic(l0, l1, l2, l3, 0.5));
    ExpectChain(loop, l0, l3);
    ExpectWithin([&](double t) { return CubicAt(l0, l1, l2, l3, t); }, loop, 2000);
}

// --- Preparation --------------------------------------------------------------------------------------

TEST(prepare_test, builds_pieces_and_total_length_from_all_command_kinds) {
    PathParser path;
    path.AppendMoveTo({0, 50});
    path.AppendQuadBezier({50, 0}, {100, 50});
    path.AppendLineTo({100, 100});
    path.AppendCubicBezier({0, 200}, {200, 200}, {100, 100});
    path.PrepareSegments(false);

    std::vector<LineSegment> arch;
    const double archLength = PathParser::FlattenQuadratic(arch, {0, 50}, {50, 0}, {100, 50}, 0.5);
    const std::vector<LineSegment>& lines = path.GetLines();
    // The cubic closes on its own start, so it is a single zero-length piece.
    ASSERT_EQ(lines.size(), arch.size() + 2);
    ExpectChain(lines, {0, 50}, {100, 100});
    EXPECT_DOUBLE_EQ(path.GetTotalLength(), archLength + 50);
    EXPECT_POINT(path.GetPosition().point, 0, 50);
}

TEST(prepare_test, gives_no_pieces_for_move_tos_only_and_jumps_a_move_to_in_mid_path) {
    PathParser moves;
    moves.AppendMoveTo({10, 20});
    moves.AppendMoveTo({30, 40});
    moves.PrepareSegments(false);
    EXPECT_TRUE(moves.GetLines().empty());
    EXPECT_EQ(moves.GetTotalLength(), 0);
    EXPECT_POINT(moves.GetPosition().point, 0, 0);

    PathParser gap = MakePath({{0, 0}, {10, 0}}, false);
    gap.AppendMoveTo({20, 0});
    gap.AppendLineTo({30, 0});
    gap.PrepareSegments(false);
    EXPECT_EQ(gap.GetLines().size(), 2u);
    EXPECT_DOUBLE_EQ(gap.GetTotalLength(), 20);
    EXPECT_POINT(gap.MoveNext(15), 25, 0);
}

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
        {"passes_over_zero_length_pieces", zeroPiece, {{'n', 15, {15, 0}}, {'p', 12, {3, 0}}}},
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

TEST(walk_test, places_points_on_the_extensions) {
    PathParser path = MakeOpenCorner();
    EXPECT_POINT(path.MoveToExtendPos(7), -7, 0);
    path.MoveNext(20);  // on the path: no extension applies
    EXPECT_POINT(path.MoveToExtendPos(7), 20, 0);
    EXPECT_POINT(path.MoveToExtendPos(0), 20, 0);
    PathParser empty;
    empty.AppendMoveTo({10, 10});
    empty.PrepareSegments(false);
    EXPECT_POINT(empty.MoveToExtendPos(3), 0, 0);
}

// --- Input the walk and the flattening must survive ---------------------------------------------------

TEST(robustness_test, drops_commands_that_are_non_finite_short_of_points_or_of_unknown_type) {
    auto expectOnePiece = [](const PathParser& path, const PathPoint& end) {
        ASSERT_EQ(path.GetLines().size(), 1u);
        EXPECT_POINT(path.GetLines()[0].start, 0, 0);  // the pen never left the origin
        EXPECT_POINT(path.GetLines()[0].end, end.x, end.y);
        EXPECT_DOUBLE_EQ(path.GetTotalLength(), 10);
    };
    PathParser nonFinite;
    nonFinite.AppendMoveTo({0, 0});
    nonFinite.AppendLineTo({kNaN, 5});
    nonFinite.AppendMoveTo({kInf, 0});
    nonFinite.AppendQuadBezier({5, kInf}, {10, 10});
    nonFinite.AppendCubicBezier({1, 1}, {2, 2}, {-kInf, 3});
    nonFinite.AppendLineTo({10, 0});
    nonFinite.PrepareSegments(false);
    expectOnePiece(nonFinite, {10, 0});

    PathParser shortOrUnknown;
    shortOrUnknown.AppendMoveTo({0, 0});
    shortOrUnknown.Append({7, {{50, 50}}});
    shortOrUnknown.Append({PathSegment::kCubic, {{5, 5}}});
    shortOrUnknown.Append({PathSegment::kLineTo, {}});
    shortOrUnknown.AppendLineTo({0, 10});
    shortOrUnknown.PrepareSegments(false);
    EXPECT_EQ(shortOrUnknown.GetSegments().size(), 5u);
    expectOnePiece(shortOrUnknown, {0, 10});

    std::vector<LineSegment> lines;
    EXPECT_EQ(PathParser::FlattenQuadratic(lines, {0, 0}, {kNaN, 0}, {10, 0}, 0.5), 0);
    EXPECT_TRUE(lines.empty());
    EXPECT_TRUE(PathParser::FlattenCubic({0, 0}, {1, 1}, {2, 2}, {kInf, 0}, 0.5).empty());
}

TEST(robustness_test, stops_halving_curves_that_overflow) {
    // Differences of these coordinates overflow, so no halving ever makes the curve flat.
    const double big = std::numeric_limits<double>::max();
    std::vector<LineSegment> lines;
    PathParser::FlattenQuadratic(lines, {-big, 0}, {big, big}, {big, -big}, 0.5);
    EXPECT_LE(lines.size(), 1u << 20);

    const std::vector<PathPoint> polyline =
        PathParser::FlattenCubic({-big, 0}, {big, big}, {-big, big}, {big, 0}, 0.5);
    EXPECT_LE(polyline.size(), (1u << 20) + 1);
}

TEST(robustness_test, survives_non_finite_steps) {
    PathParser ring = MakeSquareRing();
    ring.MoveNext(kInf);
    ring.MoveNext(kNaN);
    ring.MovePrev(kInf);
    PathParser open = MakeOpenCorner();
    open.MoveNext(kInf);
    open.MovePrev(kNaN);
}
