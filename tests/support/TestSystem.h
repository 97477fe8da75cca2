// What the suites need from the system: scratch folders, environment variables, and the plug-in's
// per-user data home. The system part lives in one source file per system, picked by the build.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace brivane_test {

// A path from UTF-8 text that names the same file on every system (on Windows a narrow path would go
// through the ANSI code page), and back.
inline std::filesystem::path Utf8Path(const std::string& utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}
inline std::string Utf8Text(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

// A new empty folder under the system's temporary folder, named prefix + a random suffix; the empty
// path when none can be made.
std::filesystem::path MakeScratchFolder(const std::string& prefix);

// Sets an environment variable of this process, or removes it when value is null.
void SetEnv(const char* name, const char* value);

// For the life of the object, the plug-in's per-user data home is empty and belongs to the test: on
// Linux it is `scratch` (through XDG_DATA_HOME), while the Windows roaming folder cannot be moved, so
// there the object empties its quorvel folder first and removes whatever the test added to it at the
// end. path() is the home the plug-in sees.
class DataHomeOverride {
public:
    explicit DataHomeOverride(const std::filesystem::path& scratch);
    ~DataHomeOverride();
    DataHomeOverride(const DataHomeOverride&) = delete;
    DataHomeOverride& operator=(const DataHomeOverride&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    std::string old_;                            // XDG_DATA_HOME before
    bool hadOld_ = false;                        //
    std::vector<std::filesystem::path> before_;  // the roaming folder's items before
};

}  // namespace brivane_test
