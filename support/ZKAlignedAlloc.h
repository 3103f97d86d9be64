// Aligned blocks from the general toolbox.
#pragma once

#include <cstddef>

// A block of size bytes whose address is a multiple of alignment (a power of
// two), or null when memory is exhausted. Free it with ZKFreePtrAligned.
void* ZKAllocPtrAligned(size_t size, size_t alignment);
// Accepts null.
void ZKFreePtrAligned(void* block);
