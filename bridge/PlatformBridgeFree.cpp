// The releasing functions, the same on every system: every bridge allocates its results with malloc.
#include <cstdlib>

#include "bridge/PlatformBridge.h"

extern "C" {

void ST_FreeUtf16(uint16_t* units) {
    std::free(units);
}

void ST_FreeUtf8(char* text) {
    std::free(text);
}

void ST_FreeEnumFiles(uint16_t** files, int32_t count) {
    if (files == nullptr) return;
    if (count < 0) std::abort();
    for (int32_t i = 0; i < count; ++i)
        std::free(files[i]);
    std::free(files);
}

}  // extern "C"
