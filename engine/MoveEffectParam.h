// The plain records through which the controller tells the engine what to draw: the effect's
// parameters, the three handle points and the target each layout makes of them, and the
// description of the host's base image. All are value types that own nothing.
#pragma once

#include <cstdint>

// One effect run. Field names follow the preset keys.
struct MoveEffectParam {
    int32_t type;      // arrangement: 0 radiate, 1 parallel, 2 circle; anything else draws as radiate
    double curvature;  // guide deviation across each line: 0 straight, 1 the guide's shape, <0 mirrored
    double size;       // pen diameter, px (scaled by stroke pressure 0..1)
    double hardness;   // 0..1, share of a disc's radius drawn at full coverage
    double fluction;   // 0..1, random weakening of each stroke's pressure
    double in;         // taper-in: px when asdist, else fraction of the line length (clamped to <= 1)
    double out;        // taper-out, same units as in
    bool asdist;       // in/out are distances (true) or fractions of the line length (false)
    bool easing;       // eased (true) or linear (false) taper curve
    int32_t position;  // shift of every stroke along its path, px
    double posfluct;   // random shift along the path, fraction of the stroke's length
    int32_t length;    // px a stroke extends beyond its inked run (half at each end)
    double lenfluct;   // random lengthening factor, >= 0
    int32_t spacing;   // px between lines/rings; radiate: thousandths of a right angle
    double spcfluct;   // random displacement of each line or ring, fraction of the spacing
    double lengain;    // extra half-extension growing along the path (per 50 px for circle)
    double spcgain;    // change of spacing from one line or ring to the next, px
    bool connect;      // merge overlapping strokes of one path
};

// The three handle points p1, p2, p3 as the panel hands them over, canvas px.
struct PointTarget {
    int32_t x1, y1;
    int32_t x2, y2;
    int32_t x3, y3;
};

// Parallel layout: p1 origin, p1->p2 line direction and length, p1->p3 stacking direction and span.
struct ParallelTarget {
    int32_t x1, y1;
    int32_t x2, y2;
    int32_t x3, y3;
};

// Radiate layout: p1 centre, p2 and p3 the inner and outer radius (whichever is nearer is inner).
struct RadiateTarget {
    int32_t x1, y1;
    int32_t x2, y2;
    int32_t x3, y3;
};

// Circle layout: an ellipse through p3 whose major axis runs from p1 to p2.
struct CircleTarget {
    int32_t cx;         // centre, px
    int32_t cy;         // centre, px
    double radiusX;     // semi-axis along p1->p2, px
    double radiusY;     // the other semi-axis, px
    double angle;       // rotation of the ellipse (direction p1->p2), radians
    double startAngle;  // direction of p3 seen from the centre, radians (unrotated)
};

// The host's layer bitmap as the engine reads it. Pointers are borrowed for one calculation.
struct MoveEffectImageParam {
    uint8_t colorModel;       // 0 RGB+A, 1 grey+A, 2 CMYK+A, other alpha only
    uint8_t sampleFormat;     // 0 8-bit, 1 16-bit, 2 half float, 3 float
    bool invertGray;          // grey counts as brightness inverted (model 1)
    uint8_t* channelOffsets;  // sample index of each channel: R,G,B,A / Grey,A / C,M,Y,K,A
    int8_t channelCount;      // entries in channelOffsets; at most 5 are used
    uint32_t width;           // px
    uint32_t height;          // px
    uint32_t rowBytes;        // row stride, bytes
    const void* pixels;       // first pixel; null means there is no image
    uint8_t maskFormat;       // sample format of the mask, same codes as sampleFormat
    uint32_t maskRowBytes;    // mask row stride, bytes
    const void* mask;         // one-channel selection of the image's size; null means none
};
