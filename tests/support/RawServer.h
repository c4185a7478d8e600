#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace test_support {

class RawServer;

/// One accepted connection in the hands of a script. Every call ends early once the server stops.
class RawConnection {
public:
    RawConnection(int fd, RawServer& server) : mFd(fd), mServer(server) {}

    /// Reads a whole request: the head, and as much body as its Content-Length says. Empty when the client left.
    [[nodiscard]] std::string readRequest();
    /// Until the client no longer takes it; false then.
    bool sendAll(const std::string& bytes);
    /// From now on the end of the script is a reset for the client instead of an orderly end.
    void reset();
    /// Does nothing until the client goes away or the server stops.
    void stall();
    /// False as soon as the server stops.
    [[nodiscard]] bool sleep(int milliseconds);

private:
    int mFd;
    RawServer& mServer;
};

/// A TCP server on a free port of 127.0.0.1 that does to each connection what a script says: for servers that no HTTP
/// library would play. Each connection has a thread of its own and is closed when its script returns; the destructor
/// ends them all promptly.
class RawServer {
public:
    using Script = std::function<void(RawConnection&)>;

    explicit RawServer(Script script);
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    [[nodiscard]] std::string url(const std::string& path = "/") const;
    /// Waits until so many were accepted; false after 30 seconds.
    [[nodiscard]] bool waitForConnections(size_t count) const;

    /// A script that reads the request, answers with these bytes and closes.
    [[nodiscard]] static Script answer(std::string bytes);
    /// A whole answer: status line ("200 OK"), header lines ("Retry-After: 120"), Content-Length, body.
    [[nodiscard]] static std::string response(const std::string& status, const std::list<std::string>& headers,
                                              const std::string& body);

private:
    friend class RawConnection;
    void acceptLoop();

    Script mScript;
    int mListener = -1;
    int mPort = 0;
    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    bool mStopping = false;
    size_t mAccepted = 0;
    std::set<int> mOpen;
    std::list<std::thread> mRunning;  // touched by the accepting thread, and by the destructor after that has ended
    std::list<std::list<std::thread>::iterator> mDone;  // of mRunning: joined with the next connection
    std::thread mAcceptor;
};

}  // namespace test_support
