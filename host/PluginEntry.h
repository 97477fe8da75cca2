// The module's one exported symbol. Everything else in the module is hidden (the build compiles with
// hidden visibility and links the static libraries with their symbols excluded; a Windows DLL exports
// only what is marked dllexport), so the host sees exactly this entry.
#pragma once

#include <cstdint>

#include "host/HostApi.h"

#if defined(_WIN32)
#define BRIVANE_PLUGIN_EXPORT __declspec(dllexport)
#elif defined(__GNUC__)
#define BRIVANE_PLUGIN_EXPORT __attribute__((visibility("default")))
#else
#define BRIVANE_PLUGIN_EXPORT
#endif

// Dispatches one host call; see PluginManager for what each selector does. *result is -1 unless the
// call succeeded; *slot holds the manager between module initialise and module terminate.
extern "C" BRIVANE_PLUGIN_EXPORT void TriglavPluginCall(int64_t* result, void** slot, int64_t selector,
                                                        Server* server, void* reserved);
