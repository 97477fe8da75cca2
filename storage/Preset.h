// Presets: one named set of effect settings, kept as a small INI file in the preset folder.
//
//     [guide]
//     type=radiate
//     p1=0.5,0.5
//     ...
//     [pen]
//     size=2
//     ...
//     [line]
//     connect=true
//
// A preset is named by its file name without ".ini". Numbers are read and written with "." as the
// decimal point whatever the process locale. Nothing here throws or reports a message; every function
// reports by its result.
//
//     MoveEffectIniParam preset;
//     MoveEffectIniReadFlag read;
//     if (LoadPreset(u"speed lines", &preset, &read) && read.size) UseSize(preset.size);
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "guide/PathPoint.h"

// The longest guide name, in bytes, that a preset file can give back.
constexpr std::size_t kIniNameMaxLength = 258;
// Room for the name buffer: the longest name the controller stores (259 bytes) and its NUL.
constexpr std::size_t kIniNameCapacity = 260;
// The largest preset file that is read, in bytes. A preset holds about 400 bytes; this leaves room for
// comments and the longest names many times over, while a stray huge file in the preset folder is
// refused before anything of it is read.
constexpr std::size_t kPresetMaxBytes = std::size_t{64} << 10;

// One preset in memory. Each field is named after its INI key; the comment gives its category.
struct MoveEffectIniParam {
    int32_t type;                 // guide: 0 radiate, 1 parallel, 2 circle
    PathPoint p1;                 // guide: first target point, canvas-relative (0..1)
    PathPoint p2;                 // guide: second target point
    PathPoint p3;                 // guide: third target point
    char name[kIniNameCapacity];  // guide: NUL-terminated UTF-8 guide name, ":S" and ":C" built in
    double curvature;             // guide
    double size;                  // pen: diameter, px
    double hardness;              // pen: 0..1
    double fluction;              // pen: 0..1
    int32_t in;                   // pen: taper-in, px when asdist, else thousandths of the line length
    int32_t out;                  // pen: taper-out, same units as in
    bool asdist;                  // pen
    bool easing;                  // pen
    int32_t position;             // line: px
    double posfluct;              // line
    int32_t length;               // line: px
    double lenfluct;              // line
    int32_t spacing;              // line: px, or thousandths of a right angle for radiate
    double spcfluct;              // line
    double lengain;               // line
    double spcgain;               // line
    bool connect;                 // line
};

// One was-read flag per field of MoveEffectIniParam, in the same order and under the same names.
struct MoveEffectIniReadFlag {
    bool type, p1, p2, p3, name, curvature, size, hardness, fluction, in, out, asdist, easing, position,
        posfluct, length, lenfluct, spacing, spcfluct, lengain, spcgain, connect;
};

// Zero-fills the record, then stores the defaults (radiate, guide ":S", size 2, in/out 500, ...).
void GetDefaultPreset(MoveEffectIniParam* param);
// The default canvas-relative target point of an arrangement (type 0..2) for point index 0..2;
// point is left untouched for any other type or index.
void GetDefaultTargetPoint(int type, int index, PathPoint& point);

// Reads the preset file of that name. False, with param and flags untouched, when the file is missing,
// unreadable, empty or larger than kPresetMaxBytes. Otherwise param is zero-filled (not defaulted), each
// flag tells whether its key was met in its category with an accepted value, and the result is true.
// flags may be null.
bool LoadPreset(const std::u16string& name, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags);
// Reads preset text as LoadPreset reads a file: false, with param and flags untouched, for empty text.
bool ParsePresetText(std::string_view text, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags);
// The text SavePreset writes for the record: every key, in the order of the record.
std::string FormatPresetText(const MoveEffectIniParam& param);

// Writes the preset file of that name, replacing any file there in one step (WriteAllText): a failed
// save leaves the old file as it was. The folder must exist.
bool SavePreset(const std::u16string& name, const MoveEffectIniParam* param);
// Saves under the local date and time ("20261115-001649"), which is stored in outName (may be null)
// even when the save fails.
bool SavePresetAsDate(const MoveEffectIniParam* param, std::u16string* outName);

// Value readers: true when the value was accepted. A rejected value leaves the destination as it was,
// except GetIniPoint, which has stored x already when only y is bad.
bool GetIniInteger(std::string_view value, int32_t& out);  // "12.9" -> 12; out of 32-bit range rejected
bool GetIniDouble(std::string_view value, double& out);    // decimal or exponent form
bool GetIniString(std::string_view value, char (&out)[kIniNameCapacity]);  // at most kIniNameMaxLength
bool GetIniBool(std::string_view value, bool& out);                        // 1/true, 0/false, any letter case
bool GetIniPath(std::string_view value, int32_t& out);     // radiate/parallel/circle, any letter case
bool GetIniPoint(std::string_view value, PathPoint& out);  // "x,y"

// Line writers: each appends one line, ended by a line feed, to text.
void AppendIniEmptyLine(std::string& text);
void AppendIniCategory(std::string& text, std::string_view category);                   // "[category]"
void AppendIniPoint(std::string& text, std::string_view key, const PathPoint& value);   // 5 decimals
void AppendIniBool(std::string& text, std::string_view key, bool value);                // true/false
void AppendIniString(std::string& text, std::string_view key, std::string_view value);  // raw bytes
void AppendIniInteger(std::string& text, std::string_view key, int32_t value);
void AppendIniDouble(std::string& text, std::string_view key, double value);  // 2 decimals

// value in fixed notation with the given number of decimals, then trailing zeros and a bare "." removed:
// _dtos(2.0, 2) = "2", _dtos(0.333, 2) = "0.33", _dtos(-0.001, 2) = "-0".
std::string _dtos(double value, int decimals);
