// What the suites need from the system: scratch folders, environment variables and the plug-in's data
// home. The system part lives in one source file per system, picked by the build.
#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace brivane_test {

// Paths from UTF-8 text and back, the same file on every system (a narrow path on Windows would go
// through the ANSI code page).
inline std::filesystem::path Utf8Path(const std::string& utf8) {
    return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}
inline std::string Utf8Text(const std::filesystem::path& path) {
    const std::u8string text = path.u8string();
    return std::string(text.begin(), text.end());
}

// A new empty folder in the system's temporary folder, named prefix + a random number; empty on failure.
inline std::filesystem::path MakeScratchFolder(const std::string& prefix) {
    std::error_code error;
    const std::filesystem::path temp = std::filesystem::temp_directory_path(error);
    std::random_device entropy;
    for (int attempt = 0; attempt < 100 && !error; ++attempt) {
        const std::filesystem::path folder = temp / Utf8Path(prefix + std::to_string(entropy()));
        if (std::filesystem::create_directory(folder, error)) return folder;
    }
    return {};
}

// Sets an environment variable of this process, or removes it when value is null.
void SetEnv(const char* name, const char* value);

// For the life of the object no file this process writes grows past `bytes`, as on a full disk.
// active() is false where the system has no such limit (Windows); the caller then skips.
class FileSizeLimit {
public:
    explicit FileSizeLimit(unsigned long long bytes);
    ~FileSizeLimit();
    bool active() const { return active_; }

private:
    bool active_ = false;
    unsigned long long old_ = 0;  // the soft limit before
};

// For the life of the object the plug-in's data home is empty and the test's: `scratch` on Linux
// (through XDG_DATA_HOME); on Windows the roaming folder, which a program cannot move, emptied of its
// quorvel folder first and of whatever the test added at the end. path() is the home the plug-in sees.
class DataHomeOverride {
public:
    explicit DataHomeOverride(const std::filesystem::path& scratch);
    ~DataHomeOverride();
    DataHomeOverride(const DataHomeOverride&) = delete;
    DataHomeOverride& operator=(const DataHomeOverride&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    std::string old_;  // XDG_DATA_HOME before, when hadOld_
    bool hadOld_ = false;
    std::vector<std::filesystem::path> before_;  // the roaming folder's items before
};

}  // namespace brivane_test
