#include "platform/Heap.h"

#include <malloc.h>

namespace heap {

#if defined(__GLIBC__)

void keepFreedMemory() {
    // The highest threshold that the library takes: what is larger is mapped and unmapped each time.
    constexpr int kMappedFrom = 32 * 1024 * 1024;
    constexpr int kKept = 256 * 1024 * 1024;
    (void)mallopt(M_MMAP_THRESHOLD, kMappedFrom);
    (void)mallopt(M_TRIM_THRESHOLD, kKept);
}

void returnFreedMemory() {
    (void)malloc_trim(0);
}

#else

// The other allocators that this runs with keep a little, give back the rest in their own time, and are not asked.
void keepFreedMemory() {}
void returnFreedMemory() {}

#endif

}  // namespace heap
