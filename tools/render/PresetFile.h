// PresetFile: presets read from and written to any file the user names, in the same INI dialect as the
// plug-in's own preset folder (storage/Preset.h), so a preset moves freely between the two.
//
//   MoveEffectIniParam preset;
//   MoveEffectIniReadFlag read;
//   std::string error;
//   if (!ReadPresetFile("speed.ini", &preset, &read, error)) ...   // error names the file
//
// The value readers and line writers are the plug-in's; only the file is chosen freely here.
#pragma once

#include <string>
#include <string_view>

#include "storage/Preset.h"

namespace brivane::tools {

// Reads preset text exactly as the plug-in reads a preset file: the record is zero-filled and each flag
// tells whether its key was met in its category with an accepted value. False, with both left
// untouched, for empty text.
bool ParsePresetText(std::string_view text, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags);
// The text that the plug-in writes for the record.
std::string FormatPresetText(const MoveEffectIniParam& param);

// File forms of the above; false with a one-line reason naming the file (missing, unreadable, empty,
// cannot be written).
bool ReadPresetFile(const std::string& path, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags,
                    std::string& error);
bool WritePresetFile(const std::string& path, const MoveEffectIniParam& param, std::string& error);

}  // namespace brivane::tools
