#include "macro/ports.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

namespace bench {

namespace {

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

}  // namespace

int freePort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t length = sizeof(address);
    const bool found = ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0 &&
                       ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length) == 0;
    (void)::close(probe);
    return found ? ntohs(address.sin_port) : 0;
}

bool listensAt(int port) {
    const int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool listens = ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    (void)::close(probe);
    return listens;
}

}  // namespace bench
