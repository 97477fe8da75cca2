// ST_AllocatePages and ST_FreePages for every system: small blocks from the heap, large ones from the
// system's own MapPages (in each system's bridge source).
#include <cstdlib>

#include "bridge/BridgePages.h"
#include "bridge/PlatformBridge.h"

using namespace brivane::bridge;

extern "C" {

void* ST_AllocatePages(size_t bytes) {
    if (bytes == 0) return nullptr;
    return bytes < kMappedBytes ? std::calloc(bytes, 1) : MapPages(bytes);
}

void ST_FreePages(void* pages, size_t bytes) {
    if (pages == nullptr) return;
    if (bytes < kMappedBytes) {
        std::free(pages);
    } else {
        UnmapPages(pages, bytes);
    }
}

}  // extern "C"
