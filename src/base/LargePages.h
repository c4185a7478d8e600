#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace zv_loc_fw {

/// Lets the kernel serve a block with large pages, which cost a fraction of the small ones that it is made of otherwise.
/// For memory that has just been allocated and not been written; small blocks stay as they are. Any thread; cannot fail: a
/// kernel without large pages says so, and nothing is lost.
inline void preferLargePages(void* data, size_t size) {
    // From here on the pages cost more than the copy into them. With pages of 4 KiB large ones have this size; where they
    // are larger, the kernel gives those that fit.
    constexpr size_t kFrom = size_t{4} << 20;
    constexpr size_t kLargePage = size_t{2} << 20;
    if (size >= kFrom) {
        const size_t before = (kLargePage - reinterpret_cast<uintptr_t>(data) % kLargePage) % kLargePage;
        (void)::madvise(static_cast<char*>(data) + before, (size - before) / kLargePage * kLargePage, MADV_HUGEPAGE);
    }
}

}  // namespace zv_loc_fw
