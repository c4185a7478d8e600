#include "support/RawServer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace test_support {
namespace {

constexpr auto kPatience = std::chrono::seconds(30);

[[noreturn]] void giveUp(const char* what) {
    std::perror(what);
    std::abort();
}

/// The value of Content-Length in a request's head; 0 without one.
size_t contentLength(const std::string& head) {
    std::string lower = head;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const size_t found = lower.find("\r\ncontent-length:");
    return found == std::string::npos ? 0 : std::strtoul(head.c_str() + found + 17, nullptr, 10);
}

}  // namespace

bool RawConnection::waitFor(short events) const {
    pollfd polled[] = {{mFd, events, 0}, {mServer.mStopEvent, POLLIN, 0}};
    while (poll(polled, 2, -1) < 0) {
        if (errno != EINTR) {
            giveUp("poll");
        }
    }
    return polled[1].revents == 0;
}

std::string RawConnection::readRequest() {
    std::string request;
    size_t wanted = std::string::npos;
    while (request.size() < wanted) {
        char buffer[16384];
        if (!waitFor(POLLIN)) {
            return {};
        }
        const ssize_t size = recv(mFd, buffer, sizeof(buffer), 0);
        if (size <= 0) {
            return {};
        }
        request.append(buffer, static_cast<size_t>(size));
        const size_t head = request.find("\r\n\r\n");
        if (wanted == std::string::npos && head != std::string::npos) {
            wanted = head + 4 + contentLength(request.substr(0, head + 2));
        }
    }
    return request;
}

bool RawConnection::sendAll(const std::string& bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        if (!waitFor(POLLOUT)) {
            return false;
        }
        const ssize_t size = send(mFd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0 && errno != EAGAIN && errno != EINTR) {
            return false;
        }
        sent += size > 0 ? static_cast<size_t>(size) : 0;
    }
    return true;
}

void RawConnection::reset() {
    const linger at_once{1, 0};
    setsockopt(mFd, SOL_SOCKET, SO_LINGER, &at_once, sizeof(at_once));
    close(mFd);
    mFd = -1;
}

void RawConnection::stall() {
    char buffer[4096];
    while (waitFor(POLLIN) && recv(mFd, buffer, sizeof(buffer), 0) > 0) {
    }
}

bool RawConnection::sleep(int milliseconds) const {
    pollfd stop{mServer.mStopEvent, POLLIN, 0};
    return poll(&stop, 1, milliseconds) == 0;
}

RawServer::RawServer(Script script) : mScript(std::move(script)) {
    mListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    mStopEvent = eventfd(0, EFD_CLOEXEC);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    if (mListener < 0 || mStopEvent < 0 || bind(mListener, raw, size) != 0 || listen(mListener, 128) != 0 ||
        getsockname(mListener, raw, &size) != 0) {
        giveUp("raw server");
    }
    mPort = ntohs(address.sin_port);
    mAcceptor = std::thread([this] { acceptLoop(); });
}

RawServer::~RawServer() {
    const uint64_t one = 1;
    if (write(mStopEvent, &one, sizeof(one)) != sizeof(one)) {
        giveUp("raw server's stop");
    }
    mAcceptor.join();
    for (std::thread& running : mRunning) {
        running.join();
    }
    close(mListener);
    close(mStopEvent);
}

void RawServer::acceptLoop() {
    while (true) {
        pollfd polled[] = {{mListener, POLLIN, 0}, {mStopEvent, POLLIN, 0}};
        if (poll(polled, 2, -1) < 0 && errno != EINTR) {
            giveUp("poll");
        }
        if (polled[1].revents != 0) {
            return;
        }
        const int fd = accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        {
            const std::lock_guard guard(mMutex);
            ++mAccepted;
            mChanged.notify_all();
        }
        mRunning.emplace_back([this, fd] {
            RawConnection connection(fd, *this);
            mScript(connection);
            if (connection.mFd >= 0) {
                close(connection.mFd);
            }
        });
    }
}

std::string RawServer::url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(mPort) + path;
}

bool RawServer::waitForConnections(size_t count) const {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, kPatience, [&] { return mAccepted >= count; });
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
