// PresetFile: presets read from and written to any file the user names, in the same INI dialect as the
// plug-in's own preset folder (storage/Preset.h), so a preset moves freely between the two.
//
//   MoveEffectIniParam preset;
//   MoveEffectIniReadFlag read;
//   std::string error;
//   if (!ReadPresetFile("speed.ini", &preset, &read, error)) ...   // error names the file
//
// The grammar is the plug-in's own (ParsePresetText, FormatPresetText); only the file is chosen here.
#pragma once

#include <string>

#include "storage/Preset.h"

namespace brivane::tools {

// Preset files at any path, in the text of ParsePresetText and FormatPresetText; false with a one-line reason
// naming the file (missing, unreadable, larger than kPresetMaxBytes, empty, cannot be written). A file
// is written as the plug-in writes its presets (WriteAllText): a failed write leaves the old file whole.
bool ReadPresetFile(const std::string& path, MoveEffectIniParam* param, MoveEffectIniReadFlag* flags,
                    std::string& error);
bool WritePresetFile(const std::string& path, const MoveEffectIniParam& param, std::string& error);

}  // namespace brivane::tools
