#include "storage/FileHelpers.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <new>
#include <random>

#include "bridge/PlatformBridge.h"

namespace {

// Files are read in slices so that a size the system reports wrongly (some file systems report a huge
// size for a folder) never leads to one giant allocation: memory grows only with the bytes really read.
constexpr std::size_t kReadSlice = std::size_t{1} << 20;

// A path made from UTF-8 text names the same file on every system: on Windows it becomes the wide path
// that the file calls need, where a narrow one would go through the ANSI code page.
// Text that is not UTF-8 gives the empty path, which no file has.
std::filesystem::path PathFromUtf8(const std::string& utf8Path) {
    try {
        return std::filesystem::path(std::u8string(utf8Path.begin(), utf8Path.end()));
    } catch (const std::exception&) {
        return {};
    }
}

// Reads up to the size the stream reports at its end, when that is at most maxBytes; kTooLarge, with
// nothing read, when it is more. A read error after the start is not reported (what was read is kept).
ReadResult ReadFileBytes(const char* utf8Path, std::size_t maxBytes, std::string& bytes) {
    bytes.clear();
    std::ifstream file(PathFromUtf8(utf8Path), std::ios::in | std::ios::binary);
    if (!file.is_open()) return ReadResult::kUnreadable;
    file.seekg(0, std::ios::end);
    const std::streamoff size = file.tellg();
    if (size <= 0) return ReadResult::kRead;
    if (static_cast<std::uintmax_t>(size) > maxBytes) return ReadResult::kTooLarge;
    file.seekg(0, std::ios::beg);
    try {
        const auto total = static_cast<std::size_t>(size);
        while (bytes.size() < total) {
            const std::size_t offset = bytes.size();
            const std::size_t want = std::min(kReadSlice, total - offset);
            bytes.resize(offset + want);
            file.read(bytes.data() + offset, static_cast<std::streamsize>(want));
            const auto got = static_cast<std::size_t>(file.gcount());
            bytes.resize(offset + got);
            if (got < want) break;
        }
    } catch (const std::exception&) {  // bad_alloc, length_error: nothing usable was read
        bytes.clear();
    }
    return ReadResult::kRead;
}

constexpr std::size_t kUnbounded = std::numeric_limits<std::size_t>::max();

// A name for the new file of a save, in the folder of target and unlike any other save's at the same
// moment (another process may save the same preset). Hidden on POSIX systems, and ending in ".tmp" so
// that no listing of presets or guides ever shows one left behind by a crash.
std::string TemporaryPathBeside(const std::string& target) {
    static std::atomic<std::uint64_t> saves{0};
    std::uint64_t salt =
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    salt ^= (saves.fetch_add(1) + 1) * 0x9E3779B97F4A7C15u;
    try {
        std::random_device entropy;
        salt ^= (static_cast<std::uint64_t>(entropy()) << 32) | entropy();
    } catch (const std::exception&) {  // no entropy source: the clock and the count still differ
    }
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string name = ".brivane-save-";
    for (int shift = 60; shift >= 0; shift -= 4)
        name.push_back(kDigits[(salt >> shift) & 0xF]);
    name += ".tmp";
    const std::size_t separator = target.find_last_of("/\\");
    return separator == std::string::npos ? name : target.substr(0, separator + 1) + name;
}

const uint16_t* Units(const std::u16string& text) {
    return reinterpret_cast<const uint16_t*>(text.data());
}

// Bridge buffers released whichever way the copy ends.
struct Utf8Releaser {
    void operator()(char* text) const { ST_FreeUtf8(text); }
};
struct Utf16Releaser {
    void operator()(uint16_t* units) const { ST_FreeUtf16(units); }
};
using BridgeUtf8 = std::unique_ptr<char, Utf8Releaser>;
using BridgeUtf16 = std::unique_ptr<uint16_t, Utf16Releaser>;

// Only A to Z, as the classic "C" classification maps them.
char16_t LowerAscii(char16_t c) {
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
}

}  // namespace

std::u16string GetAppDirectory() {
    const BridgeUtf8 path(ST_GetAppSupportPath());
    if (path == nullptr) return {};
    return Utf8ToUtf16(path.get());
}

std::u16string GetPluginDir(bool preset) {
    return GetAppDirectory() + u"/quorvel/brivane/" + (preset ? u"preset/" : u"guide/");
}

std::u16string GetPluginDataPath(const std::u16string& name, bool preset) {
    return GetPluginDir(preset) + name + (preset ? u".ini" : u".svg");
}

std::u16string GetIniFilePath(const std::u16string& name) {
    return GetPluginDir(true) + name + u".ini";
}

bool FileExists(const std::u16string& path) {
    if (path.empty()) return false;
    // Follows links as stat does; any error (no such file, no permission) counts as not there.
    std::error_code error;
    return std::filesystem::is_regular_file(PathFromUtf8(Utf16ToUtf8(path)), error);
}

bool CreateDataDirectory(const std::u16string& path) {
    if (path.empty()) return false;
    return ST_CreateDirectory(Utf16ToUtf8(path).c_str());
}

std::vector<std::u16string> EnumFiles(const std::u16string& folder, const std::u16string& extension) {
    std::vector<std::u16string> paths;
    int32_t count = 0;
    uint16_t** files = ST_EnumFiles(Utf16ToUtf8(folder).c_str(), Utf16ToUtf8(extension).c_str(), &count);
    if (files == nullptr || count < 1) return paths;
    try {
        paths.reserve(static_cast<std::size_t>(count));
        for (int32_t i = 0; i < count; ++i) {
            if (files[i] != nullptr) paths.emplace_back(reinterpret_cast<const char16_t*>(files[i]));
        }
    } catch (const std::bad_alloc&) {
        paths.clear();
    }
    ST_FreeEnumFiles(files, count);
    return paths;
}

bool HasExtension(const std::u16string& path, const std::u16string& extension) {
    if (path.size() < extension.size()) return false;
    auto p = path.rbegin();
    for (auto e = extension.rbegin(); e != extension.rend(); ++e, ++p) {
        if (LowerAscii(*p) != LowerAscii(*e)) return false;
    }
    return true;
}

std::u16string GetFileNameWithoutExt(const std::u16string& path) {
    const std::size_t separator = path.find_last_of(u"/\\");
    const std::u16string name = separator == std::u16string::npos ? path : path.substr(separator + 1);
    const std::size_t dot = name.rfind(u'.');
    if (dot == std::u16string::npos || dot == 0) return name;
    return name.substr(0, dot);
}

ReadResult ReadAllTextWithin(const std::string& utf8Path, std::size_t maxBytes, std::string& bytes) {
    bytes.clear();
    // A folder opens as a stream on some systems and may report a huge size: it is not a file to read.
    std::error_code error;
    if (std::filesystem::is_directory(PathFromUtf8(utf8Path), error)) return ReadResult::kUnreadable;
    return ReadFileBytes(utf8Path.c_str(), maxBytes, bytes);
}

ReadResult ReadAllTextWithin(const std::u16string& path, std::size_t maxBytes, std::string& bytes) {
    return ReadAllTextWithin(Utf16ToUtf8(path), maxBytes, bytes);
}

std::string ReadAllText(const std::string& utf8Path) {
    std::string bytes;
    ReadFileBytes(utf8Path.c_str(), kUnbounded, bytes);
    return bytes;
}

std::string ReadAllText(const std::u16string& path) {
    return ReadAllText(Utf16ToUtf8(path));
}

void ReadAllText(const char* utf8Path, char** out) {
    if (utf8Path == nullptr || out == nullptr) return;
    std::string bytes;
    if (ReadFileBytes(utf8Path, kUnbounded, bytes) != ReadResult::kRead) return;
    char* copy = new (std::nothrow) char[bytes.size()];
    if (copy == nullptr) return;
    bytes.copy(copy, bytes.size());
    *out = copy;
}

bool WriteAllText(const std::string& target, const std::string& text) {
    if (target.empty()) return false;
    const std::string temporary = TemporaryPathBeside(target);
    bool written = false;
    {
        std::ofstream file(PathFromUtf8(temporary), std::ios::out | std::ios::binary | std::ios::trunc);
        if (!file.is_open()) return false;
        file.write(text.data(), static_cast<std::streamsize>(text.size()));
        // A full disk may show only when the stream's buffer goes out at the close.
        file.close();
        written = !file.fail();
    }
    if (written && ST_ReplaceFile(temporary.c_str(), target.c_str())) return true;
    std::error_code ignored;
    std::filesystem::remove(PathFromUtf8(temporary), ignored);
    return false;
}

bool WriteAllText(const std::u16string& path, const std::string& text) {
    return WriteAllText(Utf16ToUtf8(path), text);
}

bool WriteBinaryFile(const char* /*utf8Path*/, const void* /*data*/, std::size_t /*count*/) {
    return true;
}

std::u16string ToLowerCase(const std::u16string& text) {
    if (text.empty()) return {};
    // Folding can lengthen a text: three units per unit covers every case mapping, plus some slack.
    if (text.size() > static_cast<std::size_t>((INT32_MAX - 16) / 3)) return {};
    std::u16string folded(text.size() * 3 + 16, u'\0');
    const int32_t written =
        ST_ToLowerCase(Units(text), static_cast<int32_t>(text.size()),
                       reinterpret_cast<uint16_t*>(folded.data()), static_cast<int32_t>(folded.size()));
    if (written < 0) return {};
    folded.resize(static_cast<std::size_t>(written));
    return folded;
}

std::string Utf16ToUtf8(const std::u16string& text) {
    if (text.empty() || text.size() > static_cast<std::size_t>(INT32_MAX)) return {};
    const BridgeUtf8 bytes(ST_Utf16ToUtf8(Units(text), static_cast<int32_t>(text.size())));
    if (bytes == nullptr) return {};
    return std::string(bytes.get());
}

std::u16string Utf8ToUtf16(const std::string& text) {
    int32_t count = 0;
    const BridgeUtf16 units(ST_Utf8ToUtf16(text.c_str(), &count));
    if (units == nullptr || count <= 0) return {};
    return std::u16string(reinterpret_cast<const char16_t*>(units.get()), static_cast<std::size_t>(count));
}
