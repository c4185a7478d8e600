#include "transfer/OpenSockets.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/AutoLock.h"

namespace zv_loc_fw {

namespace {

/// What tells one socket from the next of the same number; 0 when it cannot be had.
ino_t identityOf(curl_socket_t socket) {
    struct stat status = {};
    return ::fstat(socket, &status) == 0 ? status.st_ino : 0;
}

}  // namespace

curl_socket_t OpenSockets::open(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto* sockets = static_cast<OpenSockets*>(self);
    const AutoLock guard(&sockets->mMutex);
    if (sockets->mShutDown) {
        return CURL_SOCKET_BAD;
    }
    const curl_socket_t socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket != CURL_SOCKET_BAD) {
        sockets->mOpen[socket] = identityOf(socket);
    }
    return socket;
}

int OpenSockets::close(void* self, curl_socket_t socket) {
    auto* sockets = static_cast<OpenSockets*>(self);
    const AutoLock guard(&sockets->mMutex);  // held over the close: the number must not be reused under shutDownAll
    sockets->mOpen.erase(socket);
    return ::close(socket);
}

void OpenSockets::shutDownAll() {
    const AutoLock guard(&mMutex);
    mShutDown = true;
    for (const auto& [socket, identity] : mOpen) {
        // libcurl closes one that was never connected without a word: its number may be somebody else's by now.
        if (identityOf(socket) == identity) {
            (void)::shutdown(socket, SHUT_RDWR);  // one that is not connected any more has nothing to end
        }
    }
}

}  // namespace zv_loc_fw
