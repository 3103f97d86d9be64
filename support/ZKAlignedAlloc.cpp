#include "support/ZKAlignedAlloc.h"

#include <cstdlib>

void* ZKAllocPtrAligned(size_t size, size_t alignment)
{
    if (alignment < sizeof(void*))
        alignment = sizeof(void*);
    void* block = nullptr;
    if (posix_memalign(&block, alignment, size == 0 ? 1 : size) != 0)
        return nullptr;
    return block;
}

void ZKFreePtrAligned(void* block)
{
    std::free(block);
}
