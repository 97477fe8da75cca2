// Loading a plug-in module on Windows: LoadLibraryW on the wide form of the UTF-8 path, so that a
// module in a folder with a non-ASCII name loads too.
#include <windows.h>

#include <string>

#include "tools/host/PluginModule.h"

namespace brivane::tools {
namespace {

std::wstring Wide(const std::string& utf8) {
    const int units = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(units > 0 ? units : 0), L'\0');
    if (units > 0)
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), wide.data(), units);
    return wide;
}

}  // namespace

bool PluginModule::Load(const std::string& path, std::string& error) {
    Unload();
    HMODULE handle = LoadLibraryW(Wide(path).c_str());
    if (!handle) {
        error = path + ": cannot load module: Windows error " + std::to_string(GetLastError());
        return false;
    }
    FARPROC symbol = GetProcAddress(handle, "TriglavPluginCall");
    if (!symbol) {
        FreeLibrary(handle);
        error = path + ": not a plug-in module (no TriglavPluginCall)";
        return false;
    }
    m_handle = handle;
    m_entry = reinterpret_cast<TriglavPluginCallProc>(reinterpret_cast<void*>(symbol));
    m_slot = nullptr;
    return true;
}

void PluginModule::Unload() {
    if (m_handle) FreeLibrary(static_cast<HMODULE>(m_handle));
    m_handle = nullptr;
    m_entry = nullptr;
    m_slot = nullptr;
}

}  // namespace brivane::tools
