// The concentric arrangement: the target ellipse and rings grown outward and shrunk inward from it by
// the spacing, each a closed path of its own PathTask, kept while they can be seen on the canvas. The
// guide is wrapped once round each ring as a radial wobble. The rings are chosen on the caller's thread
// before the pool starts; each task lays out its own ring's vertices when it runs (AppendRing), walking
// the guide prepared here, which all the rings share.
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

// Ring vertices stop at this many per px of the canvas's width and height: one per 5 px of perimeter
// would need a ring of eighty canvas sides, further out than any target within the panel's reach
// draws, so only absurd radii meet the limit, and they then cannot queue an endless vertex list.
constexpr double kMostRingVerticesPerPx = 16;
constexpr double kMostRingVerticesMin = 4096;

PathPoint Rotate(double x, double y, double c, double s) {
    return PathPoint{x * c - y * s, x * s + y * c};
}

}  // namespace

// Whether a ring with these semi-axes, the guide's wobble included, can come near the canvas: each of
// its vertices lies within the ellipse whose semi-axes are longer by the largest wobble.
bool MoveEffectFilter::RingMayShow(const PathParser& guide, const PathPoint& centre, double angle,
                                   double radiusX, double radiusY) const {
    const double y0 = guide.GetPosition().point.y;
    double wobble = 0;
    for (const LineSegment& piece : guide.GetLines())
        wobble = std::max({wobble, std::abs(piece.start.y - y0), std::abs(piece.end.y - y0)});
    wobble *= std::abs(m_param.curvature);
    // A margin for the truncation that finds a point's pixel, and for rounding.
    constexpr double kMargin = 2;
    const double a = std::abs(radiusX) + wobble + kMargin;
    const double b = std::abs(radiusY) + wobble + kMargin;
    const auto [s, c] = portable::SinCos(angle);
    const double halfWidth = portable::Hypot(a * c, b * s);
    const double halfHeight = portable::Hypot(a * s, b * c);
    return centre.x + halfWidth >= 0 && centre.x - halfWidth <= m_width && centre.y + halfHeight >= 0 &&
           centre.y - halfHeight <= m_height;
}

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
    // Only the pieces are walked, by every ring with a cursor of its own.
    auto pieces = std::make_shared<PathParser>(*m_guide);
    pieces->Clear();
    const std::shared_ptr<const PathParser> walk = std::move(pieces);
    auto append = [&](double rx, double ry) {
        if (!std::isfinite(rx) || !std::isfinite(ry)) return;  // a ring of no size the canvas can hold
        EnqueuePath(MakeRingTask(
            this, m_circleTarget.get(),
            RingShape{centre, target.angle, target.startAngle, rx, ry, m_param.curvature, walk}));
    };
    // The target ring is made only where it can meet the canvas: far off it, its vertices would cost
    // time and memory for nothing. The rings of the passes are chosen by IsEllipseIn below.
    if (RingMayShow(*walk, centre, target.angle, target.radiusX + f, target.radiusY + f))
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
    count = std::min(
        count, kMostRingVerticesPerPx * (static_cast<double>(m_filter->GetWidth()) + m_filter->GetHeight()) +
                   kMostRingVerticesMin);
    int n = static_cast<int>(count);
    if (n % 2 != 0) ++n;

    // Every ring walks the one shared guide with a cursor of its own.
    const PathParser& guide = *ring.guide;
    PositionData cursor = guide.GetPosition();
    // A guide without pieces cannot be walked: it then adds no wobble.
    const bool walk = !guide.GetLines().empty();
    const double y0 = cursor.point.y;
    const double step = guide.GetTotalLength() / n;
    const auto [sa, ca] = portable::SinCos(ring.angle);
    // The vertices go straight into pieces: a ring never holds its commands.
    m_path.BeginPieces(m_param->type == 2);
    for (int i = 0; i <= n; ++i) {
        if (i % 4096 == 4095 && (IsCancelled() || !m_filter->SpendSteps(4096))) return false;
        const double psi = i * 2 * std::numbers::pi / n + ring.startAngle;
        const double d = (cursor.point.y - y0) * ring.curvature;
        const auto [sine, cosine] = portable::SinCos(psi);
        const PathPoint local = Rotate((ring.radiusX + d) * cosine, (ring.radiusY + d) * sine, ca, sa);
        const PathPoint vertex{ring.centre.x + local.x, ring.centre.y + local.y};
        m_path.AddPieces(i == 0 ? PathSegment::kMoveTo : PathSegment::kLineTo, &vertex, 1);
        if (walk) guide.MoveNext(cursor, step);
    }
    m_path.ResetPosition();
    // Its length is the sum of its sides; absurd radii give one too long to walk.
    return m_path.GetTotalLength() <= kMaxWalkedLength;
}

bool MoveEffectFilter::IsEllipseIn(const PathPoint& centre, double radiusX, double radiusY,
                                   double angle) const {
    const auto [s, c] = portable::SinCos(angle);
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
    const auto [s, c] = portable::SinCos(angle);
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
