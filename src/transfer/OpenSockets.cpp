#include "transfer/OpenSockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include "base/AutoLock.h"

namespace zv_loc_fw {

curl_socket_t OpenSockets::open(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto* sockets = static_cast<OpenSockets*>(self);
    const AutoLock guard(&sockets->mMutex);
    if (sockets->mShutDown) {
        return CURL_SOCKET_BAD;
    }
    const curl_socket_t socket = ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket != CURL_SOCKET_BAD) {
        sockets->mOpen.insert(socket);
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
    for (const curl_socket_t socket : mOpen) {
        (void)::shutdown(socket, SHUT_RDWR);  // one that is not connected any more has nothing to end
    }
}

}  // namespace zv_loc_fw
