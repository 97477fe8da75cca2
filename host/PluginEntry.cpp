#include "host/PluginEntry.h"

#include "host/PluginManager.h"

extern "C" BRIVANE_PLUGIN_EXPORT void TriglavPluginCall(int64_t* result, void** slot, int64_t selector,
                                                        Server* server, void*) {
    // Without a place for the result or the manager there is nothing to report into or keep.
    if (!result) return;
    *result = kHostCallFailed;
    if (!server || !slot) return;

    if (selector == kHostSelectorModuleInitialize) {
        PluginManager* manager = CreatePluginManager();
        if (!manager) return;
        const bool registered = manager->RegisterPlugin(server);
        // Kept even when the host refused it: module terminate is what frees the manager.
        *slot = manager;
        if (registered) *result = kHostCallSucceeded;
        return;
    }

    auto* manager = static_cast<PluginManager*>(*slot);
    if (!manager) return;
    manager->AttachServer(server);

    switch (selector) {
        case kHostSelectorModuleTerminate:
            delete manager;
            *slot = nullptr;
            *result = kHostCallSucceeded;
            break;
        case kHostSelectorFilterInitialize:
            manager->InitFilter();
            if (manager->OnInitFilter()) *result = kHostCallSucceeded;
            break;
        case kHostSelectorFilterRun:
            manager->ExecuteFilter();
            *result = kHostCallSucceeded;
            break;
        case kHostSelectorFilterTerminate:
            if (manager->OnUninitFilter()) *result = kHostCallSucceeded;
            break;
        default:
            *result = kHostCallSucceeded;
            break;
    }
}
