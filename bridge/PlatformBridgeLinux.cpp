// Linux version of the platform bridge: POSIX for folders, files and memory, ICU for case mapping.
// Transcoding and the release functions are shared by every system (BridgeText.cpp, BridgePages.cpp).
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bridge/BridgePages.h"
#include "bridge/BridgeText.h"
#include "bridge/PlatformBridge.h"

using namespace brivane::bridge;

namespace {

// Transparent huge pages cover 2 MiB each and only where a whole aligned 2 MiB lies in the mapping.
constexpr std::size_t kHugePage = std::size_t{2} << 20;

std::size_t RoundUpToPages(std::size_t bytes) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}

}  // namespace

// Maps a huge page more than asked and trims the ends, so that the block starts on a huge page; the
// advice then lets the system back it with huge pages (it may not, which costs only speed).
void* brivane::bridge::MapPages(std::size_t bytes) {
    if (bytes > SIZE_MAX - 2 * kHugePage) return nullptr;
    const std::size_t length = RoundUpToPages(bytes);
    const std::size_t span = length + kHugePage;
    void* raw = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    const auto first = reinterpret_cast<std::uintptr_t>(raw);
    const std::uintptr_t start = (first + kHugePage - 1) / kHugePage * kHugePage;
    const std::size_t head = start - first;
    if (head != 0) munmap(raw, head);
    if (span - head - length != 0) munmap(reinterpret_cast<char*>(start + length), span - head - length);
    madvise(reinterpret_cast<void*>(start), length, MADV_HUGEPAGE);
    return reinterpret_cast<void*>(start);
}

void brivane::bridge::UnmapPages(void* pages, std::size_t bytes) {
    munmap(pages, RoundUpToPages(bytes));
}

namespace {

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

int32_t ST_ToLowerCase(const uint16_t* source, int32_t count, uint16_t* destination, int32_t capacity) {
    if (source == nullptr || destination == nullptr || count < 0 || capacity < 0) return ST_ERROR_ARGUMENT;
    if (count == 0) return 0;
    try {
        const std::u16string text = RepairUtf16(source, static_cast<size_t>(count));
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

bool ST_ReplaceFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return false;
    struct stat info;
    if (stat(from, &info) != 0 || !S_ISREG(info.st_mode)) return false;
    // The bytes first, then the name: a rename that reached the disk before the data could leave the
    // target empty after a crash of the system.
    const int file = open(from, O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const bool synced = fsync(file) == 0;
    close(file);
    // rename replaces the target in one step and refuses a folder in its place (EISDIR).
    return synced && std::rename(from, to) == 0;
}

uint16_t** ST_EnumFiles(const char* folder, const char* extension, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (folder == nullptr || extension == nullptr) return nullptr;
    try {
        std::u16string wanted;
        if (!LowerCase(DecodeUtf8(extension, std::strlen(extension)), wanted)) return nullptr;

        // Closed however the listing ends, an allocation failure included.
        const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder), closedir);
        if (dir == nullptr) return nullptr;
        const std::string base = WithoutTrailingSlashes(folder);
        std::vector<std::u16string> paths;
        std::u16string lowered;
        while (const dirent* entry = readdir(dir.get())) {
            if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
            if (!LowerCase(DecodeUtf8(entry->d_name, std::strlen(entry->d_name)), lowered)) continue;
            if (!EndsWith(lowered, wanted)) continue;
            const std::string joined = base + "/" + entry->d_name;
            paths.push_back(DecodeUtf8(joined.data(), joined.size()));
            if (paths.size() == static_cast<size_t>(INT32_MAX)) break;
        }
        return CopyListToMalloc(paths, count);
    } catch (...) {
        return nullptr;
    }
}

}  // extern "C"
