// Data locations and file helpers.
//
// The plug-in keeps its presets and guide shapes in a folder of its own under the user's
// application-support folder (on Linux $XDG_DATA_HOME, else ~/.local/share):
//
//     <app support>/quorvel/brivane/preset/<name>.ini
//     <app support>/quorvel/brivane/guide/<name>.svg
//
// Names and paths travel as UTF-16 text; file contents and the system's file calls use UTF-8 bytes.
// Nothing here throws or reports a message: failures are false, the empty text or the empty list.
//
//     for (const std::u16string& path : EnumFiles(GetPluginDir(true), u".ini"))
//         names.push_back(GetFileNameWithoutExt(path));
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// The per-user application-support folder without a trailing "/"; empty when there is none, so that the
// data folders then lie at the root of the file system.
std::u16string GetAppDirectory();
// GetAppDirectory() + "/quorvel/brivane/" + "preset/" (preset true) or "guide/" (preset false).
std::u16string GetPluginDir(bool preset);
// GetPluginDir(preset) + name + ".ini" (preset true) or ".svg" (preset false).
std::u16string GetPluginDataPath(const std::u16string& name, bool preset);
// The path of a preset file: the same as GetPluginDataPath(name, true).
std::u16string GetIniFilePath(const std::u16string& name);

// True when path names an existing regular file (a folder gives false).
bool FileExists(const std::u16string& path);
// Creates the folder and its missing parents; true when it exists afterwards.
bool CreateDataDirectory(const std::u16string& path);
// Full paths of the items directly inside folder whose names end with extension, letter case ignored
// (Unicode lower-casing), in the order the system lists them. Sub-folders with a matching name count.
std::vector<std::u16string> EnumFiles(const std::u16string& folder, const std::u16string& extension);
// Plain suffix test, ignoring the case of A to Z only; an empty extension always matches.
bool HasExtension(const std::u16string& path, const std::u16string& extension);
// The name after the last "/" or "\", without the text from its last "." on (".ini" stays ".ini").
std::u16string GetFileNameWithoutExt(const std::u16string& path);

// How a bounded read ended.
enum class ReadResult {
    kRead,        // bytes holds the whole file (empty for an empty file)
    kUnreadable,  // missing, a folder, or the system refused to open or read it
    kTooLarge,    // the file holds more than the bound; nothing of it was read
};
// The whole file as its bytes stand, only when it holds at most maxBytes bytes: the size is checked
// before anything is read, and no more than maxBytes bytes are ever read, even from a file that grows
// meanwhile (it is then read as it stood when checked). For readers of files that anyone may drop into
// the data folders (presets, guides), each with a bound of its own, so that a huge or hostile file costs
// neither time nor memory. bytes is empty unless the result is kRead.
ReadResult ReadAllTextWithin(const std::string& utf8Path, std::size_t maxBytes, std::string& bytes);
ReadResult ReadAllTextWithin(const std::u16string& path, std::size_t maxBytes, std::string& bytes);

// The whole file as its bytes stand (no byte-order mark removed, no conversion), however large; empty
// when the file cannot be opened.
std::string ReadAllText(const std::string& utf8Path);
std::string ReadAllText(const std::u16string& path);
// Stores a new[] array holding exactly the file's bytes in *out (released with delete[] by the caller);
// the size is not reported. *out is left untouched when the file cannot be read.
void ReadAllText(const char* utf8Path, char** out);
// Writes text as it stands to a new file in the same folder (a hidden name ending in ".tmp", so never
// listed as a preset or guide) and then puts that file in the place of path in one step
// (ST_ReplaceFile): the file at path is at every moment the old one whole or the new one whole, even
// when the disk fills up or the system stops during the save. True when the new file is in place; on
// any failure the temporary file is removed and path is left as it was. The folder is not created.
bool WriteAllText(const std::string& utf8Path, const std::string& text);
bool WriteAllText(const std::u16string& path, const std::string& text);
// Writes nothing and returns true: kept as a stub on purpose.
bool WriteBinaryFile(const char* utf8Path, const void* data, std::size_t count);

// Unicode case folding without a locale ("Straße" -> "strasse"); empty on failure.
std::u16string ToLowerCase(const std::u16string& text);
// Conversions that repair invalid input with U+FFFD. Utf8ToUtf16 reads up to the first NUL byte.
std::string Utf16ToUtf8(const std::u16string& text);
std::u16string Utf8ToUtf16(const std::string& text);
