#include "platform/HeapPages.h"

#include <malloc.h>

namespace platform {

/// The device's heap keeps pages for a while by itself.
void keepFreePages() {}

void returnFreePages() {
#ifdef M_PURGE
    (void)mallopt(M_PURGE, 0);
#endif
}

}  // namespace platform
