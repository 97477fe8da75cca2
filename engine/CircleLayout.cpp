// The concentric arrangement: the target ellipse and rings grown outward and shrunk inward from it by
// the spacing, each a closed path of its own PathTask, kept while they can be seen on the canvas. The
// guide is wrapped once round each ring as a radial wobble. The rings are chosen on the caller's thread
// before the pool starts; each task lays out its own ring's vertices when it runs (AppendRing), over a
// copy of the guide prepared here.
#include <algorithm>
#include <cmath>
#include <memory>
#include <numbers>

#include "engine/MoveEffectFilter.h"
#include "engine/PathTask.h"
#include "engine/Random.h"
#include "engine/StrokeRaster.h"

namespace {

// Ring vertices stop here: one per 5 px would need a ring longer than any canvas a host can hold, so
// only absurd radii meet the limit, and they then cannot queue an endless vertex list.
constexpr double kMostRingVertices = 1 << 22;

PathPoint Rotate(double x, double y, double c, double s) {
    return PathPoint{x * c - y * s, x * s + y * c};
}

}  // namespace

void MoveEffectFilter::CreateCirclePathTasks() {
    if (!m_circleTarget || m_guide == nullptr) return;
    BeginStrokePass();
    const CircleTarget& target = *m_circleTarget;
    const PathPoint centre{static_cast<double>(target.cx), static_cast<double>(target.cy)};
    double maxDist = 0;
    for (const PathPoint corner : {PathPoint{0, 0}, PathPoint{static_cast<double>(m_width), 0},
                                   PathPoint{0, static_cast<double>(m_height)},
                                   PathPoint{static_cast<double>(m_width), static_cast<double>(m_height)}}) {
        maxDist = std::max(maxDist, PathParser::Dist(centre, corner));
    }
    const int32_t spacing = m_param.spacing;
    Random random(0, 1);
    double f = 0;
    if (m_param.spcfluct != 0) f = random.Uniform() * m_param.spcfluct * spacing;
    // Every ring walks the guide from its start. A guide that does not open with a usable move-to
    // starts where its last preparation ended: prepared twice, that is its own end whatever was
    // prepared before, so every ring of every render gets the same wobble.
    m_guide->PrepareSegments(false);
    m_guide->PrepareSegments(false);
    // Only the pieces are walked: the copy each ring makes of it leaves the commands behind.
    auto pieces = std::make_shared<PathParser>(*m_guide);
    pieces->Clear();
    const std::shared_ptr<const PathParser> walk = std::move(pieces);
    auto append = [&](double rx, double ry) {
        EnqueuePath(MakeRingTask(
            this, m_circleTarget.get(),
            RingShape{centre, target.angle, target.startAngle, rx, ry, m_param.curvature, walk}));
    };
    append(target.radiusX + f, target.radiusY + f);
    // With no spacing the ring count would be an infinite quotient: the target ring stands alone.
    if (spacing == 0) return;
    // The most rings a pass may make, less one.
    const double most = std::trunc(maxDist / spacing);
    for (const int dir : {-1, 1}) {
        if (!(most >= 0)) continue;
        double s = static_cast<double>(spacing) * dir;
        double acc = 0;
        bool seen = false;
        for (double round = 0; round <= most; ++round) {
            if (s * dir < 0) break;  // the gain has turned the step round
            acc += m_param.spcgain / 2 + s;
            const double rx = target.radiusX + acc;
            const double ry = target.radiusY + acc;
            if (rx < 1 || ry < 1) break;
            if (IsEllipseIn(centre, rx, ry, target.angle)) {
                if (m_param.spcfluct != 0) f = random.Uniform() * m_param.spcfluct * spacing;
                append(rx + f, ry + f);
                seen = true;
            } else if (seen) {
                break;  // the rings have left the canvas
            }
            s += m_param.spcgain;
        }
    }
}

double RingPerimeter(double radiusX, double radiusY) {
    return (3 * (radiusX + radiusY) - std::sqrt((3 * radiusX + radiusY) * (radiusX + 3 * radiusY))) *
           std::numbers::pi;
}

std::shared_ptr<PathTask> MakeRingTask(MoveEffectFilter* filter, CircleTarget* circle, RingShape ring) {
    auto task = std::make_shared<PathTask>(filter, circle);
    task->SetRing(std::move(ring));
    return task;
}

// Worker thread.
bool PathTask::AppendRing() {
    const RingShape& ring = *m_ring;
    // One vertex per 5 px of perimeter; at least 3, and an even count.
    double count = std::ceil(RingPerimeter(ring.radiusX, ring.radiusY) / 5);
    if (!(count >= 3)) count = 3;
    count = std::min(count, kMostRingVertices);
    int n = static_cast<int>(count);
    if (n % 2 != 0) ++n;

    PathParser guide = *ring.guide;
    // A guide without pieces cannot be walked: it then adds no wobble.
    const bool walk = !guide.GetLines().empty();
    const double y0 = guide.GetPosition().point.y;
    const double step = guide.GetTotalLength() / n;
    const double ca = std::cos(ring.angle);
    const double sa = std::sin(ring.angle);
    for (int i = 0; i <= n; ++i) {
        if (i % 4096 == 4095 && IsCancelled()) return false;
        const double psi = i * 2 * std::numbers::pi / n + ring.startAngle;
        const double d = (guide.GetPosition().point.y - y0) * ring.curvature;
        const PathPoint local =
            Rotate((ring.radiusX + d) * std::cos(psi), (ring.radiusY + d) * std::sin(psi), ca, sa);
        const PathPoint vertex{ring.centre.x + local.x, ring.centre.y + local.y};
        if (i == 0) {
            m_path.AppendMoveTo(vertex);
        } else {
            m_path.AppendLineTo(vertex);
        }
        if (walk) guide.MoveNext(step);
    }
    return true;
}

bool MoveEffectFilter::IsEllipseIn(const PathPoint& centre, double radiusX, double radiusY,
                                   double angle) const {
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const PathPoint ends[4] = {Rotate(radiusX, 0, c, s), Rotate(-radiusX, 0, c, s), Rotate(0, radiusY, c, s),
                               Rotate(0, -radiusY, c, s)};
    const double width = m_width;
    const double height = m_height;
    bool allIn = true;
    double minX = HUGE_VAL;
    double maxX = -HUGE_VAL;
    double minY = HUGE_VAL;
    double maxY = -HUGE_VAL;
    for (const PathPoint& e : ends) {
        const double x = centre.x + e.x;
        const double y = centre.y + e.y;
        allIn = allIn && x >= 0 && x <= width && y >= 0 && y <= height;
        minX = std::min(minX, x);
        maxX = std::max(maxX, x);
        minY = std::min(minY, y);
        maxY = std::max(maxY, y);
    }
    if (allIn) return true;
    if (maxX < 0 || minX > width || maxY < 0 || minY > height) return false;
    // Otherwise visible only where the outline crosses an edge: an ellipse round the whole canvas is not.
    const PathPoint corners[4] = {PathPoint{0, 0}, PathPoint{width, 0}, PathPoint{width, height},
                                  PathPoint{0, height}};
    for (int i = 0; i < 4; ++i) {
        if (LineIntersectsEllipse(corners[i], corners[(i + 1) % 4], centre, radiusX, radiusY, angle))
            return true;
    }
    return false;
}

bool MoveEffectFilter::LineIntersectsEllipse(const PathPoint& a, const PathPoint& b, const PathPoint& centre,
                                             double radiusX, double radiusY, double angle) const {
    // Both ends in the ellipse's own frame.
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const PathPoint p = Rotate(a.x - centre.x, a.y - centre.y, c, -s);
    const PathPoint q = Rotate(b.x - centre.x, b.y - centre.y, c, -s);
    const double dx = q.x - p.x;
    const double dy = q.y - p.y;
    const double rx2 = radiusX * radiusX;
    const double ry2 = radiusY * radiusY;
    const double qa = dx * dx / rx2 + dy * dy / ry2;
    const double qb = 2 * (p.x * dx / rx2 + p.y * dy / ry2);
    const double qc = p.x * p.x / rx2 + p.y * p.y / ry2 - 1;
    const double disc = qb * qb - 4 * qa * qc;
    if (disc < 0) return false;
    const double t1 = (-qb - std::sqrt(disc)) / (2 * qa);
    if (t1 >= 0 && t1 <= 1) return true;
    const double t2 = (std::sqrt(disc) - qb) / (2 * qa);
    return t2 >= 0 && t2 <= 1;
}
