// The two straight arrangements: focus lines radiating from a centre and speed lines stacked side by
// side. Each line is the guide placed on the canvas, stretched along the line and scaled across it by
// the curvature, and becomes one PathTask; lines that cannot meet the canvas are not made. Both run on
// the caller's thread before the pool starts.
#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "engine/MoveEffectFilter.h"
#include "engine/PathTask.h"
#include "engine/Random.h"
#include "engine/StrokeRaster.h"
#include "guide/PortableMath.h"

namespace {

// Parallel lines stop here whatever the span and spacing: enough for any canvas a host can hold at
// one line per pixel, and it keeps absurd handle points from queueing tasks without end.
constexpr int kMostParallelLines = 1 << 20;

// Pixels are found by truncating a point's coordinates, so ink can be met anywhere in (-1, width) x
// (-1, height); a path that stays this far outside [0, width] x [0, height] meets none.
constexpr double kCanvasMargin = 2;

// What every path of a layout shares: the guide's commands and how far its placed copies reach.
struct PlacedGuide {
    GuidePlacement placement;  // base and angle set per path
    // The box round the guide's scaled points, relative to its origin, before the rotation. The
    // Bezier pieces of a path lie within its points' hull, so within this box placed and rotated.
    double minU = 0, maxU = 0, minV = 0, maxV = 0;
    // False when a path's pieces may lie outside that box: a point that overflows, or a drawing
    // command before the first move-to, which starts at the canvas origin.
    bool bounded = true;
};

// Measures the guide once for a layout whose paths all share its scale along and across the line.
// False when the guide has no point to place.
bool MeasureGuide(const PathParser& guide, double scale, double curvature, PlacedGuide& out) {
    const std::vector<PathSegment>& segments = guide.GetSegments();
    if (segments.empty() || segments.front().points.empty()) return false;
    out.placement.guide = &guide;
    out.placement.origin = segments.front().points.front();
    out.placement.scale = scale;
    out.placement.curvature = curvature;
    // The walk's length bound: the control polygon, which rotation leaves as it is.
    double walk = 0;
    bool havePrevious = false, moved = false;
    double previousU = 0, previousV = 0;
    for (const PathSegment& segment : segments) {
        const std::size_t needed = PathSegment::PointCount(segment.type);
        const bool drawn = needed > 0 && segment.points.size() >= needed;
        if (drawn && segment.type == PathSegment::kMoveTo) moved = true;
        if (drawn && !moved) out.bounded = false;
        for (const PathPoint& g : segment.points) {
            const double u = (g.x - out.placement.origin.x) * scale;
            const double v = (g.y - out.placement.origin.y) * curvature;
            if (!std::isfinite(u) || !std::isfinite(v)) {
                out.bounded = false;
                continue;
            }
            if (havePrevious) walk += portable::Hypot(u - previousU, v - previousV);
            previousU = u, previousV = v, havePrevious = true;
            out.minU = std::min(out.minU, u), out.maxU = std::max(out.maxU, u);
            out.minV = std::min(out.minV, v), out.maxV = std::max(out.maxV, v);
        }
    }
    out.placement.walk = walk;
    return true;
}

// Places the guide at base, turned by angle, and tells whether that path can meet the canvas.
bool PlaceOnCanvas(PlacedGuide& guide, double angle, const PathPoint& base, double width, double height) {
    GuidePlacement& place = guide.placement;
    const auto [sine, cosine] = portable::SinCos(angle);
    place.cosAngle = cosine;
    place.sinAngle = sine;
    place.base = base;
    if (!guide.bounded) return true;
    double minX = HUGE_VAL, maxX = -HUGE_VAL, minY = HUGE_VAL, maxY = -HUGE_VAL;
    for (const double u : {guide.minU, guide.maxU}) {
        for (const double v : {guide.minV, guide.maxV}) {
            const double x = base.x + u * place.cosAngle - v * place.sinAngle;
            const double y = base.y + u * place.sinAngle + v * place.cosAngle;
            minX = std::min(minX, x), maxX = std::max(maxX, x);
            minY = std::min(minY, y), maxY = std::max(maxY, y);
        }
    }
    return maxX >= -kCanvasMargin && minX <= width + kCanvasMargin && maxY >= -kCanvasMargin &&
           minY <= height + kCanvasMargin;
}

}  // namespace

void MoveEffectFilter::CreateRadiatePathTasks() {
    if (!m_radiateTarget || m_guide == nullptr) return;
    BeginStrokePass();
    const RadiateTarget& target = *m_radiateTarget;
    const PathPoint centre{static_cast<double>(target.x1), static_cast<double>(target.y1)};
    PathPoint near{static_cast<double>(target.x2), static_cast<double>(target.y2)};
    PathPoint far{static_cast<double>(target.x3), static_cast<double>(target.y3)};
    // The farther of p2 and p3 is the outer end of every line (p3 when they tie).
    if (PathParser::Dist(centre, near) > PathParser::Dist(centre, far)) std::swap(near, far);
    const double nearRadius = PathParser::Dist(centre, near);
    const double farRadius = PathParser::Dist(centre, far);
    const double firstAngle = portable::Atan2(far.y - centre.y, far.x - centre.x);
    // spacing is in thousandths of a right angle.
    const double step = m_param.spacing * 90.0 / 1000.0 * std::numbers::pi / 180.0;
    if (!(step > 0)) return;
    const double scale = (farRadius - nearRadius) / m_guide->GetWidth();
    PlacedGuide guide;
    if (!MeasureGuide(*m_guide, scale, m_param.curvature, guide)) return;
    Random random(0, 1);
    for (double a = firstAngle; a <= firstAngle + 2 * std::numbers::pi; a += step) {
        if (IsCancelled()) break;
        double angle = a;
        if (m_param.spcfluct != 0) angle = a + (0.5 - random.Uniform() * m_param.spcfluct) * step;
        const auto [sine, cosine] = portable::SinCos(angle);
        const PathPoint base{centre.x + nearRadius * cosine, centre.y + nearRadius * sine};
        // Spokes that cannot reach the canvas are not made at all.
        if (!PlaceOnCanvas(guide, angle, base, m_width, m_height)) continue;
        auto task = std::make_shared<PathTask>(this, nullptr);
        task->SetPlacement(guide.placement);
        EnqueuePath(std::move(task));
    }
}

void MoveEffectFilter::CreateParallelPathTasks() {
    if (!m_parallelTarget || m_guide == nullptr) return;
    BeginStrokePass();
    const ParallelTarget& target = *m_parallelTarget;
    const PathPoint origin{static_cast<double>(target.x1), static_cast<double>(target.y1)};
    const PathPoint end{static_cast<double>(target.x2), static_cast<double>(target.y2)};
    const PathPoint across{static_cast<double>(target.x3), static_cast<double>(target.y3)};
    const double angle = portable::Atan2(end.y - origin.y, end.x - origin.x);
    const double scale = PathParser::Dist(origin, end) / m_guide->GetWidth();
    const double span = PathParser::Dist(origin, across);
    if (std::isnan(span) || m_param.spacing < 1) return;
    // Lines are stacked along p1 -> p3; with p3 on p1 there is just the one line at p1.
    const double wx = span > 0 ? (across.x - origin.x) / span : 0;
    const double wy = span > 0 ? (across.y - origin.y) / span : 0;
    PlacedGuide guide;
    if (!MeasureGuide(*m_guide, scale, m_param.curvature, guide)) return;
    Random random(0, 1);
    double s = m_param.spacing;
    double offset = 0;
    for (int line = 0; line < kMostParallelLines; ++line) {
        double o = offset;
        if (m_param.spcfluct != 0) o = offset + m_param.spacing * random.Uniform() * m_param.spcfluct;
        // Lines that cannot reach the canvas are not made at all.
        if (PlaceOnCanvas(guide, angle, PathPoint{origin.x + wx * o, origin.y + wy * o}, m_width, m_height)) {
            auto task = std::make_shared<PathTask>(this, nullptr);
            task->SetPlacement(guide.placement);
            EnqueuePath(std::move(task));
        }
        offset += s + m_param.spcgain / 2;
        if (offset > span) break;
        s += m_param.spcgain;
        if (!(s > 0)) break;
    }
}

// Liang-Barsky: clip a->b against [0, width] x [0, height] and see whether anything is left.
bool MoveEffectFilter::IsLineInCanvas(const PathPoint& a, const PathPoint& b) const {
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {a.x, m_width - a.x, a.y, m_height - a.y};
    double t0 = 0;
    double t1 = 1;
    for (int i = 0; i < 4; ++i) {
        if (p[i] == 0) {
            if (q[i] < 0) return false;
            continue;
        }
        const double r = q[i] / p[i];
        if (p[i] < 0) {
            t0 = std::max(t0, r);
        } else {
            t1 = std::min(t1, r);
        }
        if (t0 > t1) return false;
    }
    return true;
}
