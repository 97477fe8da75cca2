// One unit of work on the filter's pool: one path of the layout (a line along the guide, or a ring),
// walked pixel by pixel over the base image. Where the image is inked along the path, the task makes a
// stroke that is longer than the inked run by `length` and tapered in and out, and stamps it into the
// filter's coverage as a chain of soft discs.
//
//   auto task = std::make_shared<PathTask>(filter, nullptr);   // resets the guide's walking position
//   task->AppendPathSegment(moveTo);                            // the layout builds the path ...
//   task->AppendPathSegment(lineTo);
//   pool.Enqueue(task);                                         // ... and the pool runs it once
//
// Run, AppendLinePair and DrawLinesFromPath run on a worker thread; the constructor and
// AppendPathSegment on the layout's thread before the pool starts.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "engine/MoveEffectParam.h"
#include "guide/PathParser.h"
#include "taskpool/ThreadPoolTask.h"

class MoveEffectFilter;
class Random;

// A ring that its task lays out itself, on the worker that runs it (see MakeRingTask).
struct RingShape {
    PathPoint centre;
    double angle = 0;       // rotation of the ellipse, radians
    double startAngle = 0;  // where the ring starts, radians from its first axis
    double radiusX = 0;
    double radiusY = 0;
    double curvature = 0;  // scales the guide's wobble
    // Prepared and reset, never changed again while tasks run: each ring walks its own copy.
    std::shared_ptr<const PathParser> guide;
};

// How a layout places the guide for one path, without copying it: every point (gx, gy) of the guide
// becomes base + R(angle) * ((gx - origin.x) * scale, (gy - origin.y) * curvature). All the paths of a
// layout share the one guide, read only; each task flattens its own placement only while it runs, so a
// guide of many pieces is held once however many lines it makes.
struct GuidePlacement {
    const PathParser* guide = nullptr;  // prepared by nobody: its commands are read, never walked
    PathPoint origin{};                 // the guide's first point, which lands on base
    double scale = 0;                   // along the line
    double curvature = 0;               // across it
    double cosAngle = 1;
    double sinAngle = 0;
    PathPoint base{};
    double walk = 0;  // length of the placed control polygon, px: at least the path's length
};

// One stroke on a task's path, as distances along it (px). Either end may lie off the path: before
// its start (negative) or past its end; the walk then follows the path's extension.
struct DistData {
    double start;   // where the stroke begins, px along the path
    double end;     // where it ends, px along the path
    bool taperIn;   // pressure rises from 0 over the taper-in length
    bool taperOut;  // pressure falls to 0 over the taper-out length
};

class PathTask : public ThreadPoolTask {
public:
    // Paths longer than this, in pixels, are not walked: lines of a sane guide and target are far
    // shorter, and on much longer ones a one-pixel step is lost in rounding and the walk never ends.
    static constexpr double kMaxWalkedLength = 1e12;

    // A guide must be attached to the filter; its walking position is reset here.
    PathTask(MoveEffectFilter* filter, CircleTarget* circle);
    ~PathTask() override;

    // Appends one command to the task's own path.
    void AppendPathSegment(const PathSegment& segment);
    // Makes this a ring task: Run lays the ring out as its path first, and lets the path go when done.
    void SetRing(RingShape ring);
    // Makes the placed guide this task's path; Run flattens it, and lets the pieces go when done.
    void SetPlacement(const GuidePlacement& placement);
    // About how many px the walk will step over: the ring's perimeter, or the path's control polygon.
    double EstimateWalk() const;

    // Walks the path, finds the inked runs and stamps their strokes. Worker thread.
    void Run() override;

    // Turns the inked run that began at `runStart` and ends at the walker's current distance (point
    // `at`) into a stroke: extended by half the length (randomly more with lenfluct), plus the length
    // gain, shifted by position and posfluct. `gain` carries the gain from run to run.
    void AppendLinePair(std::vector<DistData>& lines, const PathPoint& at, double runStart, double& gain,
                        double halfLength);
    // Stamps the strokes along the path. Worker thread.
    void DrawLinesFromPath(std::vector<DistData>& lines);
    // The pressure 0..1 at `pos` px into a stroke `length` px long: the taper profile, eased when
    // asked, weakened by `fluct`.
    double GetPressure(double pos, double length, bool taperIn, bool taperOut, double fluct) const;

    const PathParser& GetPath() const { return m_path; }

private:
    bool IsInked(const PathPoint& point) const;
    // Lays out m_ring as the task's path; false when cancelled on the way.
    bool AppendRing();
    // Flattens the placed guide as the task's path; false when the path is too long to walk.
    bool AppendPlacedGuide();
    // Run's walk over the path.
    void WalkPath();
    // Steps one walk, or one stroke, may take: a few page sides' worth.
    double WalkBudget() const;

    MoveEffectFilter* m_filter;         // where strokes are stamped (not owned)
    const MoveEffectParam* m_param;     // the filter's parameter record (not owned)
    CircleTarget* m_circle;             // the circle layout's ellipse, for the length gain; may be null
    PathParser* m_guide;                // the filter's guide (not owned)
    uint64_t m_pass;                    // the stroke pass open when the task was made
    PathParser m_path;                  // this task's own path and its walker
    std::unique_ptr<RingShape> m_ring;  // set for ring tasks until Run has laid it out
    std::unique_ptr<GuidePlacement> m_placement;  // set for the straight layouts' tasks
    std::unique_ptr<Random> m_lengthRandom;       // only while Run walks
    std::unique_ptr<Random> m_positionRandom;     // only while Run walks
};

// The closed ring task that the circle layout enqueues for each ring: an ellipse with the ring's
// semi-axes, rotated by its angle about its centre, starting at its start angle, with the guide wrapped
// once round it as a radial wobble scaled by the curvature. At least 4 vertices, an even count, one per
// 5 px of perimeter; the last vertex closes the ring. The vertices are made when the task runs, so the
// rings of a page are laid out on all the workers, and each ring's vertices live only while it is drawn.
std::shared_ptr<PathTask> MakeRingTask(MoveEffectFilter* filter, CircleTarget* circle, RingShape ring);
// Ramanujan's approximation to the perimeter of an ellipse with these semi-axes.
double RingPerimeter(double radiusX, double radiusY);
