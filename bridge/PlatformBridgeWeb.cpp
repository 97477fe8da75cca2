// The ST_ functions for a browser page (Emscripten). The page has no data folder: presets and guides
// come from the file picker, so there is nothing to find, create or list, and a file is replaced with
// rename in the page's in-memory file system. Transcoding and the release functions are shared by every
// system (BridgeText.cpp, BridgePages.cpp); ICU is not part of the page, so lower-casing is the C
// library's one-to-one mapping completed to full case folding with FullCaseFolding.h. A page's memory
// has no pages to ask for: large blocks come from the heap as well.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>
#include <string>

#include "bridge/BridgePages.h"
#include "bridge/BridgeText.h"
#include "bridge/FullCaseFolding.h"
#include "bridge/PlatformBridge.h"

void* brivane::bridge::MapPages(std::size_t bytes) {
    return std::calloc(bytes, 1);
}

void brivane::bridge::UnmapPages(void* pages, std::size_t) {
    std::free(pages);
}

using namespace brivane::bridge;

namespace {

bool AppendLowerCase(const std::u16string& run, std::u16string& out) {
    ForEachCodePoint(run, [&out](char32_t c) {
        AppendCodePoint(out, static_cast<char32_t>(std::towlower(static_cast<wint_t>(c))));
    });
    return true;
}

}  // namespace

extern "C" {

int32_t ST_ToLowerCase(const uint16_t* source, int32_t count, uint16_t* destination, int32_t capacity) {
    if (source == nullptr || destination == nullptr || count < 0 || capacity < 0) return ST_ERROR_ARGUMENT;
    try {
        std::u16string folded;
        FoldWithTable(RepairUtf16(source, static_cast<std::size_t>(count)), folded, AppendLowerCase);
        if (folded.size() > static_cast<std::size_t>(capacity)) return ST_ERROR_CAPACITY;
        std::memcpy(destination, folded.data(), folded.size() * sizeof(uint16_t));
        return static_cast<int32_t>(folded.size());
    } catch (...) {  // std::bad_alloc
        return ST_ERROR_ARGUMENT;
    }
}

char* ST_GetAppSupportPath(void) {
    return nullptr;
}

bool ST_CreateDirectory(const char*) {
    return false;
}

// The page's files live in memory: there is no disk to flush, and rename replaces in one step.
bool ST_ReplaceFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return false;
    struct stat info;
    if (stat(from, &info) != 0 || !S_ISREG(info.st_mode)) return false;
    return std::rename(from, to) == 0;
}

uint16_t** ST_EnumFiles(const char*, const char*, int32_t* count) {
    if (count != nullptr) *count = 0;
    return nullptr;
}

}  // extern "C"
