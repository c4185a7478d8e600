#pragma once

#include <curl/curl.h>
#include <sys/types.h>

#include <map>

#include "base/MutexImpl.h"

namespace zv_loc_fw {

/// The sockets that one transfer handle has open, so that another thread can end what is waiting on them. libcurl asks
/// its progress callback only about once a second while nothing moves; a socket that is shut down is read at once.
class OpenSockets {
public:
    OpenSockets() : mMutex("OpenSockets", false) {}

    /// libcurl's CURLOPT_OPENSOCKETFUNCTION and CURLOPT_CLOSESOCKETFUNCTION; the user pointer is an OpenSockets.
    static curl_socket_t open(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int close(void* self, curl_socket_t socket);

    /// Shuts every open socket down, and lets no other be opened from now on. Any thread.
    void shutDownAll();

private:
    MutexImpl mMutex;
    std::map<curl_socket_t, ino_t> mOpen GUARDED_BY(mMutex);
    bool mShutDown GUARDED_BY(mMutex) = false;
};

}  // namespace zv_loc_fw
