// Linux version of the platform bridge: POSIX for folders, ICU for transcoding and case mapping.
#include "bridge/PlatformBridge.h"
#include "bridge/Utf8Append.h"

#include <dirent.h>
#include <errno.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr UChar32 kReplacement = 0xFFFD;

// Copies `count` units, replacing every unpaired surrogate with U+FFFD, so that ICU never sees
// ill-formed UTF-16 and the result does not depend on how it would treat it.
std::u16string RepairUtf16(const uint16_t* units, int32_t count) {
    std::u16string text;
    text.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        const char16_t unit = units[i];
        if (U16_IS_LEAD(unit) && i + 1 < count && U16_IS_TRAIL(units[i + 1])) {
            text.push_back(unit);
            text.push_back(units[++i]);
        } else if (U16_IS_SURROGATE(unit)) {
            text.push_back(static_cast<char16_t>(kReplacement));
        } else {
            text.push_back(unit);
        }
    }
    return text;
}

// Decodes a byte run (no NUL inside) into UTF-16, each maximal invalid subsequence becoming one U+FFFD.
bool DecodeUtf8(const char* bytes, size_t length, std::u16string& out) {
    out.clear();
    if (length == 0) return true;
    if (length > static_cast<size_t>(INT32_MAX)) return false;  // ICU counts in 32 bits
    UErrorCode status = U_ZERO_ERROR;
    int32_t units = 0;
    u_strFromUTF8WithSub(nullptr, 0, &units, bytes, static_cast<int32_t>(length), kReplacement, nullptr,
                         &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return false;
    out.resize(static_cast<size_t>(units));
    status = U_ZERO_ERROR;
    u_strFromUTF8WithSub(out.data(), units, &units, bytes, static_cast<int32_t>(length), kReplacement,
                         nullptr, &status);
    if (U_FAILURE(status)) return false;
    out.resize(static_cast<size_t>(units));
    return true;
}

// Encodes already repaired UTF-16 as UTF-8; sizes are size_t so a long text cannot overflow a count.
std::string EncodeUtf8(const std::u16string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        uint32_t c = text[i];
        if (U16_IS_LEAD(c) && i + 1 < text.size() && U16_IS_TRAIL(text[i + 1])) {
            c = U16_GET_SUPPLEMENTARY(c, text[++i]);
        }
        AppendUtf8(out, c);
    }
    return out;
}

// Lower-cases with the root locale, as the listing compares names and extensions.
bool LowerCase(const std::u16string& text, std::u16string& out) {
    out.clear();
    if (text.empty()) return true;
    if (text.size() > static_cast<size_t>(INT32_MAX / 3)) return false;
    const int32_t length = static_cast<int32_t>(text.size());
    UErrorCode status = U_ZERO_ERROR;
    int32_t needed = u_strToLower(nullptr, 0, text.data(), length, "", &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return false;
    out.resize(static_cast<size_t>(needed));
    status = U_ZERO_ERROR;
    needed = u_strToLower(out.data(), needed, text.data(), length, "", &status);
    if (U_FAILURE(status)) return false;
    out.resize(static_cast<size_t>(needed));
    return true;
}

bool EndsWith(const std::u16string& text, const std::u16string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

char* CopyToMalloc(const std::string& text) {
    char* copy = static_cast<char*>(std::malloc(text.size() + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text.data(), text.size());
    copy[text.size()] = '\0';
    return copy;
}

uint16_t* CopyToMalloc(const std::u16string& text, bool terminate) {
    const size_t units = text.size() + (terminate ? 1 : 0);
    // An empty result still gets a real allocation, so that null always means failure.
    uint16_t* copy = static_cast<uint16_t*>(std::malloc(units > 0 ? units * sizeof(uint16_t) : 1));
    if (copy == nullptr) return nullptr;
    if (!text.empty()) std::memcpy(copy, text.data(), text.size() * sizeof(uint16_t));
    if (terminate) copy[text.size()] = 0;
    return copy;
}

std::string WithoutTrailingSlashes(std::string path) {
    while (!path.empty() && path.back() == '/')
        path.pop_back();
    return path;
}

bool IsDirectory(const char* path) {
    struct stat info;
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

extern "C" {

uint16_t* ST_Utf8ToUtf16(const char* text, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (text == nullptr) return nullptr;
    std::u16string units;
    try {
        if (!DecodeUtf8(text, std::strlen(text), units)) return nullptr;
    } catch (...) {  // std::bad_alloc: the C interface reports it as null
        return nullptr;
    }
    uint16_t* result = CopyToMalloc(units, false);
    if (result != nullptr && count != nullptr) *count = static_cast<int32_t>(units.size());
    return result;
}

char* ST_Utf16ToUtf8(const uint16_t* units, int32_t count) {
    if (units == nullptr || count < 0) return nullptr;
    try {
        return CopyToMalloc(EncodeUtf8(RepairUtf16(units, count)));
    } catch (...) {
        return nullptr;
    }
}

int32_t ST_ToLowerCase(const uint16_t* source, int32_t count, uint16_t* destination, int32_t capacity) {
    if (source == nullptr || destination == nullptr || count < 0 || capacity < 0) return ST_ERROR_ARGUMENT;
    if (count == 0) return 0;
    try {
        const std::u16string text = RepairUtf16(source, count);
        // Folding can lengthen a text up to three times; a longer source cannot be counted in 32 bits.
        if (text.size() > static_cast<size_t>(INT32_MAX / 3)) return ST_ERROR_CAPACITY;
        UErrorCode status = U_ZERO_ERROR;
        const int32_t needed = u_strFoldCase(nullptr, 0, text.data(), static_cast<int32_t>(text.size()),
                                             U_FOLD_CASE_DEFAULT, &status);
        if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return ST_ERROR_ARGUMENT;
        if (needed > capacity) return ST_ERROR_CAPACITY;
        // Folding into a buffer of our own keeps the caller's destination untouched on any failure.
        std::u16string folded(static_cast<size_t>(needed), u'\0');
        status = U_ZERO_ERROR;
        u_strFoldCase(folded.data(), needed, text.data(), static_cast<int32_t>(text.size()),
                      U_FOLD_CASE_DEFAULT, &status);
        if (U_FAILURE(status)) return ST_ERROR_ARGUMENT;
        std::memcpy(destination, folded.data(), folded.size() * sizeof(uint16_t));
        return needed;
    } catch (...) {
        return ST_ERROR_ARGUMENT;
    }
}

char* ST_GetAppSupportPath(void) {
    try {
        // The XDG base-directory rules: an unset, empty or relative XDG_DATA_HOME is ignored.
        const char* dataHome = std::getenv("XDG_DATA_HOME");
        if (dataHome != nullptr && dataHome[0] == '/') return CopyToMalloc(WithoutTrailingSlashes(dataHome));
        const char* home = std::getenv("HOME");
        if (home == nullptr || home[0] == '\0') return nullptr;
        return CopyToMalloc(WithoutTrailingSlashes(home) + "/.local/share");
    } catch (...) {
        return nullptr;
    }
}

bool ST_CreateDirectory(const char* path) {
    if (path == nullptr || path[0] == '\0') return false;
    try {
        const std::string full(path);
        // Create each prefix that ends before a "/", then the whole path. Failures on the way are not
        // decisive (an existing parent may refuse mkdir with EACCES); the final test is.
        for (size_t end = 1; end <= full.size(); ++end) {
            if (end < full.size() && full[end] != '/') continue;
            if (full[end - 1] == '/') continue;
            const std::string prefix = full.substr(0, end);
            if (mkdir(prefix.c_str(), 0777) != 0 && errno == ENOTDIR) return false;
        }
        return IsDirectory(path);
    } catch (...) {
        return false;
    }
}

uint16_t** ST_EnumFiles(const char* folder, const char* extension, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (folder == nullptr || extension == nullptr) return nullptr;
    std::vector<std::u16string> paths;
    try {
        std::u16string wantedUtf16, wanted;
        if (!DecodeUtf8(extension, std::strlen(extension), wantedUtf16)) return nullptr;
        if (!LowerCase(wantedUtf16, wanted)) return nullptr;

        DIR* dir = opendir(folder);
        if (dir == nullptr) return nullptr;
        const std::string base = WithoutTrailingSlashes(folder);
        std::u16string name, lowered, path;
        try {
            while (const dirent* entry = readdir(dir)) {
                if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
                if (!DecodeUtf8(entry->d_name, std::strlen(entry->d_name), name)) continue;
                if (!LowerCase(name, lowered) || !EndsWith(lowered, wanted)) continue;
                const std::string joined = base + "/" + entry->d_name;
                if (!DecodeUtf8(joined.data(), joined.size(), path)) continue;
                paths.push_back(path);
                if (paths.size() == static_cast<size_t>(INT32_MAX)) break;
            }
        } catch (...) {
            closedir(dir);
            throw;
        }
        closedir(dir);
    } catch (...) {
        return nullptr;
    }
    if (paths.empty()) return nullptr;

    uint16_t** list = static_cast<uint16_t**>(std::calloc(paths.size(), sizeof(uint16_t*)));
    if (list == nullptr) return nullptr;
    for (size_t i = 0; i < paths.size(); ++i) {
        list[i] = CopyToMalloc(paths[i], true);
        if (list[i] == nullptr) {
            ST_FreeEnumFiles(list, static_cast<int32_t>(i));
            return nullptr;
        }
    }
    if (count != nullptr) *count = static_cast<int32_t>(paths.size());
    return list;
}

}  // extern "C"
