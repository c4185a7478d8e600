#include "macro/datagram.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>

#include "macro/process.h"

namespace bench {

namespace {

sockaddr_un addressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (void)std::snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    return address;
}

}  // namespace

DatagramEnd::DatagramEnd(const std::string& path, bool server, bool checked)
    : mSocket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)),
      mOwn(addressOf(server ? path : path + "-client")),
      mOther(addressOf(server ? path + "-client" : path)),
      mChecked(checked) {
    (void)::unlink(mOwn.sun_path);
    const timeval patience{kEchoPatienceMs / 1000, 0};
    if (::bind(mSocket, reinterpret_cast<const sockaddr*>(&mOwn), sizeof(mOwn)) != 0 ||
        ::setsockopt(mSocket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience)) != 0) {
        die("no socket at " + path);
    }
}

DatagramEnd::~DatagramEnd() {
    (void)::unlink(mOwn.sun_path);
    (void)::close(mSocket);
}

bool DatagramEnd::send(const char* data, std::size_t size) {
    struct stat file {};
    if (mChecked && ::lstat(mOther.sun_path, &file) != 0) {
        return false;
    }
    return ::sendto(mSocket, data, size, 0, reinterpret_cast<const sockaddr*>(&mOther), sizeof(mOther)) >= 0;
}

std::size_t DatagramEnd::take(char* data, std::size_t size) {
    if (mChecked && ::recv(mSocket, nullptr, 0, MSG_PEEK | MSG_TRUNC) <= 0) {
        return 0;
    }
    const ssize_t got = ::recv(mSocket, data, size, 0);
    return got > 0 ? static_cast<std::size_t>(got) : 0;
}

}  // namespace bench
