#include "engine/PathTask.h"

#include <algorithm>
#include <cmath>

#include "engine/MoveEffectFilter.h"
#include "engine/Random.h"
#include "engine/StrokeRaster.h"
#include "guide/PortableMath.h"

namespace {

// Steps between two looks at the cancel flag in the walking and drawing loops: often enough to stop
// within a fraction of a second, rarely enough to cost nothing.
constexpr int kCancelPollSteps = 64;
// Farther off the image than this, in pixels, the walk stops going pixel by pixel.
constexpr double kFarOffImage = 64;
// The steps one path may take: this many times the page's width plus height, and at least the second
// figure (small pages). A wavy guide makes lines a few times longer than the page is wide; this leaves
// room for many times that.
constexpr double kWalkBudgetPages = 8;
constexpr double kMinWalkBudget = 4096;

// At least the length of the path (a curve is no longer than its control polygon), over the points that
// flattening keeps; known before flattening, which a path too long to walk is spared.
double ControlPolygonLength(const std::vector<PathSegment>& segments) {
    double length = 0;
    const PathPoint* last = nullptr;
    for (const PathSegment& segment : segments) {
        for (const PathPoint& point : segment.points) {
            if (!std::isfinite(point.x) || !std::isfinite(point.y)) continue;
            if (last != nullptr) length += PathParser::Dist(*last, point);
            last = &point;
        }
    }
    return length;
}

// The next step of the walk from point, in whole pixels. Off the image nothing is inked, and a step of d
// moves the point at most d, so far off it the walk jumps to where the image could be within reach
// again (but not past the first whole step beyond the end, where it would stop anyway): a path that runs
// far out then costs no more than one that stays near.
double WalkStep(const PathPoint& point, double width, double height, double left) {
    // Pixels are found by truncation toward zero, so ink may lie anywhere in (-1, width) x (-1, height).
    const double dx = std::max({-1 - point.x, point.x - width, 0.0});
    const double dy = std::max({-1 - point.y, point.y - height, 0.0});
    // On the image or near it, as nearly every step is: the distance is at most dx + dy.
    if (!(dx + dy > kFarOffImage)) return 1.0;
    const double away = portable::Hypot(dx, dy);
    if (!(away > kFarOffImage)) return 1.0;
    return std::max(1.0, std::min(std::floor(away) - 1, std::ceil(left)));
}

}  // namespace

PathTask::PathTask(MoveEffectFilter* filter, CircleTarget* circle)
    : m_filter(filter),
      m_param(&filter->GetParameterRecord()),
      m_circle(circle),
      m_guide(filter->GetGuide()),
      m_pass(GetStrokePass()) {
    if (m_guide != nullptr) m_guide->ResetPosition();
}

PathTask::~PathTask() = default;

void PathTask::AppendPathSegment(const PathSegment& segment) {
    m_path.Append(segment);
}

void PathTask::SetRing(RingShape ring) {
    m_ring = std::make_unique<RingShape>(std::move(ring));
}

bool PathTask::IsInked(const PathPoint& point) const {
    return m_filter->IsInked(point);
}

void PathTask::SetPlacement(const GuidePlacement& placement) {
    m_placement = std::make_unique<GuidePlacement>(placement);
}

double PathTask::EstimateWalk() const {
    if (m_ring) return RingPerimeter(m_ring->radiusX, m_ring->radiusY);
    if (m_placement) return m_placement->walk;
    return ControlPolygonLength(m_path.GetSegments());
}

// Worker thread.
void PathTask::Run() {
    if (IsCancelled()) return;
    if (m_ring || m_placement) {
        if (m_ring ? AppendRing() : AppendPlacedGuide()) WalkPath();
        // A path's pieces can run to megabytes; they are needed only while it is drawn.
        m_ring.reset();
        m_placement.reset();
        m_path = PathParser();
        return;
    }
    // A path built command by command.
    if (!(ControlPolygonLength(m_path.GetSegments()) <= kMaxWalkedLength)) return;
    m_path.PrepareSegments(m_param->type == 2);
    WalkPath();
}

// Worker thread.
bool PathTask::AppendPlacedGuide() {
    const GuidePlacement& place = *m_placement;
    if (!(place.walk <= kMaxWalkedLength)) return false;
    m_path.BeginPieces(m_param->type == 2);
    std::vector<PathPoint> points;
    int poll = 0;
    for (const PathSegment& segment : place.guide->GetSegments()) {
        if (++poll % 4096 == 0 && IsCancelled()) return false;
        points.clear();
        for (const PathPoint& g : segment.points) {
            const double u = (g.x - place.origin.x) * place.scale;
            const double v = (g.y - place.origin.y) * place.curvature;
            points.push_back(PathPoint{place.base.x + u * place.cosAngle - v * place.sinAngle,
                                       place.base.y + u * place.sinAngle + v * place.cosAngle});
        }
        m_path.AddPieces(segment.type, points.data(), points.size());
    }
    m_path.ResetPosition();
    return true;
}

// The path is prepared. Worker thread.
void PathTask::WalkPath() {
    const MoveEffectParam& param = *m_param;
    const bool closed = param.type == 2;
    const double total = m_path.GetTotalLength();
    // Nothing to walk: no pieces, a length that is not a number, or a loop that would never advance.
    if (m_path.GetLines().empty() || !std::isfinite(total) || (closed && !(total > 0))) return;

    std::vector<DistData> lines;
    PathPoint point = m_path.MoveNext(0);
    int poll = 0;
    auto cancelled = [&] {
        return ++poll % kCancelPollSteps == 0 && (IsCancelled() || !m_filter->SpendSteps(kCancelPollSteps));
    };
    // A line crosses the page once or a few times. A path that would step over many times more (a guide
    // that zigzags across the page thousands of times) ends where its budget runs out, so that no one
    // line costs more than a few.
    const double budget = WalkBudget();
    double steps = 0;

    if (closed) {
        // Start the walk at the first point off the ink, so that no run is cut at the seam.
        while (m_path.GetPosition().distance < total && IsInked(point)) {
            if (cancelled() || ++steps > budget) return;
            point = m_path.MoveNext(1.0);
        }
        if (m_path.GetPosition().distance >= total) {
            lines.push_back(DistData{0, total + 1, false, false});
            DrawLinesFromPath(lines);
            return;
        }
    }

    const double halfLength = param.length * 0.5;
    if (param.lenfluct > 0) m_lengthRandom = std::make_unique<Random>(0, param.lenfluct);
    if (param.posfluct > 0)
        m_positionRandom = std::make_unique<Random>(-param.posfluct / 2, param.posfluct / 2);
    double gain = 0;
    bool inRun = false;
    double runStart = 0;
    do {
        if (cancelled()) return;
        if (++steps > budget) break;
        const bool inked = IsInked(point);
        if (!inRun && inked) {
            runStart = m_path.GetPosition().distance;
            inRun = true;
        } else if (inRun && !inked) {
            AppendLinePair(lines, point, runStart, gain, halfLength);
            inRun = false;
        }
        point = m_path.MoveNext(WalkStep(point, m_filter->GetWidth(), m_filter->GetHeight(),
                                         total - m_path.GetPosition().distance));
    } while (!m_path.GetPosition().passedEnd);

    if (closed) {
        // Past the seam, on as long as there is ink, so that a run across it ends at its true end. A
        // second lap would only repeat the first.
        const double limit = m_path.GetPosition().distance + total + 1;
        while (IsInked(point) && m_path.GetPosition().distance < limit) {
            if (cancelled()) return;
            if (++steps > budget) break;
            if (!inRun) {
                runStart = m_path.GetPosition().distance;
                inRun = true;
            }
            point = m_path.MoveNext(1.0);
        }
    }
    if (inRun) AppendLinePair(lines, point, runStart, gain, halfLength);
    m_lengthRandom.reset();
    m_positionRandom.reset();

    if (param.connect) {
        for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
            while (i + 1 < lines.size() && lines[i + 1].start <= lines[i].end) {
                lines[i].end = lines[i + 1].end;
                lines[i].taperOut = lines[i + 1].taperOut;
                lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(i) + 1);
            }
        }
    }
    DrawLinesFromPath(lines);
}

void PathTask::AppendLinePair(std::vector<DistData>& lines, const PathPoint& at, double runStart,
                              double& gain, double halfLength) {
    const MoveEffectParam& param = *m_param;
    const double distance = m_path.GetPosition().distance;
    double half = halfLength;
    if (param.lenfluct > 0 && m_lengthRandom) half = (1 + m_lengthRandom->Uniform()) * param.length * 0.5;
    if (param.lengain != 0) {
        // A path shorter than a pixel (all three points in one place) has no length to grow along.
        const double total = m_path.GetTotalLength();
        if ((param.type == 0 || param.type == 1) && total >= 1) {
            gain = param.lengain * (distance / total);
        } else if (param.type == 2 && m_circle != nullptr) {
            gain = param.lengain * portable::Hypot(at.x - m_circle->cx, at.y - m_circle->cy) / 50;
        }
    }
    half += gain;
    double start = runStart - half;
    double end = distance + half;
    if (param.position != 0) {
        start += param.position;
        end += param.position;
    }
    if (m_positionRandom) {
        const double shift = (end - start) * m_positionRandom->Uniform();
        start += shift;
        end += shift;
    }
    if (end > start) lines.push_back(DistData{start, end, true, true});
}

double PathTask::WalkBudget() const {
    return kWalkBudgetPages * (static_cast<double>(m_filter->GetWidth()) + m_filter->GetHeight()) +
           kMinWalkBudget;
}

// Worker thread.
void PathTask::DrawLinesFromPath(std::vector<DistData>& lines) {
    const MoveEffectParam& param = *m_param;
    m_path.ResetPosition();
    std::unique_ptr<Random> random;
    if (param.fluction > 0) random = std::make_unique<Random>(0, 1);
    double fluct = 0;
    const CoverageView view{m_filter->m_coverage.get(), m_filter->m_width, m_filter->m_height,
                            m_filter->m_width};
    StrokeRaster raster(m_filter, view, param.hardness, m_pass);
    const double budget = WalkBudget();
    int poll = 0;
    for (const DistData& line : lines) {
        if (IsCancelled()) return;
        if (random) fluct = random->Uniform() * param.fluction;
        const PositionData saved = m_path.StorePosition();
        const double ahead = line.start - m_path.GetPosition().distance;
        const double len = (line.end - m_path.GetPosition().distance) - ahead;
        PathPoint previous = m_path.MoveNext(ahead);
        double previousPressure = 0;
        // No stroke is longer than a walk may be: longer ones only come of degenerate targets.
        if (len >= 0 && len <= budget) {
            for (double t = 0; t <= len; t += 1) {
                if (++poll % kCancelPollSteps == 0 &&
                    (IsCancelled() || !m_filter->SpendSteps(kCancelPollSteps)))
                    return;
                const double pressure = GetPressure(t, len, line.taperIn, line.taperOut, fluct);
                const PathPoint point = m_path.MoveNext(1.0);
                if (previousPressure > 0 || pressure > 0) {
                    int64_t discs = 0;
                    ForEachLineDisc(previous.x, previous.y, previousPressure, point.x, point.y, pressure,
                                    param.size, [&raster, &discs](double x, double y, double d) {
                                        raster.AddDisc(Disc{x, y, d});
                                        ++discs;
                                    });
                    // A step may hold many discs where rounding makes the path jump: they count too.
                    if (discs > 1 && !m_filter->SpendSteps(discs)) return;
                }
                previous = point;
                previousPressure = pressure;
            }
        }
        m_path.RestorePosition(saved);
    }
    raster.Flush();
}

double PathTask::GetPressure(double pos, double length, bool taperIn, bool taperOut, double fluct) const {
    const MoveEffectParam& param = *m_param;
    double p;
    if (pos <= 0) {
        p = length == 0 ? 1 : 0;
    } else {
        if (param.asdist) {
            if (taperIn && pos <= length / 2 && pos <= param.in) {
                p = std::min(pos / param.in, 1.0);
            } else if (taperOut && pos <= length && pos >= length - param.out && param.out != 0) {
                p = std::min((length - pos) / param.out, 1.0);
            } else {
                p = 1;
            }
        } else {
            // A fraction counts against half the stroke.
            const double taperInLength = param.in * length / 2;
            const double taperOutLength = param.out * length / 2;
            if (taperIn && pos <= taperInLength) {
                p = pos / taperInLength;
            } else if (taperOut && pos >= length - taperOutLength && param.out != 0) {
                p = (length - pos) / taperOutLength;
            } else {
                p = 1;
            }
        }
        if (param.easing) p = p * (2 - p);
        p = std::clamp(p, 0.0, 1.0);
    }
    if (fluct > 0) p *= 1 - fluct;
    return p;
}
