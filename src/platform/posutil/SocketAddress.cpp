#include "platform/posutil/SocketAddress.h"

#include <cstddef>
#include <cstring>

namespace pos_util {

bool SocketAddress::set(const char* path) {
    const size_t length = path != nullptr ? strlen(path) : 0;
    if (length == 0 || length >= sizeof(mAddress.sun_path)) {
        return false;
    }
    mAddress.sun_family = AF_UNIX;
    memcpy(mAddress.sun_path, path, length + 1);
    mLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + 1);
    return true;
}

}  // namespace pos_util
