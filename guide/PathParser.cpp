#include "guide/PathParser.h"
#include "guide/PortableMath.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

// Remainders this small count as nothing: they come from rounding, not from the caller.
constexpr double kEpsilon = 1e-6;

// Largest deviation of a piece from its curve, in path units.
constexpr double kFlattenTolerance = 0.5;

// Halving a curve more often than this stops with the chord as it stands. Each halving shrinks a curve's
// bend about fourfold, so no curve within 1e8 px of the origin needs more than 16 to be flat to the
// tolerance; the bound only stops input that never flattens (coordinates whose differences overflow) at
// 2^20 pieces per curve.
constexpr int kMaxHalvingDepth = 20;

// Pieces that halving may make for one path, all its curves together; past it each curve part is taken
// as its chord. Twice what one curve 1e8 px across needs; without the bound a guide file of a few bytes
// per huge curve makes a million pieces for each of them.
constexpr std::size_t kMaxHalvedPieces = 1 << 17;

// A looping walk longer than this many laps drops the whole laps at once, so a huge step on a short
// ring costs no more than a few laps.
constexpr double kMaxWalkedLaps = 8;

PathPoint Midpoint(const PathPoint& a, const PathPoint& b) {
    return {(a.x + b.x) / 2, (a.y + b.y) / 2};
}

PathPoint Lerp(const PathPoint& a, const PathPoint& b, double t) {
    return {a.x + t * (b.x - a.x), a.y + t * (b.y - a.y)};
}

bool IsFinite(const PathPoint& p) {
    return std::isfinite(p.x) && std::isfinite(p.y);
}

bool AreFinite(const PathPoint* points, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        if (!IsFinite(points[i])) return false;
    }
    return true;
}

double HalveQuadratic(std::vector<LineSegment>& out, const PathPoint& p0, const PathPoint& p1,
                      const PathPoint& p2, double tolerance, int depth) {
    const PathPoint m01 = Midpoint(p0, p1);
    const PathPoint m12 = Midpoint(p1, p2);
    const PathPoint mid = Midpoint(m01, m12);
    const double error = PathParser::Dist(Midpoint(p0, p2), mid);
    // Written as "not at most" so that a NaN error also halves, up to the depth bound.
    if (!(error <= tolerance) && depth < kMaxHalvingDepth && out.size() < kMaxHalvedPieces) {
        return HalveQuadratic(out, p0, m01, mid, tolerance, depth + 1) +
               HalveQuadratic(out, mid, m12, p2, tolerance, depth + 1);
    }
    const double length = PathParser::Dist(p0, p2);
    out.push_back({p0, p2, length});
    return length;
}

// budget: the most points out may hold before halving stops.
void HalveCubic(std::vector<PathPoint>& out, const PathPoint& p0, const PathPoint& p1, const PathPoint& p2,
                const PathPoint& p3, double tolerance, int depth, std::size_t budget) {
    const double flatness =
        std::max(PathParser::LineDistance(p1, p0, p3), PathParser::LineDistance(p2, p0, p3));
    if (tolerance >= flatness || depth >= kMaxHalvingDepth || out.size() >= budget) {
        // The start is already in out (the previous half's end, or the curve's start).
        out.push_back(p3);
        return;
    }
    const PathPoint m01 = Midpoint(p0, p1);
    const PathPoint m12 = Midpoint(p1, p2);
    const PathPoint m23 = Midpoint(p2, p3);
    const PathPoint a = Midpoint(m01, m12);
    const PathPoint b = Midpoint(m12, m23);
    const PathPoint mid = Midpoint(a, b);
    HalveCubic(out, p0, m01, a, mid, tolerance, depth + 1, budget);
    HalveCubic(out, mid, b, m23, p3, tolerance, depth + 1, budget);
}

// Unit direction of a piece, or nothing when the piece is too short to have one.
bool GetDirection(const LineSegment& line, PathPoint& direction) {
    const double length = PathParser::Dist(line.start, line.end);
    if (!(length > kEpsilon)) return false;
    direction = {(line.end.x - line.start.x) / length, (line.end.y - line.start.y) / length};
    return true;
}

// The polyline of a cubic curve whose halving stops once it holds budget points.
std::vector<PathPoint> FlattenCubicWithin(const PathPoint& p0, const PathPoint& p1, const PathPoint& p2,
                                          const PathPoint& p3, double tolerance, std::size_t budget) {
    if (!IsFinite(p0) || !IsFinite(p1) || !IsFinite(p2) || !IsFinite(p3)) return {};
    std::vector<PathPoint> polyline{p0};
    HalveCubic(polyline, p0, p1, p2, p3, tolerance, 0, budget);
    return polyline;
}

}  // namespace

void PathParser::Clear() {
    m_segments.clear();
    m_width = 0;
}

void PathParser::Append(const PathSegment& segment) {
    m_segments.push_back(segment);
}

void PathParser::AppendMoveTo(const PathPoint& p) {
    m_segments.push_back({PathSegment::kMoveTo, {p}});
}

void PathParser::AppendLineTo(const PathPoint& p) {
    m_segments.push_back({PathSegment::kLineTo, {p}});
}

void PathParser::AppendQuadBezier(const PathPoint& control, const PathPoint& end) {
    m_segments.push_back({PathSegment::kQuadratic, {control, end}});
}

void PathParser::AppendCubicBezier(const PathPoint& control1, const PathPoint& control2,
                                   const PathPoint& end) {
    m_segments.push_back({PathSegment::kCubic, {control1, control2, end}});
}

double PathParser::Dist(const PathPoint& a, const PathPoint& b) {
    return portable::Hypot(b.x - a.x, b.y - a.y);
}

double PathParser::LineDistance(const PathPoint& p, const PathPoint& a, const PathPoint& b) {
    const double length = Dist(a, b);
    if (length == 0) return 0;
    // The cross product taken from a: expanded about the origin instead, far from it the products
    // cancel into rounding noise that swamps short chords and keeps curves halving for nothing.
    return std::abs((b.x - a.x) * (p.y - a.y) - (b.y - a.y) * (p.x - a.x)) / length;
}

double PathParser::FlattenQuadratic(std::vector<LineSegment>& out, const PathPoint& p0, const PathPoint& p1,
                                    const PathPoint& p2, double tolerance) {
    if (!IsFinite(p0) || !IsFinite(p1) || !IsFinite(p2)) return 0;
    return HalveQuadratic(out, p0, p1, p2, tolerance, 0);
}

std::vector<PathPoint> PathParser::FlattenCubic(const PathPoint& p0, const PathPoint& p1, const PathPoint& p2,
                                                const PathPoint& p3, double tolerance) {
    return FlattenCubicWithin(p0, p1, p2, p3, tolerance, kMaxHalvedPieces);
}

void PathParser::PrepareSegments(bool loop) {
    BeginPieces(loop);
    for (const PathSegment& segment : m_segments)
        AddPieces(segment.type, segment.points.data(), segment.points.size());
    ResetPosition();
}

void PathParser::BeginPieces(bool loop) {
    m_lines.clear();
    m_loop = loop;
    m_totalLength = 0;
    // m_lastPoint is left as the previous preparation left it: a path without a leading move-to starts
    // where the last one ended.
}

void PathParser::AddPieces(int32_t type, const PathPoint* p, std::size_t count) {
    const size_t needed = PathSegment::PointCount(type);
    // Short or non-finite commands are dropped whole, pen included: halving a non-finite curve would
    // never end.
    if (needed == 0 || count < needed || !AreFinite(p, count)) return;
    switch (type) {
        case PathSegment::kMoveTo:
            m_lastPoint = p[0];
            break;
        case PathSegment::kLineTo: {
            const double length = Dist(m_lastPoint, p[0]);
            m_lines.push_back({m_lastPoint, p[0], length});
            m_totalLength += length;
            m_lastPoint = p[0];
            break;
        }
        case PathSegment::kCubic: {
            // The path's pieces so far count against the budget, as the quadratic halving counts them.
            const std::size_t room = kMaxHalvedPieces - std::min(kMaxHalvedPieces, m_lines.size());
            const std::vector<PathPoint> polyline =
                FlattenCubicWithin(m_lastPoint, p[0], p[1], p[2], kFlattenTolerance, room + 1);
            for (size_t i = 1; i < polyline.size(); ++i) {
                const double length = Dist(polyline[i - 1], polyline[i]);
                m_lines.push_back({polyline[i - 1], polyline[i], length});
                m_totalLength += length;
            }
            m_lastPoint = p[2];
            break;
        }
        case PathSegment::kQuadratic:
            m_totalLength += FlattenQuadratic(m_lines, m_lastPoint, p[0], p[1], kFlattenTolerance);
            m_lastPoint = p[1];
            break;
    }
}

void PathParser::ResetPosition() {
    m_position.distance = 0;
    m_position.index = 0;
    m_position.t = 0;
    m_position.passedEnd = false;
    m_position.point = m_lines.empty() ? PathPoint{0, 0} : m_lines.front().start;
}

PathPoint PathParser::MoveNext(double distance) {
    return MoveNext(m_position, distance);
}

PathPoint PathParser::MovePrev(double distance) {
    return MovePrev(m_position, distance);
}

PathPoint PathParser::MoveToExtendPos(double distance) {
    return MoveToExtendPos(m_position, distance);
}

PathPoint PathParser::MoveNext(PositionData& pos, double distance) const {
    if (distance == 0) return pos.point;
    if (distance < 0) return MovePrev(pos, -distance);

    const int32_t count = static_cast<int32_t>(m_lines.size());
    double remainder = distance;
    if (count == 0) {
        // Nothing to walk along: the point stays, but the distance still runs out so that a walker
        // waiting for the end gets there.
        pos.distance += distance;
        if (m_loop || pos.distance >= m_totalLength) pos.passedEnd = true;
        return pos.point;
    }

    if (std::abs(pos.distance) < kEpsilon) {
        pos.distance = 0;
    } else if (pos.distance < 0 && !m_loop) {
        // On the backward extension: the point moves along it, the pieces are not touched.
        MoveToExtendPos(pos, distance);
        return FinishForwardMove(pos, distance, remainder);
    }

    if (distance > kEpsilon) {
        if (m_loop) remainder = DropWholeLaps(pos, remainder, true);
        if (pos.index < 0) {
            // Only reached when rounding has put the distance back on the path while the cursor was
            // still before the first piece.
            pos.index = 0;
            pos.t = 0;
        }
        while (pos.index < count && remainder > kEpsilon) {
            const LineSegment& piece = m_lines[pos.index];
            const double room = (1 - pos.t) * piece.length;
            if (room + kEpsilon >= remainder) {
                pos.t += remainder / piece.length;
                pos.point = Lerp(piece.start, piece.end, pos.t);
                remainder = 0;
                break;
            }
            remainder -= room;
            pos.point = piece.end;
            if (remainder > kEpsilon) {
                ++pos.index;
                if (pos.index >= count && m_loop) {
                    pos.passedEnd = true;
                    pos.index = 0;
                }
                pos.t = 0;
            }
        }
    }
    return FinishForwardMove(pos, distance, remainder);
}

PathPoint PathParser::FinishForwardMove(PositionData& pos, double distance, double remainder) const {
    // The whole request counts, consumed or not; past the end of an open path the unconsumed part is
    // then added once more by the extension, so strokes reach that much further off the end.
    pos.distance += distance;
    if (!m_loop && pos.distance >= m_totalLength) {
        pos.passedEnd = true;
        MoveToExtendPos(pos, remainder);
    }
    return pos.point;
}

double PathParser::DropWholeLaps(PositionData& pos, double remainder, bool forwards) const {
    // Only a forward wrap marks the end, as in the walk itself.
    if (m_totalLength <= kEpsilon) {
        // A ring of no length: every move goes round it at once and gets nowhere.
        if (forwards) pos.passedEnd = true;
        return 0;
    }
    // An endless move counts as too many laps even on a ring whose length has overflowed: subtracting
    // pieces from it would never end.
    if (std::isinf(remainder) || remainder > kMaxWalkedLaps * m_totalLength) {
        if (forwards) pos.passedEnd = true;
        return std::fmod(remainder, m_totalLength);
    }
    return remainder;
}

PathPoint PathParser::MovePrev(PositionData& pos, double distance) const {
    if (distance == 0) return pos.point;
    if (distance < 0) return MoveNext(pos, -distance);

    const int32_t count = static_cast<int32_t>(m_lines.size());
    if (count == 0) {
        pos.distance -= distance;
        return pos.point;
    }

    double remainder = distance;
    if (std::abs(pos.distance) < kEpsilon) {
        pos.distance = 0;
    } else if (pos.distance < 0 && !m_loop) {
        // Both extension calls are meant: the first also puts the cursor on the first piece, the second
        // places the point.
        MoveToExtendPos(pos, -distance);
        if (remainder > kEpsilon) MoveToExtendPos(pos, remainder);
        pos.distance -= distance;
        return pos.point;
    }

    if (distance > kEpsilon) {
        if (m_loop) remainder = DropWholeLaps(pos, remainder, false);
        if (pos.index >= count) {
            // Past the end of an open path: walk back from the end of the last piece.
            pos.index = count - 1;
            pos.t = 1;
        } else if (pos.index < 0) {
            pos.index = 0;
            pos.t = 0;
        }
        while (remainder > kEpsilon) {
            const LineSegment& piece = m_lines[pos.index];
            const double room = pos.t * piece.length;
            if (room + kEpsilon >= remainder) {
                pos.t -= remainder / piece.length;
                pos.point = Lerp(piece.start, piece.end, pos.t);
                pos.distance -= distance;
                return pos.point;
            }
            remainder -= room;
            pos.point = piece.start;
            if (remainder > kEpsilon) {
                const int32_t previous = pos.index;
                --pos.index;
                pos.t = 1;
                if (previous <= 0) {
                    if (!m_loop) break;
                    pos.index = count - 1;
                }
            }
        }
    }

    // Run off the start. The distance is not yet updated here, so a cursor that set out from a positive
    // distance stays at the first piece's start and reaches the extension only on its next move.
    if (remainder > kEpsilon && !m_loop) MoveToExtendPos(pos, remainder);
    pos.distance -= distance;
    return pos.point;
}

PathPoint PathParser::MoveToExtendPos(PositionData& pos, double distance) const {
    if (distance == 0 || m_lines.empty()) return pos.point;
    PathPoint direction{};
    if (pos.distance > m_totalLength) {
        const LineSegment& last = m_lines.back();
        if (GetDirection(last, direction)) {
            const double beyond = (pos.distance + distance) - m_totalLength;
            pos.point = {last.end.x + beyond * direction.x, last.end.y + beyond * direction.y};
        }
    } else if (pos.distance <= 0) {
        const LineSegment& first = m_lines.front();
        if (GetDirection(first, direction)) {
            const double before = distance - pos.distance;
            pos.point = {first.start.x - before * direction.x, first.start.y - before * direction.y};
        }
        pos.index = 0;
        pos.t = 0;
    }
    return pos.point;
}

LineStep PathParser::MoveLine(const LineSegment& line, double distance, bool backwards) {
    PositionData& pos = m_position;
    const double room = (backwards ? pos.t : 1 - pos.t) * line.length;
    if (kEpsilon + room >= distance) {
        // A piece of no length has no parameter to move along.
        if (line.length > 0) pos.t += (backwards ? -distance : distance) / line.length;
        return {Lerp(line.start, line.end, pos.t), 0};
    }
    return {backwards ? line.start : line.end, distance - room};
}
