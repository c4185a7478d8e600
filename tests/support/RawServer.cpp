#include "support/RawServer.h"

#include <arpa/inet.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace test_support {
namespace {

/// The value of Content-Length in a request's head; 0 without one.
size_t contentLength(const std::string& head) {
    static constexpr char kName[] = "\r\ncontent-length:";
    for (size_t at = head.find("\r\n"); at != std::string::npos; at = head.find("\r\n", at + 1)) {
        if (strncasecmp(head.c_str() + at, kName, sizeof(kName) - 1) == 0) {
            return std::strtoul(head.c_str() + at + sizeof(kName) - 1, nullptr, 10);
        }
    }
    return 0;
}

}  // namespace

std::string RawConnection::readRequest() {
    std::string request;
    size_t wanted = std::string::npos;
    while (request.size() < wanted) {
        char buffer[16384];
        const ssize_t size = recv(mFd, buffer, sizeof(buffer), 0);
        if (size <= 0) {
            return {};
        }
        request.append(buffer, static_cast<size_t>(size));
        const size_t head = request.find("\r\n\r\n");
        if (wanted == std::string::npos && head != std::string::npos) {
            wanted = head + 4 + contentLength(request.substr(0, head));
        }
    }
    return request;
}

bool RawConnection::sendAll(const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t size = send(mFd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (size < 0) {
            return false;
        }
        sent += static_cast<size_t>(size);
    }
    return true;
}

void RawConnection::reset() {
    const linger at_once{1, 0};
    setsockopt(mFd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
}

void RawConnection::stall() {
    char buffer[4096];
    while (recv(mFd, buffer, sizeof(buffer), 0) > 0) {
    }
}

bool RawConnection::sleep(int milliseconds) {
    std::unique_lock lock(mServer.mMutex);
    return !mServer.mChanged.wait_for(lock, std::chrono::milliseconds(milliseconds), [&] { return mServer.mStopping; });
}

RawServer::RawServer(Script script) : mScript(std::move(script)) {
    mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (bind(mListener, raw, size) != 0 || listen(mListener, 128) != 0 || getsockname(mListener, raw, &size) != 0) {
        std::perror("raw server");
        std::abort();
    }
    mPort = ntohs(address.sin_port);
    mAcceptor = std::thread([this] { acceptLoop(); });
}

RawServer::~RawServer() {
    {
        const std::lock_guard guard(mMutex);
        mStopping = true;
        mChanged.notify_all();
        shutdown(mListener, SHUT_RDWR);
        for (const int fd : mOpen) {
            shutdown(fd, SHUT_RDWR);
        }
    }
    mAcceptor.join();
    for (std::thread& running : mRunning) {
        running.join();
    }
    close(mListener);
}

void RawServer::acceptLoop() {
    for (;;) {
        const int fd = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        const std::lock_guard guard(mMutex);
        if (mStopping) {
            close(fd);
            return;
        }
        if (fd < 0) {
            continue;
        }
        ++mAccepted;
        mChanged.notify_all();
        for (const auto& done : mDone) {
            done->join();
            mRunning.erase(done);
        }
        mDone.clear();
        mOpen.insert(fd);
        const auto self = mRunning.emplace(mRunning.end());
        *self = std::thread([this, fd, self] {
            RawConnection connection(fd, *this);
            mScript(connection);
            const std::lock_guard closing(mMutex);
            mOpen.erase(fd);
            close(fd);
            mDone.push_back(self);
        });
    }
}

std::string RawServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

bool RawServer::waitForConnections(size_t count) const {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, std::chrono::seconds(30), [&] { return mAccepted >= count; });
}

RawServer::Script RawServer::answer(std::string bytes) {
    return [bytes = std::move(bytes)](RawConnection& connection) {
        if (!connection.readRequest().empty()) {
            connection.sendAll(bytes);
        }
    };
}

std::string RawServer::response(const std::string& status, const std::list<std::string>& headers,
                                const std::string& body) {
    std::string text = "HTTP/1.1 " + status + "\r\n";
    for (const std::string& header : headers) {
        text += header + "\r\n";
    }
    return text + "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

}  // namespace test_support
