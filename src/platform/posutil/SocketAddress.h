#pragma once

#include <sys/socket.h>
#include <sys/un.h>

namespace pos_util {

/// The address of a socket file.
class SocketAddress {
public:
    /// @return false when the path is null, empty or too long for an address; the address is unusable then
    bool set(const char* path);

    [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&mAddress); }
    [[nodiscard]] socklen_t length() const { return mLength; }
    [[nodiscard]] const char* path() const { return mAddress.sun_path; }

private:
    sockaddr_un mAddress = {};
    socklen_t mLength = 0;
};

}  // namespace pos_util
