#pragma once

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>

namespace zv_loc_fw {

/// Blocks of so many bytes are mappings of their own in every program that has not told its C library otherwise: glibc's
/// heap serves only smaller ones, however its threshold adapts (mallopt(3), M_MMAP_THRESHOLD).
inline constexpr size_t kOwnMappingAnywhere = size_t{32} << 20;

/// Lets the kernel serve a block with large pages, which cost a fraction of the small ones that it would be made of.
/// For memory that has just been allocated and not been written. Any thread; a kernel without large pages says so, and
/// nothing is lost.
/// @param from smaller blocks stay as they are. Choose it so that larger ones are mappings of their own: the advice
///        would stay with a heap's addresses, and whatever lies there next would come in large pages as well
inline void preferLargePages(void* data, size_t size, size_t from) {
    // With pages of 4 KiB large ones have this size; where they are larger, the kernel gives those that fit.
    constexpr size_t kLargePage = size_t{2} << 20;
    if (size >= from) {
        const size_t before = (kLargePage - reinterpret_cast<uintptr_t>(data) % kLargePage) % kLargePage;
        (void)::madvise(static_cast<char*>(data) + before, (size - before) / kLargePage * kLargePage, MADV_HUGEPAGE);
    }
}

}  // namespace zv_loc_fw
