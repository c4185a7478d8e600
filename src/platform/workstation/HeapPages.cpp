#include "platform/HeapPages.h"

#include <malloc.h>

namespace platform {

namespace {

/// Blocks of this size and more are mappings of their own, in large pages: these come cheap, and go with the block.
constexpr int kOwnMappingFrom = 8 << 20;
/// Free memory at the heap's end beyond it goes back at once: for the three blocks that a reply of just less passes through.
constexpr int kKept = 4 * kOwnMappingFrom;

}  // namespace

void keepFreePages() {
    // One heap for all threads: the C library keeps the free ends of further ones for itself, and a block that one thread
    // makes and another frees wanders between them. Small blocks do not come to its lock; the library has a few for every
    // thread.
    (void)mallopt(M_ARENA_MAX, 1);
    (void)mallopt(M_MMAP_THRESHOLD, kOwnMappingFrom);
    (void)mallopt(M_TRIM_THRESHOLD, kKept);
}

void returnFreePages() {
    (void)malloc_trim(0);
}

}  // namespace platform
