// Placeholders until the stroke and layout code lands: the layouts make no tasks, the geometry tests
// answer "not visible", and the stamping primitives draw nothing. This whole file goes away then.
#include "engine/MoveEffectFilter.h"

void MoveEffectFilter::CreateRadiatePathTasks() {}

void MoveEffectFilter::CreateParallelPathTasks() {}

void MoveEffectFilter::CreateCirclePathTasks() {}

void MoveEffectFilter::AppendCircleTask(const PathPoint&, double, double, double, double) {}

bool MoveEffectFilter::IsEllipseIn(const PathPoint&, double, double, double) const {
    return false;
}

bool MoveEffectFilter::LineIntersectsEllipse(const PathPoint&, const PathPoint&, const PathPoint&, double,
                                             double, double) const {
    return false;
}

bool MoveEffectFilter::IsLineInCanvas(const PathPoint&, const PathPoint&) const {
    return false;
}

void MoveEffectFilter::DrawLine(const PathPoint&, double, const PathPoint&, double) {}

void MoveEffectFilter::DrawCircle(double, double, double) {}
