// Windows version of the platform bridge: the roaming application-data folder from the Known Folders
// API, CreateDirectoryW, MoveFileExW and FindFirstFileW on wide paths, and the system's invariant
// lower-casing (LCMapStringEx) completed to full case folding with FullCaseFolding.h, so the module
// needs no ICU. VirtualAlloc gives page-sized blocks. Transcoding and the release functions are shared
// by every system (BridgeText.cpp, BridgePages.cpp).
#include <windows.h>
// windows.h first: the shell headers build on its types.
#include <knownfolders.h>
#include <shlobj.h>

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "bridge/BridgePages.h"
#include "bridge/BridgeText.h"
#include "bridge/FullCaseFolding.h"
#include "bridge/PlatformBridge.h"

using namespace brivane::bridge;

// MinGW keeps thread_local objects in emulated TLS, and a thread that ends runs two clean-ups in the
// order their thread keys were made: the C++ runtime's thread_local destructors and the release of the
// emulated TLS that holds those objects. The first thread_local used makes the TLS key first, so the
// engine's per-thread scratch would be destroyed after its storage is freed (a crash as every pool
// thread ends). Registering a no-op thread exit while the module loads makes the runtime's key first.
extern "C" int __cxa_thread_atexit(void (*destructor)(void*), void* object, void* module);

namespace {

const int kThreadExitOrder = __cxa_thread_atexit([](void*) {}, nullptr, nullptr);

// UTF-16 units are wchar_t on Windows; the bridge's own strings are char16_t.
std::wstring Wide(const char* utf8) {
    const std::u16string units = DecodeUtf8(utf8, std::strlen(utf8));
    return std::wstring(units.begin(), units.end());
}

std::u16string Units(const wchar_t* text, std::size_t count) {
    return RepairUtf16(reinterpret_cast<const uint16_t*>(text), count);
}

bool IsSeparator(wchar_t c) {
    return c == L'/' || c == L'\\';
}

std::wstring WithoutTrailingSeparators(std::wstring path) {
    while (!path.empty() && IsSeparator(path.back()))
        path.pop_back();
    return path;
}

bool IsDirectory(const std::wstring& path) {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The system's lower case of a run of text, with the invariant locale so that no user setting (a
// Turkish dotless i) changes what matches.
bool AppendLowerCase(const std::u16string& run, std::u16string& out) {
    if (run.empty()) return true;
    const auto* source = reinterpret_cast<const wchar_t*>(run.data());
    const int length = static_cast<int>(run.size());
    const int needed = LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_LOWERCASE, source, length, nullptr, 0,
                                     nullptr, nullptr, 0);
    if (needed <= 0) return false;
    const std::size_t start = out.size();
    out.resize(start + static_cast<std::size_t>(needed));
    return LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_LOWERCASE, source, length,
                         reinterpret_cast<wchar_t*>(out.data() + start), needed, nullptr, nullptr,
                         0) == needed;
}

}  // namespace

// Committed pages come zeroed.
void* brivane::bridge::MapPages(std::size_t bytes) {
    return VirtualAlloc(nullptr, bytes, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
}

void brivane::bridge::UnmapPages(void* pages, std::size_t) {
    VirtualFree(pages, 0, MEM_RELEASE);
}

extern "C" {

int32_t ST_ToLowerCase(const uint16_t* source, int32_t count, uint16_t* destination, int32_t capacity) {
    if (source == nullptr || destination == nullptr || count < 0 || capacity < 0) return ST_ERROR_ARGUMENT;
    if (count == 0) return 0;
    try {
        std::u16string folded;
        if (!FoldWithTable(RepairUtf16(source, static_cast<std::size_t>(count)), folded, AppendLowerCase))
            return ST_ERROR_ARGUMENT;
        if (folded.size() > static_cast<std::size_t>(capacity)) return ST_ERROR_CAPACITY;
        std::memcpy(destination, folded.data(), folded.size() * sizeof(uint16_t));
        return static_cast<int32_t>(folded.size());
    } catch (...) {
        return ST_ERROR_ARGUMENT;
    }
}

char* ST_GetAppSupportPath(void) {
    PWSTR path = nullptr;
    char* result = nullptr;
    if (SUCCEEDED(SHGetKnownFolderPath(FOLDERID_RoamingAppData, KF_FLAG_DEFAULT, nullptr, &path))) {
        try {
            const std::wstring folder = WithoutTrailingSeparators(path);
            if (!folder.empty()) result = CopyToMalloc(EncodeUtf8(Units(folder.data(), folder.size())));
        } catch (...) {
            result = nullptr;
        }
    }
    CoTaskMemFree(path);  // the API hands back a buffer even when it fails
    return result;
}

bool ST_CreateDirectory(const char* path) {
    if (path == nullptr || path[0] == '\0') return false;
    try {
        const std::wstring full = Wide(path);
        // Create each prefix that ends before a separator, then the whole path. Failures on the way are
        // not decisive (a drive root or an existing parent refuses); the final test is.
        for (std::size_t end = 1; end <= full.size(); ++end) {
            if (end < full.size() && !IsSeparator(full[end])) continue;
            if (IsSeparator(full[end - 1])) continue;
            const std::wstring prefix = full.substr(0, end);
            if (CreateDirectoryW(prefix.c_str(), nullptr)) continue;
            const DWORD attributes = GetFileAttributesW(prefix.c_str());
            if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
                return false;  // a regular file in the way
        }
        return IsDirectory(full);
    } catch (...) {
        return false;
    }
}

bool ST_ReplaceFile(const char* from, const char* to) {
    if (from == nullptr || to == nullptr) return false;
    try {
        const std::wstring source = Wide(from), target = Wide(to);
        const DWORD attributes = GetFileAttributesW(source.c_str());
        if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
            return false;
        if (IsDirectory(target)) return false;  // replacing is for files; the move would refuse it anyway
        // MOVEFILE_WRITE_THROUGH waits for the move only, not for the file's own data: flushed first, so
        // that a crash of the system cannot leave the target empty.
        const HANDLE file = CreateFileW(source.c_str(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
        if (file == INVALID_HANDLE_VALUE) return false;
        const BOOL flushed = FlushFileBuffers(file);
        CloseHandle(file);
        return flushed && MoveFileExW(source.c_str(), target.c_str(),
                                      MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH);
    } catch (...) {
        return false;
    }
}

uint16_t** ST_EnumFiles(const char* folder, const char* extension, int32_t* count) {
    if (count != nullptr) *count = 0;
    if (folder == nullptr || extension == nullptr) return nullptr;
    try {
        const std::u16string wantedText = DecodeUtf8(extension, std::strlen(extension));
        std::u16string wanted, lowered;
        if (!AppendLowerCase(wantedText, wanted)) return nullptr;

        const std::wstring base = WithoutTrailingSeparators(Wide(folder));
        WIN32_FIND_DATAW entry;
        const HANDLE find = FindFirstFileW((base + L"\\*").c_str(), &entry);
        if (find == INVALID_HANDLE_VALUE) return nullptr;
        // Closed however the listing ends, an allocation failure included.
        const std::unique_ptr<void, decltype(&FindClose)> closer(find, FindClose);
        std::vector<std::u16string> paths;
        do {
            const std::wstring name = entry.cFileName;
            if (name == L"." || name == L"..") continue;
            lowered.clear();
            if (!AppendLowerCase(Units(name.data(), name.size()), lowered)) continue;
            if (!EndsWith(lowered, wanted)) continue;
            // Joined with "/" like every path the storage helpers build; Windows takes either.
            const std::wstring joined = base + L"/" + name;
            paths.push_back(Units(joined.data(), joined.size()));
        } while (paths.size() < static_cast<std::size_t>(INT32_MAX) && FindNextFileW(find, &entry));
        return CopyListToMalloc(paths, count);
    } catch (...) {
        return nullptr;
    }
}

}  // extern "C"
