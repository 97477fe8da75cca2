// SVG guide text from memory, then flattening and a walk of the path it gave, so that non-finite, huge
// and degenerate geometry reaches the walker. The last byte picks open or looping and the step.
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "guide/PathParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const uint8_t mode = data[size - 1];
    PathParser path;
    try {
        path.Parse(std::string(reinterpret_cast<const char*>(data), size - 1));
    } catch (const std::logic_error&) {  // a malformed number: the reader's documented way out
        return 0;
    }
    path.PrepareSegments(mode & 1);
    // Steps of 1/1 to 1/64 of the length, backwards when the top bit is set; 256 reach past any end.
    const double total = path.GetTotalLength();
    double step = std::isfinite(total) && total > 0 ? total / (1 + (mode >> 1) % 64) : 1.0 + (mode >> 1);
    if (mode & 0x80) step = -step;
    for (int i = 0; i < 256 && !path.GetPosition().passedEnd; ++i) {
        path.MoveNext(step * 2);
        path.MovePrev(step);
    }
    path.MovePrev(total);
    for (const LineSegment& line : path.GetLines())
        path.MoveLine(line, step, mode & 2);
    return 0;
}
