// Loading a plug-in module on POSIX systems: dlopen.
#include "tools/host/PluginModule.h"

#include <dlfcn.h>

namespace brivane::tools {

bool PluginModule::Load(const std::string& path, std::string& error) {
    Unload();
    // RTLD_LOCAL: the module's symbols must not leak into the host or into the next module loaded.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        error = path + ": cannot load module: " + (reason ? reason : "unknown reason");
        return false;
    }
    void* symbol = dlsym(handle, "TriglavPluginCall");
    if (!symbol) {
        dlclose(handle);
        error = path + ": not a plug-in module (no TriglavPluginCall)";
        return false;
    }
    m_handle = handle;
    m_entry = reinterpret_cast<TriglavPluginCallProc>(symbol);
    m_slot = nullptr;
    return true;
}

void PluginModule::Unload() {
    if (m_handle) dlclose(m_handle);
    m_handle = nullptr;
    m_entry = nullptr;
    m_slot = nullptr;
}

}  // namespace brivane::tools
