// PluginModule: a plug-in module loaded with dlopen (LoadLibraryW on Windows), and the data slot the host
// keeps for it. The loading is the one piece of the tools that knows the system: PluginModulePosix.cpp or
// PluginModuleWindows.cpp, picked by the build.
#pragma once

#include <cstdint>
#include <string>

#include "host/HostApi.h"

namespace brivane::tools {

class PluginModule {
public:
    PluginModule() = default;
    ~PluginModule() { Unload(); }
    PluginModule(const PluginModule&) = delete;
    PluginModule& operator=(const PluginModule&) = delete;

    // Loads the module and resolves TriglavPluginCall. False with a one-line reason.
    bool Load(const std::string& path, std::string& error);
    // Unloads the module; the caller terminates it first (module terminate), as a host does.
    void Unload();
    bool IsLoaded() const { return m_entry != nullptr; }
    // Takes an entry linked into this program instead of a loaded one (the fuzzer links the module in,
    // so that its coverage and sanitizers see the module's code).
    void Attach(TriglavPluginCallProc entry) { m_entry = entry; }

    // Calls the entry with this module's data slot; returns the result word (-1 unless the entry wrote
    // something else, and -1 when nothing is loaded).
    int64_t Call(int64_t selector, Server* server) {
        int64_t result = kHostCallFailed;
        if (m_entry) m_entry(&result, &m_slot, selector, server, nullptr);
        return result;
    }
    void* Slot() const { return m_slot; }
    void SetSlot(void* slot) { m_slot = slot; }
    TriglavPluginCallProc Entry() const { return m_entry; }

private:
    void* m_handle = nullptr;
    TriglavPluginCallProc m_entry = nullptr;
    void* m_slot = nullptr;
};

}  // namespace brivane::tools
