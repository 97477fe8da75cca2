// The system's side of ST_AllocatePages: one definition per system, beside its other ST_ functions.
#pragma once

#include <cstddef>

namespace brivane::bridge {

// Blocks of at least this many bytes come from the system's virtual memory, smaller ones from the heap,
// where they cost less and the sanitisers watch their bounds.
inline constexpr std::size_t kMappedBytes = std::size_t{1} << 20;

// A zeroed block of `bytes` (at least kMappedBytes) from the system, or null.
void* MapPages(std::size_t bytes);
// Returns a block from MapPages of `bytes` to the system.
void UnmapPages(void* pages, std::size_t bytes);

}  // namespace brivane::bridge
