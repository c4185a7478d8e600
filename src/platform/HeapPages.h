#pragma once

#include <cstddef>

namespace platform {

/// The heap's dealings with the system. A fresh page costs many times what it costs to fill one, and a large body takes
/// thousands: so pages that the heap has no use for stay with it for the next body, and go back when there is none.

/// What is no larger leaves nothing behind that is worth giving back.
inline constexpr size_t kLargeBlock = size_t{64} << 10;

/// In a process that keeps free pages, blocks of this size and more are mappings of their own: made of large pages they
/// come cheap, and they go back at once.
inline constexpr size_t kOwnMappingFrom = size_t{8} << 20;

/// Makes the heap keep the pages of what is freed, as far as it has that choice. At the process's start, before other
/// threads exist; once.
void keepFreePages();

/// Gives the pages that nothing lies in back to the system. Any thread; others that allocate meanwhile may have to
/// wait, some ms for some ten MiB.
void returnFreePages();

}  // namespace platform
