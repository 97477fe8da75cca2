// The two straight arrangements: focus lines radiating from a centre and speed lines stacked side by
// side. Each line is a copy of the guide, stretched along the line and scaled across it by the
// curvature, and becomes one PathTask. Both run on the caller's thread before the pool starts.
#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "engine/MoveEffectFilter.h"
#include "engine/PathTask.h"
#include "engine/Random.h"
#include "engine/StrokeRaster.h"

namespace {

// Parallel lines stop here whatever the span and spacing: enough for any canvas a host can hold at
// one line per pixel, and it keeps absurd handle points from queueing tasks without end.
constexpr int kMostParallelLines = 1 << 20;

// Appends every guide segment to the task, with (gx, gy) mapped to base + R(angle) * ((gx - ox) *
// scale, (gy - oy) * curvature): the guide's origin (its first point) lands on base.
void PlaceGuide(const PathParser& guide, PathTask& task, double scale, double curvature, double angle,
                const PathPoint& base) {
    const std::vector<PathSegment>& segments = guide.GetSegments();
    if (segments.empty() || segments.front().points.empty()) return;
    const PathPoint origin = segments.front().points.front();
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    for (const PathSegment& segment : segments) {
        PathSegment placed;
        placed.type = segment.type;
        placed.points.reserve(segment.points.size());
        for (const PathPoint& g : segment.points) {
            const double u = (g.x - origin.x) * scale;
            const double v = (g.y - origin.y) * curvature;
            placed.points.push_back(PathPoint{base.x + u * c - v * s, base.y + u * s + v * c});
        }
        task.AppendPathSegment(placed);
    }
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
    const double firstAngle = std::atan2(far.y - centre.y, far.x - centre.x);
    // spacing is in thousandths of a right angle.
    const double step = m_param.spacing * 90.0 / 1000.0 * std::numbers::pi / 180.0;
    if (!(step > 0)) return;
    const double scale = (farRadius - nearRadius) / m_guide->GetWidth();
    Random random(0, 1);
    for (double a = firstAngle; a <= firstAngle + 2 * std::numbers::pi; a += step) {
        if (IsCancelled()) break;
        double angle = a;
        if (m_param.spcfluct != 0) angle = a + (0.5 - random.Uniform() * m_param.spcfluct) * step;
        auto task = std::make_shared<PathTask>(this, nullptr);
        PlaceGuide(
            *m_guide, *task, scale, m_param.curvature, angle,
            PathPoint{centre.x + nearRadius * std::cos(angle), centre.y + nearRadius * std::sin(angle)});
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
    const double angle = std::atan2(end.y - origin.y, end.x - origin.x);
    const double scale = PathParser::Dist(origin, end) / m_guide->GetWidth();
    const double span = PathParser::Dist(origin, across);
    if (std::isnan(span) || m_param.spacing < 1) return;
    // Lines are stacked along p1 -> p3; with p3 on p1 there is just the one line at p1.
    const double wx = span > 0 ? (across.x - origin.x) / span : 0;
    const double wy = span > 0 ? (across.y - origin.y) / span : 0;
    Random random(0, 1);
    double s = m_param.spacing;
    double offset = 0;
    for (int line = 0; line < kMostParallelLines; ++line) {
        double o = offset;
        if (m_param.spcfluct != 0) o = offset + m_param.spacing * random.Uniform() * m_param.spcfluct;
        auto task = std::make_shared<PathTask>(this, nullptr);
        PlaceGuide(*m_guide, *task, scale, m_param.curvature, angle,
                   PathPoint{origin.x + wx * o, origin.y + wy * o});
        EnqueuePath(std::move(task));
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
