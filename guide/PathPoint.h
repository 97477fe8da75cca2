// A point of guide and canvas geometry.
#pragma once

struct PathPoint {
    double x;  // px on the canvas, or guide units
    double y;  // px on the canvas, or guide units
};
