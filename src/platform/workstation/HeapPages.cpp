#include "platform/HeapPages.h"

#include <malloc.h>

namespace platform {

namespace {

/// When so much is free at the heap's end, it goes back at once: a reply of just less than an own mapping passes
/// through three blocks.
constexpr int kMostKept = 4 * static_cast<int>(kOwnMappingFrom);

}  // namespace

void keepFreePages() {
    // One heap for all threads: the C library keeps the free ends of further ones for itself, and a block that one
    // thread makes and another frees wanders between them. Small blocks do not come to its lock; the library has a few
    // for every thread.
    (void)mallopt(M_ARENA_MAX, 1);
    (void)mallopt(M_MMAP_THRESHOLD, static_cast<int>(kOwnMappingFrom));
    (void)mallopt(M_TRIM_THRESHOLD, kMostKept);
}

void returnFreePages() {
    (void)malloc_trim(0);
}

}  // namespace platform
