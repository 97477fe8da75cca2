// "From selection" in the GIMP dialog: each arrangement fitted to the selection's bounds.
#include <gtest/gtest.h>

#include <cmath>

#include "tools/gimp/PluginValues.h"

namespace {

double Distance(const double a[2], const double b[2]) {
    return std::hypot(a[0] - b[0], a[1] - b[1]);
}

TEST(GimpValues, ArrangementsFitTheSelectionBox) {
    const int x1 = 100, y1 = 40, x2 = 500, y2 = 340;  // 400 x 300, centre (300, 190)
    double p[3][2];
    const double centre[2] = {300, 190};

    // Radiate: around the box's centre, clear up to its top edge, lines out to as far again.
    brivane::gimp::PointsForBox(0, x1, y1, x2, y2, p);
    EXPECT_EQ(Distance(p[0], centre), 0);
    EXPECT_EQ(Distance(p[1], p[0]), 150);
    EXPECT_EQ(Distance(p[2], p[0]), 300);

    // Parallel: lines up the left edge from the bottom corner, stacked along the bottom edge.
    brivane::gimp::PointsForBox(1, x1, y1, x2, y2, p);
    const double bottomLeft[2] = {100, 340}, topLeft[2] = {100, 40}, bottomRight[2] = {500, 340};
    EXPECT_EQ(Distance(p[0], bottomLeft), 0);
    EXPECT_EQ(Distance(p[1], topLeft), 0);
    EXPECT_EQ(Distance(p[2], bottomRight), 0);

    // Rings: the ellipse the box bounds, its long axis across the middle, through the top's middle.
    brivane::gimp::PointsForBox(2, x1, y1, x2, y2, p);
    const double left[2] = {100, 190}, right[2] = {500, 190}, top[2] = {300, 40};
    EXPECT_EQ(Distance(p[0], left), 0);
    EXPECT_EQ(Distance(p[1], right), 0);
    EXPECT_EQ(Distance(p[2], top), 0);
}

}  // namespace
