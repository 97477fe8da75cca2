// PathParser: a guide path built from move, line and Bezier commands, flattened into straight pieces
// and walked by arc length.
//
// Every stroke task owns one: it appends the commands of its path, prepares them once, then steps along
// the result, saving and restoring the cursor when it needs to look ahead:
//
//     PathParser path;
//     path.AppendMoveTo({0, 50});
//     path.AppendQuadBezier({50, 0}, {100, 50});
//     path.PrepareSegments(false);          // open path: runs on past both ends
//     PathPoint p = path.MoveNext(1.0);     // 1 px along the curve
//     PositionData saved = path.StorePosition();
//     path.MoveNext(30.0);                  // look ahead ...
//     path.RestorePosition(saved);          // ... and come back
//
// Guides read from SVG files (and the two built-in guides) fill the same object; see SvgReader.cpp.
// A PathParser is not shared between threads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "guide/PathPoint.h"

// One path command with its points in absolute coordinates. The command starts where the one before it
// ended.
struct PathSegment {
    static constexpr int32_t kMoveTo = 1;     // points: target
    static constexpr int32_t kLineTo = 2;     // points: target
    static constexpr int32_t kCubic = 3;      // points: control 1, control 2, end
    static constexpr int32_t kQuadratic = 4;  // points: control, end

    int32_t type = 0;  // one of the above; any other value is carried along but never drawn
    std::vector<PathPoint> points;

    // Points a command of the type needs; 0 for types that draw nothing.
    static constexpr std::size_t PointCount(int32_t type) {
        return type == kCubic ? 3 : type == kQuadratic ? 2 : type == kMoveTo || type == kLineTo ? 1 : 0;
    }
};

// One straight piece of a flattened path.
struct LineSegment {
    PathPoint start{};
    PathPoint end{};
    double length = 0;  // |end - start|, worked out once when the piece is made
};

// A cursor on a flattened path.
struct PositionData {
    double distance = 0;     // signed arc length from the start; < 0 or > total length: on an extension
    int32_t index = 0;       // current piece; -1 or the piece count while the cursor is off the path
    double t = 0;            // 0 at the current piece's start .. 1 at its end
    bool passedEnd = false;  // a forward move reached the end (open) or wrapped round (looping)
    PathPoint point{};       // where the cursor is
};

// An SVG transform matrix: (x, y) maps to (a*x + c*y + e, b*x + d*y + f).
struct Transform {
    double a = 1;
    double b = 0;
    double c = 0;
    double d = 1;
    double e = 0;  // x translation
    double f = 0;  // y translation
};

// The result of one single-piece step (MoveLine).
struct LineStep {
    PathPoint point{};
    double remainder = 0;  // what the piece could not take, px
};

class PathParser {
public:
    // A guide is one line's shape: a few curves, or a few thousand pieces from a tracing tool. Larger
    // files are refused as bad guides, because every line of a render flattens its own placement of the
    // guide: a render costs its line count times the guide's pieces. At these bounds a guide costs about
    // as much as the lines it draws; a file far beyond them (a whole drawing's outline, say) would
    // stall the host for minutes.
    static constexpr std::size_t kMaxGuideBytes = 1 << 20;  // of SVG text
    static constexpr std::size_t kMaxGuidePieces = 50'000;  // after flattening at the guide's own scale

    PathParser() = default;
    // An empty parser filled by LoadFromFile(name).
    explicit PathParser(const std::u16string& name);

    // --- Building the command list --------------------------------------------------------------------

    // Empties the command list and the width; pieces, total length and cursor stay as they are.
    void Clear();
    void Append(const PathSegment& segment);
    void AppendMoveTo(const PathPoint& p);
    void AppendLineTo(const PathPoint& p);
    void AppendQuadBezier(const PathPoint& control, const PathPoint& end);
    void AppendCubicBezier(const PathPoint& control1, const PathPoint& control2, const PathPoint& end);

    // --- Reading guides (SvgReader.cpp) ---------------------------------------------------------------

    // ":S" and ":C" are the built-in guides; any other name is an SVG file in the guide folder. An
    // unusable file, or one past the guide limits above, becomes the straight guide. A malformed number in
    // the path data throws the standard conversion error.
    void LoadFromFile(const std::u16string& name);
    void CreateLine();   // straight guide, 100 units wide
    void CreateCurve();  // arch guide, 100 units wide
    // Reads the first tag containing "path"; true when it produced at least one command.
    bool Parse(const std::string& text);
    // Whether the commands read flatten into at most kMaxGuidePieces pieces. Leaves the pieces and the
    // cursor as they were.
    bool IsWithinGuideLimits() const;
    static std::map<std::string, std::string> ParseAttributes(const std::string& tagText);
    void ParsePath(const std::string& tagText);
    static Transform ParseTransform(const std::string& value);
    static PathPoint ApplyTransform(const Transform& m, const PathPoint& p);

    // --- Geometry -------------------------------------------------------------------------------------

    static double Dist(const PathPoint& a, const PathPoint& b);
    // Distance of p from the infinite line through a and b; 0 when a and b coincide.
    static double LineDistance(const PathPoint& p, const PathPoint& a, const PathPoint& b);
    // Appends the pieces of the quadratic curve to out and returns the sum of their lengths.
    static double FlattenQuadratic(std::vector<LineSegment>& out, const PathPoint& p0, const PathPoint& p1,
                                   const PathPoint& p2, double tolerance);
    // The polyline of the cubic curve, both end points included.
    static std::vector<PathPoint> FlattenCubic(const PathPoint& p0, const PathPoint& p1, const PathPoint& p2,
                                               const PathPoint& p3, double tolerance);

    // Flattens the command list into pieces and resets the cursor. A looping path wraps round when
    // walked; an open one runs on past its ends along its first and last pieces.
    void PrepareSegments(bool loop);
    // The same, one command at a time, for commands that are not kept in the list (a guide placed on
    // the canvas, a ring laid out vertex by vertex): BeginPieces, AddPieces for each command in path
    // order, then ResetPosition. `count` points of a command of `type`, as in PathSegment.
    void BeginPieces(bool loop);
    void AddPieces(int32_t type, const PathPoint* points, std::size_t count);

    // --- Walking --------------------------------------------------------------------------------------

    void ResetPosition();
    PositionData StorePosition() const { return m_position; }
    void RestorePosition(const PositionData& position) { m_position = position; }
    // Moves the cursor by distance px along the path (backwards when negative) and returns the new point.
    PathPoint MoveNext(double distance);
    PathPoint MovePrev(double distance);
    // Puts the cursor's point on the extension before the start or past the end.
    PathPoint MoveToExtendPos(double distance);
    // The same moves of a cursor kept outside: many walkers can then share one prepared path, which
    // none of them changes. `position` starts as GetPosition() after a reset.
    PathPoint MoveNext(PositionData& position, double distance) const;
    PathPoint MovePrev(PositionData& position, double distance) const;
    PathPoint MoveToExtendPos(PositionData& position, double distance) const;
    // One step within the given piece, from the cursor's parameter.
    LineStep MoveLine(const LineSegment& line, double distance, bool backwards);

    // --- State ----------------------------------------------------------------------------------------

    const std::vector<PathSegment>& GetSegments() const { return m_segments; }
    double GetWidth() const { return m_width; }
    const std::vector<LineSegment>& GetLines() const { return m_lines; }
    bool IsLoop() const { return m_loop; }
    double GetTotalLength() const { return m_totalLength; }
    const PositionData& GetPosition() const { return m_position; }

private:
    // The end of every forward move: counts the distance and runs on past the end of an open path.
    PathPoint FinishForwardMove(PositionData& position, double distance, double remainder) const;
    // On a looping path, what is left of a move after whole laps are dropped.
    double DropWholeLaps(PositionData& position, double remainder, bool forwards) const;

    std::vector<PathSegment> m_segments;
    double m_width = 0;  // horizontal extent of the guide before its transform, set by the reader
    std::vector<LineSegment> m_lines;
    bool m_loop = false;
    PathPoint m_lastPoint{};  // pen while flattening; kept from one preparation to the next
    double m_totalLength = 0;
    PositionData m_position;
};
